// SPDX-License-Identifier: Apache-2.0
// The message codec against QDataStream, which defines the wire format: the
// same bytes for every message, and the same fields (null and empty told
// apart) for every input, whole, cut short at any length or damaged.

#include "base64text.h"
#include "nuvmqclassifymessage.h"

#include <QDataStream>
#include <QRandomGenerator>
#include <QtTest>

namespace {

// The reference: the record written and read with QDataStream's own
// operators, the way the format was first defined.
QByteArray referenceEncode(nuvMQClassifyMessage &m)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << m.headerText4 << m.headerText1 << m.headerText2 << m.headerText3 << m.headerText5
        << m.command << m.hasErrorText << m.errorText << m.headerFlag << m.headerNumber
        << m.getDocId() << m.getUpdateRequested() << m.getUpdateString() << m.getDataList()
        << m.getData() << m.getCurrentArchive() << m.getAvailablePlugins();
    return bytes;
}

// Qt's list operator without its up-front reserve, which a damaged count
// would turn into a huge allocation; otherwise exactly Qt's reading.
template<typename T> QList<T> referenceList(QDataStream &in)
{
    const QDataStream::Status before = in.status();
    in.resetStatus();
    QList<T> list;
    quint32 count = 0;
    in >> count;
    for (quint32 i = 0; i < count; ++i) {
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
    return list;
}

void referenceDecode(const QByteArray &bytes, nuvMQClassifyMessage &m)
{
    QDataStream in(bytes);
    QString docId, updateString, currentArchive;
    bool updateRequested = false;
    in >> m.headerText4 >> m.headerText1 >> m.headerText2 >> m.headerText3 >> m.headerText5
        >> m.command >> m.hasErrorText >> m.errorText >> m.headerFlag >> m.headerNumber >> docId
        >> updateRequested >> updateString;
    const QStringList dataList = referenceList<QString>(in);
    const QList<QByteArray> data = referenceList<QByteArray>(in);
    in >> currentArchive;
    const QStringList plugins = referenceList<QString>(in);
    m.setDocId(docId);
    m.setUpdateRequested(updateRequested);
    m.setUpdateString(updateString);
    m.setDataList(dataList);
    m.setData(data);
    m.setCurrentArchive(currentArchive);
    m.setAvailablePlugins(plugins);
}

// Strings and byte arrays with null told apart from empty.
QString shown(const QString &s)
{
    return s.isNull() ? QStringLiteral("<null>") : QLatin1Char('"') + s + QLatin1Char('"');
}

QString shown(const QByteArray &b)
{
    return b.isNull() ? QStringLiteral("<null>") : QString::fromLatin1(b.toHex());
}

template<typename T> QString shown(const QList<T> &list)
{
    QStringList parts;
    for (const T &item : list)
        parts << shown(item);
    return QLatin1Char('[') + parts.join(QLatin1Char(',')) + QLatin1Char(']');
}

QString fields(nuvMQClassifyMessage &m)
{
    return QStringList { shown(m.headerText4),
                         shown(m.headerText1),
                         shown(m.headerText2),
                         shown(m.headerText3),
                         shown(m.headerText5),
                         shown(m.command),
                         QString::number(m.hasErrorText),
                         shown(m.errorText),
                         QString::number(m.headerFlag),
                         QString::number(m.headerNumber),
                         shown(m.getDocId()),
                         QString::number(m.getUpdateRequested()),
                         shown(m.getUpdateString()),
                         shown(m.getDataList()),
                         shown(m.getData()),
                         shown(m.getCurrentArchive()),
                         shown(m.getAvailablePlugins()) }
        .join(QLatin1Char('|'));
}

QString randomText(QRandomGenerator &random)
{
    switch (random.bounded(6)) {
    case 0:
        return QString();
    case 1:
        return QStringLiteral("");
    default: {
        QString s;
        const int length = random.bounded(12);
        for (int i = 0; i < length; ++i)
            s += QChar(
                ushort(random.bounded(3) == 0 ? random.bounded(0x10000) : 32 + random.bounded(95)));
        return s;
    }
    }
}

QByteArray randomBytes(QRandomGenerator &random)
{
    switch (random.bounded(4)) {
    case 0:
        return QByteArray();
    case 1:
        return QByteArray("");
    default: {
        QByteArray b(random.bounded(40), Qt::Uninitialized);
        for (char &c : b)
            c = char(random.bounded(256));
        return b;
    }
    }
}

nuvMQClassifyMessage randomMessage(QRandomGenerator &random)
{
    nuvMQClassifyMessage m;
    m.headerText1 = randomText(random);
    m.headerText2 = randomText(random);
    m.headerText3 = randomText(random);
    m.headerText4 = randomText(random);
    m.headerText5 = randomText(random);
    m.command = randomText(random);
    m.hasErrorText = random.bounded(2);
    m.errorText = randomText(random);
    m.headerFlag = random.bounded(2);
    m.headerNumber = qint64(random.generate64());
    m.setDocId(randomText(random));
    m.setUpdateRequested(random.bounded(2));
    m.setUpdateString(randomText(random));
    QStringList list, plugins;
    QList<QByteArray> data;
    for (int i = random.bounded(4); i > 0; --i)
        list << randomText(random);
    for (int i = random.bounded(4); i > 0; --i)
        data << randomBytes(random);
    for (int i = random.bounded(3); i > 0; --i)
        plugins << randomText(random);
    m.setDataList(list);
    m.setData(data);
    m.setCurrentArchive(randomText(random));
    m.setAvailablePlugins(plugins);
    return m;
}

void appendNumber(QByteArray &bytes, quint32 value)
{
    QDataStream out(&bytes, QIODevice::Append);
    out << value;
}

} // namespace

class WireReferenceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void encodesAsQDataStream_data();
    void encodesAsQDataStream();
    void decodesAsQDataStream_data();
    void decodesAsQDataStream();
    void base64AsQByteArray_data();
    void base64AsQByteArray();
    void largestMessageThatFits_data();
    void largestMessageThatFits();
};

void WireReferenceTest::encodesAsQDataStream_data()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 1; seed <= 200; ++seed)
        QTest::addRow("random message %u", seed) << seed;
}

void WireReferenceTest::encodesAsQDataStream()
{
    QFETCH(quint32, seed);
    QRandomGenerator random(seed);
    nuvMQClassifyMessage message = randomMessage(random);
    QCOMPARE(message.toWireBytes(), referenceEncode(message));

    QString text;
    message.convertToBase64(text);
    QCOMPARE(text, QString::fromLatin1(referenceEncode(message).toBase64()));
}

void WireReferenceTest::decodesAsQDataStream_data()
{
    QTest::addColumn<QByteArray>("input");

    QRandomGenerator random(7);
    for (int n = 0; n < 40; ++n) {
        nuvMQClassifyMessage message = randomMessage(random);
        const QByteArray whole = referenceEncode(message);
        QTest::addRow("message %d whole", n) << whole;
        // Cut short at every length, and with one byte damaged.
        for (int length = 0; length < whole.size(); length += 1 + n % 3)
            QTest::addRow("message %d cut at %d", n, length) << whole.left(length);
        for (int flip = 0; flip < 8; ++flip) {
            QByteArray damaged = whole;
            damaged[random.bounded(damaged.size())] = char(random.bounded(256));
            QTest::addRow("message %d damaged %d", n, flip) << damaged;
        }
    }

    QByteArray oddString;
    appendNumber(oddString, 3); // a string of one and a half code units
    oddString.append("abc");
    QTest::newRow("odd string length leaves its bytes to the next field") << oddString;

    QByteArray hugeCount;
    for (int i = 0; i < 5; ++i)
        appendNumber(hugeCount, 0xFFFFFFFF);
    hugeCount.append(QByteArray(11, '\0'));
    hugeCount.append(QByteArray(4, '\xFF')); // docId
    hugeCount.append('\0');
    hugeCount.append(QByteArray(4, '\xFF')); // updateString
    appendNumber(hugeCount, 0x7FFFFFFF); // dataList count
    appendNumber(hugeCount, 0);
    QTest::newRow("list count of two thousand million with one element") << hugeCount;

    QByteArray oddInList = hugeCount.left(hugeCount.size() - 8);
    appendNumber(oddInList, 2);
    appendNumber(oddInList, 2);
    oddInList.append("ab");
    appendNumber(oddInList, 5);
    oddInList.append("abcde");
    QTest::newRow("list whose second string has an odd length") << oddInList;

    QTest::newRow("empty input") << QByteArray();
    QTest::newRow("one byte") << QByteArray(1, '\x01');
    QTest::newRow("all bytes 0xFF") << QByteArray(64, '\xFF');
    QTest::newRow("all bytes zero") << QByteArray(200, '\0');
}

