// SPDX-License-Identifier: Apache-2.0
#ifndef COMMANDKIT_H
#define COMMANDKIT_H

/*
 * What every command test shares: a call's outcome as one comparable value,
 * scripted answers (a reply or a transport failure), the client whose last
 * error was set by an earlier failure, the field-rich reply, and the two
 * drivers that check what a call sent and what it gave back. An operation is
 * described once (Operation) and every test of it is driven from that
 * description; the tables live in the tst_ files.
 */

#include "testsupport.h"

#include <QtTest>

#include <functional>
#include <optional>

namespace commandkit {

using namespace testsupport;

// What a call gave back: its result (if it has one), then its out-parameters
// as they are after the call, in argument order.
using Outcome = QVariantList;
using Call = std::function<Outcome(ClassifyInterface *)>;

// For operations without out-parameters: the call's result alone.
template<typename F> Call returning(F f)
{
    return [f](ClassifyInterface *c) { return Outcome { QVariant::fromValue(f(c)) }; };
}

// For operations that give nothing back.
template<typename F> Call returningNothing(F f)
{
    return [f](ClassifyInterface *c) {
        f(c);
        return Outcome {};
    };
}

inline QVariant bytes(const QList<QByteArray> &list)
{
    return QVariant::fromValue(list);
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

inline Answer replying(const nuvMQClassifyMessage &reply)
{
    return Answer(reply);
}

inline Answer transportFailure(const QString &text)
{
    Answer a;
    a.transportError = text;
    return a;
}

// The request a call must send: every field, and the time-out it waits.
struct Request
{
    QString command;
    QString docId = {};
    QStringList dataList = {};
    QList<QByteArray> data = {};
    QStringList availablePlugins = {};
    qint64 timeout = 30;
};

inline Request sent(const QString &command, const QString &docId = QString(),
                    const QStringList &dataList = {}, const QList<QByteArray> &data = {},
                    qint64 timeout = 30)
{
    return Request { command, docId, dataList, data, {}, timeout };
}

// How an operation judges the status word of its reply.
enum class Form {
    ErrorEquals, // fails only on exactly "ERROR"
    OkEquals, // passes only on exactly "OK"
    ErrorContained, // fails on any status word holding "ERROR"
    Untested, // takes any reply as it comes
};

// Whether a failure becomes the client's last error.
enum class LastError {
    Recorded,
    Kept,
};

struct Operation
{
    QString name;
    Call call;
    Request request;
    Form form = Form::ErrorEquals;
    bool recordsError = true; // a failure becomes the client's last error
    Outcome passed = {}; // after the rich reply with a passing status word
    Outcome failed = {}; // after it with a failing one
    bool locked = true; // runs under the client's operation lock
    // After a transport failure, when that differs from `failed`.
    std::optional<Outcome> unanswered = {};

    Outcome withoutReply() const
    {
        if (unanswered)
            return *unanswered;
        return form == Form::Untested ? passed : failed;
    }

    Operation &sends(const QString &command, const QString &docId = QString(),
                     const QStringList &dataList = {}, const QList<QByteArray> &data = {})
    {
        request = sent(command, docId, dataList, data, request.timeout);
        return *this;
    }
    Operation &withTimeout(qint64 seconds)
    {
        request.timeout = seconds;
        return *this;
    }
    Operation &unlocked()
    {
        locked = false;
        return *this;
    }
    Operation &judgedBy(Form replyForm)
    {
        form = replyForm;
        return *this;
    }
    Operation &keepingLastError()
    {
        recordsError = false;
        return *this;
    }
    Operation &gives(const Outcome &onPass, const Outcome &onFailure)
    {
        passed = onPass;
        failed = onFailure;
        return *this;
    }
    Operation &givesWithoutReply(const Outcome &outcome)
    {
        unanswered = outcome;
        return *this;
    }
};

inline Operation operation(const QString &name, const Call &call)
{
    Operation op;
    op.name = name;
    op.call = call;
    return op;
}

// The whole description at once. For an untested reply, `failed` is what a
// lost exchange gives.
inline Operation operation(const QString &name, const Call &call, const Request &request, Form form,
                           LastError lastError, const Outcome &passed, const Outcome &failed)
{
    Operation op = operation(name, call);
    op.request = request;
    op.judgedBy(form).gives(passed, failed);
    if (lastError == LastError::Kept)
        op.keepingLastError();
    if (form == Form::Untested)
        op.givesWithoutReply(failed);
    return op;
}

// A status word and how each reply test judges it; an untested reply passes
// on every word.
struct StatusWord
{
    const char *label;
    const char *word;
    bool passesErrorEquals;
    bool passesOkEquals;
    bool passesErrorContained;

    bool passes(Form form) const
    {
        switch (form) {
        case Form::ErrorEquals:
            return passesErrorEquals;
        case Form::OkEquals:
            return passesOkEquals;
        case Form::ErrorContained:
            return passesErrorContained;
        case Form::Untested:
            break;
        }
        return true;
    }
};

} // namespace commandkit

Q_DECLARE_METATYPE(commandkit::Call)
Q_DECLARE_METATYPE(commandkit::Answer)
Q_DECLARE_METATYPE(commandkit::Answers)
Q_DECLARE_METATYPE(commandkit::Request)
Q_DECLARE_METATYPE(commandkit::Operation)
Q_DECLARE_METATYPE(commandkit::Form)

namespace commandkit {

// A strict, readable form of an outcome: types are part of the text, so a
// qint64 never equals an int and a list never equals a string. U+FEFF shows
// as "|" to keep records legible in a failure message.
inline QString render(const QVariant &value)
{
    const auto quoted = [](const QString &s) {
        return QLatin1Char('"') + QString(s).replace(QChar(0xFEFF), QLatin1Char('|'))
            + QLatin1Char('"');
    };
    const auto joinedBy = [](const QStringList &parts, const QString &open, const QString &close) {
        return open + parts.join(QStringLiteral(", ")) + close;
    };
    switch (value.userType()) {
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QMetaType::Int:
        return QStringLiteral("int ") + QString::number(value.toInt());
    case QMetaType::LongLong:
        return QStringLiteral("qint64 ") + QString::number(value.toLongLong());
    case QMetaType::QString:
        return quoted(value.toString());
    case QMetaType::QStringList: {
        QStringList parts;
        for (const QString &s : value.toStringList())
            parts << quoted(s);
        return joinedBy(parts, QStringLiteral("["), QStringLiteral("]"));
    }
    case QMetaType::QByteArrayList: {
        QStringList parts;
        for (const QByteArray &b : value.value<QList<QByteArray>>())
            parts << QStringLiteral("b\"") + QString::fromLatin1(b.toPercentEncoding())
                    + QLatin1Char('"');
        return joinedBy(parts, QStringLiteral("bytes["), QStringLiteral("]"));
    }
    case QMetaType::QVariantList: {
        QStringList parts;
        for (const QVariant &v : value.toList())
            parts << render(v);
        return joinedBy(parts, QStringLiteral("("), QStringLiteral(")"));
    }
    default:
        return QString::fromLatin1(value.typeName()) + QLatin1Char(' ') + value.toString();
    }
}

// QVariant's == converts between types ("true" equals true); an outcome must
// match in type as well, at every level.
inline bool sameOutcome(const Outcome &a, const Outcome &b)
{
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i) {
        if (a.at(i).userType() != b.at(i).userType() || a.at(i) != b.at(i))
            return false;
    }
    return render(a) == render(b);
}

// The last error every outcome check starts from, so that a row can tell
// "left as it was" from "set".
inline const QString earlierError = QStringLiteral("earlier failure");

// A logged-in client whose last error is earlierError; the exchange that set
// it is forgotten.
inline ClientPtr clientWithEarlierError()
{
    ClientPtr client = loggedInClient();
    answer(Reply(QStringLiteral("ERROR")).error(earlierError));
    client->recreateIndex();
    scripted()->clearExchanges();
    return client;
}

// A field-rich reply that every operation can read something from: two
// records, the first one long enough to carry a tenant number (field 3) and
// a folder key (field 5), both 41; the key 41 in `docId`; two byte arrays;
// and an error text that only a failure may take over.
inline QString richRecord()
{
    return joined({ "a", "b", "c", "41", "e", "41" });
}

inline const QString serverErrorText = QStringLiteral("server said no");
inline const QString transportErrorText = QStringLiteral("broker gone");

inline QStringList richList()
{
    return { richRecord(), QStringLiteral("r2") };
}

inline nuvMQClassifyMessage richReply(const QString &status)
{
    return Reply(status)
        .docId(QStringLiteral("41"))
        .dataList(richList())
        .data({ QByteArrayLiteral("b1"), QByteArrayLiteral("b2") })
        .error(serverErrorText);
}

// Outcomes that many rows share.
inline const Outcome passedTrue { true };
inline const Outcome failedFalse { false };
inline const Outcome passedList { richList() };
inline const Outcome failedList { QStringList() };

// Runs `call` on a fresh client answered with `answers`, and checks what it
// gave back, the last error afterwards and that each answer was used.
inline void checkOutcome(const Call &call, const Answers &answers, const Outcome &expected,
                         const QString &lastError)
{
    ClientPtr client = clientWithEarlierError();
    QCOMPARE(client->errorString(), earlierError);
    for (const Answer &a : answers)
        a.queue();
    const Outcome got = call(client.get());
    QCOMPARE(render(got), render(expected));
    QVERIFY(sameOutcome(got, expected));
    QCOMPARE(client->errorString(), lastError);
    QCOMPARE(exchangeCount(), answers.size());
}

// Runs `call` once, answered "OK", and checks the one request it sent, field
// by field, with the message kind of every command.
inline void checkRequest(const Call &call, const Request &expected)
{
    ClientPtr client = loggedInClient();
    answer(Reply(QStringLiteral("OK")));
    call(client.get());
    QCOMPARE(exchangeCount(), 1);
    ScriptedExchange exchange = scripted()->exchanges().constFirst();
    QCOMPARE(exchange.request.command, expected.command);
    QCOMPARE(exchange.request.getDocId(), expected.docId);
    QCOMPARE(exchange.request.getDataList(), expected.dataList);
    QCOMPARE(exchange.request.getData(), expected.data);
    QCOMPARE(exchange.request.getAvailablePlugins(), expected.availablePlugins);
    QCOMPARE(exchange.request.getUpdateRequested(), false);
    QCOMPARE(exchange.kind, 1001);
    QCOMPARE(exchange.timeoutSeconds, expected.timeout);
}

// The data-driven forms of the two checks: a test's _data() function adds the
// columns and its rows, the test function itself is one call.

inline void addRequestColumns()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<Request>("expected");
}

