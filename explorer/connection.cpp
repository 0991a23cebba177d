// SPDX-License-Identifier: Apache-2.0
#include "connection.h"

#include "classifyinterface.h"
#include "commandwords.h"

namespace nuvexplorer {

// Lives on the worker thread; each queued runNext() runs one task.
class CallRunner : public QObject
{
    Q_OBJECT

public:
    explicit CallRunner(Connection *connection)
        : connection(connection)
    { }

public Q_SLOTS:
    void runNext() { connection->runNext(); }

private:
    Connection *connection;
};

Connection::Connection(QObject *parent)
    : QObject(parent)
    , worker(new CallRunner(this))
{
    qRegisterMetaType<nuvexplorer::CallRecord>();
    thread.setObjectName(QStringLiteral("nuvexplorer client"));
    worker->moveToThread(&thread);
    thread.start();
}

Connection::~Connection()
{
    // The client goes on the thread it lives on, after the calls queued
    // before; its destructor ends the session.
    toWorker(
        [this] {
            delete client;
            client = nullptr;
        },
        Qt::BlockingQueuedConnection);
    thread.quit();
    thread.wait();
    // The worker's last task ended with the queue's lock; taking it once
    // more orders all it did before what goes now.
    nuv::MutexLocker locked(&queueLock);
    delete worker;
}

bool Connection::open(const QString &pluginFile, const QString &transportDir, QString *error)
{
    if (!root || loadedFile != pluginFile) {
        root = nullptr;
        loader.setFileName(pluginFile);
        QObject *instance = loader.instance();
        if (!instance) {
            *error = tr("Cannot load the classify plugin %1: %2")
                         .arg(pluginFile, loader.errorString());
            return false;
        }
        root = qobject_cast<ClassifyInterface *>(instance);
        if (!root) {
            *error = tr("%1 is not a classify plugin.").arg(pluginFile);
            return false;
        }
        loadedFile = pluginFile;
    }
    ClassifyInterface *factory = root;
    toWorker([this, factory, transportDir] {
        delete client;
        client = factory->createInstance(transportDir);
        if (!client)
            return;
        toWindow([this, handle = QPointer<QObject>(client)] { clientHandle = handle; });
        // By name: the signals belong to the plugin's class, not to the
        // interface this program was built against.
        connect(client, SIGNAL(serverRequest(QString)), this, SLOT(onServerRequest(QString)),
                Qt::QueuedConnection);
        connect(client, SIGNAL(clientDisconnect()), this, SLOT(onClientDisconnect()),
                Qt::QueuedConnection);
    });
    return true;
}

void Connection::call(const QString &operation, const QString &arguments, Body body,
                      QObject *context, Done done)
{
    const quint64 id = nextId++;
    Pending &entry = pending[id];
    entry.record.id = id;
    entry.record.operation = operation;
    entry.record.command = commandWord(operation);
    entry.record.arguments = arguments;
    entry.record.started = QDateTime::currentDateTime();
    entry.waited.start();
    entry.context = context;
    entry.hasContext = context != nullptr;
    entry.done = std::move(done);

    toWorker([this, id, body = std::move(body)] {
        QElapsedTimer timer;
        timer.start();
        CallResult result;
        if (client)
            result = body(*client);
        else
            result.error = tr("The classify plugin made no client.");
        const qint64 milliseconds = timer.elapsed();
        toWindow([this, id, result, milliseconds] { finish(id, result, milliseconds); });
    });
}

void Connection::toWorker(Task task, Qt::ConnectionType type)
{
    {
        nuv::MutexLocker locked(&queueLock);
        workerTasks.push_back(std::move(task));
    }
    QMetaObject::invokeMethod(worker, "runNext", type);
}

void Connection::runNext()
{
    Task task;
    {
        nuv::MutexLocker locked(&queueLock);
        if (workerTasks.empty())
            return;
        task = std::move(workerTasks.front());
        workerTasks.pop_front();
    }
    task();
    // Taking the lock once more orders what the task did before whatever
    // the window's thread does after its next lock (the end, say).
    nuv::MutexLocker locked(&queueLock);
}

void Connection::toWindow(Task task)
{
    {
        nuv::MutexLocker locked(&queueLock);
        windowTasks.push_back(std::move(task));
    }
    QMetaObject::invokeMethod(this, "deliver", Qt::QueuedConnection);
}

void Connection::deliver()
{
    std::deque<Task> tasks;
    {
        nuv::MutexLocker locked(&queueLock);
        tasks.swap(windowTasks);
    }
    for (Task &task : tasks)
        task();
}

void Connection::finish(quint64 id, const CallResult &result, qint64 milliseconds)
{
    auto found = pending.find(id);
    if (found == pending.end())
        return;
    Pending entry = *found;
    pending.erase(found);
    entry.record.milliseconds = milliseconds;
    entry.record.ok = result.ok;
    entry.record.summary = result.summary;
    entry.record.error = result.error;
    emit callFinished(entry.record);
    if (entry.done && (!entry.hasContext || entry.context))
        entry.done(result);
    if (pending.isEmpty())
        emit idle();
}

qint64 Connection::busyMilliseconds() const
{
    return pending.isEmpty() ? 0 : pending.first().waited.elapsed();
}

QString Connection::busyOperation() const
{
    return pending.isEmpty() ? QString() : pending.first().record.operation;
}

CallResult Connection::fromBool(ClassifyInterface &client, bool ok, const QVariant &value,
                                const QString &summary)
{
    CallResult result;
    result.ok = ok;
    result.value = value;
    if (!ok)
        result.summary = QStringLiteral("false");
    else if (!summary.isEmpty())
        result.summary = summary;
    else if (value.userType() == QMetaType::QStringList)
        result.summary = countSummary(value.toStringList().size());
    else
        result.summary = QStringLiteral("true");
    if (!ok)
        result.error = client.errorString();
    return result;
}

CallResult Connection::readList(ClassifyInterface &client, const std::function<QStringList()> &read)
{
    const QString errorBefore = client.errorString();
    const QStringList list = read();
    CallResult result;
    const QString errorAfter = client.errorString();
    result.ok = !list.isEmpty() || errorAfter == errorBefore;
    result.value = list;
    result.summary = countSummary(list.size());
    if (!result.ok)
        result.error = errorAfter;
    return result;
}

QString Connection::countSummary(int count)
{
    return count == 1 ? tr("1 entry") : tr("%1 entries").arg(count);
}

void Connection::onServerRequest(const QString &request)
{
    emit serverRequest(request);
}

void Connection::onClientDisconnect()
{
    emit clientDisconnect();
}

} // namespace nuvexplorer

#include "connection.moc"
