// SPDX-License-Identifier: Apache-2.0
// How nuvkesp-server starts, refuses to start, and shows itself to an
// operator: the configuration file and its precedence, the exit status and
// message of each start it refuses, the status command and the metrics.

#include "exitstatus.h"
#include "kesptest.h"
#include "schema.h"
#include "serverprocess.h"
#include "statuscheck.h"

#include <QTcpServer>
#include <QtTest>

#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

class KespStart : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void refusesBadSettings_data();
    void refusesBadSettings();
    void settingPrecedence_data();
    void settingPrecedence();
    void refusesDatabase_data();
    void refusesDatabase();
    void initCreatesPrivateDatabase();
    void migratesOlderSchema();
    void refusesRefusedAccount();
    void refusesAnotherDatabaseOnTheQueue();
    void statusAndMetrics();
    void notifiesServiceManager();

private:
    struct Outcome
    {
        int status = -1;
        QString output; // standard output and error together
    };
    // Runs the daemon to its end (a refused start ends at once; the limit
    // only keeps a broken build from hanging the test).
    Outcome run(const QStringList &arguments, const QMap<QString, QString> &variables = {},
                const QByteArray &input = QByteArray());
    QString writeFile(const QString &name, const QString &text, QFileDevice::Permissions mode);

    stomp::BrokerEnv broker;
    kesptest::Workspace space;
};

namespace {

QFileDevice::Permissions ownerOnly()
{
    return QFileDevice::ReadOwner | QFileDevice::WriteOwner;
}

int modeOf(const QString &path)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? int(status.st_mode & 0777)
                                                                     : -1;
}

// GET on loopback; the status code and body.
QPair<int, QByteArray> fetch(const QString &url)
{
    QByteArray body;
    QString error;
    const int code = kesp::fetchLocal(QUrl(url), &body, &error);
    return { code, code ? body : error.toUtf8() };
}

} // namespace

void KespStart::initTestCase()
{
    const QString problem = kesptest::useBroker(broker, QStringLiteral("start"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
    // The settings under test come from the test alone.
    qunsetenv("NUV_KESP_DATABASE");
    qunsetenv("NUV_KESP_CONFIG");
    qunsetenv("NUV_KESP_PREFETCH");
}

KespStart::Outcome KespStart::run(const QStringList &arguments,
                                  const QMap<QString, QString> &variables, const QByteArray &input)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("NUV_KESP_EXIT_WITH_PARENT"),
                       QString::number(QCoreApplication::applicationPid()));
    // A server logs in with the servers' account, as it would in production.
    broker.addServerAccount(&environment);
    for (auto it = variables.constBegin(); it != variables.constEnd(); ++it)
        environment.insert(it.key(), it.value());
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(kesp::ServerProcess::executable(), arguments);
    Outcome outcome;
    if (!process.waitForStarted(10000))
        return outcome;
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished(5000);
        outcome.output = QStringLiteral("(did not end)");
        return outcome;
    }
    outcome.status = process.exitCode();
    outcome.output = QString::fromUtf8(process.readAll());
    return outcome;
}

QString KespStart::writeFile(const QString &name, const QString &text,
                             QFileDevice::Permissions mode)
{
    const QString path = space.path(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return QString();
    file.write(text.toUtf8());
    file.close();
    file.setPermissions(mode);
    return path;
}

void KespStart::refusesBadSettings_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("othersMayRead");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");

    QTest::newRow("unknown key") << "NUV_KESP_PREFETCH = 2\nNUV_KESP_DATABSE = x.db\n"
                                 << false << QStringList()
                                 << ":2: unknown key \"NUV_KESP_DATABSE\"";
    QTest::newRow("bad number") << "# comment\nNUV_KESP_PREFETCH = many\n"
                                << false << QStringList()
                                << ":2: NUV_KESP_PREFETCH must be a whole number";
    QTest::newRow("bad flag") << "NUV_STOMP_TLS = maybe\n"
                              << false << QStringList() << ":1: NUV_STOMP_TLS must be 1 or 0";
    QTest::newRow("not a setting line") << "[server]\n"
                                        << false << QStringList() << ":1: expected KEY = VALUE";
    QTest::newRow("secret readable by all")
        << "NUV_STOMP_PASSCODE = p\n"
        << true << QStringList() << ":1: NUV_STOMP_PASSCODE holds a secret";
    QTest::newRow("bad option value") << "" << false << QStringList { "--prefetch", "0" }
                                      << "NUV_KESP_PREFETCH must be a whole number of at least 1";
    QTest::newRow("remote metrics") << "" << false << QStringList { "--metrics", "0.0.0.0:9300" }
                                    << "is not a loopback address";
    QTest::newRow("missing file") << QString() << false << QStringList()
                                  << "cannot read the configuration file";
}

