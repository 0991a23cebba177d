// SPDX-License-Identifier: Apache-2.0
// What no request may exceed: each limit refuses with a text naming it and
// its variable, duplicates are removed before any work, a statement that
// runs too long is stopped, text that is not valid UTF-16 is refused and
// stores nothing, and echoed input is cut short.

#include "dialect.h"
#include "servertestsupport.h"
#include "sql.h"

#include <QtTest>

using namespace servertest;

namespace {

// A document the administrator creates, as a number.
QString newDocument(ClassifyInterface *admin)
{
    QString id;
    if (!admin->getNextOid(id) || !admin->newClassify(id.toLongLong(), "Letter", "Hello"))
        qFatal("cannot create a document: %s", qPrintable(admin->errorString()));
    return id;
}

QString errorOf(const nuvMQClassifyMessage &reply)
{
    return reply.command == QLatin1String("ERROR") ? reply.errorText : QString();
}

const QString token = QStringLiteral("0123456789abcdef0123456789abcdef");

} // namespace

class ServerLimitsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void limits_data();
    void limits();
    void replyLimit();
    void duplicatesAreRemovedBeforeWork();
    void statementTimeout();
    void invalidText_data();
    void invalidText();
    void echoedInputIsCut_data();
    void echoedInputIsCut();
};

void ServerLimitsTest::limits_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("dataList");
    QTest::addColumn<QList<QByteArray>>("data");
    QTest::addColumn<QString>("error");
    const QStringList six { "1", "2", "3", "4", "5", "6" };
    QTest::newRow("dataList entries")
        << "maxListEntries" << 5 << "CFDOCSINFO" << six << QList<QByteArray>()
        << "CFDOCSINFO: dataList holds 6 entries, more than the limit of 5"
           " (NUV_SERVER_MAX_LIST_ENTRIES)";
    QTest::newRow("data entries") << "maxListEntries" << 5 << "CFSAVEUSERDATA"
                                  << QStringList { "k1", "k2" }
                                  << QList<QByteArray> { "1", "2", "3", "4", "5", "6" }
                                  << "CFSAVEUSERDATA: data holds 6 entries, more than the limit"
                                     " of 5 (NUV_SERVER_MAX_LIST_ENTRIES)";
    QTest::newRow("request bytes")
        << "maxRequestBytes" << 1 << "CFSAVEUSERDATA" << QStringList { "k1", "k2" }
        << QList<QByteArray> { QByteArray(2 << 20, 'x'), "y" }
        << "CFSAVEUSERDATA: the request has 2.0 MB, more than the limit of 1.0 MB"
           " (NUV_SERVER_MAX_REQUEST_MB)";
    // With the defaults: an 80 MB body, 1.5 million entries.
    QTest::newRow("80 MB with the defaults")
        << "" << 0 << "CFSAVEUSERDATA" << QStringList { "k1", "k2" }
        << QList<QByteArray> { QByteArray(80 << 20, 'x'), "y" }
        << "CFSAVEUSERDATA: the request has 80.0 MB, more than the limit of 64.0 MB"
           " (NUV_SERVER_MAX_REQUEST_MB)";
    QTest::newRow("1.5 million entries with the defaults")
        << "" << 0 << "CFDOCSINFO"
        << QStringList(QVector<QString>(1500000, QStringLiteral("1")).toList())
        << QList<QByteArray>()
        << "CFDOCSINFO: dataList holds 1500000 entries, more than the limit of 10000"
           " (NUV_SERVER_MAX_LIST_ENTRIES)";
    QTest::newRow("records of a change")
        << "maxRecords" << 2 << "CFSAVEDEADLINES"
        << QStringList { joined({ "", "1", "2030-01-01" }), joined({ "", "2", "2030-01-01" }),
                         joined({ "", "3", "2030-01-01" }) }
        << QList<QByteArray>()
        << "CFSAVEDEADLINES: dataList holds 3 entries; a command that changes data takes at most"
           " 2 (NUV_SERVER_MAX_RECORDS), send the rest in further requests";
    QTest::newRow("distinct ids")
        << "maxIds" << 3 << "CFDOCSTOTRASH" << QStringList { "1", "2", "1", "3", "4" }
        << QList<QByteArray>()
        << "CFDOCSTOTRASH: the request names more than 3 different ids, the limit"
           " (NUV_SERVER_MAX_IDS)";
    QTest::newRow("distinct ids of a share")
        << "maxIds" << 2 << "CFADDSHARE" << QStringList { "1", "2", "3" }
        << QList<QByteArray> { "someone", "0", "", "title" }
        << "CFADDSHARE: the request names more than 2 different ids, the limit"
           " (NUV_SERVER_MAX_IDS)";
}

