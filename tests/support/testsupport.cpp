#include "testsupport.h"

#include <QPluginLoader>
#include <QTest>

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
    answer(Reply(QStringLiteral("OK")).data({ QByteArrayLiteral("18.09-5") }));
    if (!client->connectToNuvKESP(QStringLiteral("localhost"), 61613, QStringLiteral("user"),
                                  QStringLiteral("secret")))
        qFatal("scripted login failed: %s", qPrintable(client->errorString()));
    scripted()->clearExchanges();
    scripted()->clearCalls();
    return client;
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

} // namespace testsupport