void KespStart::refusesBadSettings()
{
    QFETCH(QString, file);
    QFETCH(bool, othersMayRead);
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);
    const QString path = file.isNull()
        ? space.path(QStringLiteral("absent.conf"))
        : writeFile(QStringLiteral("bad.conf"), file,
                    ownerOnly()
                        | (othersMayRead ? QFileDevice::ReadOther : QFileDevice::Permissions()));
    QVERIFY(!path.isEmpty());
    const Outcome outcome = run(QStringList { QStringLiteral("--config"), path,
                                              QStringLiteral("--database"), space.database }
                                + arguments);
    QCOMPARE(outcome.status, int(kesp::ExitConfiguration));
    QVERIFY2(outcome.output.contains(message), qPrintable(outcome.output));
    if (!file.isNull() && !arguments.contains(QStringLiteral("--prefetch"))
        && !arguments.contains(QStringLiteral("--metrics")))
        QVERIFY2(outcome.output.contains(path), qPrintable(outcome.output));
}

void KespStart::settingPrecedence_data()
{
    QTest::addColumn<QString>("fromFile");
    QTest::addColumn<QString>("fromVariable");
    QTest::addColumn<QString>("fromOption");
    QTest::addColumn<QString>("expected");

    QTest::newRow("default; the variable empty") << ""
                                                 << ""
                                                 << ""
                                                 << "NUV_KESP_PREFETCH = 1  # default";
    QTest::newRow("file; the variable empty") << "4"
                                              << ""
                                              << ""
                                              << "NUV_KESP_PREFETCH = 4  # %1:2";
    QTest::newRow("variable over file") << "4"
                                        << "5"
                                        << ""
                                        << "NUV_KESP_PREFETCH = 5  # environment";
    QTest::newRow("option over both") << "4"
                                      << "5"
                                      << "6"
                                      << "NUV_KESP_PREFETCH = 6  # option --prefetch";
}

void KespStart::settingPrecedence()
{
    QFETCH(QString, fromFile);
    QFETCH(QString, fromVariable);
    QFETCH(QString, fromOption);
    QFETCH(QString, expected);
    QString text = QStringLiteral("NUV_SERVER_ADMIN_PASSWORD = \"not to be shown\"\n");
    if (!fromFile.isEmpty())
        text += QStringLiteral("NUV_KESP_PREFETCH=%1\n").arg(fromFile);
    const QString path = writeFile(QStringLiteral("precedence.conf"), text, ownerOnly());
    QMap<QString, QString> variables;
    variables.insert(QStringLiteral("NUV_KESP_PREFETCH"), fromVariable);
    QStringList arguments { QStringLiteral("--config"), path, QStringLiteral("--print-config") };
    if (!fromOption.isEmpty())
        arguments << QStringLiteral("--prefetch") << fromOption;
    const Outcome outcome = run(arguments, variables);
    QCOMPARE(outcome.status, int(kesp::ExitOk));
    const QString line = expected.contains(QLatin1String("%1")) ? expected.arg(path) : expected;
    QVERIFY2(outcome.output.split(QLatin1Char('\n')).contains(line), qPrintable(outcome.output));
    QVERIFY2(!outcome.output.contains(QLatin1String("not to be shown")),
             qPrintable(outcome.output));
    QVERIFY2(outcome.output.contains(
                 QStringLiteral("NUV_SERVER_ADMIN_PASSWORD = (hidden)  # %1:1").arg(path)),
             qPrintable(outcome.output));
}

