// SPDX-License-Identifier: Apache-2.0
// The one wire format of the classify message: a QDataStream record of 17
// items in a fixed order (stream defaults: big-endian; QString as a 32-bit
// byte length and UTF-16 code units, 0xFFFFFFFF for a null string; bool as
// one byte; qint64 as eight bytes; lists as a 32-bit count and the elements;
// QByteArray as a 32-bit length and the bytes, 0xFFFFFFFF for null), carried
// as standard base64 text with padding.
//
// The record is written and read here directly rather than through
// QDataStream: the encoder knows the exact size up front and the decoder
// makes no intermediate copies, which matters for payloads of many
// megabytes. Both follow QDataStream byte for byte, damaged input included:
// reading goes on after a failure, a length that cannot be read counts as 0,
// a string cut short is null, and a list whose element fails is empty.

#include "base64text.h"
#include "nuvmqclassifymessage.h"

#include <QtEndian>

#include <cstring>

namespace {

constexpr quint32 nullMarker = 0xFFFFFFFF;

qsizetype wireSize(const QString &s)
{
    return 4 + qsizetype(s.size()) * 2;
}

qsizetype wireSize(const QByteArray &b)
{
    return 4 + b.size();
}

template<typename T> qsizetype wireSize(const QList<T> &list)
{
    qsizetype size = 4;
    for (const T &item : list)
        size += wireSize(item);
    return size;
}

class WireWriter
{
public:
    explicit WireWriter(char *begin)
        : at(begin)
    { }
    void number(quint32 v)
    {
        qToBigEndian(v, at);
        at += 4;
    }
    void number(qint64 v)
    {
        qToBigEndian(v, at);
        at += 8;
    }
    void flag(bool v) { *at++ = v ? 1 : 0; }
    void text(const QString &s)
    {
        if (s.isNull())
            return number(nullMarker);
        number(quint32(s.size()) * 2);
        qToBigEndian<ushort>(s.utf16(), s.size(), at);
        at += qsizetype(s.size()) * 2;
    }
    void bytes(const QByteArray &b)
    {
        if (b.isNull())
            return number(nullMarker);
        number(quint32(b.size()));
        if (!b.isEmpty())
            std::memcpy(at, b.constData(), size_t(b.size()));
        at += b.size();
    }
    template<typename T, typename Write> void list(const QList<T> &items, Write write)
    {
        number(quint32(items.size()));
        for (const T &item : items)
            (this->*write)(item);
    }

private:
    char *at;
};

class WireReader
{
public:
    explicit WireReader(const QByteArray &bytes)
        : at(bytes.constData())
        , end(bytes.constData() + bytes.size())
    { }

    quint32 number32()
    {
        if (!take(4))
            return 0;
        return qFromBigEndian<quint32>(at - 4);
    }
    qint64 number64()
    {
        if (!take(8))
            return 0;
        return qFromBigEndian<qint64>(at - 8);
    }
    bool flag() { return take(1) && at[-1] != 0; }

    QString text()
    {
        const quint32 length = number32();
        if (length == nullMarker)
            return QString();
        if (length == 0)
            return QString(QLatin1String(""));
        if (length & 1) {
            fail("a text has an odd byte length"); // the code units are left unread
            return QString();
        }
        if (!take(length))
            return QString();
        QString s(int(length / 2), Qt::Uninitialized);
        qFromBigEndian<ushort>(at - length, s.size(), s.data());
        return s;
    }

    QByteArray bytes()
    {
        const quint32 length = number32();
        if (length == nullMarker)
            return QByteArray();
        if (!take(length))
            return QByteArray();
        return QByteArray(at - length, int(length));
    }