void WireReferenceTest::decodesAsQDataStream()
{
    QFETCH(QByteArray, input);
    nuvMQClassifyMessage decoded, reference;
    decoded.fromWireBytes(input);
    referenceDecode(input, reference);
    QCOMPARE(fields(decoded), fields(reference));

    nuvMQClassifyMessage viaText;
    viaText.convertFromBase64(QString::fromLatin1(input.toBase64()));
    QCOMPARE(fields(viaText), fields(reference));
}

void WireReferenceTest::base64AsQByteArray_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << QString();
    QTest::newRow("padded once") << QStringLiteral("YWI=");
    QTest::newRow("padded twice") << QStringLiteral("YQ==");
    QTest::newRow("padding in the middle is skipped") << QStringLiteral("YQ==YWJj");
    QTest::newRow("line breaks and blanks are skipped") << QStringLiteral("YW\nJj ZGVm\r\n");
    QTest::newRow("non-ASCII characters are skipped") << QStringLiteral("YW\u00e4Jj\u20acZA");
    QTest::newRow("a lone surrogate is skipped") << (QStringLiteral("YWJj") + QChar(0xD800) + "ZA");
    QTest::newRow("URL alphabet characters are skipped") << QStringLiteral("-_YWJj");
    QTest::newRow("a dangling character") << QStringLiteral("YWJjZ");
    QRandomGenerator random(11);
    for (int n = 0; n < 100; ++n) {
        QString text;
        for (int i = random.bounded(60); i > 0; --i)
            text += QChar(
                ushort(random.bounded(4) == 0 ? random.bounded(0x10000) : random.bounded(128)));
        QTest::addRow("random text %d", n) << text;
    }
}

void WireReferenceTest::base64AsQByteArray()
{
    QFETCH(QString, text);
    QCOMPARE(nuv::bytesFromBase64Text(text), QByteArray::fromBase64(text.toUtf8()));
    const QByteArray bytes = text.toUtf8();
    QCOMPARE(nuv::base64Text(bytes), QString::fromLatin1(bytes.toBase64()));
}

void WireReferenceTest::largestMessageThatFits_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<bool>("fits");
    QTest::newRow("nothing") << qint64(0) << true;
    QTest::newRow("one byte") << qint64(1) << true;
    // The text of 805,306,320 bytes is 1,073,741,760 characters.
    QTest::newRow("the largest") << qint64(805306320) << true;
    QTest::newRow("one more") << qint64(805306321) << false;
    QTest::newRow("where 4/3 of it overflows int") << qint64(1610612736) << false;
    QTest::newRow("the largest QByteArray") << qint64(std::numeric_limits<int>::max()) << false;
    QTest::newRow("negative") << qint64(-1) << false;
}

void WireReferenceTest::largestMessageThatFits()
{
    QFETCH(qint64, bytes);
    QFETCH(bool, fits);
    QCOMPARE(nuv::fitsBase64Text(bytes), fits);
}

QTEST_GUILESS_MAIN(WireReferenceTest)
#include "tst_wirereference.moc"
