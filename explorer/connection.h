// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_CONNECTION_H
#define NUVEXPLORER_CONNECTION_H

#include "nuvmutex.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QMap>
#include <QObject>
#include <QPluginLoader>
#include <QPointer>
#include <QThread>
#include <QVariant>

#include <deque>
#include <functional>

class ClassifyInterface;

namespace nuvexplorer {

class CallRunner;

// What one call gave back: success, the value the view needs, the error
// text as the server or the plugin wrote it, and a short text for the log.
struct CallResult
{
    bool ok = false;
    QVariant value;
    QString error;
    QString summary;
    // A second value, for calls that answer with two lists.
    QVariant extra;
};

// One line of the call log.
struct CallRecord
{
    quint64 id = 0;
    QString operation;
    QString command;
    QString arguments;
    QDateTime started;
    qint64 milliseconds = 0;
    bool ok = false;
    QString summary;
    QString error;
};

/*
 * The classify client and the thread it lives on. Every operation blocks
 * its caller for the whole exchange, so the client is created on a worker
 * thread and every call is posted there in order; the answer comes back to
 * the window's thread as a queued call of `done`. The client's signals
 * reach this object through queued connections: they are emitted while the
 * client holds its lock, and a slot that called back into the client on the
 * same thread would wait on itself.
 */
class Connection : public QObject
{
    Q_OBJECT

public:
    using Body = std::function<CallResult(ClassifyInterface &)>;
    using Done = std::function<void(const CallResult &)>;

    explicit Connection(QObject *parent = nullptr);
    ~Connection() override;

    // Loads the plugin (once) and queues the creation of a fresh client that
    // loads its transport from `transportDir`; a client made before is
    // released first. False with `error` when the plugin does not load.
    bool open(const QString &pluginFile, const QString &transportDir, QString *error);

    // Queues one call. `done` runs on this object's thread with the result,
    // unless `context` was given and has been destroyed meanwhile.
    // `arguments` is what the log shows: never put a password in it.
    void call(const QString &operation, const QString &arguments, Body body,
              QObject *context = nullptr, Done done = {});

    int pendingCalls() const { return pending.size(); }
    // How long the oldest unanswered call has been waiting (0 when idle).
    qint64 busyMilliseconds() const;
    QString busyOperation() const;

    // Ready-made results for the plugin's ways of failing.
    static CallResult fromBool(ClassifyInterface &client, bool ok, const QVariant &value = {},
                               const QString &summary = {});
    // Runs `read`. A list answer is a failure only when it is empty and the
    // error text changed during the call: the plugin keeps its last error
    // text, and an empty list is also a valid answer.
    static CallResult readList(ClassifyInterface &client, const std::function<QStringList()> &read);
    // "1 entry", "3 entries": how the log sums up a list answer.
    static QString countSummary(int count);

    // The client object itself, living on the worker thread; null before
    // open(). For connections by name and for the tests.
    QObject *clientObject() const { return clientHandle; }

Q_SIGNALS:
    void callFinished(const nuvexplorer::CallRecord &record);
    void serverRequest(const QString &request);
    void clientDisconnect();
    // No call is waiting any more.
    void idle();

private Q_SLOTS:
    void onServerRequest(const QString &request);
    void onClientDisconnect();
    // Runs, on this object's thread, what the worker handed back.
    void deliver();

private:
    struct Pending
    {
        CallRecord record;
        QElapsedTimer waited;
        QPointer<QObject> context;
        bool hasContext = false;
        Done done;
    };

    friend class CallRunner;
    using Task = std::function<void()>;

    void finish(quint64 id, const CallResult &result, qint64 milliseconds);
    // The two queues between the threads. The mutex, not Qt's event queue,
    // orders what crosses, so that ThreadSanitizer sees the order too.
    void toWorker(Task task, Qt::ConnectionType type = Qt::QueuedConnection);
    void toWindow(Task task);
    void runNext();

    QThread thread;
    CallRunner *worker = nullptr;
    nuv::Mutex queueLock;
    std::deque<Task> workerTasks NUV_GUARDED_BY(queueLock);
    std::deque<Task> windowTasks NUV_GUARDED_BY(queueLock);
    QPluginLoader loader;
    ClassifyInterface *root = nullptr;
    QString loadedFile;
    // Touched only on the worker thread.
    ClassifyInterface *client = nullptr;
    // Read on this thread, for connections and tests.
    QPointer<QObject> clientHandle;
    QMap<quint64, Pending> pending;
    quint64 nextId = 1;
};

} // namespace nuvexplorer

Q_DECLARE_METATYPE(nuvexplorer::CallRecord)

#endif // NUVEXPLORER_CONNECTION_H
