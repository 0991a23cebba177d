// The one wire format of the classify message: a QDataStream record of 17
// items in a fixed order (big-endian, the library's default stream version),
// carried as standard base64 text with padding.

#include "nuvmqclassifymessage.h"

#include <QDataStream>

namespace {

// Reads a 32-bit count and that many elements, like Qt's own list operator,
// but without reserving room for the count first: a damaged count of two
// thousand million must cost nothing, since every element needs at least
// four input bytes and the loop stops at the end of the input.
template<typename T>
void readList(QDataStream &in, QList<T> &list)
{
    const QDataStream::Status before = in.status();
    in.resetStatus();
    list.clear();
    quint32 count = 0;
    in >> count;
    for (quint32 i = 0; i < count && in.status() == QDataStream::Ok; ++i) {
        T item;
        in >> item;
        if (in.status() != QDataStream::Ok) {
            list.clear();
            break;
        }
        list.append(item);
    }
    if (before != QDataStream::Ok) {
        in.resetStatus();
        in.setStatus(before);
    }
}

} // namespace

QByteArray nuvMQClassifyMessage::toWireBytes() const
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::ReadWrite);
    out << headerText4 << headerText1 << headerText2 << headerText3 << headerText5 << command
        << hasErrorText << errorText << headerFlag << headerNumber << docId << updateRequested
        << updateString << dataList << data << currentArchive << availablePlugins;
    return bytes;
}

void nuvMQClassifyMessage::fromWireBytes(const QByteArray &bytes)
{
    QDataStream in(bytes);
    in >> headerText4 >> headerText1 >> headerText2 >> headerText3 >> headerText5 >> command
        >> hasErrorText >> errorText >> headerFlag >> headerNumber >> docId >> updateRequested
        >> updateString;
    readList(in, dataList);
    readList(in, data);
    in >> currentArchive;
    readList(in, availablePlugins);
}

bool nuvMQClassifyMessage::convertToBase64(QString &out)
{
    const QByteArray text = toWireBytes().toBase64();
    out = text.isNull() ? QString() : QString::fromLatin1(text);
    return true;
}

bool nuvMQClassifyMessage::convertFromBase64(const QString &in)
{
    // Characters outside the base64 alphabet are skipped by the decoder;
    // whatever the result, a damaged text only yields default fields.
    fromWireBytes(QByteArray::fromBase64(in.toUtf8()));
    return true;
}
