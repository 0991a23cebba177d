// SPDX-License-Identifier: Apache-2.0
// A whole client session as the command-line host runs it (the classify
// plugin and the STOMP transport) against nuvkesp-server through the broker.

#include "kesptest.h"
#include "serverprocess.h"

#include <QProcess>
#include <QtTest>

#include <csignal>

class KespSession : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void tourOfTheDemo();
    void failedCommandsAreAnsweredAndLogged();
    void statusOnSignal();
    void servesOverTls();
    void brokerPasscodeNeverLogged();
    void cleanupTestCase();

private:
    // Runs nuvclassify against the broker; its output (both channels).
    QString runCli(const QStringList &arguments, int *exitCode);

    stomp::BrokerEnv broker;
    kesptest::Workspace space;
    std::unique_ptr<kesp::ServerProcess> server;
};

void KespSession::initTestCase()
{
    const QString problem = kesptest::useBroker(broker, QStringLiteral("session"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
    server = std::make_unique<kesp::ServerProcess>(QStringLiteral("session"), space.database,
                                                   kesptest::brokerAddress(broker),
                                                   space.path(QStringLiteral("server.log")));
    QVERIFY2(server->start(), qPrintable(server->log()));
}

QString KespSession::runCli(const QStringList &arguments, int *exitCode)
{
    QProcess cli;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("NUV_USER"), kesptest::user);
    environment.insert(QStringLiteral("NUV_PASSWORD"), kesptest::password);
    cli.setProcessEnvironment(environment);
    cli.setProcessChannelMode(QProcess::MergedChannels);
    cli.start(QStringLiteral(NUV_CLI),
              QStringList { QStringLiteral("--broker"), kesptest::brokerAddress(broker) }
                  + arguments);
    cli.closeWriteChannel();
    if (!cli.waitForFinished(60000))
        cli.kill();
    *exitCode = cli.exitStatus() == QProcess::NormalExit ? cli.exitCode() : -1;
    return QString::fromUtf8(cli.readAll());
}

void KespSession::tourOfTheDemo()
{
    // The calls of scripts/demo: login, archives, a document classified
    // twice with its history, a clipboard with a card, a share.
    const QString script = space.path(QStringLiteral("tour.calls"));
    QFile file(script);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"(getFullUserName
getServerVersion
getArchives
setCurrentArchive Default
getCurrentArchive
classify '' '["title\ufeffInvoice 4711","remark\ufeffreceived by mail"]'
getDocumentData $docId ''
classify $docId '["remark\ufeffpaid by transfer"]'
getDocumentData $docId remark
getDocHistory $docId
let clipboard = addClipboard 'To check'
addClipboardCard $clipboard $docId 'Invoice 4711, check the amount'
readClipboards
readClipboardCards $clipboard
let share = addShare 'Invoice 4711 for the audit' "[\"$docId\"]" auditor@example.org 2099-12-31T23:59:59 0
getShares
closeSession
)");
    file.close();
    int exitCode = 0;
    const QString output = runCli({ QStringLiteral("--script"), script }, &exitCode);
    QVERIFY2(exitCode == 0, qPrintable(output));
    QVERIFY2(output.contains(QLatin1String("Invoice 4711")), qPrintable(output));
    QVERIFY2(output.contains(QLatin1String("paid by transfer")), qPrintable(output));
    QVERIFY2(output.contains(QLatin1String("auditor@example.org")), qPrintable(output));
    // The effects are in the server's database, once each.
    QCOMPARE(kesptest::countRows(space.database,
                                 QStringLiteral("SELECT count(*) FROM clipboards WHERE name = "
                                                "'To check'")),
             qint64(1));
    // One log line per request, with the user; never the password. The
    // last request's line may lag the CLI's exit.
    QVERIFY2(server->waitForLog(QStringLiteral("CFCLOSESESSION user=admin"), 1, 10000),
             qPrintable(server->log()));
    QVERIFY(server->countInLog(QStringLiteral("CFLOGIN user=admin")) >= 1);
    QCOMPARE(server->countInLog(QStringLiteral("CFADDCLIPBOARD user=admin")), 1);
    QVERIFY(!server->log().contains(kesptest::password));
}