inline void addRequestRow(const QString &name, const Call &call, const Request &expected)
{
    QTest::newRow(qPrintable(name)) << call << expected;
}

inline void checkRequestRow()
{
    QFETCH(Call, call);
    QFETCH(Request, expected);
    checkRequest(call, expected);
}

inline void addOutcomeColumns()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<Answers>("answers");
    QTest::addColumn<Outcome>("expected");
    QTest::addColumn<QString>("lastError");
}

inline void addOutcomeRow(const QString &name, const Call &call, const Answers &answers,
                          const Outcome &outcome, const QString &lastError)
{
    QTest::newRow(qPrintable(name)) << call << answers << outcome << lastError;
}

inline void addOutcomeRow(const QString &name, const Call &call, const Answer &a,
                          const Outcome &outcome, const QString &lastError)
{
    addOutcomeRow(name, call, Answers { a }, outcome, lastError);
}

inline void checkOutcomeRow()
{
    QFETCH(Call, call);
    QFETCH(Answers, answers);
    QFETCH(Outcome, expected);
    QFETCH(QString, lastError);
    checkOutcome(call, answers, expected, lastError);
}

// Catalogue rows

inline void addCatalogueRequestRows(const QList<Operation> &catalogue)
{
    for (const Operation &op : catalogue)
        addRequestRow(op.name + QStringLiteral(": request"), op.call, op.request);
}

