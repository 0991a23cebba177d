#ifndef ADMINTESTKIT_H
#define ADMINTESTKIT_H

/*
 * What the command tests share: a call's outcome as one comparable value,
 * scripted answers, and the two drivers that check what a call gave back and
 * what it sent. A command operation is described once (AdminOperation) and
 * every test of it is driven from that description.
 */

#include "testsupport.h"

#include <QtTest>

#include <functional>
#include <optional>

// Kept apart from the shared test support, whose names it uses freely.
namespace admintests {

using namespace testsupport;

// What a call gave back: its result (if it has one), then its out-parameters
// as they are after the call, in argument order.
using Outcome = QVariantList;
using Call = std::function<Outcome(ClassifyInterface *)>;

inline QVariant bytes(const QList<QByteArray> &list)
{
    return QVariant::fromValue(list);
}

// QVariant's == converts between types ("true" equals true); an outcome must
// match in type as well.
inline bool sameOutcome(const Outcome &a, const Outcome &b)
{
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i) {
        if (a.at(i).userType() != b.at(i).userType() || a.at(i) != b.at(i))
            return false;
    }
    return true;
}

inline QString describe(const Outcome &outcome)
{
    QString text;
    QDebug(&text) << outcome;
    return text;
}

// One scripted answer to an exchange: a reply, or a transport failure.
struct Answer
{
    nuvMQClassifyMessage reply;
    QString transportError;

    Answer() = default;
    Answer(const nuvMQClassifyMessage &message)
        : reply(message)
    { }
    Answer(const Reply &message)
        : reply(message)
    { }
    void queue() const
    {
        if (transportError.isEmpty())
            answer(reply);
        else
            scripted()->queueFailure(transportError);
    }
};
using Answers = QList<Answer>;

inline Answer noReply(const QString &transportError)
{
    Answer a;
    a.transportError = transportError;
    return a;
}

inline QString earlierError()
{
    return QStringLiteral("earlier failure");
}

// A logged-in client whose last error is earlierError(), so that a test sees
// whether an operation changes it; the exchange that set it is forgotten.
inline ClientPtr clientWithEarlierError()
{
    ClientPtr client = loggedInClient();
    answer(Reply("ERROR").error(earlierError()));
    client->recreateIndex();
    scripted()->clearExchanges();
    return client;
}

// The reply every catalogue row is answered with, under the status word being
// tested. It carries every field, an error text included, so that each
// operation shows which fields it reads in which outcome.
inline nuvMQClassifyMessage fullReply(const QString &status)
{
    return Reply(status)
        .docId("doc-7")
        .dataList({ "s1", "s2" })
        .data({ "b1", "b2" })
        .error("denied");
}

// Runs `call` on a fresh client answered with `answers`, and checks what it
// gave back, the last error afterwards and that each answer was used.
inline void checkOutcome(const Call &call, const Answers &answers, const Outcome &expected,
                         const QString &lastError)
{
    ClientPtr client = clientWithEarlierError();
    QCOMPARE(client->errorString(), earlierError());
    for (const Answer &a : answers)
        a.queue();
    const Outcome got = call(client.get());
    QVERIFY2(
        sameOutcome(got, expected),
        qPrintable(QStringLiteral("got %1, expected %2").arg(describe(got), describe(expected))));
    QCOMPARE(client->errorString(), lastError);
    QCOMPARE(exchangeCount(), answers.size());
}

struct Request
{
    QString command;
    QString docId;
    QStringList dataList;
    QList<QByteArray> data;
    qint64 timeout = 30;
};

// Runs `call` once and checks the one request it sent, field by field.
inline void checkRequest(const Call &call, const Request &expected)
{
    ClientPtr client = loggedInClient();
    answer(fullReply("OK"));
    call(client.get());
    QCOMPARE(exchangeCount(), 1);
    ScriptedExchange sent = scripted()->exchanges().constFirst();
    QCOMPARE(sent.request.command, expected.command);
    QCOMPARE(sent.request.getDocId(), expected.docId);
    QCOMPARE(sent.request.getDataList(), expected.dataList);
    QCOMPARE(sent.request.getData(), expected.data);
    QCOMPARE(sent.timeoutSeconds, expected.timeout);
    QCOMPARE(sent.request.getUpdateRequested(), false);
    QCOMPARE(sent.request.getAvailablePlugins(), QStringList());
}

inline Request sent(const QString &command, const QString &docId = QString(),
                    const QStringList &dataList = {}, const QList<QByteArray> &data = {},
                    qint64 timeout = 30)
{
    return Request { command, docId, dataList, data, timeout };
}

enum class ReplyForm {
    ErrorEquals, // fails only on exactly "ERROR"
    OkEquals, // passes only on exactly "OK"
    ErrorContained, // fails on any status word holding "ERROR"
    Ignored, // the reply is never judged
};

struct AdminOperation
{
    QString name;
    Call call;
    Request request;
    ReplyForm form = ReplyForm::ErrorEquals;
    bool locked = true;
    bool recordsError = true;
    Outcome passed; // after fullReply() with a passing status word
    Outcome failed; // after fullReply() with a failing one
    // After a transport failure, when that differs from `failed`.
    std::optional<Outcome> unanswered;

    Outcome withoutReply() const
    {
        if (unanswered)
            return *unanswered;
        return form == ReplyForm::Ignored ? passed : failed;
    }
    bool recordsErrorWithoutReply() const { return recordsError && form != ReplyForm::Ignored; }

    AdminOperation &sends(const QString &command, const QString &docId = QString(),
                          const QStringList &dataList = {}, const QList<QByteArray> &data = {})
    {
        request = sent(command, docId, dataList, data, request.timeout);
        return *this;
    }
    AdminOperation &withTimeout(qint64 seconds)
    {
        request.timeout = seconds;
        return *this;
    }
    AdminOperation &unlocked()
    {
        locked = false;
        return *this;
    }
    AdminOperation &judgedBy(ReplyForm replyForm)
    {
        form = replyForm;
        return *this;
    }
    AdminOperation &keepingLastError()
    {
        recordsError = false;
        return *this;
    }
    AdminOperation &gives(const Outcome &onPass, const Outcome &onFailure)
    {
        passed = onPass;
        failed = onFailure;
        return *this;
    }
    AdminOperation &givesWithoutReply(const Outcome &outcome)
    {
        unanswered = outcome;
        return *this;
    }
};

inline AdminOperation operation(const QString &name, const Call &call)
{
    AdminOperation op;
    op.name = name;
    op.call = call;
    return op;
}

} // namespace admintests

Q_DECLARE_METATYPE(admintests::Call)
Q_DECLARE_METATYPE(admintests::Answers)
Q_DECLARE_METATYPE(admintests::Request)
Q_DECLARE_METATYPE(admintests::AdminOperation)
Q_DECLARE_METATYPE(admintests::ReplyForm)

namespace admintests {

// The data-driven forms of the two drivers: a test's _data() function adds
// the columns and its rows, the test function itself is one call.
inline void addOutcomeColumns()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<Answers>("answers");
    QTest::addColumn<Outcome>("expected");
    QTest::addColumn<QString>("lastError");
}

inline void checkOutcomeRow()
{
    QFETCH(Call, call);
    QFETCH(Answers, answers);
    QFETCH(Outcome, expected);
    QFETCH(QString, lastError);
    checkOutcome(call, answers, expected, lastError);
}

inline void addRequestColumns()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<Request>("expected");
}

inline void checkRequestRow()
{
    QFETCH(Call, call);
    QFETCH(Request, expected);
    checkRequest(call, expected);
}

} // namespace admintests

#endif // ADMINTESTKIT_H
