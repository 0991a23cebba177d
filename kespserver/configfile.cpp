// SPDX-License-Identifier: Apache-2.0
#include "configfile.h"

#include "brokerconfig.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <QUrl>

namespace kesp {

const QVector<SettingKey> &settingKeys()
{
    using K = SettingKey;
    static const QVector<SettingKey> keys = {
        { "NUV_KESP_BROKER", K::Text, 0, "broker", "host:port", "127.0.0.1:61613",
          "The broker's STOMP port as HOST:PORT (ssl://HOST:PORT for TLS), or several as "
          "failover:(tcp://HOST:PORT,tcp://HOST:PORT): tried in turn, the next one after a "
          "loss." },
        { "NUV_KESP_DATABASE", K::Location, 0, "database", "file|url", nullptr,
          "The database: an existing SQLite file, or postgresql://USER@HOST:PORT/NAME to share "
          "one PostgreSQL database between servers (give a password through PGPASSWORD, "
          "~/.pgpass or the configuration file, not on the command line)." },
        { "NUV_KESP_PREFETCH", K::Number, 1, "prefetch", "n", "1",
          "Requests the broker hands this instance ahead, at least one per worker (as few as "
          "that: a burst spreads evenly)." },
        { "NUV_KESP_WORKERS", K::Number, 1, "workers", "n", nullptr,
          "Requests this instance runs at once, each on an engine and a database connection of "
          "its own (default: the number of cores)." },
        { "NUV_KESP_NAME", K::Text, 0, "name", "name", nullptr,
          "This instance's name in the log (default host-pid)." },
        { "NUV_KESP_MAX_BACKOFF_MS", K::Number, 100, "max-backoff-ms", "ms", "30000",
          "Longest pause between reconnection attempts." },
        { "NUV_KESP_METRICS", K::Text, 0, "metrics", "host:port", nullptr,
          "Serve counters (/metrics, Prometheus text) and health (/status) over HTTP on this "
          "loopback address; also what the status command asks." },
        { "NUV_KESP_METRICS_ALLOW_REMOTE", K::Flag, 0, "metrics-allow-remote", nullptr, "0",
          "Allow a metrics address that is not a loopback one." },
        { "NUV_KESP_PEER_CHECK_MS", K::Number, 0, "peer-check-ms", "ms", "1500",
          "How long a starting instance listens for instances on its queue that serve another "
          "database (0: no check)." },
        { "NUV_KESP_CONNECTION_ADVISORIES", K::OnOff, 0, nullptr, nullptr, "on", nullptr },
        { "NUV_STOMP_CONFIG", K::Text, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_STOMP_LOGIN", K::Text, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_STOMP_PASSCODE", K::Secret, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_STOMP_TLS", K::Flag, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_STOMP_CA_FILE", K::Text, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_STOMP_VERIFY_PEER", K::Flag, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_STOMP_REQUEST_QUEUE", K::Text, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_STOMP_HEARTBEAT_MS", K::Number, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_STOMP_CONNECT_TIMEOUT_MS", K::Number, 1, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_BACKUP_DIR", K::Text, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_FS_ROOTS", K::Text, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_MAIL_COMMAND", K::Text, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_LDAP_URL", K::Location, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_WEB_URL", K::Location, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_SCAN_DIR", K::Text, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_PLUGINS", K::Text, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_PBKDF2_ITERATIONS", K::Number, 1, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_MIN_PASSWORD_LENGTH", K::Number, 1, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_BUSY_TIMEOUT_MS", K::Number, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_SESSION_TIMEOUT_MINUTES", K::Number, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_MAIL_TIMEOUT_SECONDS", K::Number, 1, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_ADMIN_USER", K::Text, 0, nullptr, nullptr, nullptr, nullptr },
        { "NUV_SERVER_ADMIN_PASSWORD", K::Secret, 0, nullptr, nullptr, nullptr, nullptr },
    };
    return keys;
}

namespace {

const SettingKey *findKey(const QString &variable)
{
    for (const SettingKey &key : settingKeys()) {
        if (variable == QLatin1String(key.variable))
            return &key;
    }
    return nullptr;
}

bool hasPassword(const QString &location)
{
    return location.contains(QLatin1String("://")) && !QUrl(location).password().isEmpty();
}

// A value as it may be shown: never a secret, never a password in a URL.
QString shown(const SettingKey &key, const QString &text)
{
    if (key.kind == SettingKey::Secret)
        return text.isEmpty() ? QString() : QStringLiteral("(hidden)");
    if (key.kind == SettingKey::Location && hasPassword(text))
        return QUrl(text).toString(QUrl::RemovePassword);
    return text;
}

// Why `text` is no value for `key`; empty when it is one.
QString problemWith(const SettingKey &key, const QString &text)
{
    switch (key.kind) {
    case SettingKey::Number: {
        bool ok = false;
        const int number = text.trimmed().toInt(&ok);
        if (!ok || number < key.minimum)
            return QStringLiteral("%1 must be a whole number of at least %2, not \"%3\"")
                .arg(QLatin1String(key.variable))
                .arg(key.minimum)
                .arg(text);
        return QString();
    }
    case SettingKey::Flag: {
        bool flag = false;
        if (!stomp::parseFlag(text, &flag))
            return QStringLiteral("%1 must be 1 or 0, not \"%2\"")
                .arg(QLatin1String(key.variable), text);
        return QString();
    }
    case SettingKey::OnOff:
        if (text != QLatin1String("on") && text != QLatin1String("off"))
            return QStringLiteral("%1 must be on or off, not '%2'")
                .arg(QLatin1String(key.variable), text);
        return QString();
    default:
        return QString();
    }
}

} // namespace

bool Settings::loadFile(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        *error = QStringLiteral("cannot read the configuration file %1: %2")
                     .arg(path, file.errorString());
        return false;
    }
    const bool othersMayRead = file.permissions() & QFileDevice::ReadOther;
    QTextStream in(&file);
    in.setCodec("UTF-8");
    int lineNumber = 0;
    while (!in.atEnd()) {
        const QString line = in.readLine().trimmed();
        ++lineNumber;
        const QString where = QStringLiteral("%1:%2").arg(path).arg(lineNumber);
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))
            || line.startsWith(QLatin1Char(';')))
            continue;
        const int equals = line.indexOf(QLatin1Char('='));
        if (equals <= 0) {
            *error = QStringLiteral("%1: expected KEY = VALUE, not \"%2\"").arg(where, line);
            return false;
        }
        const QString name = line.left(equals).trimmed();
        QString text = line.mid(equals + 1).trimmed();
        // Quotes keep leading or trailing blanks (and let the file double as
        // an environment file).
        if (text.size() >= 2 && text.startsWith(QLatin1Char('"'))
            && text.endsWith(QLatin1Char('"')))
            text = text.mid(1, text.size() - 2);
        const SettingKey *key = findKey(name);
        if (!key) {
            *error = QStringLiteral("%1: unknown key \"%2\"").arg(where, name);
            return false;
        }
        const QString problem = problemWith(*key, text);
        if (!problem.isEmpty()) {
            *error = QStringLiteral("%1: %2").arg(where, problem);
            return false;
        }
        if (othersMayRead
            && (key->kind == SettingKey::Secret
                || (key->kind == SettingKey::Location && hasPassword(text)))) {
            *error = QStringLiteral("%1: %2 holds a secret, but the file can be read by every "
                                    "user; make it readable by the server only (chmod 640)")
                         .arg(where, name);
            return false;
        }
        values.insert(name, { text, where });
    }
    return true;
}

