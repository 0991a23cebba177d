// SPDX-License-Identifier: Apache-2.0
// The command block: the plain record in which an operation states its
// request and receives the reply.

#include "nuvkespclassifyblock.h"

#include <QtTest>

#include <functional>
#include <type_traits>

using BlockCopy = std::function<NuvKespClassifyBlock(const NuvKespClassifyBlock &)>;
Q_DECLARE_METATYPE(BlockCopy)

class CommandBlockTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaults();
    void copies_data();
    void copies();
    void keepsEmptyByteArrays_data();
    void keepsEmptyByteArrays();
};

void CommandBlockTest::defaults()
{
    const NuvKespClassifyBlock block;
    QVERIFY(block.command.isNull());
    QVERIFY(block.errorText.isNull());
    QVERIFY(block.dataList.isEmpty());
    QVERIFY(block.docId.isNull());
    QVERIFY(block.data.isEmpty());
    QCOMPARE(block.updateRequested, false);
    QVERIFY(block.updateString.isNull());
    QVERIFY(block.availablePlugins.isEmpty());
    static_assert(!std::is_polymorphic<NuvKespClassifyBlock>::value,
                  "the block is a plain value without virtual operations");
}

void CommandBlockTest::copies_data()
{
    QTest::addColumn<BlockCopy>("copy");
    QTest::newRow("copy construction")
        << BlockCopy([](const NuvKespClassifyBlock &b) { return NuvKespClassifyBlock(b); });
    QTest::newRow("assignment over a filled block") << BlockCopy([](const NuvKespClassifyBlock &b) {
        NuvKespClassifyBlock target;
        target.command = QStringLiteral("old");
        target.dataList = QStringList { QStringLiteral("old") };
        target.data = { QByteArray("old") };
        target.updateRequested = !b.updateRequested;
        target = b;
        return target;
    });
    QTest::newRow("assigning a block to itself leaves it unchanged")
        << BlockCopy([](const NuvKespClassifyBlock &b) {
               NuvKespClassifyBlock block = b;
               NuvKespClassifyBlock &same = block;
               block = same;
               return block;
           });
}

void CommandBlockTest::copies()
{
    QFETCH(BlockCopy, copy);
    NuvKespClassifyBlock source;
    source.command = QStringLiteral("CFLOGIN");
    source.errorText = QStringLiteral("kein Fehler");
    source.dataList = QStringList { QStringLiteral("u"), QString(), QStringLiteral("") };
    source.docId = QStringLiteral("42");
    source.data = { QByteArray("\0\1", 2), QByteArray() };
    source.updateRequested = true;
    source.updateString = QStringLiteral("marker");
    source.availablePlugins = QStringList { QStringLiteral("x"), QStringLiteral("A") };

    const NuvKespClassifyBlock result = copy(source);
    QCOMPARE(result.command, source.command);
    QCOMPARE(result.errorText, source.errorText);
    QCOMPARE(result.dataList, source.dataList);
    QCOMPARE(result.docId, source.docId);
    QCOMPARE(result.data, source.data);
    QCOMPARE(result.updateRequested, source.updateRequested);
    QCOMPARE(result.updateString, source.updateString);
    QCOMPARE(result.availablePlugins, source.availablePlugins);
}

void CommandBlockTest::keepsEmptyByteArrays_data()
{
    QTest::addColumn<QList<QByteArray>>("data");
    QTest::newRow("one empty byte array") << QList<QByteArray> { QByteArray("") };
    QTest::newRow("two empty byte arrays") << QList<QByteArray> { QByteArray(""), QByteArray("") };
    QTest::newRow("null and empty byte arrays")
        << QList<QByteArray> { QByteArray(), QByteArray("") };
    QTest::newRow("empty arrays around a filled one")
        << QList<QByteArray> { QByteArray(""), QByteArray("x"), QByteArray("") };
}

void CommandBlockTest::keepsEmptyByteArrays()
{
    QFETCH(QList<QByteArray>, data);
    NuvKespClassifyBlock block;
    block.data = data;

    const NuvKespClassifyBlock copied(block);
    QCOMPARE(copied.data.size(), data.size());
    QCOMPARE(copied.data, data);

    NuvKespClassifyBlock assigned;
    assigned.data = { QByteArray("replaced") };
    assigned = block;
    QCOMPARE(assigned.data.size(), data.size());
    QCOMPARE(assigned.data, data);

    NuvKespClassifyBlock &same = block;
    block = same;
    QCOMPARE(block.data.size(), data.size());
}

QTEST_GUILESS_MAIN(CommandBlockTest)
#include "tst_commandblock.moc"
