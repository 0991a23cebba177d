// SPDX-License-Identifier: Apache-2.0
#include "loadclient.h"

#include "brokerenv.h"
#include "nuvmqclassifymessage.h"
#include "nuvmqclientinterface.h"
#include "nuvmutex.h"
#include "protocolwords.h"
#include "startline.h"

#include <QElapsedTimer>

#include <algorithm>
#include <limits>
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

namespace words = nuvprotocol::words;

bool isFailure(const nuvMQClassifyMessage &answer, const nuvMQClassifyMessage &request)
{
    if (answer.command == QLatin1String(nuvprotocol::status::error))
        return true;
    // A clipboard that was made has a key.
    return request.command == QLatin1String(words::addClipboard) && answer.getDocId().isEmpty();
}

// Request `n` of caller `index`.
nuvMQClassifyMessage requestFor(const LoadPlan &plan, int index, int n)
{
    const QString document = plan.documents.value(index);
    nuvMQClassifyMessage request;
    switch (plan.mix) {
    case LoadMix::Reads: {
        static const char *const reads[]
            = { words::getRoles, words::getArchives, words::getDocumentData };
        const char *word = reads[n % 3];
        request = command(QLatin1String(word), {});
        if (n % 3 == 2) {
            request.setDataList({ QStringLiteral("*") });
            request.setDocId(document);
        }
        return request;
    }
    case LoadMix::Writes:
        if (n % 2 == 0) {
            request = command(QLatin1String(words::classify),
                              { QStringLiteral("title") + nuvprotocol::recordSeparator
                                + QStringLiteral("Round %1").arg(n) });
            request.setDocId(document);
            return request;
        }
        break;
    case LoadMix::Clipboards:
        break;
    }
    return command(QLatin1String(words::addClipboard),
                   { QStringLiteral("%1-%2-%3").arg(plan.prefix).arg(index).arg(n) });
}

// One caller: connects, logs in, waits at the start line, sends its share
// (or for the plan's time) and records the outcome.
void runShare(const LoadPlan &plan, int index, int count, nuv::StartLine *line, nuv::Mutex *mutex,
              LoadResult *total)
{
    LoadResult mine;
    QString error;
    const std::unique_ptr<nuvMQClientInterface> transport = loggedInTransport(
        plan.host, plan.port, plan.user, plan.password, plan.timeoutSeconds, &error);
    if (!transport) {
        mine.failures << QStringLiteral("thread %1: %2").arg(index).arg(error);
        count = 0;
    }
    // Callers that failed arrive too: the others must not wait for them.
    line->arrive();
    const qint64 deadline = plan.seconds > 0 ? qint64(plan.seconds * 1000) : -1;
    if (deadline >= 0 && mine.failures.isEmpty())
        count = std::numeric_limits<int>::max();
    for (int n = 0; n < count && (deadline < 0 || line->wall.elapsed() < deadline); ++n) {
        nuvMQClassifyMessage request = requestFor(plan, index, n);
        nuvMQClassifyMessage answer;
        QElapsedTimer clock;
        clock.start();
        const bool ok = transport->sendSyncMessage(&request, &answer, nuvClassifyMessageKind,
                                                   plan.timeoutSeconds, 0, QString(), nullptr);
        mine.latenciesMicros.append(clock.nsecsElapsed() / 1000);
        if (!ok)
            mine.failures
                << QStringLiteral("%1-%2: %3").arg(index).arg(n).arg(transport->lastErrorText);
        else if (isFailure(answer, request))
            mine.failures << QStringLiteral("%1-%2: %3 %4")
                                 .arg(index)
                                 .arg(n)
                                 .arg(request.command, answer.errorText);
        else
            ++mine.answered;
    }
    if (transport)
        transport->disconnectFromBroker();
    nuv::MutexLocker lock(mutex);
    total->answered += mine.answered;
    total->failures += mine.failures;
    total->latenciesMicros += mine.latenciesMicros;
}

} // namespace

std::unique_ptr<nuvMQClientInterface> loggedInTransport(const QString &host, quint16 port,
                                                        const QString &user,
                                                        const QString &password, int timeoutSeconds,
                                                        QString *error)
{
    std::unique_ptr<nuvMQClientInterface> transport = stomp::newTransport();
    if (!transport) {
        *error = QStringLiteral("cannot connect: no transport plugin");
        return nullptr;
    }
    if (!transport->connectToBroker(host, port)) {
        *error = QStringLiteral("cannot connect: ") + transport->lastErrorText;
        return nullptr;
    }
    transport->setUserName(user);
    nuvMQClassifyMessage login
        = command(QLatin1String(words::login), { user, password, QString() });
    nuvMQClassifyMessage reply;
    // Any status holding the error word refuses a login.
    if (!transport->sendSyncMessage(&login, &reply, nuvClassifyMessageKind, timeoutSeconds, 0,
                                    QString(), nullptr)
        || reply.command.contains(QLatin1String(nuvprotocol::status::error))) {
        *error
            = QStringLiteral("login failed: %1 %2").arg(transport->lastErrorText, reply.errorText);
        transport->disconnectFromBroker();
        return nullptr;
    }
    return transport;
}

LoadResult runLoad(const LoadPlan &plan)
{
    LoadResult result;
    nuv::Mutex mutex;
    nuv::StartLine line(plan.threads, plan.onStart);
    // std::thread, whose join ThreadSanitizer sees, unlike QThread::wait.
    std::vector<std::thread> threads;
    for (int t = 0; t < plan.threads; ++t) {
        const int count = plan.requests / plan.threads + (t < plan.requests % plan.threads ? 1 : 0);
        threads.emplace_back(runShare, plan, t, count, &line, &mutex, &result);
    }
    for (std::thread &thread : threads)
        thread.join();
    result.wallMillis = line.wall.elapsed();
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
