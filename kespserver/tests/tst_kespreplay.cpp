// SPDX-License-Identifier: Apache-2.0
// The engine's record of processed requests, which makes a request that the
// broker delivers again after a server died take effect only once.

#include "kesptest.h"

#include <QtTest>

namespace {

nuvMQClassifyMessage command(const QString &word, const QStringList &items,
                             const QString &docId = QString())
{
    nuvMQClassifyMessage message;
    message.command = word;
    message.setDataList(items);
    message.setDocId(docId);
    return message;
}

const QString token = QStringLiteral("0123456789abcdef0123456789abcdef");

} // namespace

class KespReplay : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void secondDelivery_data();
    void secondDelivery();
    void forgottenRecordsRunAgain();

private:
    std::unique_ptr<kesptest::Workspace> space;
    std::unique_ptr<nuvserver::ServerEngine> engine;
};

void KespReplay::init()
{
    space = std::make_unique<kesptest::Workspace>();
    QVERIFY2(!space->database.isEmpty(), qPrintable(space->error));
    QString error;
    engine = std::make_unique<nuvserver::ServerEngine>(
        nuvserver::EngineOptions::fromEnvironment(space->database));
    QVERIFY2(engine->open(&error), qPrintable(error));
    const nuvMQClassifyMessage login = engine->handle(
        command(QStringLiteral("CFLOGIN"), { kesptest::user, kesptest::password, QString() }),
        token, QStringLiteral("login-key"));
    QVERIFY2(!login.command.contains(QLatin1String("ERROR")), qPrintable(login.errorText));
}

void KespReplay::cleanup()
{
    engine.reset();
    space.reset();
}

void KespReplay::secondDelivery_data()
{
    QTest::addColumn<QString>("firstKey");
    QTest::addColumn<QString>("secondKey");
    QTest::addColumn<bool>("replayed");
    QTest::addColumn<int>("clipboards");
    QTest::addColumn<bool>("secondFails");
    // The same broker message again: its stored reply, no second effect.
    QTest::newRow("same key") << "m1 c1"
                              << "m1 c1" << true << 1 << false;
    // Another message (another caller's request): it runs, and fails on the
    // name that the first one took.
    QTest::newRow("other key") << "m1 c1"
                               << "m2 c2" << false << 1 << true;
    // Without keys (the embedded transport): every call runs.
    QTest::newRow("no key") << ""
                            << "" << false << 1 << true;
}

void KespReplay::secondDelivery()
{
    QFETCH(QString, firstKey);
    QFETCH(QString, secondKey);
    QFETCH(bool, replayed);
    QFETCH(int, clipboards);
    QFETCH(bool, secondFails);
    const nuvMQClassifyMessage request
        = command(QStringLiteral("CFADDCLIPBOARD"), { QStringLiteral("once") });
    bool wasReplayed = true;
    const nuvMQClassifyMessage first = engine->handle(request, token, firstKey, &wasReplayed);
    QVERIFY2(first.command != QLatin1String("ERROR"), qPrintable(first.errorText));
    QVERIFY(!wasReplayed);
    const nuvMQClassifyMessage second = engine->handle(request, token, secondKey, &wasReplayed);
    QCOMPARE(wasReplayed, replayed);
    QCOMPARE(second.command == QLatin1String("ERROR"), secondFails);
    if (replayed) {
        // Byte for byte the first reply, marker included.
        QCOMPARE(second.toWireBytes(), first.toWireBytes());
    }
    QCOMPARE(
        kesptest::countRows(space->database, QStringLiteral("SELECT count(*) FROM clipboards")),
        qint64(clipboards));
}

void KespReplay::forgottenRecordsRunAgain()
{
    // A failure that changed nothing is not recorded: running it again is
    // harmless and may succeed. Neither is a read.
    const nuvMQClassifyMessage failing
        = command(QStringLiteral("CFREADCLIPBOARDCARDS"), {}, QStringLiteral("424242"));
    bool replayed = true;
    QCOMPARE(engine->handle(failing, token, QStringLiteral("f"), &replayed).command,
             QStringLiteral("ERROR"));
    QVERIFY(!replayed);
    engine->handle(failing, token, QStringLiteral("f"), &replayed);
    QVERIFY(!replayed);

    const nuvMQClassifyMessage read = command(QStringLiteral("CFREADCLIPBOARDS"), {});
    QVERIFY(engine->handle(read, token, QStringLiteral("r"), &replayed).command
            != QLatin1String("ERROR"));
    engine->handle(read, token, QStringLiteral("r"), &replayed);
    QVERIFY(!replayed);

    const nuvMQClassifyMessage add
        = command(QStringLiteral("CFADDCLIPBOARD"), { QStringLiteral("kept") });
    engine->handle(add, token, QStringLiteral("k"), &replayed);
    QCOMPARE(kesptest::countRows(space->database,
                                 QStringLiteral("SELECT count(*) FROM processed_requests")),
             qint64(2)); // the login and the clipboard
    engine->forgetProcessedRequests(1);
    QCOMPARE(kesptest::countRows(space->database,
                                 QStringLiteral("SELECT count(*) FROM processed_requests")),
             qint64(2)); // younger than an hour

    // Once its record is older than that, the clipboard's is forgotten, and
    // the same request key runs again instead of being replayed.
    testdatabase::queryOnce(space->database,
                            QStringLiteral("UPDATE processed_requests SET processed = "
                                           "'2000-01-01 00:00:00' WHERE request_key = 'k'"));
    engine->forgetProcessedRequests(1);
    QCOMPARE(kesptest::countRows(space->database,
                                 QStringLiteral("SELECT count(*) FROM processed_requests")),
             qint64(1));
    const nuvMQClassifyMessage again
        = command(QStringLiteral("CFADDCLIPBOARD"), { QStringLiteral("kept again") });
    engine->handle(again, token, QStringLiteral("k"), &replayed);
    QVERIFY(!replayed);
    QCOMPARE(
        kesptest::countRows(space->database, QStringLiteral("SELECT count(*) FROM clipboards")),
        qint64(2));
}

QTEST_GUILESS_MAIN(KespReplay)
#include "tst_kespreplay.moc"