void ServerLimitsTest::limits()
{
    QFETCH(QString, setting);
    QFETCH(int, value);
    QFETCH(QString, command);
    QFETCH(QStringList, dataList);
    QFETCH(QList<QByteArray>, data);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY2(admin->saveDocTypes({ "Letter" }, {}), qPrintable(admin->errorString()));
    for (int i = 0; i < 4; ++i)
        newDocument(admin.get());
    nuvserver::EngineOptions options = server.options();
    if (setting == QLatin1String("maxListEntries"))
        options.maxListEntries = value;
    else if (setting == QLatin1String("maxRequestBytes"))
        options.maxRequestBytes = qint64(value) << 20;
    else if (setting == QLatin1String("maxIds"))
        options.maxIds = value;
    else if (setting == QLatin1String("maxRecords"))
        options.maxRecords = value;
    else if (!setting.isEmpty())
        QFAIL("unknown setting in the test data");
    auto engine = server.engine(options);
    engineLogin(*engine, token, adminUser, adminPassword);
    const qint64 historyBefore = server.inspect("SELECT count(*) FROM doc_history").toLongLong();
    const nuvMQClassifyMessage reply
        = engine->handle(request(command, QString(), dataList, data), token);
    QCOMPARE(errorOf(reply), error);
    QCOMPARE(server.inspect("SELECT count(*) FROM doc_history").toLongLong(), historyBefore);
    QCOMPARE(server.inspect("SELECT count(*) FROM user_data").toLongLong(), 0);
}

void ServerLimitsTest::replyLimit()
{
    TestServer server;
    nuvserver::EngineOptions options = server.options();
    options.maxReplyBytes = 1 << 20;
    auto engine = server.engine(options);
    engineLogin(*engine, token, adminUser, adminPassword);
    const QByteArray part(300 * 1024, 'x');
    for (const char *key : { "a", "b" }) {
        const nuvMQClassifyMessage saved
            = engine->handle(request("CFSAVEUSERDATA", "0", { "big", key }, { part, part }), token);
        QVERIFY2(saved.command == QLatin1String("OK"), qPrintable(saved.errorText));
    }
    // One item fits; both in one reply do not.
    QCOMPARE(errorOf(engine->handle(request("CFLOADUSERDATA", QString(), { "big", "a" }), token)),
             QString());
    QCOMPARE(errorOf(engine->handle(request("CFLOADUSERDATA", QString(), { "big" }), token)),
             QStringLiteral("CFLOADUSERDATA: the reply would have 1.2 MB, more than the limit of"
                            " 1.0 MB (NUV_SERVER_MAX_REPLY_MB); ask for less at a time"));
}

void ServerLimitsTest::duplicatesAreRemovedBeforeWork()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY2(admin->saveDocTypes({ "Letter" }, {}), qPrintable(admin->errorString()));
    const QString first = newDocument(admin.get());
    const QString second = newDocument(admin.get());
    nuvserver::EngineOptions options = server.options();
    options.maxIds = 2;
    auto engine = server.engine(options);
    engineLogin(*engine, token, adminUser, adminPassword);
    // 10,000 names of two documents are two ids: within a limit of 2, and
    // each document is worked on once.
    QStringList names;
    for (int i = 0; i < 5000; ++i)
        names << first << second;
    const nuvMQClassifyMessage trashed
        = engine->handle(request("CFDOCSTOTRASH", QString(), names), token);
    QVERIFY2(trashed.command == QLatin1String("OK"), qPrintable(trashed.errorText));
    QCOMPARE(
        server.inspect("SELECT count(*) FROM doc_history WHERE action = 'trashed'").toLongLong(),
        2);
    const nuvMQClassifyMessage info
        = engine->handle(request("CFDOCSINFO", "0", { second, first, second, first }), token);
    QCOMPARE(info.getDataList().size(), 2);
    QCOMPARE(info.getDataList().at(0).section(QChar(0xFEFF), 0, 0), second);
}