// The rich reply under `status`, with the outcome and last error that follow.
inline void addStatusRow(const QString &name, const Operation &op, const StatusWord &status)
{
    const bool passes = status.passes(op.form);
    addOutcomeRow(name, op.call, replying(richReply(QString::fromLatin1(status.word))),
                  passes ? op.passed : op.failed,
                  passes || !op.recordsError ? earlierError : serverErrorText);
}

// A lost exchange, with the outcome and last error that follow.
inline void addTransportFailureRow(const QString &name, const Operation &op)
{
    addOutcomeRow(name, op.call, transportFailure(transportErrorText), op.withoutReply(),
                  op.recordsError ? transportErrorText : earlierError);
}

// For every operation, the status words that its reply test must pass and
// fail, and a transport failure; each with the result, out-parameters and
// last error that follow.
inline void addCatalogueOutcomeRows(const QList<Operation> &catalogue)
{
    static const StatusWord words[] = {
        { "\"OK\"", "OK", true, true, true },
        { "empty", "", true, false, true },
        { "\"ok\"", "ok", true, false, true },
        { "\"Ok\"", "Ok", true, false, true },
        { "\"OK \" with a trailing space", "OK ", true, false, true },
        { "\"error\"", "error", true, false, true },
        { "\"Error\"", "Error", true, false, true },
        { "\"ERROR \" with a trailing space", "ERROR ", true, false, false },
        { "\"ERROR\"", "ERROR", false, false, false },
    };
    for (const Operation &op : catalogue) {
        for (const StatusWord &w : words) {
            addStatusRow(
                QStringLiteral("%1: status %2 %3")
                    .arg(op.name, QLatin1String(w.label),
                         w.passes(op.form) ? QStringLiteral("passes") : QStringLiteral("fails")),
                op, w);
        }
        addTransportFailureRow(op.name + QStringLiteral(": transport failure"), op);
    }
}

