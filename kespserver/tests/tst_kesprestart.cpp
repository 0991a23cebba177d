// SPDX-License-Identifier: Apache-2.0
// The broker goes away under a running nuvkesp-server and comes back at the
// same address: the server tries again with growing pauses, serves again
// by itself, and a client's next login works.

#include "kesptest.h"
#include "loadclient.h"
#include "nuvmqclassifymessage.h"
#include "nuvmqclientinterface.h"
#include "serverprocess.h"

#include <QtTest>

namespace {

using kesp::command;

// Connects, logs in and adds a clipboard; an empty text when all worked.
QString loginAndWrite(const stomp::BrokerEnv &broker, const QString &clipboard)
{
    const std::unique_ptr<nuvMQClientInterface> transport = stomp::newTransport();
    if (!transport)
        return QStringLiteral("no transport plugin");
    if (!transport->connectToBroker(broker.host(), broker.stompPort()))
        return transport->lastErrorText;
    for (const nuvMQClassifyMessage &step :
         { command(QStringLiteral("CFLOGIN"), { kesptest::user, kesptest::password, QString() }),
           command(QStringLiteral("CFADDCLIPBOARD"), { clipboard }) }) {
        nuvMQClassifyMessage request = step;
        nuvMQClassifyMessage reply;
        if (!transport->sendSyncMessage(&request, &reply, nuvClassifyMessageKind, 30, 0, QString(),
                                        nullptr))
            return transport->lastErrorText;
        if (reply.command.contains(QLatin1String("ERROR")))
            return reply.errorText;
    }
    transport->disconnectFromBroker();
    return QString();
}

} // namespace

class KespRestart : public QObject
{
    Q_OBJECT

private slots:
    void serverReconnectsAfterBrokerRestart();
};

void KespRestart::serverReconnectsAfterBrokerRestart()
{
    QString output;
    QVERIFY2(stomp::BrokerEnv::script(QStringLiteral("start"), &output), qPrintable(output));
    const stomp::BrokerEnv broker;
    const QString problem = kesptest::useBroker(broker, QStringLiteral("restart"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    const kesptest::Workspace space;
    QVERIFY2(!space.database.isEmpty(), qPrintable(space.error));
    kesp::ServerProcess server(QStringLiteral("restart"), space.database,
                               kesptest::brokerAddress(broker),
                               space.path(QStringLiteral("server.log")),
                               { QStringLiteral("--max-backoff-ms"), QStringLiteral("2000") });
    QVERIFY2(server.start(), qPrintable(server.log()));
    QString error = loginAndWrite(broker, QStringLiteral("before"));
    QVERIFY2(error.isEmpty(), qPrintable(error));

    QVERIFY2(stomp::BrokerEnv::script(QStringLiteral("stop"), &output), qPrintable(output));
    // Refused while the broker is down, with pauses that grow.
    QVERIFY2(server.waitForLog(QStringLiteral("trying again in 500 ms"), 1, 30000),
             qPrintable(server.log()));
    QVERIFY2(server.waitForLog(QStringLiteral("trying again in 1000 ms"), 1, 30000),
             qPrintable(server.log()));
    // Asked for its health meanwhile, it says so.
    ::kill(pid_t(server.pid()), SIGUSR1);
    QVERIFY2(server.waitForLog(QStringLiteral("status: not connected;"), 1, 10000),
             qPrintable(server.log()));
    QVERIFY2(stomp::BrokerEnv::script(QStringLiteral("start"), &output), qPrintable(output));
    QVERIFY2(server.waitForLog(QStringLiteral(": serving "), 2, 60000), qPrintable(server.log()));

    // A client of the restarted broker logs in (a new session) and works.
    error = loginAndWrite(broker, QStringLiteral("after"));
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QCOMPARE(kesptest::countRows(space.database, QStringLiteral("SELECT count(*) FROM clipboards")),
             qint64(2));
    QVERIFY2(server.stop(), qPrintable(server.log()));
    QVERIFY(server.log().contains(QLatin1String("connections 2")));
}

QTEST_GUILESS_MAIN(KespRestart)
#include "tst_kesprestart.moc"
