// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_OPTIONS_H
#define NUVCLI_OPTIONS_H

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

/*
 * The tool's command line: options before the operation, the operation
 * and its arguments after it. Everything after the operation's name is an
 * argument, so values like -5 need no quoting. `init` is the exception: its
 * options may follow it.
 */
namespace nuvcli {

enum class TransportMode { Embedded, Broker };

struct Options
{
    QString pluginFile; // the classify plugin to load
    TransportMode mode = TransportMode::Embedded;
    QString database; // embedded: the database file or a postgresql:// URL
    QString brokerHost; // broker: where the STOMP broker listens
    int brokerPort = 61613;
    QString transportDir; // where the transport plugin is loaded from
    QString user; // from --user or NUV_USER
    bool hasUser = false;
    QString password; // from --password or NUV_PASSWORD
    bool hasPassword = false;
    QString archive; // selected after login when not empty

    // Whether the embedded database is a file (not a database server's URL).
    bool databaseIsFile() const { return !database.contains(QLatin1String("://")); }
    QString admin; // init: the first administrator
    QString fullName; // init: the administrator's full name
    QString scriptFile;
    bool json = false;
    bool keepGoing = false;
    bool help = false;
    bool version = false;
    QStringList words; // the operation (or list, help, init) and its arguments
};

// Parses `arguments` (the first is the program) with defaults from
// `environment`. False with `error` set on a usage mistake.
bool parseOptions(const QStringList &arguments, const QProcessEnvironment &environment,
                  Options *options, QString *error);

// The options part of the usage text.
QString optionsHelp();

// Where the tool looks by default: the classify plugin, the embedded and
// the STOMP transport directories, and the embedded database.
QString defaultPluginFile();
QString defaultTransportDir(TransportMode mode);
QString defaultDatabase();

} // namespace nuvcli

#endif // NUVCLI_OPTIONS_H
