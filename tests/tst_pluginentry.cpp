// SPDX-License-Identifier: Apache-2.0
// The plugin as a host meets it: the library file loaded by path, its
// metadata, its root object and the casts a host relies on.

#include "classifyinterface.h"
#include "testsupport.h"

#include <QLibrary>
#include <QPluginLoader>
#include <QPointer>
#include <QtTest>

using namespace testsupport;

namespace {
using InstanceEntry = QObject *(*)();

InstanceEntry instanceEntry()
{
    QLibrary library(classifyPluginFile());
    return reinterpret_cast<InstanceEntry>(library.resolve("qt_plugin_instance"));
}
} // namespace

class PluginEntryTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metadata_data();
    void metadata();
    void castByIdentifier();
    void metacastNames_data();
    void metacastNames();
    void rootInstanceIsShared_data();
    void rootInstanceIsShared();
    void newRootAfterDeletion();
    void createInstanceGivesIndependentClient();
};

void PluginEntryTest::metadata_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QJsonValue>("value");
    QTest::newRow("IID") << "IID"
                         << QJsonValue(QStringLiteral(NUV_IID_PREFIX ".ClassifyInterface/1.2"));
    QTest::newRow("className") << "className" << QJsonValue(QStringLiteral("NuvClassifyClient"));
    QTest::newRow("debug") << "debug" << QJsonValue(false);
    // Qt 5.15's plugin record keeps the major and minor version only.
    QTest::newRow("version") << "version"
                             << QJsonValue(QT_VERSION_CHECK(QT_VERSION_MAJOR, QT_VERSION_MINOR, 0));
}

void PluginEntryTest::metadata()
{
    QFETCH(QString, key);
    QFETCH(QJsonValue, value);
    QPluginLoader loader(classifyPluginFile());
    const QJsonObject metaData = loader.metaData();
    QVERIFY2(!metaData.isEmpty(), qPrintable(loader.errorString()));
    QCOMPARE(metaData.value(key), value);
    // The plugin carries no custom metadata; an empty object is left out.
    QVERIFY(metaData.value(QStringLiteral("MetaData")).toObject().isEmpty());
}

void PluginEntryTest::castByIdentifier()
{
    QPluginLoader loader(classifyPluginFile());
    QObject *root = loader.instance();
    QVERIFY2(root, qPrintable(loader.errorString()));
    auto *client = qobject_cast<ClassifyInterface *>(root);
    QVERIFY(client);
    QCOMPARE(static_cast<QObject *>(client), root);
    QCOMPARE(root->metaObject()->className(), "NuvClassifyClient");
    QCOMPARE(root->metaObject()->superClass()->className(), "ClassifyInterface");
    QCOMPARE(client->getPluginInfo(), QStringLiteral("The classify plugin!"));
}

void PluginEntryTest::metacastNames_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("answers");
    QTest::newRow("class name") << QByteArray("NuvClassifyClient") << true;
    QTest::newRow("interface class name") << QByteArray("ClassifyInterface") << true;
    QTest::newRow("interface identifier") << QByteArray(NUV_CLASSIFY_INTERFACE_IID) << true;
    QTest::newRow("transport interface class name") << QByteArray("nuvMQClientInterface") << false;
    QTest::newRow("transport interface identifier")
        << QByteArray(NUV_MQCLIENT_INTERFACE_IID) << false;
    QTest::newRow("unrelated name") << QByteArray("Foo") << false;
    QTest::newRow("class name in lower case") << QByteArray("nuvclassifyclient") << false;
    QTest::newRow("identifier of another version")
        << QByteArray(NUV_IID_PREFIX ".ClassifyInterface/1.1") << false;
    QTest::newRow("identifier without its prefix") << QByteArray("ClassifyInterface/1.2") << false;
    QTest::newRow("empty name") << QByteArray("") << false;
}

void PluginEntryTest::metacastNames()
{
    QFETCH(QByteArray, name);
    QFETCH(bool, answers);
    QObject *root = classifyRoot();
    void *cast = root->qt_metacast(name.constData());
    QCOMPARE(cast, answers ? static_cast<void *>(root) : nullptr);
    QCOMPARE(root->qt_metacast(nullptr), nullptr);
}

using RootGetter = std::function<QObject *()>;
Q_DECLARE_METATYPE(RootGetter)

void PluginEntryTest::rootInstanceIsShared_data()
{
    QTest::addColumn<RootGetter>("root");
    QTest::newRow("through the plugin loader") << RootGetter([] {
        QPluginLoader loader(classifyPluginFile());
        return loader.instance();
    });
    QTest::newRow("through qt_plugin_instance()") << RootGetter([] { return instanceEntry()(); });
}

void PluginEntryTest::rootInstanceIsShared()
{
    QFETCH(RootGetter, root);
    QVERIFY(instanceEntry());
    QObject *first = root();
    QVERIFY(first);
    QCOMPARE(root(), first);
    QCOMPARE(static_cast<QObject *>(classifyRoot()), first);
    // A plugin loader and the raw entry hand out the same object.
    QCOMPARE(instanceEntry()(), first);
}

void PluginEntryTest::newRootAfterDeletion()
{
    ClassifyInterface *old = classifyRoot();
    old->setProfileId(4711);
    QPointer<QObject> watch(old);
    delete old;
    QVERIFY(watch.isNull());

    QObject *fresh = instanceEntry()();
    QVERIFY(fresh);
    auto *client = qobject_cast<ClassifyInterface *>(fresh);
    QVERIFY(client);
    // A new object with an empty session, not the old one revived.
    QCOMPARE(client->getProfileId(), qint64(0));
    QCOMPARE(instanceEntry()(), fresh);

    QPluginLoader loader(classifyPluginFile());
    QCOMPARE(loader.instance(), fresh);
}

void PluginEntryTest::createInstanceGivesIndependentClient()
{
    ClassifyInterface *root = classifyRoot();
    root->setProfileId(31);
    ClientPtr client(root->createInstance(QStringLiteral("/some/transport/dir")));
    QVERIFY(client);
    QVERIFY(client.get() != root);
    QVERIFY(client->parent() == nullptr);
    QCOMPARE(client->metaObject()->className(), "NuvClassifyClient");
    QCOMPARE(client->qt_metacast(NUV_CLASSIFY_INTERFACE_IID), static_cast<void *>(client.get()));
    QCOMPARE(client->getProfileId(), qint64(31));

    // Changing one leaves the other alone, and the new client outlives the
    // root it came from.
    client->setProfileId(32);
    QCOMPARE(root->getProfileId(), qint64(31));
    QPointer<QObject> watch(root);
    delete root;
    QVERIFY(watch.isNull());
    QCOMPARE(client->getProfileId(), qint64(32));
    QCOMPARE(client->getPluginInfo(), QStringLiteral("The classify plugin!"));
    QVERIFY(classifyRoot() != nullptr);
}

QTEST_GUILESS_MAIN(PluginEntryTest)
#include "tst_pluginentry.moc"
