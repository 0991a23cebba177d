#include "servertestsupport.h"

#include "dialect.h"
#include "testsupport.h"

#include <QAtomicInt>
#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSqlError>
#include <QSqlQuery>
#include <QTest>
#include <QUrl>

namespace servertest {

const QString adminUser = QStringLiteral("admin");
const QString adminPassword = QStringLiteral("admin-password");

QString passwordOf(const QString &login)
{
    return login + QStringLiteral("-password");
}

QString embeddedTransportDir()
{
    return QStringLiteral(NUV_EMBEDDED_TRANSPORT_DIR);
}

namespace {

// The server the tests make their databases on: NUV_TEST_POSTGRES_URL, or
// the one that scripts/postgres runs in NUV_TEST_POSTGRES_DIR (CTest's
// fixture); empty for SQLite.
QString postgresServerUrl()
{
    static const QString url = [] {
        const QString given = qEnvironmentVariable("NUV_TEST_POSTGRES_URL");
        const QString dir = qEnvironmentVariable("NUV_TEST_POSTGRES_DIR");
        if (!given.isEmpty() || dir.isEmpty())
            return given;
        QFile file(dir + QStringLiteral("/postgres.env"));
        if (!file.open(QIODevice::ReadOnly))
            qFatal("no PostgreSQL server in %s (start it with scripts/postgres start)",
                   qPrintable(dir));
        while (!file.atEnd()) {
            const QString line = QString::fromUtf8(file.readLine()).trimmed();
            if (line.startsWith(QLatin1String("NUV_PG_URL=")))
                return line.mid(int(qstrlen("NUV_PG_URL=")));
        }
        qFatal("%s/postgres.env names no NUV_PG_URL", qPrintable(dir));
    }();
    return url;
}

// Runs one statement on a connection of its own to `database`.
QVariant runOnce(const QString &database, const QString &sql, bool mustSucceed)
{
    static QAtomicInt counter;
    const QString name = QStringLiteral("servertest-%1").arg(counter.fetchAndAddRelaxed(1));
    QVariant result;
    {
        QString error;
        QSqlDatabase db = nuvserver::openDatabase(
            nuvserver::DatabaseLocation::parse(database, &error), name, 10000, &error);
        if (!db.isValid())
            qFatal("cannot open %s: %s", qPrintable(database), qPrintable(error));
        QSqlQuery query(db);
        if (!query.exec(sql)) {
            if (mustSucceed)
                qFatal("%s: %s", qPrintable(sql), qPrintable(query.lastError().text()));
        } else if (query.next()) {
            result = query.value(0);
        }
        query.finish();
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return result;
}

} // namespace

bool onPostgres()
{
    return !postgresServerUrl().isEmpty();
}

TestServer::TestServer()
{
    if (onPostgres()) {
        databaseOption = createPostgresDatabase();
        postgresDatabase = droppedAtEnd.last();
    } else {
        databaseOption = directory.filePath(QStringLiteral("server.sqlite"));
    }

    const QStringList names = QProcessEnvironment::systemEnvironment().keys();
    for (const QString &name : names) {
        if (name.startsWith(QLatin1String("NUV_SERVER_")))
            qunsetenv(name.toLocal8Bit().constData());
    }
    qputenv("NUV_SERVER_PBKDF2_ITERATIONS", "1000");
    nuvserver::EngineOptions options = nuvserver::EngineOptions::fromEnvironment(databaseOption);
    QString error;
    if (!nuvserver::ServerEngine::initialiseDatabase(options, adminUser, adminPassword,
                                                     QStringLiteral("Ada Admin"), &error))
        qFatal("cannot initialise the test database: %s", qPrintable(error));
}

TestServer::~TestServer()
{
    for (const QString &name : qAsConst(droppedAtEnd))
        runOnce(postgresServerUrl(),
                QStringLiteral("DROP DATABASE IF EXISTS %1 WITH (FORCE)").arg(name), false);
}

QString TestServer::createPostgresDatabase()
{
    // Named so that leftovers of an aborted run are recognisable.
    static QAtomicInt counter;
    const QString name = QStringLiteral("nuvtest_%1_%2")
                             .arg(QCoreApplication::applicationPid())
                             .arg(counter.fetchAndAddRelaxed(1));
    runOnce(postgresServerUrl(), QStringLiteral("DROP DATABASE IF EXISTS %1").arg(name), true);
    runOnce(postgresServerUrl(),
            QStringLiteral("CREATE DATABASE %1 TEMPLATE template0 ENCODING 'UTF8'"
                           " LC_COLLATE 'C' LC_CTYPE 'C'")
                .arg(name),
            true);
    droppedAtEnd.append(name);
    QUrl url(postgresServerUrl());
    url.setPath(QLatin1Char('/') + name);
    return url.toString();
}

QString TestServer::restore(const QString &backupFile)
{
    if (!isPostgres())
        return backupFile;
    const QString target = createPostgresDatabase();
    const QUrl url(target);
    QProcess restore;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PGPASSWORD"), url.password());
    restore.setProcessEnvironment(environment);
    restore.start(QStringLiteral("pg_restore"),
                  { QStringLiteral("--no-owner"), QStringLiteral("--exit-on-error"),
                    QStringLiteral("--host=") + url.host(),
                    QStringLiteral("--port=%1").arg(url.port(5432)),
                    QStringLiteral("--username=") + url.userName(),
                    QStringLiteral("--dbname=") + url.path().mid(1), backupFile });
    if (!restore.waitForFinished(120000) || restore.exitCode() != 0)
        qFatal("pg_restore of %s failed: %s", qPrintable(backupFile),
               restore.readAllStandardError().constData());
    return target;
}

bool TestServer::isPostgres() const
{
    return !postgresDatabase.isEmpty();
}

QVariant TestServer::inspect(const QString &sql) const
{
    return runOnce(databaseOption, sql, true);
}

QString TestServer::path(const QString &name) const
{
    return directory.filePath(name);
}

ClientPtr TestServer::unconnected()
{
    return ClientPtr(testsupport::classifyRoot()->createInstance(embeddedTransportDir()));
}

ClientPtr TestServer::connect(const QString &login, const QString &password, QString *error)
{
    ClientPtr client = unconnected();
    if (client->connectToNuvKESP(database(), 0, login, password))
        return client;
    if (error)
        *error = client->errorString();
    return nullptr;
}

ClientPtr TestServer::admin()
{
    QString error;
    ClientPtr client = connect(adminUser, adminPassword, &error);
    if (!client)
        qFatal("the administrator cannot log in: %s", qPrintable(error));
    return client;
}

ClientPtr TestServer::user(const QString &login, const QStringList &roles)
{
    ClientPtr administrator = admin();
    if (!administrator->setUsers(
            { joined({ login, passwordOf(login), login + QStringLiteral(" Full"),
                       login + QStringLiteral("@example.org"), QStringLiteral("0") }) }))
        qFatal("cannot create %s: %s", qPrintable(login), qPrintable(administrator->errorString()));
    if (!roles.isEmpty() && !administrator->setUserRoles(login, roles))
        qFatal("cannot give %s its roles: %s", qPrintable(login),
               qPrintable(administrator->errorString()));
    QString error;
    ClientPtr client = connect(login, passwordOf(login), &error);
    if (!client)
        qFatal("%s cannot log in: %s", qPrintable(login), qPrintable(error));
    return client;
}

std::unique_ptr<nuvserver::ServerEngine> TestServer::engine()
{
    auto engine = std::make_unique<nuvserver::ServerEngine>(
        nuvserver::EngineOptions::fromEnvironment(database()));
    QString error;
    if (!engine->open(&error))
        qFatal("cannot open the engine: %s", qPrintable(error));
    return engine;
}

nuvMQClassifyMessage request(const QString &command, const QString &docId,
                             const QStringList &dataList, const QList<QByteArray> &data)
{
    nuvMQClassifyMessage message;
    message.command = command;
    message.setDocId(docId);
    message.setDataList(dataList);
    message.setData(data);
    return message;
}

void engineLogin(nuvserver::ServerEngine &engine, const QString &token, const QString &login,
                 const QString &password)
{
    const nuvMQClassifyMessage reply = engine.handle(
        request(QStringLiteral("CFLOGIN"), QString(), { login, password, QString() }), token);
    if (reply.command != QLatin1String("OK"))
        qFatal("engine login of %s refused: %s", qPrintable(login), qPrintable(reply.errorText));
}

bool setRoleRoles(ClassifyInterface *client, const QString &role, const QStringList &roles)
{
    bool result = false;
    if (!QMetaObject::invokeMethod(client, "setRoleRoles", Qt::DirectConnection,
                                   Q_RETURN_ARG(bool, result), Q_ARG(QString, role),
                                   Q_ARG(QStringList, roles)))
        qFatal("the client has no setRoleRoles");
    return result;
}

QStringList getRevisionen(ClassifyInterface *client, const QString &docId)
{
    QStringList result;
    if (!QMetaObject::invokeMethod(client, "getRevisionen", Qt::DirectConnection,
                                   Q_RETURN_ARG(QStringList, result), Q_ARG(QString, docId)))
        qFatal("the client has no getRevisionen");
    return result;
}

QString joined(const QStringList &fields)
{
    return fields.join(QChar(0xFEFF));
}

QStringList fieldsOf(const QString &record)
{
    return record.split(QChar(0xFEFF));
}

} // namespace servertest
