// SPDX-License-Identifier: Apache-2.0
// Finding and loading the message-queue transport plugin at the first login,
// from a test whose application directory holds no transport.

#include "testsupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {
const QString loginFailurePrefix = QStringLiteral("Das nuvMQPlugin konnte nicht geladen werden! ");

// The calls a first login makes on a transport that accepts it.
const QStringList firstLoginCalls { QStringLiteral("createInstance"),
                                    QStringLiteral("connectToBroker localhost 61613"),
                                    QStringLiteral("setUserName user"),
                                    QStringLiteral("sendSyncMessage CFLOGIN") };
} // namespace

class TransportLoadingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void pluginPathCompletion_data();
    void pluginPathCompletion();
    void pluginPathJoinsLibraryPaths();
    void bareFileNameComesFirst();
    void fallsBackToPluginPath();
    void notATransport();
    void secondLoadLeavesLoaderAlone();
    void transportIsOwnedByClient();
    void connectionLostIsConnectedAtLoad();

private:
    // Each test starts from the application's own library paths.
    LibraryPathsGuard paths;
};

void TransportLoadingTest::init()
{
    paths.restore();
    scripted()->reset();
}

void TransportLoadingTest::pluginPathCompletion_data()
{
    QTest::addColumn<QString>("pluginPath");
    QTest::addColumn<QString>("completed");
    QTest::newRow("a path without a trailing separator is given one") << "/nonexistent/nuv"
                                                                      << "/nonexistent/nuv/";
    QTest::newRow("a path with a trailing separator is not given a second one")
        << "/nonexistent/nuv/"
        << "/nonexistent/nuv/";
    QTest::newRow("a path ending in two separators keeps both") << "/nonexistent/nuv//"
                                                                << "/nonexistent/nuv//";
    QTest::newRow("a relative path") << "relative/nuv"
                                     << "relative/nuv/";
    QTest::newRow("an empty path: bare name first, then the application directory")
        << "" << QCoreApplication::applicationDirPath() + QDir::separator();
    QTest::newRow("a directory holding a file that is no library")
        << brokenTransportDir() << brokenTransportDir() + QDir::separator();
}

void TransportLoadingTest::pluginPathCompletion()
{
    QFETCH(QString, pluginPath);
    QFETCH(QString, completed);
    ClientPtr client = clientWithPluginPath(pluginPath);
    QVERIFY(!client->connectToNuvKESP("localhost", 61613, "user", "secret"));
    QCOMPARE(client->errorString(), transportLoadFailure(completed));
    QVERIFY(client->errorString().startsWith(loginFailurePrefix + QStringLiteral("ActiveMQ: ")));
    QVERIFY(client->errorString().endsWith(QLatin1Char(' ') + completed));
    QCOMPARE(scripted()->calls(), QStringList());

    // The completed path is kept: a second attempt reports the same.
    QVERIFY(!client->connectToNuvKESP("localhost", 61613, "user", "secret"));
    QCOMPARE(client->errorString(), transportLoadFailure(completed));
}

void TransportLoadingTest::pluginPathJoinsLibraryPaths()
{
    QTemporaryDir empty;
    QVERIFY(empty.isValid());
    ClientPtr client = clientWithPluginPath(empty.path());
    QVERIFY(!client->connectToNuvKESP("localhost", 61613, "user", "secret"));
    QCOMPARE(QCoreApplication::libraryPaths().value(0), QDir(empty.path()).canonicalPath());
}

void TransportLoadingTest::bareFileNameComesFirst()
{
    // The transport is found on the library search path although the
    // client's own directory holds none.
    QCoreApplication::addLibraryPath(scriptedTransportDir());
    QTemporaryDir empty;
    QVERIFY(empty.isValid());
    ClientPtr client = clientWithPluginPath(empty.path());
    QVERIFY2(logIn(client.get()), qPrintable(client->errorString()));
    QCOMPARE(scripted()->calls(), firstLoginCalls);
}

void TransportLoadingTest::fallsBackToPluginPath()
{
    // By bare name the broken file is found first; the client's directory
    // is tried next.
    QCoreApplication::setLibraryPaths({ brokenTransportDir(), scriptedTransportDir() });
    ClientPtr client = clientWithPluginPath(scriptedTransportDir());
    QVERIFY2(logIn(client.get()), qPrintable(client->errorString()));
    QCOMPARE(scripted()->calls(), firstLoginCalls);
    QCOMPARE(QCoreApplication::libraryPaths(),
             QStringList({ brokenTransportDir(), scriptedTransportDir() }));
}

void TransportLoadingTest::notATransport()
{
    // A Qt plugin that is no transport: the loader has nothing to say, so
    // the message ends after its fixed part.
    ClientPtr client = clientWithPluginPath(nonTransportPluginDir());
    QVERIFY(!client->connectToNuvKESP("localhost", 61613, "user", "secret"));
    QCOMPARE(client->errorString(), loginFailurePrefix);
    QCOMPARE(scripted()->calls(), QStringList());
}

void TransportLoadingTest::secondLoadLeavesLoaderAlone()
{
    ClientPtr client = clientWithPluginPath(scriptedTransportDir());
    QVERIFY(logIn(client.get()));
    const QStringList afterFirst = QCoreApplication::libraryPaths();
    QVERIFY(afterFirst.contains(scriptedTransportDir()));

    // Had the client loaded again, it would have put its directory back on
    // the search path and made a second transport.
    paths.restore();
    const QStringList before = QCoreApplication::libraryPaths();
    QVERIFY(!before.contains(scriptedTransportDir()));
    scripted()->clearCalls();
    QVERIFY(logIn(client.get()));
    QCOMPARE(QCoreApplication::libraryPaths(), before);
    QCOMPARE(scripted()->calls(), firstLoginCalls.mid(1));
    QCOMPARE(scripted()->liveInstances(), 1);
}

void TransportLoadingTest::transportIsOwnedByClient()
{
    const int before = scripted()->liveInstances();
    ClientPtr client = clientWithPluginPath(scriptedTransportDir());
    QCOMPARE(scripted()->liveInstances(), before);
    QVERIFY(logIn(client.get()));
    QCOMPARE(scripted()->liveInstances(), before + 1);

    scripted()->clearCalls();
    client.reset();
    QCOMPARE(scripted()->liveInstances(), before);
    QCOMPARE(scripted()->calls(),
             QStringList({ QStringLiteral("disconnectFromBroker"), QStringLiteral("destroyed") }));
}

void TransportLoadingTest::connectionLostIsConnectedAtLoad()
{
    // Connected right after loading, before the broker is even reached.
    scripted()->refuseConnect(QStringLiteral("refused"));
    ClientPtr client = clientWithPluginPath(scriptedTransportDir());
    QSignalSpy lost(client.get(), SIGNAL(clientDisconnect()));
    QVERIFY(!client->connectToNuvKESP("localhost", 61613, "user", "secret"));
    QCOMPARE(client->errorString(), QStringLiteral("refused"));
    scripted()->emitConnectionLost();
    QCOMPARE(lost.count(), 1);
}

QTEST_GUILESS_MAIN(TransportLoadingTest)
#include "tst_transportloading.moc"
