// SPDX-License-Identifier: Apache-2.0
#include "loadclient.h"

#include "brokerenv.h"
#include "nuvmqclassifymessage.h"
#include "nuvmqclientinterface.h"
#include "nuvmutex.h"

#include <QElapsedTimer>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

namespace kesp {

nuvMQClassifyMessage command(const QString &word, const QStringList &items)
{
    nuvMQClassifyMessage message;
    message.command = word;
    message.setDataList(items);
    return message;
}

namespace {

// One caller: connects, logs in, sends its share and records the outcome.
void runShare(const LoadPlan &plan, int index, int count, nuv::Mutex *mutex, LoadResult *total)
{
    LoadResult mine;
    const std::unique_ptr<nuvMQClientInterface> transport = stomp::newTransport();
    if (!transport || !transport->connectToBroker(plan.host, plan.port)) {
        mine.failures << QStringLiteral("thread %1: cannot connect: %2")
                             .arg(index)
                             .arg(transport ? transport->lastErrorText
                                            : QStringLiteral("no plugin"));
    } else {
        transport->setUserName(plan.user);
        nuvMQClassifyMessage login
            = command(QStringLiteral("CFLOGIN"), { plan.user, plan.password, QString() });
        nuvMQClassifyMessage reply;
        if (!transport->sendSyncMessage(&login, &reply, nuvClassifyMessageKind, plan.timeoutSeconds,
                                        0, QString(), nullptr)
            || reply.command.contains(QLatin1String("ERROR"))) {
            mine.failures << QStringLiteral("thread %1: login failed: %2 %3")
                                 .arg(index)
                                 .arg(transport->lastErrorText, reply.errorText);
            count = 0;
        }
        for (int n = 0; n < count; ++n) {
            nuvMQClassifyMessage request
                = command(QStringLiteral("CFADDCLIPBOARD"),
                          { QStringLiteral("%1-%2-%3").arg(plan.prefix).arg(index).arg(n) });
            nuvMQClassifyMessage answer;
            QElapsedTimer clock;
            clock.start();
            const bool ok = transport->sendSyncMessage(&request, &answer, nuvClassifyMessageKind,
                                                       plan.timeoutSeconds, 0, QString(), nullptr);
            mine.latenciesMicros.append(clock.nsecsElapsed() / 1000);
            if (!ok)
                mine.failures
                    << QStringLiteral("%1-%2: %3").arg(index).arg(n).arg(transport->lastErrorText);
            else if (answer.command == QLatin1String("ERROR") || answer.getDocId().isEmpty())
                mine.failures
                    << QStringLiteral("%1-%2: %3").arg(index).arg(n).arg(answer.errorText);
            else
                ++mine.answered;
        }
        transport->disconnectFromBroker();
    }
    // A lock whose order ThreadSanitizer sees.
    nuv::MutexLocker lock(mutex);
    total->answered += mine.answered;
    total->failures += mine.failures;
    total->latenciesMicros += mine.latenciesMicros;
}

} // namespace

LoadResult runLoad(const LoadPlan &plan)
{
    LoadResult result;
    nuv::Mutex mutex;
    QElapsedTimer wall;
    wall.start();
    // std::thread, whose join ThreadSanitizer sees, unlike QThread::wait.
    std::vector<std::thread> threads;
    for (int t = 0; t < plan.threads; ++t) {
        const int count = plan.requests / plan.threads + (t < plan.requests % plan.threads ? 1 : 0);
        threads.emplace_back(runShare, plan, t, count, &mutex, &result);
    }
    for (std::thread &thread : threads)
        thread.join();
    result.wallMillis = wall.elapsed();
    return result;
}

double percentileMillis(QVector<qint64> micros, double p)
{
    if (micros.isEmpty())
        return 0;
    std::sort(micros.begin(), micros.end());
    const int last = micros.size() - 1;
    const int index = qBound(0, int(p * double(last) + 0.5), last);
    return double(micros.at(index)) / 1000.0;
}

} // namespace kesp
