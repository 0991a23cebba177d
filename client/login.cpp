// Connection, login and disconnection.

#include "nuvclassifyclient.h"
#include "nuvmqclientinterface.h"
#include "records.h"

bool NuvClassifyClient::connectToNuvKESP(QString host, int port, QString user, QString pass)
{
    return connectToNuvKESP(std::move(host), port, std::move(user), std::move(pass), QString());
}

bool NuvClassifyClient::connectToNuvKESP(QString host, int port, QString user, QString pass,
                                         QString loginExtra)
{
    nuv::MutexLocker locker(mutex);

    // Kept even when the login fails, so a host can show what was tried.
    username = user;
    password = pass;
    this->host = host;
    this->port = port;

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

    NuvKespClassifyBlock request;
    request.command = QStringLiteral("CFLOGIN");
    request.dataList = QStringList { user, pass, loginExtra };
    const NuvKespClassifyBlock reply = sendSyncCommand(request, 30);

    // Unlike the common pattern, any status that merely contains "ERROR"
    // refuses the login.
    if (!reply.command.contains(QLatin1String("ERROR"))) {
        if (!reply.data.isEmpty()
            && nuv::textFromBytes(reply.data.first()) != QLatin1String(clientVersion)) {
            const QString mismatch = tr("The server and client versions do not match. Please "
                                        "update server and client to the same version.");
            setLastError(mismatch);
            // Both take no operation lock, which is what makes this safe.
            closeSession();
            disconnectFromNuvKESP();
            // A server that also refuses to close the session must not hide
            // the reason the host has to act on.
            setLastError(mismatch);
            return false;
        }
        disconnected = false;
        userRoles = reply.dataList;
        fullUserName = reply.docId;
        // The first entry is not a plugin name.
        availablePlugins = reply.availablePlugins;
        if (!availablePlugins.isEmpty())
            availablePlugins.removeFirst();
        setLastError(QString());
        return true;
    }

    setLastError(reply.errorText);
    locker.unlock();
    // An expired password keeps the connection for changeExpiredPass().
    if (reply.errorText.startsWith(QLatin1String("Password expired"))
        || reply.errorText.startsWith(QLatin1String("Passwort abgelaufen")))
        return false;
    disconnectFromNuvKESP();
    return false;
}

void NuvClassifyClient::disconnectFromNuvKESP()
{
    if (mqClient)
        mqClient->disconnectFromBroker();
}