void Settings::takeEnvironment(const QProcessEnvironment &environment)
{
    for (const SettingKey &key : settingKeys()) {
        // An empty variable counts as unset, as it always has.
        const QString name = QLatin1String(key.variable);
        if (!environment.value(name).isEmpty())
            values.insert(name, { environment.value(name), QStringLiteral("environment") });
    }
}

void Settings::takeOption(const char *variable, const QString &value)
{
    const SettingKey *key = findKey(QLatin1String(variable));
    values.insert(QLatin1String(variable),
                  { value, QStringLiteral("option --%1").arg(QLatin1String(key->option)) });
}

bool Settings::validate(QString *error) const
{
    for (auto it = values.constBegin(); it != values.constEnd(); ++it) {
        const QString problem = problemWith(*findKey(it.key()), it.value().text);
        if (!problem.isEmpty()) {
            *error = QStringLiteral("%1 (from %2)").arg(problem, it.value().source);
            return false;
        }
    }
    return true;
}

QString Settings::value(const char *variable) const
{
    const auto it = values.constFind(QLatin1String(variable));
    if (it != values.constEnd())
        return it.value().text;
    const SettingKey *key = findKey(QLatin1String(variable));
    return key && key->defaultValue ? QLatin1String(key->defaultValue) : QString();
}

int Settings::number(const char *variable) const
{
    bool flag = false;
    const SettingKey::Kind kind = findKey(QLatin1String(variable))->kind;
    if (kind == SettingKey::OnOff)
        return value(variable) == QLatin1String("on") ? 1 : 0;
    if (kind == SettingKey::Flag)
        return stomp::parseFlag(value(variable), &flag) && flag ? 1 : 0;
    return value(variable).trimmed().toInt();
}

QMap<QString, QString> Settings::withPrefix(const QString &prefix) const
{
    QMap<QString, QString> result;
    for (auto it = values.constBegin(); it != values.constEnd(); ++it) {
        if (it.key().startsWith(prefix))
            result.insert(it.key(), it.value().text);
    }
    return result;
}

void Settings::exportToEnvironment(const QString &prefix) const
{
    const QMap<QString, QString> chosen = withPrefix(prefix);
    for (auto it = chosen.constBegin(); it != chosen.constEnd(); ++it)
        qputenv(it.key().toUtf8().constData(), it.value().toUtf8());
}

QString Settings::describe() const
{
    QString text;
    for (const SettingKey &key : settingKeys()) {
        const QString name = QLatin1String(key.variable);
        const auto it = values.constFind(name);
        if (it != values.constEnd())
            text += QStringLiteral("%1 = %2  # %3\n")
                        .arg(name, shown(key, it.value().text), it.value().source);
        else if (key.defaultValue)
            text += QStringLiteral("%1 = %2  # default\n")
                        .arg(name, QLatin1String(key.defaultValue));
        else
            text += QStringLiteral("# %1 is not set\n").arg(name);
    }
    return text;
}

} // namespace kesp
