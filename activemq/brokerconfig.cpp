// SPDX-License-Identifier: Apache-2.0
#include "brokerconfig.h"

#include <QFileInfo>
#include <QHostAddress>
#include <QProcessEnvironment>
#include <QSettings>
#include <QSslCertificate>
#include <QSslSocket>

#include <dlfcn.h>

namespace stomp {

namespace {

// One setting: its INI key and its variable.
struct Key
{
    const char *ini;
    const char *variable;
};

const Key loginKey { "login", "NUV_STOMP_LOGIN" };
const Key passcodeKey { "passcode", "NUV_STOMP_PASSCODE" };
const Key tlsKey { "tls", "NUV_STOMP_TLS" };
const Key caFileKey { "caFile", "NUV_STOMP_CA_FILE" };
const Key verifyKey { "verifyPeer", "NUV_STOMP_VERIFY_PEER" };
const Key queueKey { "requestQueue", "NUV_STOMP_REQUEST_QUEUE" };
const Key heartBeatKey { "heartBeatMs", "NUV_STOMP_HEARTBEAT_MS" };
const Key timeoutKey { "connectTimeoutMs", "NUV_STOMP_CONNECT_TIMEOUT_MS" };
const Key allKeys[]
    = { loginKey, passcodeKey, tlsKey, caFileKey, verifyKey, queueKey, heartBeatKey, timeoutKey };

// A value and where it came from, so an error can point at the source.
struct Value
{
    bool present = false;
    QString text;
    QString source;
};

class Sources
{
public:
    Sources(const Environment &environment, const QString &file)
        : environment(environment)
        , file(file)
    {
        if (!file.isEmpty()) {
            QSettings ini(file, QSettings::IniFormat);
            ini.beginGroup(QStringLiteral("stomp"));
            for (const Key &key : allKeys) {
                const QString name = QLatin1String(key.ini);
                if (ini.contains(name))
                    fileValues.insert(name, ini.value(name).toString());
            }
        }
    }