// Pairing tables: the records of a reply joined with its byte arrays by key.

inline void addPairingColumns()
{
    QTest::addColumn<QString>("docId");
    QTest::addColumn<QStringList>("records");
    QTest::addColumn<QList<QByteArray>>("data");
    QTest::addColumn<QList<QByteArray>>("payloads");
}

inline void addPairingRow(const char *name, const QString &docId, const QStringList &records,
                          const QList<QByteArray> &data, const QList<QByteArray> &payloads)
{
    QTest::newRow(name) << docId << records << data << payloads;
}

// Thousands of records, the n-th carrying key(n) and owning the byte array
// of that key's text: once with keys and byte arrays in reverse order, once
// with byte arrays for only the first half of the keys.
inline void addThousandsOfRecordsRows(const std::function<QString(int)> &key,
                                      const std::function<QString(const QString &)> &record)
{
    const int count = 5000;
    QStringList records;
    QStringList ascendingKeys;
    QStringList reversedKeys;
    QList<QByteArray> payloads;
    QList<QByteArray> reversedData;
    for (int n = 1; n <= count; ++n) {
        const QString k = key(n);
        records << record(k);
        ascendingKeys << k;
        reversedKeys.prepend(k);
        payloads << k.toUtf8();
        reversedData.prepend(k.toUtf8());
    }
    addPairingRow("thousands of records with their keys in reverse order", joined(reversedKeys),
                  records, reversedData, payloads);
    const QList<QByteArray> firstHalf = payloads.mid(0, count / 2);
    QList<QByteArray> halfMissing = firstHalf;
    while (halfMissing.size() < count)
        halfMissing << QByteArray();
    addPairingRow("thousands of keys with only half the byte arrays", joined(ascendingKeys),
                  records, firstHalf, halfMissing);
}

} // namespace commandkit

#endif // COMMANDKIT_H
