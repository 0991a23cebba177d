// SPDX-License-Identifier: Apache-2.0
#include "servertestsupport.h"

#include "dialect.h"
#include "testsupport.h"

#include <QProcessEnvironment>
#include <QTest>

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

TestServer::TestServer()
{
    const QStringList names = QProcessEnvironment::systemEnvironment().keys();
    for (const QString &name : names) {
        if (name.startsWith(QLatin1String("NUV_SERVER_")))
            qunsetenv(name.toLocal8Bit().constData());
    }
    qputenv("NUV_SERVER_PBKDF2_ITERATIONS", "1000");
    nuvserver::EngineOptions options = nuvserver::EngineOptions::fromEnvironment(database());
    QString error;
    if (!nuvserver::ServerEngine::initialiseDatabase(options, adminUser, adminPassword,
                                                     QStringLiteral("Ada Admin"), &error))
        qFatal("cannot initialise the test database: %s", qPrintable(error));
}

QVariant TestServer::inspect(const QString &sql) const
{
    return testdatabase::queryOnce(database(), sql);
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

nuvserver::EngineOptions TestServer::options() const
{
    return nuvserver::EngineOptions::fromEnvironment(database());
}

std::unique_ptr<nuvserver::ServerEngine> TestServer::engine()
{
    return engine(options());
}

std::unique_ptr<nuvserver::ServerEngine> TestServer::engine(const nuvserver::EngineOptions &options)
{
    auto engine = std::make_unique<nuvserver::ServerEngine>(options);
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

OwnConnection::OwnConnection(const QString &database, const QString &connectionName)
    : name(connectionName)
{
    const auto location = nuvserver::DatabaseLocation::parse(database, &error);
    if (error.isEmpty())
        db = nuvserver::openDatabase(location, name, 10000, &error);
}

OwnConnection::~OwnConnection()
{
    db.close();
    db = QSqlDatabase();
    QSqlDatabase::removeDatabase(name);
}

} // namespace servertest
