// SPDX-License-Identifier: Apache-2.0
#include "nuvclassifyclient.h"

#include "nuvmqclientinterface.h"

NuvClassifyClient::NuvClassifyClient(QString pluginPath)
    : pluginPath(std::move(pluginPath))
{ }

NuvClassifyClient::~NuvClassifyClient()
{
    disconnectFromNuvKESP();
    delete mqClient;
    mqClient = nullptr;
}

ClassifyInterface *NuvClassifyClient::createInstance(QString pluginPath)
{
    auto *client = new NuvClassifyClient(std::move(pluginPath));
    client->setProfileId(profileId);
    return client;
}

void NuvClassifyClient::emitDisconnected()
{
    {
        nuv::MutexLocker locker(&stateLock);
        disconnected = true;
    }
    emit clientDisconnect();
}

void NuvClassifyClient::setLastError(const QString &text)
{
    nuv::MutexLocker locker(&stateLock);
    lastError = text;
}

// Accessors: none takes the operation lock or talks to the server.

void NuvClassifyClient::setProfileId(qint64 id)
{
    profileId = id;
}

qint64 NuvClassifyClient::getProfileId()
{
    return profileId;
}

QString NuvClassifyClient::getAuthToken()
{
    // Asking before the first login has no transport to ask; an empty token
    // says as much without dereferencing nothing.
    return mqClient ? mqClient->getAuthToken() : QString();
}

QString NuvClassifyClient::getPluginInfo()
{
    return QStringLiteral("The classify plugin!");
}

QString NuvClassifyClient::errorString()
{
    nuv::MutexLocker locker(&stateLock);
    return lastError;
}

QString NuvClassifyClient::getLastError()
{
    return errorString();
}

QString NuvClassifyClient::getCurrentArchive()
{
    nuv::MutexLocker locker(&stateLock);
    return currentArchive;
}

QString NuvClassifyClient::getUsername()
{
    nuv::MutexLocker locker(&stateLock);
    return username;
}

QString NuvClassifyClient::getPass()
{
    nuv::MutexLocker locker(&stateLock);
    return password;
}

QString NuvClassifyClient::getHost()
{
    nuv::MutexLocker locker(&stateLock);
    return host;
}

int NuvClassifyClient::getPort()
{
    nuv::MutexLocker locker(&stateLock);
    return port;
}

QString NuvClassifyClient::getFullUserName()
{
    nuv::MutexLocker locker(&stateLock);
    return fullUserName;
}

QString NuvClassifyClient::getCfId()
{
    nuv::MutexLocker locker(&stateLock);
    return cfId;
}

QStringList NuvClassifyClient::getUserRoles()
{
    nuv::MutexLocker locker(&stateLock);
    return userRoles;
}

QStringList NuvClassifyClient::getAvailablePlugins()
{
    nuv::MutexLocker locker(&stateLock);
    return availablePlugins;
}