    Value get(const Key &key) const
    {
        Value value;
        const QString variable = QLatin1String(key.variable);
        if (environment.contains(variable)) {
            value.present = true;
            value.text = environment.value(variable);
            value.source = QStringLiteral("environment variable %1").arg(variable);
        } else if (fileValues.contains(QLatin1String(key.ini))) {
            value.present = true;
            value.text = fileValues.value(QLatin1String(key.ini));
            value.source = QStringLiteral("setting %1 in %2").arg(QLatin1String(key.ini), file);
        }
        return value;
    }

private:
    const Environment &environment;
    QString file;
    QMap<QString, QString> fileValues;
};

bool parseBool(const Value &value, bool *out, QString *error)
{
    if (parseFlag(value.text, out))
        return true;
    *error = QStringLiteral("Invalid transport configuration: %1 is \"%2\"; expected 1 or 0.")
                 .arg(value.source, value.text);
    return false;
}

bool parseMilliseconds(const Value &value, int minimum, int maximum, bool zeroAllowed, int *out,
                       QString *error)
{
    bool ok = false;
    const int number = value.text.trimmed().toInt(&ok);
    if (ok && ((zeroAllowed && number == 0) || (number >= minimum && number <= maximum))) {
        *out = number;
        return true;
    }
    *error = QStringLiteral("Invalid transport configuration: %1 is \"%2\"; expected %3"
                            "milliseconds from %4 to %5.")
                 .arg(value.source, value.text,
                      zeroAllowed ? QStringLiteral("0 (off) or ") : QString())
                 .arg(minimum)
                 .arg(maximum);
    return false;
}

// CONNECT headers travel unescaped, so a line break would end the header.
bool fitsConnectHeader(const Value &value, bool secret, QString *error)
{
    if (!value.text.contains(QLatin1Char('\n')) && !value.text.contains(QLatin1Char('\r'))
        && !value.text.contains(QChar(0))) {
        return true;
    }
    *error
        = QStringLiteral("Invalid transport configuration: %1 contains a line break%2.")
              .arg(value.source, secret ? QString() : QStringLiteral(" (\"%1\")").arg(value.text));
    return false;
}

} // namespace

bool parseFlag(const QString &text, bool *value)
{
    const QString word = text.trimmed().toLower();
    if (word == QLatin1String("1") || word == QLatin1String("true") || word == QLatin1String("yes")
        || word == QLatin1String("on")) {
        *value = true;
        return true;
    }
    if (word == QLatin1String("0") || word == QLatin1String("false") || word == QLatin1String("no")
        || word == QLatin1String("off")) {
        *value = false;
        return true;
    }
    return false;
}

QString BrokerAddress::label() const
{
    const QString shown = host.contains(QLatin1Char(':')) ? QStringLiteral("[%1]").arg(host) : host;
    return QStringLiteral("%1:%2%3").arg(shown).arg(port).arg(tls ? QStringLiteral(" over TLS")
                                                                  : QString());
}

Environment stompEnvironment()
{
    Environment environment;
    const QProcessEnvironment process = QProcessEnvironment::systemEnvironment();
    for (const QString &name : process.keys()) {
        if (name.startsWith(QLatin1String("NUV_STOMP_")))
            environment.insert(name, process.value(name));
    }
    return environment;
}

QString defaultConfigFile()
{
    Dl_info info;
    if (dladdr(reinterpret_cast<void *>(&defaultConfigFile), &info) == 0 || !info.dli_fname)
        return QString();
    return QFileInfo(QString::fromLocal8Bit(info.dli_fname)).absolutePath()
        + QStringLiteral("/nuvactivemqclient.conf");
}

bool loadSettings(const Environment &environment, const QString &defaultFile,
                  BrokerSettings *settings, QString *error)
{
    QString file;
    const QString named = environment.value(QStringLiteral("NUV_STOMP_CONFIG"));
    if (!named.isEmpty()) {
        if (!QFileInfo(named).isReadable()) {
            *error = QStringLiteral("Invalid transport configuration: the file %1 named by "
                                    "NUV_STOMP_CONFIG cannot be read.")
                         .arg(named);
            return false;
        }
        file = named;
    } else if (!defaultFile.isEmpty() && QFileInfo(defaultFile).isReadable()) {
        file = defaultFile;
    }
    const Sources sources(environment, file);

    BrokerSettings result;
    Value value = sources.get(loginKey);
    if (value.present) {
        if (!fitsConnectHeader(value, false, error))
            return false;
        result.login = value.text;
    }
    value = sources.get(passcodeKey);
    if (value.present) {
        if (!fitsConnectHeader(value, true, error))
            return false;
        result.passcode = value.text;
    }
    value = sources.get(tlsKey);
    if (value.present && !parseBool(value, &result.tls, error))
        return false;
    value = sources.get(verifyKey);
    if (value.present && !parseBool(value, &result.verifyPeer, error))
        return false;
    value = sources.get(caFileKey);
    if (value.present && !value.text.isEmpty()) {
        if (!QFileInfo(value.text).isReadable()) {
            *error = QStringLiteral("Invalid transport configuration: the CA file %1 (%2) cannot "
                                    "be read.")
                         .arg(value.text, value.source);
            return false;
        }
        result.caFile = value.text;
    }
    value = sources.get(queueKey);
    if (value.present) {
        const QString queue = value.text.trimmed();
        if (queue.isEmpty() || queue.contains(QChar(0))) {
            *error = QStringLiteral("Invalid transport configuration: %1 names no queue.")
                         .arg(value.source);
            return false;
        }
        result.requestQueue = destinationFor(queue);
    }
    value = sources.get(heartBeatKey);
    if (value.present
        && !parseMilliseconds(value, 100, 3600 * 1000, true, &result.heartBeatMs, error))
        return false;
    value = sources.get(timeoutKey);
    if (value.present
        && !parseMilliseconds(value, 100, 600 * 1000, false, &result.connectTimeoutMs, error))
        return false;

    *settings = result;
    return true;
}

bool parseAddress(const QString &host, qint64 port, bool tlsByDefault, BrokerAddress *address,
                  QString *error)
{
    BrokerAddress result;
    result.tls = tlsByDefault;
    QString name = host.trimmed();
    const int scheme = name.indexOf(QLatin1String("://"));
    if (scheme >= 0) {
        const QString prefix = name.left(scheme).toLower();
        if (prefix == QLatin1String("ssl") || prefix == QLatin1String("stomp+ssl")
            || prefix == QLatin1String("stomp+tls") || prefix == QLatin1String("tls")) {
            result.tls = true;
        } else if (prefix == QLatin1String("tcp") || prefix == QLatin1String("stomp")) {
            // Named plain on purpose: that beats the configured default.
            result.tls = false;
        } else {
            *error = QStringLiteral("Cannot connect to the message broker \"%1\": unknown scheme "
                                    "\"%2://\" (use a host name, tcp://host or ssl://host).")
                         .arg(host, prefix);
            return false;
        }
        name = name.mid(scheme + 3);
    }
    if (name.endsWith(QLatin1Char('/')))
        name.chop(1);
    if (name.startsWith(QLatin1Char('[')) && name.endsWith(QLatin1Char(']')))
        name = name.mid(1, name.size() - 2);
    if (name.isEmpty()) {
        *error = QStringLiteral("Cannot connect to the message broker: no host name was given.");
        return false;
    }
    if (name.contains(QLatin1Char('/')) || name.contains(QLatin1Char(' '))) {
        *error = QStringLiteral("Cannot connect to the message broker \"%1\": that is not a host "
                                "name.")
                     .arg(host);
        return false;
    }
    if (port < 1 || port > 65535) {
        *error = QStringLiteral("Cannot connect to the message broker at %1: port %2 is not a TCP "
                                "port (1 to 65535).")
                     .arg(name)
                     .arg(port);
        return false;
    }
    result.host = name;
    result.port = quint16(port);
    *address = result;
    return true;
}

QString destinationFor(const QString &name, const QString &kind)
{
    if (name.startsWith(QLatin1Char('/')))
        return name;
    return QStringLiteral("/%1/%2").arg(kind, name);
}

QSslConfiguration tlsConfiguration(const BrokerSettings &settings, QSslConfiguration base)
{
    if (!settings.caFile.isEmpty())
        base.setCaCertificates(QSslCertificate::fromPath(settings.caFile));
    base.setPeerVerifyMode(settings.verifyPeer ? QSslSocket::VerifyPeer : QSslSocket::VerifyNone);
    base.setProtocol(QSsl::TlsV1_2OrLater);
    return base;
}

} // namespace stomp
