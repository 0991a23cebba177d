// SPDX-License-Identifier: Apache-2.0
#include "serverconfig.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QHostAddress>
#include <QHostInfo>
#include <QThread>

#include <memory>
#include <vector>

namespace kesp {

namespace {

// "HOST:PORT" (IPv6 in brackets) split; false when it is not one.
bool splitHostPort(const QString &text, QString *host, quint16 *port)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    bool ok = false;
    const int number = text.mid(colon + 1).toInt(&ok);
    if (colon <= 0 || text.endsWith(QLatin1Char(']')) || !ok || number < 1 || number > 65535)
        return false;
    *host = text.left(colon);
    if (host->startsWith(QLatin1Char('[')) && host->endsWith(QLatin1Char(']')))
        *host = host->mid(1, host->size() - 2);
    *port = quint16(number);
    return true;
}

const char *description = "Serves classify requests from an ActiveMQ request queue over STOMP with "
                          "the reference server engine. Several instances may share one queue and "
                          "one database.\n"
                          "Commands: (none) serve; init: create the database and its first "
                          "administrator (--admin NAME, password on standard input or in "
                          "NUV_SERVER_ADMIN_PASSWORD); migrate: bring the database's schema up to "
                          "date after a backup; status: ask the running instance (through its "
                          "metrics address) whether it serves.\n"
                          "Every setting is also a variable (NUV_KESP_*, NUV_STOMP_*, "
                          "NUV_SERVER_*) and a key of the configuration file; options win over "
                          "variables, variables over the file. --print-config lists them.\n"
                          "Signals: SIGUSR1 prints health and counters, SIGTERM/SIGINT stop "
                          "gracefully.";

} // namespace

