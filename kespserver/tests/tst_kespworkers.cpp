// SPDX-License-Identifier: Apache-2.0
// One nuvkesp-server with several workers. The test holds the SQLite
// database's write lock while the callers send, so every request that
// reaches an engine stays there: the instance's own counter of requests
// in its engines then shows how many run at once, with no assumption about
// time. A graceful stop with requests in hand answers every one of them.

#include "kesptest.h"
#include "loadclient.h"
#include "serverprocess.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTcpSocket>
#include <QtTest>

#include <future>
#include <thread>

namespace {

// The longest a check waits for the instance to reach a state: far more
// than a few requests need on a loaded machine; a pass never waits for it.
constexpr int patienceMs = 60000;

// The database's write lock, held by the test until release().
class WriteLock
{
public:
    explicit WriteLock(const QString &file)
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(file);
        if (!db.open() || !QSqlQuery(db).exec(QStringLiteral("BEGIN IMMEDIATE")))
            error = db.lastError().text();
    }
    ~WriteLock()
    {
        release();
        QSqlDatabase::removeDatabase(name);
    }
    void release()
    {
        QSqlDatabase db = QSqlDatabase::database(name, false);
        if (db.isOpen()) {
            QSqlQuery(db).exec(QStringLiteral("ROLLBACK"));
            db.close();
        }
    }
    QString error;

private:
    const QString name = QStringLiteral("test-write-lock-%1").arg(quintptr(this));
};

// A gauge of the instance's metrics; -1 when it cannot be read. A plain
// HTTP/1.0 GET on a socket of its own: Qt's network access manager starts
// threads of its own (D-Bus) that outlive the call.
int gauge(quint16 port, const QByteArray &metric)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    if (!socket.waitForConnected(5000))
        return -1;
    socket.write("GET /metrics HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
    QByteArray response;
    // The instance answers and closes; a loopback answer takes milliseconds.
    while (socket.waitForReadyRead(5000))
        response += socket.readAll();
    response += socket.readAll();
    for (const QByteArray &line : response.split('\n')) {
        if (line.startsWith(metric + ' '))
            return line.mid(metric.size() + 1).trimmed().toInt();
    }
    return -1;
}

} // namespace

class KespWorkers : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void runsRequestsAtOnce_data();
    void runsRequestsAtOnce();
    void stopAnswersRequestsInHand_data();
    void stopAnswersRequestsInHand();

private:
    // Starts an instance with `workers`, sends `requests` clipboards from
    // as many callers once the lock is held, and waits until `workers` of
    // them are in its engines; `load` then runs until the lock goes.
    void startHeld(int workers, int requests);
    // Lets the held requests go and checks that all `requests` were answered.
    void releaseAndCheckAnswers(int requests);

    stomp::BrokerEnv broker;
    std::unique_ptr<kesptest::Workspace> space;
    std::unique_ptr<kesp::ServerProcess> server;
    std::unique_ptr<WriteLock> lock;
    quint16 metricsPort = 0;
    kesp::LoadPlan plan;
    kesp::LoadResult result;
    std::thread load;
    std::promise<void> loggedIn;
    std::promise<void> locked;
};

// Ends a case: the lock goes, so that the callers can finish, and they do
// before their results go (also when a failed check returns early).
struct ReleaseAndJoin
{
    std::unique_ptr<WriteLock> &lock;
    std::thread &load;
    ~ReleaseAndJoin()
    {
        if (lock)
            lock->release();
        if (load.joinable())
            load.join();
    }
};