    // A list whose element cannot be read is empty. Its count costs nothing
    // up front: each element needs input, so a damaged count of thousands of
    // millions ends with the input.
    template<typename T> QList<T> list(T (WireReader::*read)())
    {
        QList<T> items;
        failed = false;
        const quint32 count = number32();
        for (quint32 i = 0; i < count && !failed; ++i) {
            T item = (this->*read)();
            if (failed)
                return QList<T>();
            items.append(item);
        }
        return items;
    }

private:
    // Consumes n bytes; with fewer left it consumes the rest and fails.
    bool take(quint32 n)
    {
        if (quint64(end - at) < n) {
            at = end;
            fail("the record is cut short");
            return false;
        }
        at += n;
        return true;
    }
    void fail(const char *why)
    {
        failed = true;
        if (!problem)
            problem = why;
    }

    const char *at;
    const char *end;
    bool failed = false;

public:
    // The first thing that went wrong, kept across lists; null while the
    // record reads cleanly.
    const char *problem = nullptr;
    qsizetype bytesLeft() const { return end - at; }
};

} // namespace

qint64 nuvMQClassifyMessage::wireSize() const
{
    return ::wireSize(headerText4) + ::wireSize(headerText1) + ::wireSize(headerText2)
        + ::wireSize(headerText3) + ::wireSize(headerText5) + ::wireSize(command) + 1
        + ::wireSize(errorText) + 1 + 8 + ::wireSize(docId) + 1 + ::wireSize(updateString)
        + ::wireSize(dataList) + ::wireSize(data) + ::wireSize(currentArchive)
        + ::wireSize(availablePlugins);
}

QByteArray nuvMQClassifyMessage::toWireBytes() const
{
    const qint64 size = wireSize();
    // Beyond what its text can carry the message cannot go out anyway, and
    // its size no longer fits the arithmetic below.
    if (!nuv::fitsBase64Text(size))
        return QByteArray();
    QByteArray bytes(int(size), Qt::Uninitialized);
    WireWriter out(bytes.data());
    out.text(headerText4);
    out.text(headerText1);
    out.text(headerText2);
    out.text(headerText3);
    out.text(headerText5);
    out.text(command);
    out.flag(hasErrorText);
    out.text(errorText);
    out.flag(headerFlag);
    out.number(headerNumber);
    out.text(docId);
    out.flag(updateRequested);
    out.text(updateString);
    out.list(dataList, &WireWriter::text);
    out.list(data, &WireWriter::bytes);
    out.text(currentArchive);
    out.list(availablePlugins, &WireWriter::text);
    return bytes;
}

void nuvMQClassifyMessage::fromWireBytes(const QByteArray &bytes)
{
    readWireBytes(bytes, nullptr);
}

bool nuvMQClassifyMessage::readWireBytes(const QByteArray &bytes, QString *problem)
{
    WireReader in(bytes);
    headerText4 = in.text();
    headerText1 = in.text();
    headerText2 = in.text();
    headerText3 = in.text();
    headerText5 = in.text();
    command = in.text();
    hasErrorText = in.flag();
    errorText = in.text();
    headerFlag = in.flag();
    headerNumber = in.number64();
    docId = in.text();
    updateRequested = in.flag();
    updateString = in.text();
    dataList = in.list(&WireReader::text);
    data = in.list(&WireReader::bytes);
    currentArchive = in.text();
    availablePlugins = in.list(&WireReader::text);
    QString why;
    if (in.problem)
        why = QString::fromLatin1(in.problem);
    else if (in.bytesLeft() > 0)
        why = QStringLiteral("%1 bytes follow the record").arg(in.bytesLeft());
    if (problem)
        *problem = why;
    return why.isEmpty();
}

bool nuvMQClassifyMessage::convertToBase64(QString &out)
{
    const QByteArray bytes = toWireBytes();
    out = nuv::base64Text(bytes);
    // A message has at least its header bytes: null means too large.
    return !bytes.isNull();
}

bool nuvMQClassifyMessage::convertFromBase64(const QString &in)
{
    // Characters outside the base64 alphabet are skipped; whatever the text,
    // a damaged one only yields default fields.
    fromWireBytes(nuv::bytesFromBase64Text(in));
    return true;
}
