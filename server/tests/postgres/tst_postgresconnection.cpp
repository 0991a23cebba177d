// SPDX-License-Identifier: Apache-2.0
// What only a database server does to the engine: the connection breaks
// under it (the server restarted, an administrator ended the session). The
// engine opens a fresh one at the next request instead of failing from then
// on, and the caller's session, which lives in the database, goes on.

#include "servertestsupport.h"

#include <QtTest>

using namespace servertest;

class PostgresConnectionTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void brokenConnectionIsOpenedAgain_data();
    void brokenConnectionIsOpenedAgain();
};

void PostgresConnectionTest::initTestCase()
{
    TestServer server;
    QVERIFY2(server.isPostgres(), "run through CTest, which points the test at PostgreSQL");
}

void PostgresConnectionTest::brokenConnectionIsOpenedAgain_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("a read") << "CFROLES";
    QTest::newRow("a write") << "CFADDCLIPBOARD";
}

void PostgresConnectionTest::brokenConnectionIsOpenedAgain()
{
    QFETCH(QString, command);
    TestServer server;
    auto engine = server.engine();
    engineLogin(*engine, "token", adminUser, adminPassword);
    QCOMPARE(engine->handle(request("CFROLES"), "token").command, QString("OK"));

    // Ends every other connection to this test's database: the engine's.
    const int ended
        = server
              .inspect("SELECT count(pg_terminate_backend(pid)) FROM pg_stat_activity"
                       " WHERE datname = current_database() AND pid <> pg_backend_pid()")
              .toInt();
    QCOMPARE(ended, 1);

    const QStringList data = command == "CFADDCLIPBOARD" ? QStringList { "After" } : QStringList();
    const nuvMQClassifyMessage reply = engine->handle(request(command, QString(), data), "token");
    QVERIFY2(reply.command == "OK", qPrintable(reply.errorText));
    if (command == "CFADDCLIPBOARD")
        QCOMPARE(server.inspect("SELECT count(*) FROM clipboards WHERE name = 'After'").toInt(), 1);
}

QTEST_GUILESS_MAIN(PostgresConnectionTest)
#include "tst_postgresconnection.moc"
