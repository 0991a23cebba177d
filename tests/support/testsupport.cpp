// SPDX-License-Identifier: Apache-2.0
#include "testsupport.h"

#include <QCoreApplication>
#include <QFile>
#include <QPluginLoader>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

namespace testsupport {

QString classifyPluginFile()
{
    return QStringLiteral(NUV_CLASSIFY_PLUGIN_FILE);
}

QString scriptedTransportDir()
{
    return QStringLiteral(NUV_SCRIPTED_TRANSPORT_DIR);
}

ClassifyInterface *classifyRoot()
{
    QPluginLoader loader(classifyPluginFile());
    QObject *root = loader.instance();
    if (!root)
        qFatal("cannot load %s: %s", qPrintable(classifyPluginFile()),
               qPrintable(loader.errorString()));
    return qobject_cast<ClassifyInterface *>(root);
}

ScriptedTransportControl *scripted()
{
    static ScriptedTransportControl *control = [] {
        const QString file = scriptedTransportDir() + QStringLiteral("/libnuvactivemqclient.so");
        QPluginLoader loader(file);
        QObject *root = loader.instance();
        if (!root)
            qFatal("cannot load %s: %s", qPrintable(file), qPrintable(loader.errorString()));
        return qobject_cast<ScriptedTransportControl *>(root);
    }();
    return control;
}

ClientPtr newClient()
{
    return ClientPtr(classifyRoot()->createInstance(scriptedTransportDir()));
}

ClientPtr loggedInClient()
{
    scripted()->reset();
    ClientPtr client = newClient();
    if (!logIn(client.get()))
        qFatal("scripted login failed: %s", qPrintable(client->errorString()));
    scripted()->clearExchanges();
    scripted()->clearCalls();
    return client;
}

bool logIn(ClassifyInterface *client)
{
    answer(Reply(QStringLiteral("OK")).data({ QByteArrayLiteral("18.09-5") }));
    return client->connectToNuvKESP(QStringLiteral("localhost"), 61613, QStringLiteral("user"),
                                    QStringLiteral("secret"));
}

Reply::Reply(const QString &status)
{
    message.command = status;
}

Reply &Reply::docId(const QString &id)
{
    message.setDocId(id);
    return *this;
}

Reply &Reply::dataList(const QStringList &list)
{
    message.setDataList(list);
    return *this;
}

Reply &Reply::data(const QList<QByteArray> &list)
{
    message.setData(list);
    return *this;
}

Reply &Reply::error(const QString &text)
{
    message.errorText = text;
    message.hasErrorText = true;
    return *this;
}

Reply &Reply::updateRequested(bool requested)
{
    message.setUpdateRequested(requested);
    return *this;
}

Reply &Reply::updateString(const QString &marker)
{
    message.setUpdateString(marker);
    return *this;
}

Reply &Reply::availablePlugins(const QStringList &plugins)
{
    message.setAvailablePlugins(plugins);
    return *this;
}

void answer(const nuvMQClassifyMessage &reply)
{
    scripted()->queueReply(reply);
}

nuvMQClassifyMessage lastRequest()
{
    const QList<ScriptedExchange> exchanges = scripted()->exchanges();
    if (exchanges.isEmpty())
        return nuvMQClassifyMessage();
    return exchanges.last().request;
}

int exchangeCount()
{
    return scripted()->exchanges().size();
}

QString joined(const QStringList &parts)
{
    return parts.join(QChar(0xFEFF));
}

ClientPtr clientWithPluginPath(const QString &pluginPath)
{
    return ClientPtr(classifyRoot()->createInstance(pluginPath));
}

namespace {
// Puts a file named like the transport plugin into `dir`.
QString transportNamedDir(const QTemporaryDir &dir,
                          const std::function<bool(const QString &file)> &place)
{
    const QString file = dir.path() + QStringLiteral("/libnuvactivemqclient.so");
    if (!dir.isValid() || !place(file))
        qFatal("cannot prepare %s", qPrintable(file));
    return dir.path();
}
} // namespace

QString nonTransportPluginDir()
{
    static const QTemporaryDir dir;
    static const QString path = transportNamedDir(
        dir, [](const QString &file) { return QFile::copy(classifyPluginFile(), file); });
    return path;
}

QString brokenTransportDir()
{
    static const QTemporaryDir dir;
    static const QString path = transportNamedDir(dir, [](const QString &file) {
        QFile out(file);
        return out.open(QIODevice::WriteOnly) && out.write("this is no shared library\n") > 0;
    });
    return path;
}

QString transportLoadFailure(const QString &completedPluginPath)
{
    QPluginLoader probe(completedPluginPath + QStringLiteral("libnuvactivemqclient.so"));
    if (probe.load())
        qFatal("a transport loads from %s", qPrintable(completedPluginPath));
    return QStringLiteral("Das nuvMQPlugin konnte nicht geladen werden! ActiveMQ: ")
        + probe.errorString() + QLatin1Char(' ') + completedPluginPath;
}

LibraryPathsGuard::LibraryPathsGuard()
    : saved(QCoreApplication::libraryPaths())
{ }

LibraryPathsGuard::~LibraryPathsGuard()
{
    restore();
}

void LibraryPathsGuard::restore()
{
    QCoreApplication::setLibraryPaths(saved);
}

} // namespace testsupport
