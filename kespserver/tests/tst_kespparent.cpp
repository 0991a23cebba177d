// NUV_KESP_EXIT_WITH_PARENT: an instance started by a test or a supervisor
// ends with the process that started it, so a run that dies leaves no
// instance behind to take the requests of the next one.

#include "kesptest.h"
#include "serverprocess.h"

#include <QtTest>

#include <csignal>

class KespParent : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void endsWithItsParent_data();
    void endsWithItsParent();
    void refusesToStartForAnotherParent();

private:
    stomp::BrokerEnv broker;
    kesptest::Workspace space;
};

namespace {
// Whether the process has ended: gone, or a zombie that nobody reaped yet
// (its parent is dead, and a container's first process may not reap).
bool ended(qint64 pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    const QByteArray line = stat.readAll();
    const int afterName = line.lastIndexOf(')');
    return afterName < 0 || line.mid(afterName + 2, 1) == "Z";
}
} // namespace

void KespParent::initTestCase()
{
    const QString problem = kesptest::useBroker(broker, QStringLiteral("parent"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
}

void KespParent::endsWithItsParent_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("parent terminated") << int(SIGTERM);
    QTest::newRow("parent killed") << int(SIGKILL);
}

void KespParent::endsWithItsParent()
{
    QFETCH(int, signal);
    // A shell plays the parent: it starts the instance, tells its pid and
    // waits; the test then ends the shell, never the instance.
    const QString log = space.path(QStringLiteral("parent-%1.log").arg(signal));
    QProcess parent;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("NUV_KESP_SERVER"), kesp::ServerProcess::executable());
    environment.insert(QStringLiteral("NUV_KESP_DATABASE"), space.database);
    environment.insert(QStringLiteral("NUV_KESP_BROKER"), kesptest::brokerAddress(broker));
    environment.insert(QStringLiteral("NUV_KESP_LOG"), log);
    broker.addServerAccount(&environment);
    parent.setProcessEnvironment(environment);
    parent.start(QStringLiteral("/bin/sh"),
                 { QStringLiteral("-c"),
                   QStringLiteral("NUV_KESP_EXIT_WITH_PARENT=$$ \"$NUV_KESP_SERVER\" --name child"
                                  " 2>\"$NUV_KESP_LOG\" </dev/null & echo $!; sleep 120") });
    QVERIFY(parent.waitForStarted());
    QVERIFY(parent.waitForReadyRead(10000));
    bool isNumber = false;
    const qint64 child = parent.readLine().trimmed().toLongLong(&isNumber);
    QVERIFY(isNumber);

    const auto logText = [&] {
        QFile file(log);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    };
    QTRY_VERIFY2_WITH_TIMEOUT(logText().contains(QLatin1String("child: serving")),
                              qPrintable(logText()), 20000);
    QVERIFY(!ended(child));

    ::kill(pid_t(parent.processId()), signal);
    QVERIFY(parent.waitForFinished(5000));
    // It goes as on SIGTERM: disconnecting with a receipt takes at most 3 s.
    QTRY_VERIFY2_WITH_TIMEOUT(ended(child), qPrintable(logText()), 15000);
    QVERIFY2(logText().contains(QLatin1String("child: stopped;")), qPrintable(logText()));
}

void KespParent::refusesToStartForAnotherParent()
{
    // Started by this test, but told to follow a process that is not its
    // parent (as when the parent died before the instance got going).
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("NUV_KESP_EXIT_WITH_PARENT"), QStringLiteral("1"));
    broker.addServerAccount(&environment);
    process.setProcessEnvironment(environment);
    process.start(kesp::ServerProcess::executable(),
                  { QStringLiteral("--database"), space.database, QStringLiteral("--broker"),
                    kesptest::brokerAddress(broker) });
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 1);
    QVERIFY(!process.readAllStandardError().contains("serving"));
}

QTEST_GUILESS_MAIN(KespParent)
#include "tst_kespparent.moc"
