// SPDX-License-Identifier: Apache-2.0
// Connection, login and disconnection.

#include "commandblocks.h"
#include "nuvclassifyclient.h"
#include "nuvmqclientinterface.h"

bool NuvClassifyClient::connectToNuvKESP(QString host, int port, QString user, QString pass)
{
    return connectToNuvKESP(std::move(host), port, std::move(user), std::move(pass), QString());
}

bool NuvClassifyClient::connectToNuvKESP(QString host, int port, QString user, QString pass,
                                         QString loginExtra)
{
    if (refusedInsideExchange() || refusedUnderOwnLock())
        return false;
    nuv::OperationLocker locker(&operationLock, lockHolder);

    {
        // Kept even when the login fails, so a host can show what was tried.
        nuv::MutexLocker state(&stateLock);
        username = user;
        password = pass;
        this->host = host;
        this->port = port;
    }

    QString loadError;
    if (!loadMQPlugin(loadError)) {
        setLastError(QStringLiteral("Das nuvMQPlugin konnte nicht geladen werden! ") + loadError);
        return false;
    }
    if (!mqClient->connectToBroker(host, qint64(port))) {
        setLastError(mqClient->lastErrorText);
        return false;
    }
    mqClient->setUserName(user);

    // Unlike the common pattern, any status that merely contains "ERROR"
    // refuses the login.
    NuvKespClassifyBlock reply;
    if (exchange(nuv::Command(nuvprotocol::words::login).testedBy(nuv::ReplyTest::ErrorContained),
                 nuv::listFields({ user, pass, loginExtra }), reply)) {
        if (!reply.data.isEmpty()
            && nuv::textFromBytes(reply.data.first())
                != QLatin1String(nuvprotocol::clientVersion)) {
            // Both take no operation lock, which is what makes this safe.
            closeSession();
            disconnectFromNuvKESP();
            // Set after the close, whose own failure must not hide the
            // reason the host has to act on.
            setLastError(tr("The server and client versions do not match. Please update server "
                            "and client to the same version."));
            return false;
        }
        {
            nuv::MutexLocker state(&stateLock);
            disconnected = false;
            userRoles = reply.dataList;
            fullUserName = reply.docId;
            // The first entry is not a plugin name.
            availablePlugins = reply.availablePlugins;
            if (!availablePlugins.isEmpty())
                availablePlugins.removeFirst();
        }
        setLastError(QString());
        return true;
    }

    locker.unlock();
    // An expired password keeps the connection for changeExpiredPass().
    if (nuvprotocol::isExpiredPasswordText(reply.errorText))
        return false;
    disconnectFromNuvKESP();
    return false;
}

void NuvClassifyClient::disconnectFromNuvKESP()
{
    if (mqClient)
        mqClient->disconnectFromBroker();
}
