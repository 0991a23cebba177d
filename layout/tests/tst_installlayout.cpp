// Run from the build tree, every location the layout gives is the one the
// build wrote (an installed prefix is covered by the install test, which
// runs the installed programs).

#include "installlayout.h"

#include <QDir>
#include <QFileInfo>
#include <QtTest>

class InstallLayoutTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void buildTreeLocations_data();
    void buildTreeLocations();
    void versionIsTheProjectVersion();
};

void InstallLayoutTest::buildTreeLocations_data()
{
    QTest::addColumn<QString>("found");
    QTest::addColumn<QString>("built");
    QTest::newRow("classify plugin")
        << nuvlayout::classifyPluginFile() << QStringLiteral(NUV_TEST_PLUGIN_FILE);
    QTest::newRow("STOMP transport")
        << nuvlayout::stompTransportDirectory() << QStringLiteral(NUV_TEST_STOMP_DIR);
    QTest::newRow("embedded transport")
        << nuvlayout::embeddedTransportDirectory() << QStringLiteral(NUV_TEST_EMBEDDED_DIR);
    QTest::newRow("daemon") << nuvlayout::serverProgram() << QStringLiteral(NUV_TEST_SERVER);
}

void InstallLayoutTest::buildTreeLocations()
{
    QFETCH(QString, found);
    QFETCH(QString, built);
    QVERIFY2(QFileInfo(found).isAbsolute(), qPrintable(found));
    QVERIFY2(QFileInfo::exists(built), qPrintable(built + QStringLiteral(" was not built")));
    QCOMPARE(QFileInfo(found).canonicalFilePath(), QFileInfo(built).canonicalFilePath());
}

void InstallLayoutTest::versionIsTheProjectVersion()
{
    QCOMPARE(nuvlayout::version(), QStringLiteral(NUV_TEST_VERSION));
}

QTEST_GUILESS_MAIN(InstallLayoutTest)
#include "tst_installlayout.moc"
