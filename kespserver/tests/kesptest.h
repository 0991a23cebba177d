// SPDX-License-Identifier: Apache-2.0
#ifndef KESPTEST_H
#define KESPTEST_H

#include "brokerenv.h"
#include "scratchdatabase.h"
#include "serverengine.h"

#include <QTcpServer>
#include <QTemporaryDir>
#include <QVariant>

#include <thread>

/*
 * What every test of the daemon needs: the broker that the CTest fixture
 * started (its account exported for the transport and the daemon), a queue
 * of the test's own so tests never answer each other's requests, and a
 * fresh database with one administrator.
 */
namespace kesptest {

inline const QString user = QStringLiteral("admin");
inline const QString password = QStringLiteral("admin-password-1");

// Points the transport and the daemon at the fixture's broker and at a
// queue of this test's own; an empty text when that worked.
inline QString useBroker(const stomp::BrokerEnv &broker, const QString &queue)
{
    if (!broker.ok())
        return broker.problem();
    broker.exportCredentials();
    // The PostgreSQL run of a test may run beside its SQLite run.
    const QString own = testdatabase::onPostgres() ? queue + QStringLiteral("-postgres") : queue;
    qputenv("NUV_STOMP_REQUEST_QUEUE", QByteArray("/queue/nuv.kesp.test.") + own.toUtf8());
    // Quick failure detection in the restart test, and fewer idle wake-ups.
    qputenv("NUV_STOMP_HEARTBEAT_MS", "2000");
    return QString();
}

inline QString brokerAddress(const stomp::BrokerEnv &broker)
{
    return QStringLiteral("%1:%2").arg(broker.host()).arg(broker.stompPort());
}

// What a test's servers work in: a temporary directory for their logs and a
// fresh database (kesp.db there, or one on the PostgreSQL server the tests
// run against) with the administrator.
struct Workspace
{
    Workspace()
    {
        nuvserver::EngineOptions options
            = nuvserver::EngineOptions::fromEnvironment(scratch.location());
        options.pbkdf2Iterations = 1000; // logins are many here, and not what is tested
        if (nuvserver::ServerEngine::initialiseDatabase(options, user, password,
                                                        QStringLiteral("Administrator"), &error))
            database = scratch.location();
    }
    QString path(const QString &name) const { return dir.filePath(name); }

    QTemporaryDir dir;
    testdatabase::ScratchDatabase scratch { dir.filePath(QStringLiteral("kesp.db")) };
    QString database; // empty when it could not be made
    QString error; // why
};

// Joins a thread when the scope ends, also when a failed check returns early.
struct JoinOnExit
{
    std::thread &thread;
    ~JoinOnExit()
    {
        if (thread.joinable())
            thread.join();
    }
};

// A loopback port that nothing listens on right now.
inline quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// One number from the database, read on a connection of the test's own.
inline qint64 countRows(const QString &database, const QString &sql)
{
    return testdatabase::queryOnce(database, sql).toLongLong();
}

} // namespace kesptest

#endif // KESPTEST_H