void KespWorkers::initTestCase()
{
    if (testdatabase::onPostgres())
        QSKIP("holds SQLite's write lock; the PostgreSQL runs are the scale-out test's");
    const QString problem = kesptest::useBroker(broker, QStringLiteral("workers"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
}

void KespWorkers::startHeld(int workers, int requests)
{
    space = std::make_unique<kesptest::Workspace>();
    QVERIFY2(!space->database.isEmpty(), qPrintable(space->error));
    metricsPort = kesptest::freePort();
    server = std::make_unique<kesp::ServerProcess>(
        QStringLiteral("workers"), space->database, kesptest::brokerAddress(broker),
        space->path(QStringLiteral("server.log")),
        QStringList { QStringLiteral("--workers"), QString::number(workers),
                      QStringLiteral("--metrics"),
                      QStringLiteral("127.0.0.1:%1").arg(metricsPort) });
    // The requests wait for the test's lock, not fail.
    server->setVariable(QStringLiteral("NUV_SERVER_BUSY_TIMEOUT_MS"), QString::number(patienceMs));
    QVERIFY2(server->start(), qPrintable(server->log()));
    QCOMPARE(gauge(metricsPort, "nuvkesp_workers"), workers);

    plan = kesp::LoadPlan();
    plan.host = broker.host();
    plan.port = broker.stompPort();
    plan.user = kesptest::user;
    plan.password = kesptest::password;
    plan.prefix = QStringLiteral("held");
    plan.threads = requests;
    plan.requests = requests;
    plan.timeoutSeconds = 2 * patienceMs / 1000;
    // The lock is taken once every caller has logged in (logins write too)
    // and before any sends. The promises are members: a caller may still
    // be inside set_value() when this thread goes on.
    loggedIn = std::promise<void>();
    locked = std::promise<void>();
    std::shared_future<void> lockTaken = locked.get_future().share();
    plan.onStart = [this, lockTaken] {
        loggedIn.set_value();
        lockTaken.wait();
    };
    load = std::thread([this] { result = kesp::runLoad(plan); });
    loggedIn.get_future().wait();
    lock.reset();
    lock = std::make_unique<WriteLock>(space->database);
    locked.set_value();
    QVERIFY2(lock->error.isEmpty(), qPrintable(lock->error));
    QTRY_COMPARE_WITH_TIMEOUT(gauge(metricsPort, "nuvkesp_requests_running"), workers, patienceMs);
}

void KespWorkers::releaseAndCheckAnswers(int requests)
{
    lock->release();
    load.join();
    QVERIFY2(result.failures.isEmpty(),
             qPrintable(result.failures.mid(0, 5).join(QLatin1Char('\n'))
                        + QStringLiteral("\nthe server's log:\n") + server->log().right(4000)));
    QCOMPARE(result.answered, requests);
}

void KespWorkers::runsRequestsAtOnce_data()
{
    QTest::addColumn<int>("workers");
    QTest::newRow("one worker") << 1;
    QTest::newRow("two workers") << 2;
    QTest::newRow("four workers") << 4;
}

void KespWorkers::runsRequestsAtOnce()
{
    QFETCH(int, workers);
    // Twice as many requests as workers: the rest wait their turn.
    const int requests = 2 * workers;
    const ReleaseAndJoin end { lock, load };
    startHeld(workers, requests);
    if (QTest::currentTestFailed())
        return;
    releaseAndCheckAnswers(requests);
    if (QTest::currentTestFailed())
        return;
    // Never more at once than there are workers, and that many did run.
    QCOMPARE(gauge(metricsPort, "nuvkesp_requests_running_peak"), workers);
    QCOMPARE(gauge(metricsPort, "nuvkesp_requests_running"), 0);
    QCOMPARE(kesptest::countRows(space->database,
                                 QStringLiteral("SELECT count(*) FROM clipboards WHERE name LIKE "
                                                "'held-%'")),
             qint64(requests));
    QVERIFY2(server->stop(), qPrintable(server->log()));
}

void KespWorkers::stopAnswersRequestsInHand_data()
{
    QTest::addColumn<int>("workers");
    QTest::newRow("two workers") << 2;
    QTest::newRow("four workers") << 4;
}

void KespWorkers::stopAnswersRequestsInHand()
{
    QFETCH(int, workers);
    // As many as the instance takes at once: all of them in its hands.
    const ReleaseAndJoin end { lock, load };
    startHeld(workers, workers);
    if (QTest::currentTestFailed())
        return;
    server->sendSignal(SIGTERM);
    // The stop has been seen while every request still waits for the lock.
    QVERIFY2(
        server->waitForLog(QStringLiteral("stopping: finishing %1 requests in hand").arg(workers),
                           1, patienceMs),
        qPrintable(server->log()));
    QCOMPARE(server->countInLog(QStringLiteral("CFADDCLIPBOARD user=")), 0);
    releaseAndCheckAnswers(workers);
    if (QTest::currentTestFailed())
        return;
    QVERIFY2(server->waitForExit(), qPrintable(server->log()));
    QCOMPARE(server->countInLog(QStringLiteral("CFADDCLIPBOARD user=")), workers);
    QCOMPARE(server->reported(QStringLiteral("replayed")), qint64(0));
}

QTEST_GUILESS_MAIN(KespWorkers)
#include "tst_kespworkers.moc"
