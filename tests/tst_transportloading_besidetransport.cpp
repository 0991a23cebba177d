// SPDX-License-Identifier: Apache-2.0
// Loading the transport from the application's own directory, as a client
// with an empty plugin path does: this test runs beside the transport.

#include "testsupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QtTest>

using namespace testsupport;

using ClientMaker = std::function<ClassifyInterface *()>;
Q_DECLARE_METATYPE(ClientMaker)

class TransportBesideTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void emptyPluginPathUsesApplicationDirectory_data();
    void emptyPluginPathUsesApplicationDirectory();

private:
    LibraryPathsGuard paths;
};

void TransportBesideTest::initTestCase()
{
    QCOMPARE(QDir(QCoreApplication::applicationDirPath()).canonicalPath(),
             QDir(scriptedTransportDir()).canonicalPath());
}

void TransportBesideTest::init()
{
    paths.restore();
    scripted()->reset();
}

void TransportBesideTest::emptyPluginPathUsesApplicationDirectory_data()
{
    QTest::addColumn<QStringList>("libraryPaths");
    QTest::addColumn<ClientMaker>("makeClient");

    const QString appDir = QCoreApplication::applicationDirPath();
    const ClientMaker fromCreateInstance = [] { return classifyRoot()->createInstance(QString()); };
    // The plugin's root object is made with an empty plugin path; the test
    // may delete it, the plugin makes a new one when asked again.
    const ClientMaker root = [] { return classifyRoot(); };
    QTest::newRow("found by bare name on the search path, which holds the application directory")
        << QStringList { appDir } << fromCreateInstance;
    QTest::newRow("bare name finds a broken file first: the application directory is tried next")
        << QStringList { brokenTransportDir(), appDir } << fromCreateInstance;
    QTest::newRow("the application directory joins an emptied search path")
        << QStringList() << fromCreateInstance;
    QTest::newRow("the plugin's root object") << QStringList { appDir } << root;
}

void TransportBesideTest::emptyPluginPathUsesApplicationDirectory()
{
    QFETCH(QStringList, libraryPaths);
    QFETCH(ClientMaker, makeClient);
    QCoreApplication::setLibraryPaths(libraryPaths);

    ClientPtr client(makeClient());
    QVERIFY2(logIn(client.get()), qPrintable(client->errorString()));
    QCOMPARE(scripted()->calls().value(0), QStringLiteral("createInstance"));
    QVERIFY(QCoreApplication::libraryPaths().contains(
        QDir(QCoreApplication::applicationDirPath()).canonicalPath()));
}

QTEST_GUILESS_MAIN(TransportBesideTest)
#include "tst_transportloading_besidetransport.moc"
