// SPDX-License-Identifier: Apache-2.0
#ifndef CLITEST_H
#define CLITEST_H

#include "testsupport.h"

#include <QJsonObject>
#include <QStringList>

#include <functional>

/*
 * Runs the whole command-line tool inside the test process, against the
 * real classify plugin and the scripted transport, so that a test sees both
 * what the tool printed and the exact requests it sent.
 */
using QStringMap = QMap<QString, QString>;
Q_DECLARE_METATYPE(nuvMQClassifyMessage)

namespace clitest {

struct Outcome
{
    int status = -1;
    QString out;
    QString err;
    // The JSON objects of --json output, one per line.
    QList<QJsonObject> jsonLines() const;
    // The last one: the record of the last call.
    QJsonObject lastJson() const;
};

struct Terminal
{
    bool present = false;
    QStringList answers; // what the prompts read, in order
    QList<QPair<QString, bool>> prompts; // each prompt and whether it was secret
};

// The options every in-process run starts with: the built plugin, the
// scripted transport through --broker, and credentials.
QStringList connectionOptions();

// Runs `nuvclassify` with `arguments` (no program name). The environment
// is empty unless given; a terminal only when `terminal` says so.
Outcome run(const QStringList &arguments, const QMap<QString, QString> &environment = {},
            Terminal *terminal = nullptr);
// Runs one call with connectionOptions() plus `options` before it.
Outcome call(const QStringList &words, const QStringList &options = {});

// What the scripted server answers: the login is accepted (roles "editor",
// full name "Erika Muster") and every other command gets `reply`. Forgets
// earlier exchanges.
void serve(const nuvMQClassifyMessage &reply);
// Like serve(), with a reply chosen per request.
void serve(std::function<nuvMQClassifyMessage(const nuvMQClassifyMessage &)> responder);
// The successful answer most tests use: status "OK" and a little of every
// field, shaped so that every reader of the client finds what it reads.
nuvMQClassifyMessage everythingReply();

// The requests after the login, in order.
QList<nuvMQClassifyMessage> requests();
int loginCount();

} // namespace clitest

#endif // CLITEST_H
