// SPDX-License-Identifier: Apache-2.0
#ifndef BROKERCONFIG_H
#define BROKERCONFIG_H

#include <QMap>
#include <QSslConfiguration>
#include <QString>

namespace stomp {

/*
 * What the transport needs beyond the host and port its caller passes: the
 * broker account, TLS, the request queue and the timing. It comes from a
 * small INI file beside the plugin (group [stomp]) and from environment
 * variables, which win over the file:
 *
 *   NUV_STOMP_CONFIG            path of the INI file (default: nuvactivemqclient.conf
 *                               in the plugin's directory; a missing default file is fine)
 *   NUV_STOMP_LOGIN             login            broker user name
 *   NUV_STOMP_PASSCODE          passcode         broker password
 *   NUV_STOMP_TLS               tls              1/0: STOMP over TLS ("ssl://host" also does)
 *   NUV_STOMP_CA_FILE           caFile           PEM file of the CA certificates to trust
 *                                                instead of the system's
 *   NUV_STOMP_VERIFY_PEER       verifyPeer       1/0: check the broker's certificate (default 1)
 *   NUV_STOMP_REQUEST_QUEUE     requestQueue     where requests go (default
 *                                                /queue/nuv.kesp.classify)
 *   NUV_STOMP_HEARTBEAT_MS      heartBeatMs      heart-beat interval, 0 for none (default 10000)
 *   NUV_STOMP_CONNECT_TIMEOUT_MS connectTimeoutMs  limit for connect, subscribe and
 *                                                receipts (default 10000)
 */
struct BrokerSettings
{
    QString login;
    QString passcode;
    bool tls = false;
    QString caFile;
    bool verifyPeer = true;
    QString requestQueue = QStringLiteral("/queue/nuv.kesp.classify");
    int heartBeatMs = 10000;
    int connectTimeoutMs = 10000;
};

// The broker as the caller named it, after "ssl://" and the like are peeled.
struct BrokerAddress
{
    QString host;
    quint16 port = 0;
    bool tls = false;

    // "host:port" or "host:port over TLS", for error texts.
    QString label() const;

    bool operator==(const BrokerAddress &other) const
    {
        return host == other.host && port == other.port && tls == other.tls;
    }
    bool operator!=(const BrokerAddress &other) const { return !(*this == other); }
};

using Environment = QMap<QString, QString>;

// A switch as the settings write it: 1/true/yes/on or 0/false/no/off.
bool parseFlag(const QString &text, bool *value);

// The process environment's NUV_STOMP_* variables.
Environment stompEnvironment();
// The default INI file: beside the library that holds this code.
QString defaultConfigFile();

// Reads the file (if any) and then the variables. False with an error text
// that names the offending setting and its source, never a secret's value.
bool loadSettings(const Environment &environment, const QString &defaultFile,
                  BrokerSettings *settings, QString *error);

// Accepts "host", "tcp://host", "stomp://host", "ssl://host",
// "stomp+ssl://host" and IPv6 literals in brackets.
bool parseAddress(const QString &host, qint64 port, bool tlsByDefault, BrokerAddress *address,
                  QString *error);

// The TLS trust rules of every broker connection, the client transport's and
// the server's alike: the configured CA file (else the system's), peer
// verification as configured, TLS 1.2 or later.
QSslConfiguration tlsConfiguration(const BrokerSettings &settings, QSslConfiguration base);

// "/queue/x" and "/topic/x" stay as they are; a bare name becomes a queue
// (or the given kind).
QString destinationFor(const QString &name, const QString &kind = QStringLiteral("queue"));

} // namespace stomp

#endif // BROKERCONFIG_H
