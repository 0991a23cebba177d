// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_PLUGINCLIENT_H
#define NUVCLI_PLUGINCLIENT_H

#include "call.h"
#include "console.h"
#include "options.h"
#include "output.h"

#include <QObject>

#include <memory>

class ClassifyInterface;

/*
 * One client of the classify plugin, set up as a host application sets it
 * up: the plugin loaded by file with QPluginLoader, its root cast to
 * ClassifyInterface, a client made by createInstance() with the chosen
 * transport directory, the client's signals connected by name. The login
 * happens before the first call that needs one; later calls reuse it.
 */
namespace nuvcli {

class PluginClient : public QObject
{
    Q_OBJECT

public:
    PluginClient(const Options &options, Console &console, Printer &printer);
    ~PluginClient() override;

    // Loads the plugin and creates the client; false with `error` when the
    // plugin cannot be loaded or is not a classify plugin.
    bool open(QString *error);
    CallRecord run(const PreparedCall &call, int line = 0);

private Q_SLOTS:
    void onServerRequest(const QString &request);
    void onClientDisconnect();

private:
    // Logs in when `operation` needs it. On failure fills `record`.
    bool ensureLogin(const Operation &operation, CallRecord &record);
    bool credentials(QString *user, QString *password, QString *error);
    // Marks `record` failed; a fatal failure (no login) ends a script.
    bool fail(CallRecord &record, int status, const QString &error, bool fatal = true);

    const Options &options;
    Console &console;
    Printer &printer;
    std::unique_ptr<ClassifyInterface> client;
    bool loggedIn = false;
    bool haveCredentials = false;
    QString user;
    QString password;
};

} // namespace nuvcli

#endif // NUVCLI_PLUGINCLIENT_H