void KespSession::failedCommandsAreAnsweredAndLogged()
{
    int exitCode = 0;
    const QString output
        = runCli({ QStringLiteral("readClipboardCards"), QStringLiteral("999999") }, &exitCode);
    QVERIFY2(exitCode != 0, qPrintable(output));
    QVERIFY(server->waitForLog(QStringLiteral("ERROR ("), 1, 10000));

    // A wrong password: refused, and the attempt logged without it. Not the
    // administrator's account: its next login would have to wait.
    QProcess cli;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("NUV_USER"), QStringLiteral("somebody"));
    environment.insert(QStringLiteral("NUV_PASSWORD"), QStringLiteral("not-the-password-9"));
    cli.setProcessEnvironment(environment);
    cli.start(QStringLiteral(NUV_CLI),
              { QStringLiteral("--broker"), kesptest::brokerAddress(broker),
                QStringLiteral("getArchives") });
    cli.closeWriteChannel();
    QVERIFY(cli.waitForFinished(60000));
    QVERIFY(cli.exitCode() != 0);
    // The refused login's line may lag the CLI's exit.
    QVERIFY2(server->waitForLog(QStringLiteral("ERROR ("), 2, 10000), qPrintable(server->log()));
    QVERIFY(!server->log().contains(QLatin1String("not-the-password-9")));
}

void KespSession::statusOnSignal()
{
    ::kill(pid_t(server->pid()), SIGUSR1);
    QVERIFY(server->waitForLog(QStringLiteral("status: connected to "), 1, 10000));
    QVERIFY(server->log().contains(QRegularExpression(QStringLiteral("requests [1-9]"))));
}

void KespSession::servesOverTls()
{
    // The same TLS settings as the client transport: an ssl:// address and
    // the CA file to trust (the broker's certificate is self-signed).
    QVERIFY2(server->stop(), qPrintable(server->log()));
    qputenv("NUV_STOMP_CA_FILE", broker.caFile().toUtf8());
    server = std::make_unique<kesp::ServerProcess>(
        QStringLiteral("tls"), space.database,
        QStringLiteral("ssl://%1:%2").arg(broker.host()).arg(broker.sslPort()),
        space.path(QStringLiteral("tls.log")));
    QVERIFY2(server->start(), qPrintable(server->log()));
    qunsetenv("NUV_STOMP_CA_FILE");
    QVERIFY(server->log().contains(QLatin1String(" over TLS")));
    int exitCode = 0;
    const QString output = runCli({ QStringLiteral("getArchives") }, &exitCode);
    QVERIFY2(exitCode == 0, qPrintable(output));
    QVERIFY(output.contains(QLatin1String("Default")));
    // The line follows the reply and the commit, so it may lag the CLI.
    QVERIFY2(server->waitForLog(QStringLiteral("CFDOCGETARCHIVES user=admin"), 1, 10000),
             qPrintable(server->log()));
    QCOMPARE(server->countInLog(QStringLiteral("CFDOCGETARCHIVES user=admin")), 1);
}

void KespSession::brokerPasscodeNeverLogged()
{
    // Refused by the broker: the instance logs why and gives up (exit status
    // and message: tst_kespstart), and the passcode it offered appears
    // nowhere in its log.
    kesp::ServerProcess refused(QStringLiteral("refused"), space.database,
                                kesptest::brokerAddress(broker),
                                space.path(QStringLiteral("refused.log")));
    refused.setVariable(QStringLiteral("NUV_STOMP_PASSCODE"), QStringLiteral("wrong-pass-7"));
    const bool served = refused.start(3000);
    QVERIFY2(!served, qPrintable(refused.log()));
    QVERIFY2(refused.waitForLog(QStringLiteral("giving up"), 1, 20000), qPrintable(refused.log()));
    QVERIFY2(refused.log().contains(QLatin1String("refused the connection")),
             qPrintable(refused.log()));
    QVERIFY2(!refused.log().contains(QLatin1String("wrong-pass-7")), qPrintable(refused.log()));
}

void KespSession::cleanupTestCase()
{
    if (server)
        QVERIFY2(server->stop(), qPrintable(server->log()));
}

QTEST_GUILESS_MAIN(KespSession)
#include "tst_kespsession.moc"