void ServerLimitsTest::statementTimeout()
{
    TestServer server;
    QString error;
    const nuvserver::DatabaseLocation location
        = nuvserver::DatabaseLocation::parse(server.database(), &error);
    QSqlDatabase db = nuvserver::openDatabase(location, QStringLiteral("timeout"), 1000, &error);
    QVERIFY2(db.isValid(), qPrintable(error));
    nuvserver::limitStatementTime(db, 50);
    // A statement that would never end on its own.
    const QString endless = QStringLiteral("WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL"
                                           " SELECT x + 1 FROM c) SELECT count(*) FROM c");
    QString failure;
    try {
        nuvserver::run(db, endless);
    } catch (const nuvserver::Failure &f) {
        failure = f.text;
    }
    QCOMPARE(failure,
             QStringLiteral("a database statement ran longer than the limit"
                            " (NUV_SERVER_STATEMENT_TIMEOUT_MS); ask for less at a time"));
    // The connection stays usable.
    QCOMPARE(nuvserver::scalar(db, QStringLiteral("SELECT 1 + 1")).toInt(), 2);
    db.close();
    db = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("timeout"));
}

void ServerLimitsTest::invalidText_data()
{
    QTest::addColumn<QString>("docId");
    QTest::addColumn<QStringList>("dataList");
    QTest::addColumn<QString>("where");
    const QString lone = QString(QChar(0xD800)) + QStringLiteral("x");
    const QString reversed = QString(QChar(0xDC00)) + QChar(0xD800);
    const QString record = joined({ "newuser", "password-1", "Name " + lone, "", "0" });
    QTest::newRow("high surrogate in a record")
        << "0" << QStringList { record } << "dataList entry 0";
    QTest::newRow("low surrogate before a high one")
        << "0" << QStringList { "x", joined({ "other", "password-1", reversed, "", "0" }) }
        << "dataList entry 1";
    QTest::newRow("surrogate at the end of docId")
        << QString("0") + QChar(0xD83D) << QStringList { joined({ "newuser", "password-1" }) }
        << "docId";
}

void ServerLimitsTest::invalidText()
{
    QFETCH(QString, docId);
    QFETCH(QStringList, dataList);
    QFETCH(QString, where);
    TestServer server;
    auto engine = server.engine();
    engineLogin(*engine, token, adminUser, adminPassword);
    const qint64 usersBefore = server.inspect("SELECT count(*) FROM users").toLongLong();
    const nuvMQClassifyMessage reply
        = engine->handle(request("CFDOCSETUSERS", docId, dataList), token);
    QCOMPARE(errorOf(reply),
             QStringLiteral("the request holds text that is not valid UTF-16 (an unpaired"
                            " surrogate in %1); nothing was stored")
                 .arg(where));
    QCOMPARE(server.inspect("SELECT count(*) FROM users").toLongLong(), usersBefore);
}

void ServerLimitsTest::echoedInputIsCut_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("docId");
    QTest::addColumn<QString>("expectedStart");
    const QString huge(2000000, QLatin1Char('A'));
    QTest::newRow("unknown command word") << huge << QString() << "unknown command 'AAAA";
    QTest::newRow("number") << "CFDOCHIST" << huge
                            << "CFDOCHIST: the document must be a number, not 'AAAA";
}

void ServerLimitsTest::echoedInputIsCut()
{
    QFETCH(QString, command);
    QFETCH(QString, docId);
    QFETCH(QString, expectedStart);
    TestServer server;
    auto engine = server.engine();
    engineLogin(*engine, token, adminUser, adminPassword);
    const QString error = errorOf(engine->handle(request(command, docId), token));
    QVERIFY2(error.startsWith(expectedStart), qPrintable(error.left(200)));
    QVERIFY2(error.size() < 200, qPrintable(QString::number(error.size())));
    QVERIFY(error.contains(QStringLiteral("A…'")));
}

QTEST_GUILESS_MAIN(ServerLimitsTest)
#include "tst_serverlimits.moc"
