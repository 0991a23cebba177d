#ifndef OPERATIONROWS_H
#define OPERATIONROWS_H

// Data-driven checks shared by the command catalogue tests: one row names an
// operation call and what the request on the wire, or the outcome of a
// scripted reply, must be. The tables live in the tst_ files; the checks and
// the rows that every operation gets live here once.

#include "testsupport.h"

#include <QtTest>

#include <functional>
#include <thread>

namespace operationrows {

using namespace testsupport;

// An operation call returns everything the caller can see afterwards: the
// result first, then every out-parameter.
using Call = std::function<QVariantList(ClassifyInterface *)>;

// For operations without out-parameters: the call's result alone.
template<typename F> Call result(F f)
{
    return [f](ClassifyInterface *c) { return QVariantList { QVariant::fromValue(f(c)) }; };
}

inline QVariant bytes(const QList<QByteArray> &list)
{
    return QVariant::fromValue(list);
}

struct ExpectedRequest
{
    QString command;
    QString docId = {};
    QStringList dataList = {};
    QList<QByteArray> data = {};
    QStringList availablePlugins = {};
};

// What the scripted transport does with the next exchange.
struct Answer
{
    bool transportFails = false;
    nuvMQClassifyMessage reply;
    QString failureText;
};

// The catalogue: every operation once, with the request it must send and
// what it must make of the standard reply below, passed and failed.

enum class Form {
    ErrorEquals, // fails only on "ERROR"
    OkEquals, // passes only on "OK"
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
    ExpectedRequest request;
    Form form;
    bool recordsError;
    QVariantList passed; // after the standard reply passed its test
    QVariantList failed; // after it failed; for an untested reply, after a lost exchange
    bool locked = true; // runs under the client's operation lock

    Operation withoutLock() const
    {
        Operation op = *this;
        op.locked = false;
        return op;
    }
};

inline Operation operation(const QString &name, const Call &call, const ExpectedRequest &request,
                           Form form, LastError lastError, const QVariantList &passed,
                           const QVariantList &failed)
{
    return { name, call, request, form, lastError == LastError::Recorded, passed, failed, true };
}

} // namespace operationrows

Q_DECLARE_METATYPE(operationrows::Call)
Q_DECLARE_METATYPE(operationrows::ExpectedRequest)
Q_DECLARE_METATYPE(operationrows::Answer)
Q_DECLARE_METATYPE(operationrows::Operation)

namespace operationrows {

inline Answer replying(const nuvMQClassifyMessage &reply)
{
    Answer a;
    a.reply = reply;
    return a;
}

inline Answer transportFailure(const QString &text)
{
    Answer a;
    a.transportFails = true;
    a.failureText = text;
    return a;
}

inline void queue(const Answer &a)
{
    if (a.transportFails)
        scripted()->queueFailure(a.failureText);
    else
        answer(a.reply);
}

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

// The last error every outcome row starts from, so that a row can tell
// "left as it was" from "set".
inline const QString earlierError = QStringLiteral("earlier failure");

inline void primeLastError(ClassifyInterface *client)
{
    answer(Reply(QStringLiteral("ERROR")).error(earlierError));
    client->getBemerkungen();
}

// Requests

inline void addRequestColumns()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<ExpectedRequest>("expected");
}

inline void addRequestRow(const QString &name, const Call &call, const ExpectedRequest &expected)
{
    QTest::newRow(qPrintable(name)) << call << expected;
}

// One exchange, answered "OK", carrying exactly the expected fields with
// the message kind and time-out of every catalogue command.
inline void checkRequestRow()
{
    QFETCH(Call, call);
    QFETCH(ExpectedRequest, expected);

    ClientPtr client = loggedInClient();
    answer(Reply(QStringLiteral("OK")));
    call(client.get());

    const QList<ScriptedExchange> exchanges = scripted()->exchanges();
    QCOMPARE(exchanges.size(), 1);
    nuvMQClassifyMessage request = exchanges.first().request;
    QCOMPARE(request.command, expected.command);
    QCOMPARE(request.getDocId(), expected.docId);
    QCOMPARE(request.getDataList(), expected.dataList);
    QCOMPARE(request.getData(), expected.data);
    QCOMPARE(request.getAvailablePlugins(), expected.availablePlugins);
    QCOMPARE(exchanges.first().kind, 1001);
    QCOMPARE(exchanges.first().timeoutSeconds, qint64(30));
}

