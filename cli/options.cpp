// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include "installlayout.h"

#include <QCommandLineParser>
#include <QDir>
#include <QStandardPaths>

namespace nuvcli {

namespace {

QList<QCommandLineOption> optionList()
{
    return {
        { QStringLiteral("plugin"), QStringLiteral("The classify plugin to load."),
          QStringLiteral("FILE") },
        { QStringLiteral("embedded"),
          QStringLiteral("Work on this database in-process: an SQLite file (the default, "
                         "with %1) or a postgresql://USER@HOST:PORT/NAME URL.")
              .arg(defaultDatabase()),
          QStringLiteral("FILE") },
        { QStringLiteral("broker"),
          QStringLiteral("Talk to a server through the STOMP broker at HOST:PORT "
                         "(ssl://HOST:PORT for TLS)."),
          QStringLiteral("HOST:PORT") },
        { QStringLiteral("transport-dir"),
          QStringLiteral("Load the transport plugin from DIR instead."), QStringLiteral("DIR") },
        { QStringLiteral("user"), QStringLiteral("Log in as NAME (else NUV_USER, else a prompt)."),
          QStringLiteral("NAME") },
        { QStringLiteral("password"),
          QStringLiteral("The password (else NUV_PASSWORD, else a prompt without echo)."),
          QStringLiteral("TEXT") },
        { QStringLiteral("archive"), QStringLiteral("Select this archive after the login."),
          QStringLiteral("NAME") },
        { QStringLiteral("json"), QStringLiteral("Print one JSON object per call and event.") },
        { QStringLiteral("script"),
          QStringLiteral("Run one call per line of FILE ('-': standard input) in one session."),
          QStringLiteral("FILE") },
        { QStringLiteral("keep-going"),
          QStringLiteral("In a script, go on after a failed call (exit status 1 at the end).") },
        { QStringLiteral("admin"), QStringLiteral("init: the first administrator's user name."),
          QStringLiteral("NAME") },
        { QStringLiteral("full-name"), QStringLiteral("init: the administrator's full name."),
          QStringLiteral("TEXT") },
        { { QStringLiteral("h"), QStringLiteral("help") }, QStringLiteral("Show this help.") },
        { QStringLiteral("version"), QStringLiteral("Show the version.") },
    };
}

bool parseBroker(const QString &argument, Options *options, QString *error)
{
    // A list of brokers names each one's port; the transport reads it whole.
    if (argument.trimmed().startsWith(QLatin1String("failover:"), Qt::CaseInsensitive)) {
        options->brokerHost = argument.trimmed();
        return true;
    }
    // A scheme (ssl://, tcp://) stays on the host: the transport reads it
    // and refuses one it does not know.
    const int schemeEnd = argument.indexOf(QLatin1String("://"));
    const QString scheme = schemeEnd >= 0 ? argument.left(schemeEnd + 3) : QString();
    const QString text = argument.mid(scheme.size());
    QString host = text;
    QString port;
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    // "[::1]:61613" and "host:61613"; a bare IPv6 address has no port.
    if (colon > 0
        && (text.count(QLatin1Char(':')) == 1 || text.at(colon - 1) == QLatin1Char(']'))) {
        host = text.left(colon);
        port = text.mid(colon + 1);
    }
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']')))
        host = host.mid(1, host.size() - 2);
    if (host.isEmpty()) {
        *error = QStringLiteral("--broker needs HOST:PORT, got '%1'").arg(argument);
        return false;
    }
    options->brokerHost = scheme + host;
    if (!port.isNull()) {
        bool ok = false;
        options->brokerPort = port.toInt(&ok);
        if (!ok || options->brokerPort < 1 || options->brokerPort > 65535) {
            *error = QStringLiteral("--broker: '%1' is not a port number (1-65535)").arg(port);
            return false;
        }
    }
    return true;
}

} // namespace

