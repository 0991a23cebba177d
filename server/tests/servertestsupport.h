#ifndef SERVERTESTSUPPORT_H
#define SERVERTESTSUPPORT_H

#include "classifyinterface.h"
#include "nuvmqclassifymessage.h"
#include "serverengine.h"

#include <QTemporaryDir>

#include <memory>

/*
 * What the server tests share: a fresh database with its first
 * administrator, classify clients that reach it through the embedded
 * transport as a host would, and requests sent to an engine directly for
 * what the client never sends.
 *
 * The database is an SQLite file in a temporary directory, or, when
 * NUV_TEST_POSTGRES_URL names a PostgreSQL server (a URL of a database the
 * account may create databases from) or NUV_TEST_POSTGRES_DIR the state
 * directory of scripts/postgres, a database of its own on that server,
 * dropped again at the end. CTest runs the suite both ways.
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
    ~TestServer();
    TestServer(const TestServer &) = delete;
    TestServer &operator=(const TestServer &) = delete;

    // The engine's database option: the SQLite file or the postgresql:// URL.
    QString database() const { return databaseOption; }
    bool isPostgres() const;
    QString path(const QString &name) const; // inside the temporary directory

    // Runs `sql` on a connection of its own and returns the first column of
    // the first row: for looking at (or tampering with) what the engine stored.
    QVariant inspect(const QString &sql) const;
    // A database restored from a backup file of this server, as a database
    // option for engines and clients.
    QString restore(const QString &backupFile);

    // A client logged in with these credentials; null when the login fails
    // (then `error` holds the client's error text).
    ClientPtr connect(const QString &login, const QString &password, QString *error = nullptr);
    ClientPtr admin();
    // Creates the user (through the administrator's client) with `roles`
    // and returns it logged in.
    ClientPtr user(const QString &login, const QStringList &roles = {});
    // A client whose transport is connected but that has not logged in.
    ClientPtr unconnected();

    // An engine on the same database, for requests a client never sends.
    std::unique_ptr<nuvserver::ServerEngine> engine();

private:
    QTemporaryDir directory;
    QString databaseOption;
    QString createPostgresDatabase();

    QString postgresDatabase; // the database made for this server
    QStringList droppedAtEnd; // it and those restored from backups
};

// Whether the tests run against PostgreSQL (NUV_TEST_POSTGRES_URL is set).
bool onPostgres();

// The embedded transport's directory.
QString embeddedTransportDir();

// A request for ServerEngine::handle.
nuvMQClassifyMessage request(const QString &command, const QString &docId = QString(),
                             const QStringList &dataList = {}, const QList<QByteArray> &data = {});
// Logs `token` in on the engine; fails the test when refused.
void engineLogin(nuvserver::ServerEngine &engine, const QString &token, const QString &login,
                 const QString &password);

// The client's operations outside ClassifyInterface, through its meta-object.
bool setRoleRoles(ClassifyInterface *client, const QString &role, const QStringList &roles);
QStringList getRevisionen(ClassifyInterface *client, const QString &docId);

QString joined(const QStringList &fields); // fields joined by U+FEFF
QStringList fieldsOf(const QString &record);

} // namespace servertest

#endif // SERVERTESTSUPPORT_H