// Outcomes

inline void addOutcomeColumns()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<QVariantList>("outcome");
    QTest::addColumn<QString>("lastError");
}

inline void addOutcomeRow(const QString &name, const Call &call, const Answer &a,
                          const QVariantList &outcome, const QString &lastError)
{
    QTest::newRow(qPrintable(name)) << call << a << outcome << lastError;
}

inline void addOutcomeRow(const QString &name, const Call &call, const nuvMQClassifyMessage &reply,
                          const QVariantList &outcome, const QString &lastError)
{
    addOutcomeRow(name, call, replying(reply), outcome, lastError);
}

inline void checkOutcomeRow()
{
    QFETCH(Call, call);
    QFETCH(Answer, answer);
    QFETCH(QVariantList, outcome);
    QFETCH(QString, lastError);

    ClientPtr client = loggedInClient();
    primeLastError(client.get());
    QCOMPARE(client->errorString(), earlierError);
    queue(answer);
    QCOMPARE(render(call(client.get())), render(outcome));
    QCOMPARE(client->errorString(), lastError);
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

// Outcomes that many catalogue rows share.
inline const QVariantList passedTrue { true };
inline const QVariantList failedFalse { false };
inline const QVariantList passedList { richList() };
inline const QVariantList failedList { QStringList() };

inline void addCatalogueRequestRows(const QList<Operation> &catalogue)
{
    for (const Operation &op : catalogue)
        addRequestRow(op.name + QStringLiteral(": request"), op.call, op.request);
}

// For every operation, the status words that its reply test must pass and
// fail, and a transport failure; each with the result, out-parameters and
// last error that follow.
inline void addCatalogueOutcomeRows(const QList<Operation> &catalogue)
{
    struct Word
    {
        const char *word;
        const char *label;
        bool passesErrorTest;
        bool passesOkTest;
    };
    static const Word words[] = {
        { "OK", "\"OK\"", true, true },
        { "", "empty", true, false },
        { "ok", "\"ok\"", true, false },
        { "Ok", "\"Ok\"", true, false },
        { "OK ", "\"OK \" with a trailing space", true, false },
        { "error", "\"error\"", true, false },
        { "Error", "\"Error\"", true, false },
        { "ERROR ", "\"ERROR \" with a trailing space", true, false },
        { "ERROR", "\"ERROR\"", false, false },
    };
    for (const Operation &op : catalogue) {
        const QString failureError = op.recordsError ? serverErrorText : earlierError;
        for (const Word &w : words) {
            const bool passes = op.form == Form::Untested
                || (op.form == Form::ErrorEquals ? w.passesErrorTest : w.passesOkTest);
            addOutcomeRow(QStringLiteral("%1: status %2 %3")
                              .arg(op.name, QLatin1String(w.label),
                                   passes ? QStringLiteral("passes") : QStringLiteral("fails")),
                          op.call, replying(richReply(QString::fromLatin1(w.word))),
                          passes ? op.passed : op.failed, passes ? earlierError : failureError);
        }
        addOutcomeRow(op.name + QStringLiteral(": transport failure"), op.call,
                      transportFailure(transportErrorText), op.failed,
                      op.recordsError ? transportErrorText : earlierError);
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

// Locking

// Calls a function for every serverRequest a client emits, on the emitting
// thread. It answers the meta-object call itself, as QSignalSpy does, since
// this header is not run through moc.
class RequestRelay : public QObject
{
public:
    RequestRelay(QObject *client, std::function<void(const QString &)> onRequest)
        : onRequest(std::move(onRequest))
    {
        const int signal = client->metaObject()->indexOfSignal("serverRequest(QString)");
        connection = QMetaObject::connect(
            client, signal, this, QObject::staticMetaObject.methodCount(), Qt::DirectConnection);
    }
    bool isConnected() const { return bool(connection); }
    int qt_metacall(QMetaObject::Call call, int id, void **arguments) override
    {
        id = QObject::qt_metacall(call, id, arguments);
        if (id < 0 || call != QMetaObject::InvokeMetaMethod)
            return id;
        if (id == 0)
            onRequest(*static_cast<const QString *>(arguments[1]));
        return id - 1;
    }

private:
    std::function<void(const QString &)> onRequest;
    QMetaObject::Connection connection;
};

// A scripted server for the lock checks, answering from any thread: the first
// "CFBEMERK" asks for a reload, so that getBemerkungen emits serverRequest
// while it holds the lock; everything else gets the rich "OK" reply. It notes
// each command, and whatever the test adds, in order.
class LockProbe
{
public:
    static constexpr const char *reload = "DORELOADALL";

    LockProbe()
    {
        scripted()->setResponder([this](const nuvMQClassifyMessage &request) {
            QMutexLocker locker(&lock);
            events << request.command;
            if (request.command == QLatin1String("CFBEMERK") && !reloadSent) {
                reloadSent = true;
                return nuvMQClassifyMessage(Reply(QStringLiteral("OK"))
                                                .dataList({ QStringLiteral("held") })
                                                .updateRequested());
            }
            return richReply(QStringLiteral("OK"));
        });
    }
    ~LockProbe() { scripted()->setResponder(nullptr); }
    void note(const QString &event)
    {
        QMutexLocker locker(&lock);
        events << event;
    }
    QStringList noted() const
    {
        QMutexLocker locker(&lock);
        return events;
    }

private:
    mutable QMutex lock;
    QStringList events;
    bool reloadSent = false;
};

inline void addLockingRows(const QList<Operation> &catalogue, bool locked)
{
    QTest::addColumn<Operation>("op");
    for (const Operation &op : catalogue) {
        if (op.locked == locked)
            QTest::newRow(qPrintable(op.name)) << op;
    }
}

// An operation that takes no lock completes from a slot that runs while
// another operation of the same client holds it. One that took the lock would
// wait for its own thread, and the test would never end.
inline void checkUnlockedOperationRow()
{
    QFETCH(Operation, op);
    ClientPtr client = loggedInClient();
    LockProbe probe;
    int calls = 0;
    QVariantList got;
    RequestRelay relay(client.get(), [&](const QString &request) {
        if (request != QLatin1String(LockProbe::reload))
            return;
        ++calls;
        got = op.call(client.get());
        probe.note(QStringLiteral("slot returns"));
    });
    QVERIFY(relay.isConnected());

    QCOMPARE(client->getBemerkungen(), QStringList { "held" });
    QCOMPARE(calls, 1);
    QCOMPARE(render(got), render(op.passed));
    QCOMPARE(probe.noted(), QStringList({ "CFBEMERK", op.request.command, "slot returns" }));
}

// While the slot runs under getBemerkungen's lock, another thread starts the
// operation: its request may reach the server only after the slot returned
// and the lock was let go. The pause only gives an operation that wrongly
// skips the lock the time to overtake; a correct one waits however long the
// pause is, so the outcome never depends on timing.
inline void checkLockedOperationRow()
{
    QFETCH(Operation, op);
    ClientPtr client = loggedInClient();
    LockProbe probe;
    std::thread other;
    QVariantList got;
    RequestRelay relay(client.get(), [&](const QString &request) {
        if (request != QLatin1String(LockProbe::reload))
            return;
        other = std::thread([&] { got = op.call(client.get()); });
        QThread::msleep(20);
        probe.note(QStringLiteral("slot returns"));
    });
    QVERIFY(relay.isConnected());

    QCOMPARE(client->getBemerkungen(), QStringList { "held" });
    QVERIFY(other.joinable());
    other.join();
    QCOMPARE(render(got), render(op.passed));
    QCOMPARE(probe.noted(), QStringList({ "CFBEMERK", "slot returns", op.request.command }));
}

} // namespace operationrows

#endif // OPERATIONROWS_H
