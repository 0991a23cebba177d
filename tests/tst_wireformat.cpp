// SPDX-License-Identifier: Apache-2.0
// The classify message and the wire encoding both ends of the broker must
// agree on byte for byte. Expected bytes are written out
// here field by field, never produced by the encoder under test.

#include "nuvmqclassifymessage.h"

#include <QDebug>
#include <QtTest>

#include <fcntl.h>
#include <functional>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

namespace {

// QDataStream's encodings, spelled out.
QByteArray be32(quint32 value)
{
    QByteArray bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.append(char((value >> shift) & 0xff));
    return bytes;
}

QByteArray be64(qint64 value)
{
    return be32(quint32(quint64(value) >> 32)) + be32(quint32(quint64(value) & 0xffffffffu));
}

QByteArray flag(bool value)
{
    return QByteArray(1, value ? '\x01' : '\x00');
}

QByteArray text(const QString &string)
{
    if (string.isNull())
        return be32(0xffffffffu);
    QByteArray bytes = be32(quint32(string.size() * 2));
    for (const QChar c : string) {
        bytes.append(char(c.unicode() >> 8));
        bytes.append(char(c.unicode() & 0xff));
    }
    return bytes;
}

QByteArray bytesItem(const QByteArray &array)
{
    return array.isNull() ? be32(0xffffffffu) : be32(quint32(array.size())) + array;
}

QByteArray texts(const QStringList &list)
{
    QByteArray bytes = be32(quint32(list.size()));
    for (const QString &s : list)
        bytes += text(s);
    return bytes;
}

QByteArray byteArrays(const QList<QByteArray> &list)
{
    QByteArray bytes = be32(quint32(list.size()));
    for (const QByteArray &a : list)
        bytes += bytesItem(a);
    return bytes;
}

// The wire record of `m`, item by item in stream order, with the offset at
// which each item ends.
struct HandEncoding
{
    QByteArray bytes;
    QList<int> itemEnds;
};

HandEncoding encodeByHand(nuvMQClassifyMessage &m)
{
    const QList<QByteArray> items {
        text(m.headerText4),
        text(m.headerText1),
        text(m.headerText2),
        text(m.headerText3),
        text(m.headerText5),
        text(m.command),
        flag(m.hasErrorText),
        text(m.errorText),
        flag(m.headerFlag),
        be64(m.headerNumber),
        text(m.getDocId()),
        flag(m.getUpdateRequested()),
        text(m.getUpdateString()),
        texts(m.getDataList()),
        byteArrays(m.getData()),
        text(m.getCurrentArchive()),
        texts(m.getAvailablePlugins()),
    };
    HandEncoding encoding;
    for (const QByteArray &item : items) {
        encoding.bytes += item;
        encoding.itemEnds.append(encoding.bytes.size());
    }
    return encoding;
}

// The streamed items in stream order, each as comparable text. A failed
// read yields an empty string where a null one was sent; QDebug prints both
// as "".
QStringList itemTexts(nuvMQClassifyMessage &m)
{
    QStringList texts;
    const auto add = [&texts](const auto &value) {
        QString out;
        QDebug(&out) << value;
        texts.append(out);
    };
    add(m.headerText4);
    add(m.headerText1);
    add(m.headerText2);
    add(m.headerText3);
    add(m.headerText5);
    add(m.command);
    add(m.hasErrorText);
    add(m.errorText);
    add(m.headerFlag);
    add(m.headerNumber);
    add(m.getDocId());
    add(m.getUpdateRequested());
    add(m.getUpdateString());
    add(m.getDataList());
    add(m.getData());
    add(m.getCurrentArchive());
    add(m.getAvailablePlugins());
    return texts;
}

// A message with every field set, in text that needs more than Latin-1.
nuvMQClassifyMessage filledMessage()
{
    nuvMQClassifyMessage m;
    m.headerText1 = QStringLiteral("kopf eins");
    m.headerText2 = QStringLiteral("");
    m.headerText3 = QStringLiteral("drei");
    m.headerText4 = QStringLiteral("vier \u00e4");
    m.headerText5 = QStringLiteral("f\u00fcnf");
    m.command = QStringLiteral("CFDOCCLASSIFY");
    m.hasErrorText = true;
    m.errorText = QStringLiteral("Fehler: \u20ac");
    m.headerFlag = true;
    m.headerNumber = -1234567890123LL;
    m.setDocId(QStringLiteral("17\ufeff18"));
    m.setUpdateRequested(true);
    m.setUpdateString(QStringLiteral("2024-05-01 10:00:00"));
    m.setDataList({ QStringLiteral("a"), QString(), QStringLiteral(""),
                    QString::fromUtf8("\xf0\x9f\x93\x84") });
    m.setData({ QByteArray("x\0y", 3), QByteArray(), QByteArray(""), QByteArray("payload") });
    m.setCurrentArchive(QStringLiteral("Archiv"));
    m.setAvailablePlugins({ QStringLiteral("first"), QStringLiteral("scan") });
    return m;
}

QString base64Of(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

// Runs `work` in a child process whose address space may grow by no more
// than `headroom` bytes; true when the child finished normally with true.
// A gigabyte allocation fails there, and the child dies of it.
bool runsWithinMemory(const std::function<bool()> &work, qint64 headroom)
{
    const pid_t child = fork();
    if (child == 0) {
        QFile statm(QStringLiteral("/proc/self/statm"));
        if (!statm.open(QIODevice::ReadOnly))
            _exit(3);
        const qint64 pages = statm.readAll().split(' ').value(0).toLongLong();
        const rlim_t limit = rlim_t(pages * sysconf(_SC_PAGESIZE) + headroom);
        const rlimit bound { limit, limit };
        if (setrlimit(RLIMIT_AS, &bound) != 0)
            _exit(4);
        // A failed allocation ends the child; its report is no test output.
        const int devNull = open("/dev/null", O_WRONLY);
        dup2(devNull, STDOUT_FILENO);
        dup2(devNull, STDERR_FILENO);
        signal(SIGABRT, SIG_DFL);
        try {
            _exit(work() ? 0 : 1);
        } catch (...) {
            _exit(5);
        }
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child)
        return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The fixed part of a record up to and including `updateString`, with
// every string null.
QByteArray defaultHead()
{
    return text(QString()).repeated(6) + flag(false) + text(QString()) + flag(false) + be64(0)
        + text(QString()) + flag(false) + text(QString());
}

} // namespace

using MessageCheck = std::function<bool(nuvMQClassifyMessage &)>;
Q_DECLARE_METATYPE(MessageCheck)

class WireFormatTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultMessageBytes();
    void filledMessageBytes();
    void dataListCountIsBigEndian_data();
    void dataListCountIsBigEndian();
    void byteArraysRoundTrip_data();
    void byteArraysRoundTrip();
    void emptyInputDecodesToDefaults_data();
    void emptyInputDecodesToDefaults();
    void truncatedInput_data();
    void truncatedInput();
    void damagedInput_data();
    void damagedInput();
    void hugeCountsStayWithinMemory_data();
    void hugeCountsStayWithinMemory();

    void assignmentCopiesOnlyCommandFields();
    void typeAndSize();
    void accessors();
};

void WireFormatTest::defaultMessageBytes()
{
    // Five null header strings, a null command, a zero byte, a null error
    // text, a zero byte, eight zero bytes, a null docId, a zero byte, a null
    // update string, two zero counts, a null archive and a zero count.
    const QByteArray expected = QByteArray(5 * 4, '\xff') + QByteArray(4, '\xff')
        + QByteArray(1, '\0') + QByteArray(4, '\xff') + QByteArray(1, '\0') + QByteArray(8, '\0')
        + QByteArray(4, '\xff') + QByteArray(1, '\0') + QByteArray(4, '\xff') + QByteArray(4, '\0')
        + QByteArray(4, '\0') + QByteArray(4, '\xff') + QByteArray(4, '\0');
    QCOMPARE(expected.size(), 63);

    nuvMQClassifyMessage message;
    QString wire = QStringLiteral("stale text that must be replaced");
    QVERIFY(message.convertToBase64(wire));
    QCOMPARE(QByteArray::fromBase64(wire.toLatin1()), expected);
    QCOMPARE(wire,
             QStringLiteral("////////////////////////////////AP////8AAAAAAAAAAAD/////AP////"
                            "8AAAAAAAAAAP////8AAAAA"));

    nuvMQClassifyMessage decoded = filledMessage();
    QVERIFY(decoded.convertFromBase64(wire));
    nuvMQClassifyMessage reference;
    QCOMPARE(itemTexts(decoded), itemTexts(reference));
    QVERIFY(decoded.command.isNull());
    QVERIFY(decoded.getCurrentArchive().isNull());
}

void WireFormatTest::filledMessageBytes()
{
    nuvMQClassifyMessage message = filledMessage();
    const HandEncoding expected = encodeByHand(message);
    QCOMPARE(message.toWireBytes(), expected.bytes);

    QString wire;
    QVERIFY(message.convertToBase64(wire));
    QCOMPARE(wire, base64Of(expected.bytes));

    nuvMQClassifyMessage decoded;
    QVERIFY(decoded.convertFromBase64(wire));
    QCOMPARE(itemTexts(decoded), itemTexts(message));
    // Null and empty survive as such: the wire tells them apart.
    QVERIFY(decoded.getDataList().at(1).isNull());
    QVERIFY(!decoded.getDataList().at(2).isNull());
    QVERIFY(decoded.headerText2.isEmpty() && !decoded.headerText2.isNull());
}

void WireFormatTest::dataListCountIsBigEndian_data()
{
    QTest::addColumn<QStringList>("list");
    QTest::newRow("three strings: count 3 in four big-endian bytes, then the strings")
        << QStringList { QStringLiteral("eins"), QStringLiteral("zwei"), QStringLiteral("drei") };
    QTest::newRow("no strings: a zero count only") << QStringList();
    QTest::newRow("a string outside the basic plane takes two code units")
        << QStringList { QString::fromUtf8("\xf0\x9f\x93\x84") };
    QTest::newRow("300 strings: the count spans two bytes")
        << QStringList(QVector<QString>(300, QStringLiteral("s")).toList());
}

void WireFormatTest::dataListCountIsBigEndian()
{
    QFETCH(QStringList, list);
    nuvMQClassifyMessage message;
    message.setDataList(list);

    QByteArray listBytes = be32(quint32(list.size()));
    for (const QString &s : list)
        listBytes += text(s);
    const QByteArray expected = defaultHead() + listBytes + be32(0) + text(QString()) + be32(0);
    QCOMPARE(message.toWireBytes(), expected);
    QCOMPARE(message.toWireBytes().mid(defaultHead().size(), 4), be32(quint32(list.size())));
}

void WireFormatTest::byteArraysRoundTrip_data()
{
    QTest::addColumn<QList<QByteArray>>("data");
    QTest::newRow("an empty then a non-empty byte array")
        << QList<QByteArray> { QByteArray(""), QByteArray("abc") };
    QTest::newRow("a non-empty then an empty byte array")
        << QList<QByteArray> { QByteArray("abc"), QByteArray("") };
    QTest::newRow("a null byte array stays null")
        << QList<QByteArray> { QByteArray(), QByteArray("x") };
    QTest::newRow("bytes with zeros and high bits")
        << QList<QByteArray> { QByteArray("\0\xff\x80\0", 4) };
    QTest::newRow("no byte arrays") << QList<QByteArray>();
    QTest::newRow("a byte array of one megabyte and one")
        << QList<QByteArray> { QByteArray(1024 * 1024 + 1, 'q'), QByteArray("") };
}

void WireFormatTest::byteArraysRoundTrip()
{
    QFETCH(QList<QByteArray>, data);
    nuvMQClassifyMessage message;
    message.setData(data);
    QString wire;
    QVERIFY(message.convertToBase64(wire));
    QCOMPARE(QByteArray::fromBase64(wire.toLatin1()).mid(defaultHead().size() + 4),
             byteArrays(data) + text(QString()) + be32(0));

    nuvMQClassifyMessage decoded;
    QVERIFY(decoded.convertFromBase64(wire));
    const QList<QByteArray> result = decoded.getData();
    QCOMPARE(result, data);
    for (int i = 0; i < data.size(); ++i)
        QCOMPARE(result.at(i).isNull(), data.at(i).isNull());
}

void WireFormatTest::emptyInputDecodesToDefaults_data()
{
    QTest::addColumn<QString>("input");
    QTest::newRow("an empty input text") << QStringLiteral("");
    QTest::newRow("a null input text") << QString();
    QTest::newRow("only characters outside the base64 alphabet")
        << QStringLiteral("!!\u00e4\u00e4 ::");
    QTest::newRow("only padding") << QStringLiteral("====");
}

void WireFormatTest::emptyInputDecodesToDefaults()
{
    QFETCH(QString, input);
    nuvMQClassifyMessage message = filledMessage();
    message.localText = QStringLiteral("local");
    message.localFlag = true;
    message.localNumber = 99;

    QVERIFY(message.convertFromBase64(input));
    nuvMQClassifyMessage reference;
    QCOMPARE(itemTexts(message), itemTexts(reference));
    // What never travels is not touched by a decode.
    QCOMPARE(message.localText, QStringLiteral("local"));
    QCOMPARE(message.localFlag, true);
    QCOMPARE(message.localNumber, qint64(99));
}

void WireFormatTest::truncatedInput_data()
{
    QTest::addColumn<int>("length");
    nuvMQClassifyMessage message = filledMessage();
    const int size = encodeByHand(message).bytes.size();
    for (int length = 0; length <= size; ++length)
        QTest::newRow(qPrintable(QStringLiteral("cut after %1 of %2 bytes").arg(length).arg(size)))
            << length;
}

void WireFormatTest::truncatedInput()
{
    QFETCH(int, length);
    nuvMQClassifyMessage original = filledMessage();
    const HandEncoding wire = encodeByHand(original);

    nuvMQClassifyMessage decoded = filledMessage();
    QVERIFY(decoded.convertFromBase64(base64Of(wire.bytes.left(length))));

    // An item that the input holds whole reads back; the one cut and all
    // after it take the values of a failed read.
    nuvMQClassifyMessage failedRead;
    const QStringList originalItems = itemTexts(original);
    const QStringList failedItems = itemTexts(failedRead);
    QStringList expected;
    for (int item = 0; item < originalItems.size(); ++item)
        expected << (wire.itemEnds.at(item) <= length ? originalItems : failedItems).at(item);
    QCOMPARE(itemTexts(decoded), expected);
}

void WireFormatTest::damagedInput_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<MessageCheck>("check");

