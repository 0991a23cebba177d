// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_LOADCLIENT_H
#define KESPSERVER_LOADCLIENT_H

#include "nuvmqclassifymessage.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>
#include <memory>

class nuvMQClientInterface;

namespace kesp {

/*
 * Callers of the real STOMP transport plugin on threads of their own, each
 * with its own connection and login, each sending its share of numbered
 * requests. For the scale-out tests and the measurement tool.
 */
struct LoadResult
{
    int answered = 0; // calls that got an OK reply
    QStringList failures; // what went wrong, one entry per failed call
    QVector<qint64> latenciesMicros;
    qint64 wallMillis = 0; // from onStart to the last reply
};

// What the callers send.
enum class LoadMix {
    // CFADDCLIPBOARD only, one new clipboard per request: an effect that a
    // second application would turn into an error.
    Clipboards,
    // CFROLES, CFDOCGETARCHIVES and CFDOCINFO of the caller's document in
    // turn: commands that change nothing.
    Reads,
    // CFDOCCLASSIFY of the caller's document and a new clipboard in turn:
    // writes on rows that no other caller touches.
    Writes,
};

struct LoadPlan
{
    QString host;
    quint16 port = 0;
    QString user;
    QString password;
    QString prefix; // clipboard names are PREFIX-THREAD-N
    int threads = 4;
    int requests = 2000; // in all, spread over the threads
    // When above zero, every caller sends for this long instead and
    // `requests` is ignored.
    double seconds = 0;
    int timeoutSeconds = 30;
    LoadMix mix = LoadMix::Clipboards;
    // Reads and Writes: one document id per caller, the caller's own.
    QStringList documents;
    // Called once every caller has logged in, right before the first
    // request: what it sees is the measured part only.
    std::function<void()> onStart;
};

// A request of `word` with `items` as its string list.
nuvMQClassifyMessage command(const QString &word, const QStringList &items);

// A transport of its own, connected to the broker at host:port and logged in
// as `user`; null with the reason in `error` when either failed.
std::unique_ptr<nuvMQClientInterface> loggedInTransport(const QString &host, quint16 port,
                                                        const QString &user,
                                                        const QString &password, int timeoutSeconds,
                                                        QString *error);

// Runs the plan; blocks until every thread is done.
LoadResult runLoad(const LoadPlan &plan);

// The latency that the fraction `p` (0 to 1) of the calls did not exceed,
// in milliseconds (nearest rank).
double percentileMillis(QVector<qint64> micros, double p);

} // namespace kesp

#endif // KESPSERVER_LOADCLIENT_H