void KespStart::refusesDatabase_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");

    QTest::newRow("mistyped") << "mistyped" << int(kesp::ExitNoDatabase)
                              << "there is no database at";
    QTest::newRow("without users") << "empty" << int(kesp::ExitNoDatabase) << "has no users";
    QTest::newRow("newer schema") << "newer" << int(kesp::ExitSchemaNewer)
                                  << QStringLiteral("has schema %1, newer than this server's %2")
                                         .arg(nuvserver::schemaVersion + 1)
                                         .arg(nuvserver::schemaVersion);
}

void KespStart::refusesDatabase()
{
    QFETCH(QString, kind);
    QFETCH(int, status);
    QFETCH(QString, message);
    const QString database = space.path(QStringLiteral("refused-%1/kesp.db").arg(kind));
    QVERIFY(QDir().mkpath(QFileInfo(database).absolutePath()));
    if (kind != QLatin1String("mistyped")) {
        nuvserver::EngineOptions options = nuvserver::EngineOptions::fromEnvironment(database);
        options.initialAdminUser.clear();
        nuvserver::ServerEngine engine(options);
        QString error;
        QVERIFY2(engine.open(&error), qPrintable(error));
    }
    if (kind == QLatin1String("newer"))
        testdatabase::queryOnce(
            database, QStringLiteral("PRAGMA user_version = %1").arg(nuvserver::schemaVersion + 1));

    const Outcome outcome = run({ QStringLiteral("--database"), database,
                                  QStringLiteral("--broker"), kesptest::brokerAddress(broker) },
                                { { QStringLiteral("NUV_SERVER_ADMIN_USER"), QString() } });
    QCOMPARE(outcome.status, status);
    QVERIFY2(outcome.output.contains(message), qPrintable(outcome.output));
    if (kind == QLatin1String("mistyped"))
        QVERIFY2(!QFileInfo::exists(database), "a mistyped name must not create a database");
    if (kind == QLatin1String("newer"))
        QVERIFY2(outcome.output.contains(QLatin1String("restore a backup")),
                 qPrintable(outcome.output));
}

void KespStart::initCreatesPrivateDatabase()
{
    const QString database = space.path(QStringLiteral("init/sub/kesp.db"));
    const Outcome outcome = run({ QStringLiteral("init"), QStringLiteral("--database"), database,
                                  QStringLiteral("--admin"), QStringLiteral("root") },
                                {}, "root-password-1\n");
    QCOMPARE(outcome.status, int(kesp::ExitOk));
    QVERIFY2(outcome.output.contains(QLatin1String("with the administrator root")),
             qPrintable(outcome.output));
    // It holds password hashes.
    QCOMPARE(modeOf(database), 0600);
    QCOMPARE(modeOf(QFileInfo(database).absolutePath()), 0700);

    // A second init finds a user and changes nothing; migrate has nothing to do.
    const Outcome again = run({ QStringLiteral("init"), QStringLiteral("--database"), database,
                                QStringLiteral("--admin"), QStringLiteral("other") },
                              {}, "other-password-1\n");
    QCOMPARE(again.status, int(kesp::ExitFailed));
    const Outcome migrate
        = run({ QStringLiteral("migrate"), QStringLiteral("--database"), database });
    QCOMPARE(migrate.status, int(kesp::ExitOk));
    QVERIFY2(migrate.output.contains(
                 QStringLiteral("already has schema %1").arg(nuvserver::schemaVersion)),
             qPrintable(migrate.output));
}

