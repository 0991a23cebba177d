// SPDX-License-Identifier: Apache-2.0
#include "brokerenv.h"

#include "installlayout.h"
#include "nuvmqclientinterface.h"
#include "nuvmutex.h"

#include <QFile>
#include <QPluginLoader>

namespace stomp {

BrokerEnv::BrokerEnv()
{
    if (qEnvironmentVariable("NUV_BROKER_DIR").isEmpty()) {
        why = QStringLiteral("NUV_BROKER_DIR is not set (run the tests through CTest, which "
                             "starts the broker)");
        return;
    }
    if (!read(QStringLiteral("broker.env"), &values) || !read(QStringLiteral("client.env"), &client)
        || !read(QStringLiteral("server.env"), &server))
        values.clear();
}

bool BrokerEnv::read(const QString &name, QMap<QString, QString> *into)
{
    QFile file(qEnvironmentVariable("NUV_BROKER_DIR") + QLatin1Char('/') + name);
    if (!file.open(QIODevice::ReadOnly)) {
        why = QStringLiteral("cannot read %1: is the broker started?").arg(file.fileName());
        return false;
    }
    while (!file.atEnd()) {
        QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(QLatin1String("export ")))
            line = line.mid(7);
        const int equals = line.indexOf(QLatin1Char('='));
        if (equals > 0)
            into->insert(line.left(equals), line.mid(equals + 1));
    }
    if (into->isEmpty())
        why = QStringLiteral("%1 is empty").arg(file.fileName());
    return !into->isEmpty();
}

QString BrokerEnv::refusedConnect(const std::function<QString()> &connect)
{
    QString text;
    for (int attempt = 0; attempt < 3; ++attempt) {
        text = connect();
        if (!text.contains(QLatin1String("closed the connection during the STOMP handshake")))
            break;
        qWarning("the broker closed before its refusal went out; trying again");
    }
    return text;
}

Peer::Options BrokerEnv::peerOptions() const
{
    Peer::Options options;
    options.host = host();
    options.port = stompPort();
    options.login = serverLogin().toUtf8();
    options.passcode = serverPasscode().toUtf8();
    return options;
}

Peer::Options BrokerEnv::clientPeerOptions() const
{
    Peer::Options options = peerOptions();
    options.login = login().toUtf8();
    options.passcode = passcode().toUtf8();
    return options;
}

void BrokerEnv::addServerAccount(QProcessEnvironment *environment) const
{
    environment->insert(QStringLiteral("NUV_STOMP_LOGIN"), serverLogin());
    environment->insert(QStringLiteral("NUV_STOMP_PASSCODE"), serverPasscode());
}

void BrokerEnv::exportCredentials() const
{
    qputenv("NUV_STOMP_LOGIN", login().toUtf8());
    qputenv("NUV_STOMP_PASSCODE", passcode().toUtf8());
}

QString BrokerEnv::pluginDir()
{
    return nuvlayout::stompTransportDirectory();
}

nuvMQClientInterface *transportRoot()
{
    // Loaders on several threads share one plugin instance, which Qt guards
    // with a lock of its own that ThreadSanitizer cannot see; this one it can.
    static nuv::Mutex loading;
    nuv::MutexLocker locker(&loading);
    QPluginLoader loader(BrokerEnv::pluginDir() + QStringLiteral("/libnuvactivemqclient.so"));
    QObject *root = loader.instance();
    if (!root) {
        qWarning("cannot load the transport plugin: %s", qPrintable(loader.errorString()));
        return nullptr;
    }
    return qobject_cast<nuvMQClientInterface *>(root);
}

std::unique_ptr<nuvMQClientInterface> newTransport()
{
    nuvMQClientInterface *root = transportRoot();
    return std::unique_ptr<nuvMQClientInterface>(root ? root->createInstance() : nullptr);
}

} // namespace stomp
