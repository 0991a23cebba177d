#ifndef BROKERENV_H
#define BROKERENV_H

#include "stomppeer.h"

#include <QMap>
#include <QProcessEnvironment>
#include <QString>

#include <functional>
#include <memory>

class nuvMQClientInterface;

namespace stomp {

/*
 * The broker that scripts/broker started in $NUV_BROKER_DIR: its ports and
 * test certificates (broker.env) and the two accounts it has, one for
 * clients (client.env) and one for servers (server.env).
 */
class BrokerEnv
{
public:
    // Reads the files in $NUV_BROKER_DIR; ok() says whether it worked.
    BrokerEnv();

    bool ok() const { return !values.isEmpty(); }
    QString problem() const { return why; }

    QString host() const { return value("NUV_BROKER_HOST"); }
    quint16 stompPort() const { return quint16(value("NUV_BROKER_STOMP_PORT").toUInt()); }
    quint16 sslPort() const { return quint16(value("NUV_BROKER_STOMP_SSL_PORT").toUInt()); }
    // The clients' account.
    QString login() const { return client.value(QStringLiteral("NUV_STOMP_LOGIN")); }
    QString passcode() const { return client.value(QStringLiteral("NUV_STOMP_PASSCODE")); }
    // The servers' account.
    QString serverLogin() const { return server.value(QStringLiteral("NUV_STOMP_LOGIN")); }
    QString serverPasscode() const { return server.value(QStringLiteral("NUV_STOMP_PASSCODE")); }
    QString caFile() const { return value("NUV_BROKER_CA_FILE"); }
    QString otherCaFile() const { return value("NUV_BROKER_OTHER_CA_FILE"); }

    // Options for a Peer on the plain STOMP port: a responder, with the
    // servers' account, or a client.
    Peer::Options peerOptions() const;
    Peer::Options clientPeerOptions() const;
    // Points the transport's settings (NUV_STOMP_*) at the clients' account.
    void exportCredentials() const;
    // Sets the servers' account in the environment of a server process.
    void addServerAccount(QProcessEnvironment *environment) const;

    // Runs scripts/broker with the same state directory; false with output.
    static bool script(const QString &action, QString *output, int timeoutMs = 120000);
    // The directory of the STOMP transport plugin, beside the program's own.
    static QString pluginDir();

    // ActiveMQ answers a refused login with an ERROR frame and closes the
    // connection right behind it. Once, on a loaded CI machine, the client
    // saw only the close. Runs `connect`, a connect the broker must refuse
    // that returns the error text (empty when it connected), again while
    // the text is that bare close, three times at most; returns the last
    // text, so a refusal that keeps going missing still fails the test.
    static QString refusedConnect(const std::function<QString()> &connect);

private:
    QString value(const char *name) const { return values.value(QLatin1String(name)); }
    bool read(const QString &name, QMap<QString, QString> *into);

    QMap<QString, QString> values;
    QMap<QString, QString> client;
    QMap<QString, QString> server;
    QString why;
};

// The transport plugin's root object, loaded by path with QPluginLoader the
// way the classify client loads it; null with a warning when it fails.
nuvMQClientInterface *transportRoot();
// A new transport object from the root's createInstance().
std::unique_ptr<nuvMQClientInterface> newTransport();

} // namespace stomp

#endif // BROKERENV_H