    QTest::newRow("odd byte length of the command") << text(QString()).repeated(5) + be32(3)
            + QByteArray("abcdef") << MessageCheck([](nuvMQClassifyMessage &m) {
        return m.command.isEmpty() && m.headerText4.isEmpty();
    });
    QTest::newRow("string length beyond the input") << text(QStringLiteral("ok")) + be32(0x7ffffffe)
            + QByteArray("ab") << MessageCheck([](nuvMQClassifyMessage &m) {
        return m.headerText4 == QLatin1String("ok") && m.headerText1.isEmpty()
            && m.command.isEmpty();
    });
    QTest::newRow("huge dataList count without elements")
        << defaultHead() + be32(0xffffffffu) << MessageCheck([](nuvMQClassifyMessage &m) {
               return m.getDataList().isEmpty() && m.getData().isEmpty();
           });
    QTest::newRow("huge data count with one element")
        << defaultHead() + be32(0) + be32(0x7fffffff) + bytesItem("one")
        << MessageCheck([](nuvMQClassifyMessage &m) { return m.getData().isEmpty(); });
    QTest::newRow("huge availablePlugins count after a whole record") << defaultHead() + be32(1)
            + text(QStringLiteral("kept")) + be32(0) + text(QStringLiteral("A"))
            + be32(0xfffffff0u) << MessageCheck([](nuvMQClassifyMessage &m) {
        return m.getDataList() == QStringList { QStringLiteral("kept") }
        && m.getCurrentArchive() == QLatin1String("A") && m.getAvailablePlugins().isEmpty();
    });
    QByteArray noise;
    quint32 seed = 12345;
    for (int i = 0; i < 400; ++i) {
        seed = seed * 1103515245u + 12345u;
        noise.append(char(seed >> 23));
    }
    QTest::newRow("pseudo-random bytes") << noise << MessageCheck([](nuvMQClassifyMessage &m) {
        QString again;
        return m.convertToBase64(again) && !again.isEmpty();
    });
}