QString defaultPluginFile()
{
    return nuvlayout::classifyPluginFile();
}

QString defaultTransportDir(TransportMode mode)
{
    return mode == TransportMode::Embedded ? nuvlayout::embeddedTransportDirectory()
                                           : nuvlayout::stompTransportDirectory();
}

QString defaultDatabase()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
        + QStringLiteral("/nuvclassify/nuvclassify.db");
}

bool parseOptions(const QStringList &arguments, const QProcessEnvironment &environment,
                  Options *options, QString *error)
{
    QCommandLineParser parser;
    parser.addOptions(optionList());
    // Everything after the operation's name is its argument, even "-5".
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    if (!parser.parse(arguments)) {
        *error = parser.errorText();
        return false;
    }
    if (parser.positionalArguments().value(0) == QLatin1String("init")) {
        // init takes no arguments, only options, and they may follow it.
        parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
        if (!parser.parse(arguments)) {
            *error = parser.errorText();
            return false;
        }
    }

    options->words = parser.positionalArguments();
    options->help = parser.isSet(QStringLiteral("help"));
    options->version = parser.isSet(QStringLiteral("version"));
    options->json = parser.isSet(QStringLiteral("json"));
    options->keepGoing = parser.isSet(QStringLiteral("keep-going"));
    options->scriptFile = parser.value(QStringLiteral("script"));
    options->archive = parser.value(QStringLiteral("archive"));
    options->admin = parser.value(QStringLiteral("admin"));
    options->fullName = parser.value(QStringLiteral("full-name"));

    const bool embedded = parser.isSet(QStringLiteral("embedded"));
    const bool broker = parser.isSet(QStringLiteral("broker"));
    if (embedded && broker) {
        *error = QStringLiteral("give either --embedded or --broker, not both");
        return false;
    }
    if (broker) {
        options->mode = TransportMode::Broker;
        if (!parseBroker(parser.value(QStringLiteral("broker")), options, error))
            return false;
    } else {
        options->mode = TransportMode::Embedded;
        options->database = embedded ? parser.value(QStringLiteral("embedded")) : defaultDatabase();
        if (options->database.isEmpty()) {
            *error = QStringLiteral("--embedded needs a database file");
            return false;
        }
    }

    // Relative paths are the user's, meant from the current directory, not
    // from wherever the plugin loader would look.
    options->pluginFile = parser.isSet(QStringLiteral("plugin"))
        ? QDir::current().absoluteFilePath(parser.value(QStringLiteral("plugin")))
        : defaultPluginFile();
    options->transportDir = parser.isSet(QStringLiteral("transport-dir"))
        ? QDir::current().absoluteFilePath(parser.value(QStringLiteral("transport-dir")))
        : defaultTransportDir(options->mode);

    // Whether a credential was given at all is kept apart from its text, so
    // that an empty password can be given on purpose.
    const auto credential = [&](const QString &option, const QString &variable, QString *value) {
        if (parser.isSet(option))
            *value = parser.value(option);
        else if (environment.contains(variable))
            *value = environment.value(variable);
        else
            return false;
        return true;
    };
    options->hasUser
        = credential(QStringLiteral("user"), QStringLiteral("NUV_USER"), &options->user);
    options->hasPassword = credential(QStringLiteral("password"), QStringLiteral("NUV_PASSWORD"),
                                      &options->password);
    return true;
}

QString optionsHelp()
{
    QString text;
    for (const QCommandLineOption &option : optionList()) {
        QStringList names;
        for (const QString &name : option.names())
            names.append(name.size() == 1 ? QLatin1Char('-') + name : QStringLiteral("--") + name);
        QString left = names.join(QStringLiteral(", "));
        if (!option.valueName().isEmpty())
            left += QLatin1Char(' ') + option.valueName();
        text += QStringLiteral("  %1  %2\n").arg(left, -24).arg(option.description());
    }
    return text;
}

} // namespace nuvcli
