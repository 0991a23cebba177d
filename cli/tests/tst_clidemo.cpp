// SPDX-License-Identifier: Apache-2.0
// scripts/demo runs to the end against the server engine through the
// embedded transport, and shows each part of the tour. Built only when the
// engine is part of the build.

#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

class CliDemoTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void demoShows_data();
    void demoShows();

private:
    QString output;
    QString errors;
};

void CliDemoTest::initTestCase()
{
    QProcess demo;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("NUV_BUILD_DIR", QStringLiteral(NUV_CLI_BUILD_DIR));
    environment.remove("NUV_DEMO_DIR");
    demo.setProcessEnvironment(environment);
    demo.setStandardInputFile(QProcess::nullDevice());
    // The build is the one under test; the demo must not rebuild it.
    demo.start(QStringLiteral(NUV_CLI_SOURCE_DIR "/scripts/demo"),
               { QStringLiteral("--no-build") });
    QVERIFY(demo.waitForFinished(300000));
    output = QString::fromUtf8(demo.readAllStandardOutput());
    errors = QString::fromUtf8(demo.readAllStandardError());
    QVERIFY2(demo.exitStatus() == QProcess::NormalExit && demo.exitCode() == 0,
             qPrintable(output + errors));
}

void CliDemoTest::demoShows_data()
{
    QTest::addColumn<QString>("pattern"); // a regular expression, matched line by line

    QTest::newRow("the database is created")
        << "^initialised .*demo\\.db with the administrator demo$";
    QTest::newRow("the login") << "^\\(logged in as demo on .*demo\\.db\\)$";
    QTest::newRow("the login's full name") << "^Demo Administrator$";
    QTest::newRow("the archives") << "^  Default$";
    QTest::newRow("a new document id") << "^docId: [0-9]+$";
    QTest::newRow("the document read back") << "^title \\| Invoice 4711$";
    QTest::newRow("the new revision's value") << "^paid by transfer$";
    QTest::newRow("the history") << "^history:$";
    QTest::newRow("the clipboard") << "^  [0-9]+\tTo check$";
    QTest::newRow("the card") << "^  Invoice 4711, check the amount$";
    QTest::newRow("the share") << "Invoice 4711 for the audit \\| auditor@example\\.org";
    QTest::newRow("the end") << "^== Demo finished";
}

void CliDemoTest::demoShows()
{
    QFETCH(QString, pattern);
    const QRegularExpression expression(pattern, QRegularExpression::MultilineOption);
    QVERIFY2(expression.match(output).hasMatch(), qPrintable(output));
    QVERIFY2(!errors.contains(QLatin1String("nuvclassify:")), qPrintable(errors));
}

QTEST_GUILESS_MAIN(CliDemoTest)
#include "tst_clidemo.moc"