void KespStart::migratesOlderSchema()
{
    // A database as the previous schema left it.
    const QString database = space.path(QStringLiteral("older/kesp.db"));
    QVERIFY(QDir().mkpath(QFileInfo(database).absolutePath()));
    nuvserver::EngineOptions options = nuvserver::EngineOptions::fromEnvironment(database);
    options.pbkdf2Iterations = 1000;
    QString error;
    QVERIFY2(nuvserver::ServerEngine::initialiseDatabase(options, kesptest::user,
                                                         kesptest::password,
                                                         QStringLiteral("Administrator"), &error),
             qPrintable(error));
    QCOMPARE(nuvserver::schemaVersion, 3);
    // The first administrator was the database's first change.
    QCOMPARE(testdatabase::queryOnce(database, QStringLiteral("SELECT max(number) FROM changes"))
                 .toLongLong(),
             1);
    for (const char *statement :
         { "INSERT INTO meta(key, value) SELECT 'change_counter', CAST(max(number) AS TEXT)"
           " FROM changes",
           "INSERT INTO meta(key, value) SELECT 'last_change', time FROM changes"
           " ORDER BY number DESC LIMIT 1",
           "DROP TABLE changes", "DROP INDEX sessions_by_connection",
           "ALTER TABLE sessions DROP COLUMN connection", "PRAGMA user_version = 1" })
        testdatabase::queryOnce(database, QLatin1String(statement));

    const QStringList serve { QStringLiteral("--database"), database, QStringLiteral("--broker"),
                              kesptest::brokerAddress(broker) };
    const Outcome refused = run(serve);
    QVERIFY2(refused.status == int(kesp::ExitSchemaOlder), qPrintable(refused.output));
    QVERIFY2(refused.output.contains(QLatin1String("has schema 1, older than this server's 3"))
                 && refused.output.contains(QLatin1String("run: nuvkesp-server migrate")),
             qPrintable(refused.output));

    const Outcome migrated
        = run({ QStringLiteral("migrate"), QStringLiteral("--database"), database });
    QVERIFY2(migrated.status == int(kesp::ExitOk), qPrintable(migrated.output));
    const QRegularExpression said(QStringLiteral("from schema 1 to 3 \\(backup: (.+)\\)"));
    const QRegularExpressionMatch match = said.match(migrated.output);
    QVERIFY2(match.hasMatch(), qPrintable(migrated.output));
    const QString backup = match.captured(1);
    QCOMPARE(QFileInfo(backup).absolutePath(), QFileInfo(database).absolutePath());
    QCOMPARE(modeOf(backup), 0600);
    QCOMPARE(testdatabase::queryOnce(backup, QStringLiteral("PRAGMA user_version")).toInt(), 1);
    QCOMPARE(testdatabase::queryOnce(database, QStringLiteral("PRAGMA user_version")).toInt(), 3);
    // The change counter moved into the log of changes: markers handed out
    // before the update stay valid.
    QCOMPARE(testdatabase::queryOnce(database, QStringLiteral("SELECT max(number) FROM changes"))
                 .toLongLong(),
             1);
    QCOMPARE(testdatabase::queryOnce(database,
                                     QStringLiteral("SELECT count(*) FROM meta WHERE key IN"
                                                    " ('change_counter', 'last_change')"))
                 .toInt(),
             0);

    kesp::ServerProcess server(QStringLiteral("migrated"), database,
                               kesptest::brokerAddress(broker),
                               space.path(QStringLiteral("migrated.log")));
    QVERIFY2(server.start(), qPrintable(server.log()));
    QVERIFY(server.stop());
}

void KespStart::refusesRefusedAccount()
{
    const Outcome outcome
        = run({ QStringLiteral("--database"), space.database, QStringLiteral("--broker"),
                kesptest::brokerAddress(broker) },
              { { QStringLiteral("NUV_STOMP_PASSCODE"), QStringLiteral("not-the-password") } });
    QVERIFY2(outcome.status == int(kesp::ExitBrokerRefused), qPrintable(outcome.output));
    QVERIFY2(outcome.output.contains(QLatin1String("refused the connection")),
             qPrintable(outcome.output));
    QVERIFY2(!outcome.output.contains(QLatin1String("not-the-password")),
             qPrintable(outcome.output));
}

void KespStart::refusesAnotherDatabaseOnTheQueue()
{
    kesp::ServerProcess first(QStringLiteral("first"), space.database,
                              kesptest::brokerAddress(broker),
                              space.path(QStringLiteral("first.log")));
    QVERIFY2(first.start(), qPrintable(first.log()));

    const QString other = space.path(QStringLiteral("other/kesp.db"));
    nuvserver::EngineOptions options = nuvserver::EngineOptions::fromEnvironment(other);
    options.pbkdf2Iterations = 1000;
    QString error;
    QVERIFY(QDir().mkpath(QFileInfo(other).absolutePath()));
    QVERIFY2(nuvserver::ServerEngine::initialiseDatabase(options, kesptest::user,
                                                         kesptest::password,
                                                         QStringLiteral("Administrator"), &error),
             qPrintable(error));
    const Outcome outcome = run({ QStringLiteral("--database"), other, QStringLiteral("--name"),
                                  QStringLiteral("second"), QStringLiteral("--broker"),
                                  kesptest::brokerAddress(broker) });
    QVERIFY2(outcome.status == int(kesp::ExitOtherDatabase), qPrintable(outcome.output));
    QVERIFY2(outcome.output.contains(QLatin1String("instances on one request queue must serve "
                                                   "one database")),
             qPrintable(outcome.output));
    QVERIFY2(!outcome.output.contains(QLatin1String(": serving ")), qPrintable(outcome.output));
    QVERIFY2(first.waitForLog(QStringLiteral("instance second/"), 1, 10000),
             qPrintable(first.log()));
    QVERIFY(first.stop());
}