void WireFormatTest::damagedInput()
{
    QFETCH(QByteArray, bytes);
    QFETCH(MessageCheck, check);
    nuvMQClassifyMessage message = filledMessage();
    QVERIFY(message.convertFromBase64(base64Of(bytes)));
    QVERIFY(check(message));
}

using Work = std::function<bool()>;
Q_DECLARE_METATYPE(Work)

void WireFormatTest::hugeCountsStayWithinMemory_data()
{
    QTest::addColumn<Work>("work");
    QTest::addColumn<bool>("fitsInMemory");

    const auto decodes = [](const QByteArray &bytes) {
        return Work([bytes] {
            nuvMQClassifyMessage message;
            message.convertFromBase64(base64Of(bytes));
            return message.getDataList().isEmpty() && message.getData().isEmpty()
                && message.getAvailablePlugins().isEmpty();
        });
    };
    QTest::newRow("dataList count of 2^32-1")
        << decodes(defaultHead() + be32(0xffffffffu) + text(QStringLiteral("x"))) << true;
    QTest::newRow("dataList count of 2^31-1")
        << decodes(defaultHead() + be32(0x7fffffffu) + text(QStringLiteral("x"))) << true;
    QTest::newRow("data count of 2^31-1")
        << decodes(defaultHead() + be32(0) + be32(0x7fffffffu) + bytesItem("x")) << true;
    QTest::newRow("availablePlugins count of 2^31-1")
        << decodes(defaultHead() + be32(0) + be32(0) + text(QString()) + be32(0x7fffffffu)) << true;
    // Shows that the limit bites: without it the rows above prove nothing.
    QTest::newRow("control: reserving a list of 2^28 strings is stopped") << Work([] {
        QStringList list;
        list.reserve(1 << 28);
        return true;
    }) << false;
}

