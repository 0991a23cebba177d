// SPDX-License-Identifier: Apache-2.0
// The synchronous exchange and the common operation pattern built on it.

#include "nuvclassifyclient.h"
#include "nuvmqclientinterface.h"

#include <QThread>

namespace {

// What an exchange that got no answer gives back: the status every reply
// test fails on, with the reason as error text.
NuvKespClassifyBlock failedExchange(const QString &why)
{
    NuvKespClassifyBlock result;
    result.command = QLatin1String(nuvprotocol::status::error);
    result.errorText = why;
    return result;
}
} // namespace

QString NuvClassifyClient::insideExchangeText()
{
    return tr("A command was sent from within the transport's own call; it is refused so as "
              "not to wait on itself.");
}

bool NuvClassifyClient::refusedInsideExchange()
{
    if (exchangingThread.load() != QThread::currentThreadId())
        return false;
    setLastError(insideExchangeText());
    return true;
}

bool NuvClassifyClient::refusedUnderOwnLock()
{
    if (!nuv::OperationLocker::isHeldHere(lockHolder))
        return false;
    setLastError(tr("called from a slot connected directly to serverRequest while the client's "
                    "lock is held; connect with Qt::QueuedConnection"));
    return true;
}

NuvKespClassifyBlock NuvClassifyClient::sendSyncCommand(NuvKespClassifyBlock block, int timeout)
{
    // An operation called before any login has nothing to send through;
    // report it like any other transport failure instead of crashing.
    if (!mqClient)
        return failedExchange(tr("Not connected: call connectToNuvKESP() before any command."));
    const Qt::HANDLE self = QThread::currentThreadId();
    if (exchangingThread.load() == self)
        return failedExchange(insideExchangeText());

    NuvKespClassifyBlock result;
    {
        nuv::MutexLocker exchangeLocker(&exchangeLock);
        {
            nuv::MutexLocker stateLocker(&stateLock);
            requestMessage.setUpdateString(updateString);
            requestMessage.setCurrentArchive(currentArchive);
        }
        requestMessage.command = block.command;
        requestMessage.setDocId(block.docId);
        requestMessage.setUpdateRequested(block.updateRequested);
        requestMessage.setDataList(block.dataList);
        requestMessage.setAvailablePlugins(block.availablePlugins);
        requestMessage.setData(block.data);

        exchangingThread.store(self);
        const bool answered
            = mqClient->sendSyncMessage(&requestMessage, &replyMessage, nuvClassifyMessageKind,
                                        qint64(timeout), 0, QString(), nullptr);
        exchangingThread.store(nullptr);
        if (!answered)
            return failedExchange(mqClient->lastErrorText);
        result.command = replyMessage.command;
        result.docId = replyMessage.getDocId();
        result.updateString = replyMessage.getUpdateString();
        result.updateRequested = replyMessage.getUpdateRequested();
        result.dataList = replyMessage.getDataList();
        result.data = replyMessage.getData();
        result.availablePlugins = replyMessage.getAvailablePlugins();
        if (replyMessage.hasErrorText)
            result.errorText = replyMessage.errorText;
    }
    // Emitted outside the exchange lock, so that a slot connected directly
    // may run any operation that does not take the operation lock.
    if (result.updateRequested)
        emit serverRequest(QLatin1String(nuvprotocol::notice::reloadAll));
    nuv::MutexLocker stateLocker(&stateLock);
    updateString = result.updateString;
    return result;
}

bool NuvClassifyClient::exchange(const nuv::Command &command, NuvKespClassifyBlock request,
                                 NuvKespClassifyBlock &reply)
{
    request.command = command.word;
    reply = sendSyncCommand(std::move(request), command.timeoutSeconds);
    if (nuv::passes(command.test, reply.command))
        return true;
    if (command.recordsError)
        setLastError(reply.errorText);
    return false;
}

bool NuvClassifyClient::perform(const nuv::Command &command, NuvKespClassifyBlock request)
{
    return perform(command, std::move(request), false,
                   [](const NuvKespClassifyBlock &) { return true; });
}

QStringList NuvClassifyClient::performForList(const nuv::Command &command,
                                              NuvKespClassifyBlock request)
{
    return perform(command, std::move(request), QStringList(),
                   [](const NuvKespClassifyBlock &reply) { return reply.dataList; });
}
