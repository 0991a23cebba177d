// SPDX-License-Identifier: Apache-2.0
#ifndef CONFLICTBURST_H
#define CONFLICTBURST_H

#include "nuvmqclassifymessage.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

/*
 * Many callers writing to the same rows at once, and what the database must
 * look like afterwards whatever order the server ran them in: the result of
 * SOME serial order. No update lost, no key handed out twice, no command
 * half applied, each losing caller told so with the system's own error
 * text, and the change counter moved once per successful write.
 *
 * The same bursts run against engines called from threads and against
 * nuvkesp-server instances through the broker; the caller of a burst only
 * says how one request travels.
 */
namespace conflicts {

enum class Scenario {
    NewIds, // new clipboards and object ids: all distinct, all there
    SameClipboardName, // every caller creates the same clipboard name
    CardsOnOneClipboard, // every caller adds its cards to one clipboard
    SameUserName, // every caller creates its own user and the same other one
    FolderTree, // every caller adds folders below one folder
    OneDocument, // every caller classifies the same document
};

QString scenarioName(Scenario scenario);

// One request there and its reply back, as one caller.
using Send = std::function<nuvMQClassifyMessage(const nuvMQClassifyMessage &request)>;

struct Burst
{
    Scenario scenario = Scenario::NewIds;
    int callers = 8;
    int rounds = 3;
    QString database; // the engine's database option, for reading the result
    // Set by prepare().
    QString target; // the clipboard, folder or document written to
    qint64 counterBefore = -1; // the change counter when the burst starts
    qint64 revisionBefore = -1;
    // Filled by the callers: replies[caller][round].
    QVector<QVector<nuvMQClassifyMessage>> replies;

    // Round `round` of caller `caller`.
    nuvMQClassifyMessage request(int caller, int round) const;
    // What the callers write to, made through `admin` (an administrator's
    // session); the reason when that failed.
    QString prepare(const Send &admin);
    // Notes the change counter; call it after the callers have logged in.
    void start();
    // Every invariant the result breaks; empty when it equals a serial order.
    QStringList check() const;
};

// Runs `callers` threads: each calls setUp(caller), waits until all have,
// then the last one to arrive calls onStart() and all run body(caller).
void runTogether(int callers, const std::function<void(int)> &setUp,
                 const std::function<void()> &onStart, const std::function<void(int)> &body);

} // namespace conflicts

#endif // CONFLICTBURST_H