void WireFormatTest::hugeCountsStayWithinMemory()
{
    QFETCH(Work, work);
    QFETCH(bool, fitsInMemory);
    QCOMPARE(runsWithinMemory(work, qint64(256) << 20), fitsInMemory);
}

void WireFormatTest::assignmentCopiesOnlyCommandFields()
{
    nuvMQClassifyMessage source = filledMessage();
    source.localText = QStringLiteral("source local");
    source.localFlag = true;
    source.localNumber = 1;

    nuvMQClassifyMessage target;
    target.headerText1 = QStringLiteral("t1");
    target.headerText2 = QStringLiteral("t2");
    target.headerText3 = QStringLiteral("t3");
    target.headerText4 = QStringLiteral("t4");
    target.headerText5 = QStringLiteral("t5");
    target.headerFlag = false;
    target.headerNumber = 7;
    target.localText = QStringLiteral("target local");
    target.localFlag = false;
    target.localNumber = 2;

    target = source;
    QCOMPARE(target.command, source.command);
    QCOMPARE(target.hasErrorText, source.hasErrorText);
    QCOMPARE(target.errorText, source.errorText);
    QCOMPARE(target.getCurrentArchive(), source.getCurrentArchive());
    QCOMPARE(target.getDocId(), source.getDocId());
    QCOMPARE(target.getDataList(), source.getDataList());
    QCOMPARE(target.getUpdateRequested(), source.getUpdateRequested());
    QCOMPARE(target.getUpdateString(), source.getUpdateString());
    QCOMPARE(target.getData(), source.getData());
    QCOMPARE(target.getAvailablePlugins(), source.getAvailablePlugins());

    QCOMPARE(target.headerText1, QStringLiteral("t1"));
    QCOMPARE(target.headerText2, QStringLiteral("t2"));
    QCOMPARE(target.headerText3, QStringLiteral("t3"));
    QCOMPARE(target.headerText4, QStringLiteral("t4"));
    QCOMPARE(target.headerText5, QStringLiteral("t5"));
    QCOMPARE(target.headerFlag, false);
    QCOMPARE(target.headerNumber, qint64(7));
    QCOMPARE(target.localText, QStringLiteral("target local"));
    QCOMPARE(target.localFlag, false);
    QCOMPARE(target.localNumber, qint64(2));

    nuvMQClassifyMessage &same = target;
    target = same;
    QCOMPARE(target.command, source.command);
    QCOMPARE(target.getData(), source.getData());
}