void KespStart::statusAndMetrics()
{
    const QString address = QStringLiteral("127.0.0.1:%1").arg(kesptest::freePort());
    const QString path
        = writeFile(QStringLiteral("metrics.conf"),
                    QStringLiteral("NUV_KESP_METRICS = %1\n").arg(address), ownerOnly());
    kesp::ServerProcess server(
        QStringLiteral("watched"), space.database, kesptest::brokerAddress(broker),
        space.path(QStringLiteral("watched.log")), { QStringLiteral("--config"), path });
    QVERIFY2(server.start(), qPrintable(server.log()));

    const Outcome status = run({ QStringLiteral("status"), QStringLiteral("--config"), path });
    QCOMPARE(status.status, int(kesp::ExitOk));
    QVERIFY2(status.output.startsWith(QLatin1String("watched status: connected to ")),
             qPrintable(status.output));

    const auto [code, body] = fetch(QStringLiteral("http://%1/metrics").arg(address));
    QCOMPARE(code, 200);
    for (const char *line : { "nuvkesp_requests_total 0", "nuvkesp_broker_connected 1",
                              "nuvkesp_request_duration_seconds_bucket{le=\"+Inf\"} 0",
                              "# TYPE nuvkesp_request_duration_seconds histogram" })
        QVERIFY2(body.split('\n').contains(line), body.constData());
    QCOMPARE(fetch(QStringLiteral("http://%1/nothing").arg(address)).first, 404);

    QVERIFY(server.stop());
    const Outcome gone = run({ QStringLiteral("status"), QStringLiteral("--config"), path });
    QCOMPARE(gone.status, int(kesp::ExitFailed));
    QVERIFY2(gone.output.contains(QLatin1String("no instance answers")), qPrintable(gone.output));
}

void KespStart::notifiesServiceManager()
{
    // Plays systemd's side of sd_notify: a datagram socket in NOTIFY_SOCKET.
    const QByteArray path = QFile::encodeName(space.path(QStringLiteral("notify.sock")));
    const int listener = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    QVERIFY(listener >= 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    QVERIFY(size_t(path.size()) < sizeof address.sun_path);
    std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
    QCOMPARE(::bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    QString received;
    // What arrives within `waitMs`, one message after the other.
    const auto receive = [&](int waitMs) {
        pollfd ready = { listener, POLLIN, 0 };
        while (::poll(&ready, 1, waitMs) > 0) {
            char buffer[4096];
            const ssize_t size = ::recv(listener, buffer, sizeof buffer, 0);
            if (size > 0)
                received += QString::fromUtf8(buffer, int(size)) + QLatin1Char('\n');
            waitMs = 0;
        }
    };

    kesp::ServerProcess server(QStringLiteral("notifying"), space.database,
                               kesptest::brokerAddress(broker),
                               space.path(QStringLiteral("notifying.log")));
    qputenv("NOTIFY_SOCKET", path);
    const bool started = server.start();
    qunsetenv("NOTIFY_SOCKET");
    QVERIFY2(started, qPrintable(server.log()));
    // Sent before the line that start() waited for was written.
    receive(5000);
    QVERIFY2(received.contains(QLatin1String("READY=1\nSTATUS=serving /queue/")),
             qPrintable(received));
    QVERIFY(server.stop());
    receive(5000);
    QVERIFY2(received.contains(QLatin1String("STOPPING=1")), qPrintable(received));
    ::close(listener);
}

QTEST_GUILESS_MAIN(KespStart)
#include "tst_kespstart.moc"
