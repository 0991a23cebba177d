// SPDX-License-Identifier: Apache-2.0
#ifndef SERVERTESTSUPPORT_H
#define SERVERTESTSUPPORT_H

#include "classifyinterface.h"
#include "nuvmqclassifymessage.h"
#include "scratchdatabase.h"
#include "serverengine.h"

#include <QSqlDatabase>
#include <QTemporaryDir>

#include <memory>

/*
 * What the server tests share: a fresh database with its first
 * administrator, classify clients that reach it through the embedded
 * transport as a host would, and requests sent to an engine directly for
 * what the client never sends.
 *
 * The database is an SQLite file in a temporary directory or a database of
 * its own on a PostgreSQL server (see scratchdatabase.h); CTest runs the
 * suite both ways.
 */
namespace servertest {

using ClientPtr = std::unique_ptr<ClassifyInterface>;

extern const QString adminUser; // "admin"
extern const QString adminPassword;
// Every user that a test creates with user() has this password.
QString passwordOf(const QString &login);

class TestServer
{
public:
    // Clears the NUV_SERVER_* environment but for a low PBKDF2 iteration
    // count, and creates the database with its administrator.
    TestServer();

    // The engine's database option: the SQLite file or the postgresql:// URL.
    QString database() const { return scratch.location(); }
    bool isPostgres() const { return scratch.isPostgres(); }
    // A database restored from a backup file of this server, as a database
    // option for engines and clients.
    QString restore(const QString &backupFile) { return scratch.restore(backupFile); }
    QString path(const QString &name) const; // inside the temporary directory

    // Runs `sql` on a connection of its own and returns the first column of
    // the first row: for looking at (or tampering with) what the engine stored.
    QVariant inspect(const QString &sql) const;

    // A client logged in with these credentials; null when the login fails
    // (then `error` holds the client's error text).
    ClientPtr connect(const QString &login, const QString &password, QString *error = nullptr);
    ClientPtr admin();
    // Creates the user (through the administrator's client) with `roles`
    // and returns it logged in.
    ClientPtr user(const QString &login, const QStringList &roles = {});
    // A client whose transport is connected but that has not logged in.
    ClientPtr unconnected();

    // An engine on the same database, for requests a client never sends;
    // with `options` (start from options()) for one set up differently.
    std::unique_ptr<nuvserver::ServerEngine> engine();
    std::unique_ptr<nuvserver::ServerEngine> engine(const nuvserver::EngineOptions &options);
    nuvserver::EngineOptions options() const;

private:
    QTemporaryDir directory;
    testdatabase::ScratchDatabase scratch { directory.filePath(QStringLiteral("server.sqlite")) };
};

// The embedded transport's directory.
QString embeddedTransportDir();

// A request for ServerEngine::handle.
nuvMQClassifyMessage request(const QString &command, const QString &docId = QString(),
                             const QStringList &dataList = {}, const QList<QByteArray> &data = {});
// Logs `token` in on the engine; fails the test when refused.
void engineLogin(nuvserver::ServerEngine &engine, const QString &token, const QString &login,
                 const QString &password);

// A database connection of the test's own, opened as the engines open
// theirs: for a write or a lock that races with the engine's requests.
class OwnConnection
{
public:
    OwnConnection(const QString &database, const QString &name);
    ~OwnConnection();
    OwnConnection(const OwnConnection &) = delete;
    OwnConnection &operator=(const OwnConnection &) = delete;

    QSqlDatabase db; // invalid when the connection failed; `error` says why
    QString error;

private:
    const QString name;
};

// The client's operations outside ClassifyInterface, through its meta-object.
bool setRoleRoles(ClassifyInterface *client, const QString &role, const QStringList &roles);
QStringList getRevisionen(ClassifyInterface *client, const QString &docId);

QString joined(const QStringList &fields); // fields joined by U+FEFF
QStringList fieldsOf(const QString &record);

} // namespace servertest

#endif // SERVERTESTSUPPORT_H