void WireFormatTest::typeAndSize()
{
    nuvMQClassifyMessage message;
    QCOMPARE(message.getType(), QStringLiteral("nuvmqclassifymessage"));
    QCOMPARE(message.getType().size(), 20);
    QCOMPARE(message.size(), qint64(-1));
    nuvMQMessage &base = message;
    QCOMPARE(base.getType(), QStringLiteral("nuvmqclassifymessage"));
}

void WireFormatTest::accessors()
{
    static_assert(std::is_same<decltype(std::declval<nuvMQClassifyMessage &>().getCurrentArchive()),
                               QString &>::value,
                  "the archive is handed out by reference");
    static_assert(
        std::is_same<decltype(std::declval<nuvMQClassifyMessage &>().getAvailablePlugins()),
                     QStringList &>::value,
        "the plugin list is handed out by reference");

    nuvMQClassifyMessage message;
    message.setCurrentArchive(QStringLiteral("A"));
    message.getCurrentArchive() += QStringLiteral("B");
    QCOMPARE(message.getCurrentArchive(), QStringLiteral("AB"));
    message.setAvailablePlugins({ QStringLiteral("x") });
    message.getAvailablePlugins().append(QStringLiteral("y"));
    QCOMPARE(message.getAvailablePlugins(), QStringList({ "x", "y" }));

    message.setDocId(QStringLiteral("d"));
    message.setUpdateString(QStringLiteral("u"));
    message.setUpdateRequested(true);
    const QStringList list { QStringLiteral("l") };
    message.setDataList(list);
    message.setDataList(message.getDataList());
    message.setData({ QByteArray("b") });
    QCOMPARE(message.getDocId(), QStringLiteral("d"));
    QCOMPARE(message.getUpdateString(), QStringLiteral("u"));
    QCOMPARE(message.getUpdateRequested(), true);
    QCOMPARE(message.getDataList(), list);
    QCOMPARE(message.getData(), QList<QByteArray> { QByteArray("b") });
}

QTEST_GUILESS_MAIN(WireFormatTest)
#include "tst_wireformat.moc"
