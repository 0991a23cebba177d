// SPDX-License-Identifier: Apache-2.0
#include "pluginclient.h"

#include "classifyinterface.h"
#include "protocolwords.h"

#include <QFileInfo>
#include <QPluginLoader>

namespace nuvcli {

namespace {

const QString transportFile = QStringLiteral("libnuvactivemqclient.so");

// The transports' own words for a login that never reached a server: no
// broker connection, nothing sent, or no reply in time.
bool isUnreachable(const QString &error)
{
    return error.startsWith(QLatin1String("Cannot connect to the message broker"))
        || error.startsWith(QLatin1String("Cannot send"))
        || error.startsWith(QLatin1String("No reply to"))
        || error.startsWith(QLatin1String("embedded transport:"));
}

} // namespace

PluginClient::PluginClient(const Options &options, Console &console, Printer &printer)
    : options(options)
    , console(console)
    , printer(printer)
{ }

PluginClient::~PluginClient() = default;

bool PluginClient::open(QString *error)
{
    QPluginLoader loader(options.pluginFile);
    QObject *root = loader.instance();
    if (!root) {
        *error = QStringLiteral("cannot load the classify plugin %1: %2")
                     .arg(options.pluginFile, loader.errorString());
        return false;
    }
    auto *classify = qobject_cast<ClassifyInterface *>(root);
    if (!classify) {
        *error = QStringLiteral("%1 is not a classify plugin").arg(options.pluginFile);
        return false;
    }
    client.reset(classify->createInstance(options.transportDir));
    if (!client) {
        *error = QStringLiteral("the classify plugin created no client");
        return false;
    }
    // By name: the client's signals live in the plugin's class, not in the
    // interface this tool was built against.
    connect(client.get(), SIGNAL(serverRequest(QString)), this, SLOT(onServerRequest(QString)));
    connect(client.get(), SIGNAL(clientDisconnect()), this, SLOT(onClientDisconnect()));
    return true;
}

CallRecord PluginClient::run(const PreparedCall &call, int line)
{
    const Operation &operation = *call.operation;
    CallRecord record;
    record.operation = &operation;
    record.arguments = call.arguments;
    record.result = Value::empty(operation.result);
    record.line = line;
    if (!ensureLogin(operation, record))
        return record;

    const QString errorBefore = client->errorString();
    CallContext context { *client, *client, record.arguments, QString() };
    record.result = operation.call(context);
    if (!context.hostError.isEmpty()) {
        fail(record, ExitFailed, context.hostError, false);
        return record;
    }
    judge(record, errorBefore, client->errorString());
    record.exitStatus = record.ok ? ExitOk : ExitFailed;

    if (operation.session == SessionUse::LogsIn)
        loggedIn = record.ok;
    else if (operation.session == SessionUse::LogsOut)
        loggedIn = false;
    return record;
}

bool PluginClient::ensureLogin(const Operation &operation, CallRecord &record)
{
    if (loggedIn || operation.session == SessionUse::None || operation.session == SessionUse::LogsIn
        || operation.session == SessionUse::LogsOut)
        return true;

    QString host;
    int port = 0;
    if (options.mode == TransportMode::Embedded) {
        // The embedded transport opens the database given as host.
        if (options.databaseIsFile() && !QFileInfo::exists(options.database))
            return fail(record, ExitSetup,
                        QStringLiteral("no database at %1; create one with: nuvclassify init "
                                       "--embedded %1 --admin NAME")
                            .arg(options.database));
        host = options.database;
    } else {
        host = options.brokerHost;
        port = options.brokerPort;
    }
    if (!QFileInfo::exists(options.transportDir + QLatin1Char('/') + transportFile))
        return fail(record, ExitSetup,
                    QStringLiteral("no transport plugin %1 in %2 (build it, or point "
                                   "--transport-dir at it)")
                        .arg(transportFile, options.transportDir));

    QString error;
    if (!credentials(&user, &password, &error))
        return fail(record, ExitUsage, error);

    if (!client->connectToNuvKESP(host, port, user, password)) {
        const QString reason = client->errorString();
        if (operation.session == SessionUse::ExpiredLoginIsEnough
            && nuvprotocol::isExpiredPasswordText(reason))
            return true;
        return fail(record, isUnreachable(reason) ? ExitUnreachable : ExitLoginRefused,
                    QStringLiteral("login as %1 failed: %2")
                        .arg(user, reason.isEmpty() ? QStringLiteral("no reason given") : reason));
    }
    if (!options.archive.isEmpty() && !client->setCurrentArchive(options.archive))
        return fail(record, ExitFailed,
                    QStringLiteral("cannot select the archive %1: %2")
                        .arg(options.archive, client->errorString()));
    loggedIn = true;
    printer.loggedIn(user, port > 0 ? QStringLiteral("%1:%2").arg(host).arg(port) : host);
    return true;
}

bool PluginClient::credentials(QString *user, QString *password, QString *error)
{
    if (haveCredentials)
        return true;
    *user = options.user;
    *password = options.password;
    if (!options.hasUser) {
        if (!console.inputIsTerminal) {
            *error = QStringLiteral("no user name: give --user or set NUV_USER");
            return false;
        }
        *user = console.ask(QStringLiteral("User: "), false);
    }
    if (!options.hasPassword) {
        if (!console.inputIsTerminal) {
            *error = QStringLiteral("no password for %1: give --password, set NUV_PASSWORD or run "
                                    "on a terminal")
                         .arg(*user);
            return false;
        }
        *password = console.ask(QStringLiteral("Password for %1: ").arg(*user), true);
    }
    haveCredentials = true;
    return true;
}

bool PluginClient::fail(CallRecord &record, int status, const QString &error, bool fatal)
{
    record.ok = false;
    record.error = error;
    record.exitStatus = status;
    record.fatal = fatal;
    return false;
}

void PluginClient::onServerRequest(const QString &request)
{
    printer.serverRequest(request);
}

void PluginClient::onClientDisconnect()
{
    printer.connectionLost();
}

} // namespace nuvcli