bool parseConfig(const QStringList &arguments, const QProcessEnvironment &environment,
                 ServerConfig *config, QString *error)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QLatin1String(description));
    parser.addPositionalArgument(QStringLiteral("command"),
                                 QStringLiteral("init, migrate or status (none: serve)."),
                                 QStringLiteral("[command]"));
    const QCommandLineOption help({ QStringLiteral("h"), QStringLiteral("help") },
                                  QStringLiteral("Show this text."));
    const QCommandLineOption version(QStringLiteral("version"),
                                     QStringLiteral("Show the version and exit."));
    const QCommandLineOption configFile(
        QStringLiteral("config"),
        QStringLiteral("The configuration file (NUV_KESP_CONFIG): KEY = VALUE lines with the "
                       "names of the variables as keys."),
        QStringLiteral("file"));
    const QCommandLineOption printConfig(
        QStringLiteral("print-config"),
        QStringLiteral("Show the effective settings and where each came from, then exit."));
    const QCommandLineOption create(QStringLiteral("create"),
                                    QStringLiteral("Create the database when it is missing."));
    const QCommandLineOption noBackup(QStringLiteral("no-backup"),
                                      QStringLiteral("migrate: do not copy the database first."));
    const QCommandLineOption admin(QStringLiteral("admin"),
                                   QStringLiteral("init: the first administrator's user name."),
                                   QStringLiteral("name"));
    const QCommandLineOption verbose({ QStringLiteral("v"), QStringLiteral("verbose") },
                                     QStringLiteral("Log frame details too."));
    const QCommandLineOption quiet({ QStringLiteral("q"), QStringLiteral("quiet") },
                                   QStringLiteral("Log problems only, no line per request."));
    parser.addOptions(
        { help, version, configFile, printConfig, create, noBackup, admin, verbose, quiet });

    // The options of settings come from the one table of settings.
    std::vector<std::pair<const SettingKey *, std::unique_ptr<QCommandLineOption>>> settingOptions;
    for (const SettingKey &key : settingKeys()) {
        if (!key.option)
            continue;
        const QString text
            = QStringLiteral("%1 (%2%3)")
                  .arg(QLatin1String(key.help), QLatin1String(key.variable),
                       key.defaultValue && key.valueName
                           ? QStringLiteral(", default %1").arg(QLatin1String(key.defaultValue))
                           : QString());
        auto option = key.valueName
            ? std::make_unique<QCommandLineOption>(QLatin1String(key.option), text,
                                                   QLatin1String(key.valueName))
            : std::make_unique<QCommandLineOption>(QLatin1String(key.option), text);
        parser.addOption(*option);
        settingOptions.emplace_back(&key, std::move(option));
    }

    if (!parser.parse(arguments)) {
        *error = parser.errorText();
        return false;
    }
    config->helpText = parser.helpText();
    if (parser.isSet(help)) {
        config->command = ServerConfig::Command::Help;
        return true;
    }
    if (parser.isSet(version)) {
        config->command = ServerConfig::Command::Version;
        return true;
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.size() > 1) {
        *error = QStringLiteral("unexpected argument '%1'").arg(positional.at(1));
        return false;
    }
    const QString command = positional.value(0);
    if (command == QLatin1String("init"))
        config->command = ServerConfig::Command::Init;
    else if (command == QLatin1String("migrate"))
        config->command = ServerConfig::Command::Migrate;
    else if (command == QLatin1String("status"))
        config->command = ServerConfig::Command::Status;
    else if (!command.isEmpty()) {
        *error = QStringLiteral("unknown command '%1'").arg(command);
        return false;
    }
    if (parser.isSet(printConfig))
        config->command = ServerConfig::Command::PrintConfig;

    Settings &settings = config->sources;
    const QString file = parser.isSet(configFile)
        ? parser.value(configFile)
        : environment.value(QStringLiteral("NUV_KESP_CONFIG"));
    if (!file.isEmpty() && !settings.loadFile(file, error))
        return false;
    settings.takeEnvironment(environment);
    for (const auto &[key, option] : settingOptions) {
        if (parser.isSet(*option))
            settings.takeOption(key->variable,
                                key->valueName ? parser.value(*option) : QStringLiteral("1"));
    }
    if (!settings.validate(error))
        return false;

    config->create = parser.isSet(create);
    config->backup = !parser.isSet(noBackup);
    config->admin = parser.value(admin);
    config->verbosity = parser.isSet(quiet) ? 0 : parser.isSet(verbose) ? 2 : 1;
    config->database = settings.value("NUV_KESP_DATABASE");
    config->workers = settings.isSet("NUV_KESP_WORKERS") ? settings.number("NUV_KESP_WORKERS")
                                                         : QThread::idealThreadCount();
    config->workers = qMax(1, config->workers);
    // Fewer requests in hand than workers would leave engines idle.
    config->prefetch = qMax(settings.number("NUV_KESP_PREFETCH"), config->workers);
    config->maxBackoffMs = settings.number("NUV_KESP_MAX_BACKOFF_MS");
    config->firstBackoffMs = qMin(config->firstBackoffMs, config->maxBackoffMs);
    config->peerCheckMs = settings.number("NUV_KESP_PEER_CHECK_MS");
    config->connectionAdvisories = settings.number("NUV_KESP_CONNECTION_ADVISORIES");
    config->name = settings.value("NUV_KESP_NAME");
    if (config->name.isEmpty())
        config->name = QStringLiteral("%1-%2")
                           .arg(QHostInfo::localHostName())
                           .arg(QCoreApplication::applicationPid());
    if (config->command == ServerConfig::Command::PrintConfig)
        return true;

    const QString metrics = settings.value("NUV_KESP_METRICS");
    if (!metrics.isEmpty()) {
        if (!splitHostPort(metrics, &config->metricsHost, &config->metricsPort)
            || QHostAddress(config->metricsHost).isNull()) {
            *error = QStringLiteral("the metrics address must be an IP address and port as "
                                    "ADDRESS:PORT, not '%1'")
                         .arg(metrics);
            return false;
        }
        if (!QHostAddress(config->metricsHost).isLoopback()
            && !settings.number("NUV_KESP_METRICS_ALLOW_REMOTE")) {
            *error = QStringLiteral("the metrics address %1 is not a loopback address; the "
                                    "counters are not meant for the network (allow it with "
                                    "NUV_KESP_METRICS_ALLOW_REMOTE=1)")
                         .arg(metrics);
            return false;
        }
    }
    if (config->command == ServerConfig::Command::Status)
        return true;

    if (config->database.isEmpty()) {
        *error = QStringLiteral("no database: give --database FILE, set NUV_KESP_DATABASE or "
                                "write it in the configuration file");
        return false;
    }
    if (config->command != ServerConfig::Command::Serve)
        return true;

    // The broker's account, TLS and queue: the very settings of the client.
    QString problem;
    if (!stomp::loadSettings(settings.withPrefix(QStringLiteral("NUV_STOMP_")), QString(),
                             &config->settings, &problem)) {
        *error = problem;
        return false;
    }
    const QString where = settings.value("NUV_KESP_BROKER");
    // Each broker of a list names its own port.
    if (where.trimmed().startsWith(QLatin1String("failover:"), Qt::CaseInsensitive))
        return config->brokers.parse(where, 0, config->settings.tls, error);
    QString host;
    quint16 port = 0;
    if (!splitHostPort(where, &host, &port)) {
        *error = QStringLiteral("the broker must be given as HOST:PORT or "
                                "failover:(tcp://HOST:PORT,...), not '%1'")
                     .arg(where);
        return false;
    }
    return config->brokers.parse(where.left(where.lastIndexOf(QLatin1Char(':'))), port,
                                 config->settings.tls, error);
}

} // namespace kesp
