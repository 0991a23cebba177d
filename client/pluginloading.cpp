// SPDX-License-Identifier: Apache-2.0
// Loading the message-queue transport plugin.

#include "nuvclassifyclient.h"
#include "nuvmqclientinterface.h"

#include <QCoreApplication>
#include <QDir>
#include <QPluginLoader>

namespace {
const QString transportFileName = QStringLiteral("libnuvactivemqclient.so");
}

bool NuvClassifyClient::loadMQPlugin(QString &error)
{
    if (mqClient)
        return true;

    if (!pluginPath.isEmpty()) {
        pluginPath = QDir::toNativeSeparators(pluginPath);
        if (!pluginPath.endsWith(QDir::separator()))
            pluginPath += QDir::separator();
    } else {
        pluginPath = QCoreApplication::applicationDirPath() + QDir::separator();
    }
    QCoreApplication::addLibraryPath(pluginPath);

    // The loader is not kept: Qt keeps a loaded plugin library resident, and
    // its root instance stays with Qt's plugin registry.
    QPluginLoader loader;
    loader.setFileName(transportFileName);
    if (!loader.load()) {
        loader.setFileName(pluginPath + transportFileName);
        if (!loader.load()) {
            error = QStringLiteral("ActiveMQ: ") + loader.errorString() + QLatin1Char(' ')
                + pluginPath;
            return false;
        }
    }

    QObject *root = loader.instance();
    auto *factory = root ? qobject_cast<nuvMQClientInterface *>(root) : nullptr;
    if (!factory) {
        mqClient = nullptr;
        return false;
    }
    mqClient = factory->createInstance();
    if (!mqClient)
        return false;
    // By name: the transport carries its own copy of the interface's
    // meta-object, so only a string-based connection matches its signal.
    connect(mqClient, SIGNAL(connectionLost()), this, SLOT(emitDisconnected()));
    return true;
}
