// SPDX-License-Identifier: Apache-2.0
#ifndef TESTSUPPORT_H
#define TESTSUPPORT_H

#include "classifyinterface.h"
#include "nuvmqclassifymessage.h"
#include "scriptedcontrol.h"

#include <memory>

/*
 * What every client test needs: the classify plugin loaded as a host loads
 * it, clients that talk to the scripted transport, and replies built in one
 * line.
 */
namespace testsupport {

// The built classify plugin file and the directory of the scripted transport.
QString classifyPluginFile();
QString scriptedTransportDir();

// The classify plugin's root object, loaded by path with QPluginLoader.
ClassifyInterface *classifyRoot();
// The scripted transport's control API (loads that plugin too).
ScriptedTransportControl *scripted();

using ClientPtr = std::unique_ptr<ClassifyInterface>;

// A new client from the root's createInstance(), loading its transport from
// the scripted transport directory. Nothing is sent yet.
ClientPtr newClient();
// Resets the script, logs a new client in with a matching "CFLOGIN" reply
// and forgets that exchange and the transport calls, so a test sees only
// its own.
ClientPtr loggedInClient();

// A reply message in one expression:
//   Reply("OK").docId("7").dataList({"a"}).data({"x"}).error("why")
class Reply
{
public:
    explicit Reply(const QString &status = QString());
    Reply &docId(const QString &id);
    Reply &dataList(const QStringList &list);
    Reply &data(const QList<QByteArray> &list);
    // Sets the error text and the flag that says the reply carries one.
    Reply &error(const QString &text);
    Reply &updateRequested(bool requested = true);
    Reply &updateString(const QString &marker);
    Reply &availablePlugins(const QStringList &plugins);
    operator nuvMQClassifyMessage() const { return message; }
    nuvMQClassifyMessage message;
};

// Queues a reply for the next exchange.
void answer(const nuvMQClassifyMessage &reply);
// The request of the last exchange, and how many exchanges there were.
nuvMQClassifyMessage lastRequest();
int exchangeCount();

// A QStringList of one entry per argument joined by U+FEFF, for records.
QString joined(const QStringList &parts);

// Answers the next "CFLOGIN" with a matching version and logs `client` in
// as "user" / "secret" at localhost:61613; false when the login failed.
bool logIn(ClassifyInterface *client);

// A new client from the root's createInstance(pluginPath); nothing is
// loaded or sent yet.
ClientPtr clientWithPluginPath(const QString &pluginPath);

// Directories that hold a file named like the transport plugin which is
// not one: a copy of the classify plugin (a Qt plugin, but no transport),
// and a file that is no library at all. Both live until the process ends.
QString nonTransportPluginDir();
QString brokenTransportDir();

// The last error of a login that found no loadable transport, the plugin
// path completed to end in a separator; Qt's own words on the failed load
// are taken from a loader of its own.
QString transportLoadFailure(const QString &completedPluginPath);

// Remembers the library search path as it was when made, and puts it back
// on restore() and when it goes: loading a transport adds its directory for
// the rest of the process, and a later load by bare file name would find the
// transport there.
class LibraryPathsGuard
{
public:
    LibraryPathsGuard();
    ~LibraryPathsGuard();
    LibraryPathsGuard(const LibraryPathsGuard &) = delete;
    LibraryPathsGuard &operator=(const LibraryPathsGuard &) = delete;
    void restore();

private:
    QStringList saved;
};

} // namespace testsupport

#endif // TESTSUPPORT_H
