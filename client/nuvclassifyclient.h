// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLASSIFYCLIENT_H
#define NUVCLASSIFYCLIENT_H

#include "classifyinterface.h"
#include "command.h"
#include "nuvkespclassifyblock.h"
#include "nuvmqclassifymessage.h"
#include "operationlocker.h"

#include <atomic>

class nuvMQClientInterface;

/**
 * \brief The classify plugin's one class: a session with the document server.
 *
 * It implements ClassifyInterface, whose documentation describes every
 * operation, and offers setRoleRoles() and getRevisionen() beside it through
 * its meta-object.
 *
 * Every command operation is one synchronous exchange through the loaded
 * message-queue transport, run by perform(): take the operation lock unless
 * the command says otherwise, send, judge the reply's status word, record the
 * error text on failure, pick the result. The operations in the command group
 * files state only what differs.
 */
class NuvClassifyClient : public ClassifyInterface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID NUV_CLASSIFY_INTERFACE_IID FILE "nuvclassifyclient.json")
    Q_INTERFACES(ClassifyInterface)

public:
    explicit NuvClassifyClient(QString pluginPath = QString());
    ~NuvClassifyClient() override;

    ClassifyInterface *createInstance(QString pluginPath) override;
    bool setUsers(QStringList users) override;
    bool getUsers(QStringList &users) override;
    bool delUsers(QStringList users, QString context) override;
    bool changeUserPassAdmin(QString user, QString newPassword) override;
    bool changeUserPass(QString oldPassword, QString newPassword) override;
    bool changeExpiredPass(QString user, QString oldPassword, QString newPassword, QString unused,
                           int unusedNumber) override;
    bool updateUsers(QStringList users) override;
    QStringList getDocuments(QStringList documents) override;
    bool connectToNuvKESP(QString host, int port, QString user, QString pass) override;
    bool connectToNuvKESP(QString host, int port, QString user, QString pass,
                          QString loginExtra) override;
    bool getSystemFolders(QStringList &folders, QList<QByteArray> &payloads,
                          bool withEmpty) override;
    bool setSystemFolders(QStringList folders, QList<QByteArray> payloads) override;
    void disconnectFromNuvKESP() override;
    QStringList getRoles() override;
    QStringList getRoleList() override;
    QStringList getRoles(QString role) override;
    bool setRoles(QStringList roles) override;
    bool deleteRoles(QStringList roles) override;
    QStringList getUserRoles(QString user) override;
    bool setUserRoles(QString user, QStringList roles) override;
    QStringList getRoleUsers(QString role) override;
    bool setRoleUsers(QString role, QStringList users) override;
    QString getPluginInfo() override;
    bool classify(QString &docId, QStringList values) override;
    bool classifyTemporary(QString &docId, QStringList values) override;
    bool newClassify(qint64 documentNumber, QString first, QString second) override;
    bool newClassifyTemp(qint64 documentNumber, QString first, QString second, int number) override;
    int getClassifyTemp(qint64 &id, QStringList &values, QStringList &texts) override;
    bool deleteClassifyTemp(qint64 id) override;
    bool getArchives(QStringList &archives) override;
    QStringList getDocumentData(QString docId, QString selector) override;
    bool getMandanten(QStringList &tenants, QList<QByteArray> &payloads) override;
    qint64 getDocumentCount(QString query, bool withDeleted, bool ignoreArchive) override;
    bool getStatusTypes(QStringList &records, QList<QByteArray> &payloads) override;
    bool getDocTypes(QStringList &records, QList<QByteArray> &payloads) override;
    bool saveStatusTypes(QStringList records, QList<QByteArray> payloads) override;
    bool saveDocTypes(QStringList records, QList<QByteArray> payloads) override;
    qint64 getClassifyCount(QString query, bool withoutHistory) override;
    QStringList getBemerkungen() override;
    QString getLastError() override;
    bool setDocUsersAndRoles(QString docId, QString first, QStringList entries) override;
    bool getDocUsersAndRoles(QString docId, QStringList &entries) override;
    bool saveFolderStructure(QString structureKey, QStringList folders,
                             QList<QByteArray> payloads) override;
    bool getFolderStructure(QString structureKey, QStringList &folders,
                            QList<QByteArray> &payloads) override;
    QStringList getClassificationFields(bool flag) override;
    QStringList getUserRoles() override;
    bool getDocHistory(QString docId, QStringList &history) override;
    void checkUpdate() override;
    bool insertMandant(QString first, QString second, QByteArray payload) override;
    bool setCurrentArchive(QString archive) override;
    QString getUsername() override;
    bool closeSession() override;
    QString getHost() override;
    int getPort() override;
    bool getNextOid(QString &oid) override;
    bool addExtentedSearch(QString first, QString second, QStringList entries) override;
    bool deleteExtentedSearch(QString search) override;
    QStringList getExtentedSearch(QStringList entries) override;
    bool updateExtentedSearch(int search, QString first, QString second,
                              QStringList entries) override;
    QStringList getFolderRoles(QString folder) override;
    bool setFolderRoles(QString folder, QStringList roles) override;
    bool saveTempDocRollen(QString docId, QStringList entries) override;
    QString getMainFolder(QString folder) override;
    QString getFullUserName() override;
    bool deleteDynAttribute(int attribute) override;
    bool addDynAttribute(QString first, QString second, bool flag) override;
    QStringList listDynAttributes() override;
    bool modifyWerteListe(int list, QStringList values) override;
    QStringList getWerteListe(int list) override;
    bool modifyDynattribute(QStringList values) override;
    bool multipleClassify(QString &docId, QStringList values) override;
    bool newClassify(qint64 documentNumber, QString first, QString second, QString folder) override;
    bool moveDocumentsToTrash(QStringList documents) override;
    bool removeDocumentsFromTrash(QStringList documents) override;
    bool getUserRole(QString &role) override;
    void updateLastModified() override;
    void setLastModified() override;
    QString errorString() override;
    QStringList getAvailablePlugins() override;
    bool newFolder(QString first, QString second, QString third, QString fourth) override;
    bool saveUserData(const QString &key1, const QString &key2, const QByteArray &first,
                      QByteArray second, bool flag) override;
    bool deleteUserData(const QString &key1, const QString &key2) override;
    bool loadUserData(const QString &key, QList<QString> &names, QList<QByteArray> &firsts,
                      QList<QByteArray> &seconds) override;
    bool loadUserData(const QString &key1, const QString &key2, QByteArray &first,
                      QByteArray &second) override;
    bool moveDocToArchive(qint64 documentNumber, int archive) override;
    bool getIndexerInfos(QStringList &infos) override;
    bool recreateIndex() override;
    QStringList getMinMaxDate() override;
    QStringList getScanInputProcessList() override;
    QList<QByteArray> getScanInputProcessImage(const QString &process) override;
    bool doLdapCommand(const QString &command, const QList<QByteArray> &arguments,
                       QList<QByteArray> &answerData, QList<QString> &answerStrings,
                       QString &errorText) override;
    bool doWebCommand(const QString &command, const QList<QByteArray> &arguments,
                      QList<QByteArray> &answerData, QList<QString> &answerStrings,
                      QString &errorText) override;
    qint64 getProfileId() override;
    void setProfileId(qint64 profileId) override;
    QString getCfId() override;
    QString getServerVersion() override;
    QString getCurrentArchive() override;
    QString getPass() override;
    bool addLinkedDocuments(const QString &docId, const QStringList &linked) override;
    bool removeLinkedDocuments(const QString &docId, const QStringList &linked) override;
    QStringList readLinkedDocuments(const QString &docId) override;
    QString addClipboard(const QString &name) override;
    bool removeClipboard(const QString &clipboard) override;
    bool renameClipboard(const QString &clipboard, const QString &newName) override;
    bool readClipboards(QList<QPair<QString, QString>> &clipboards) override;
    bool readClipboardCards(const QString &clipboard, QList<QString> &cards,
                            QList<QString> &texts) override;
    bool addClipboardCard(const QString &clipboard, const QString &card,
                          const QString &cardData) override;
    bool removeClipboardCard(const QString &clipboard, const QString &card) override;
    bool clearClipboardCards(const QString &clipboard) override;
    bool updateClibpoardCard(const QString &clipboard, const QString &card,
                             const QString &cardData) override;
    QStringList readClipboardRoles(const QString &clipboard) override;
    bool writeClipboardRoles(const QString &clipboard, const QStringList &roles) override;
    bool testMail(const QString &address) override;
    bool loadRemoteFS(const QString &location, QStringList &entries) override;
    bool checkFS(const QString &location) override;
    bool doBackup() override;
    bool updateBackupConfig() override;
    QStringList getDeadLines(QStringList selection) override;
    QStringList getDeadLineForDocId(QString docId) override;
    bool saveDeadLines(QStringList deadLines) override;
    QString addShare(const QString &first, const QStringList &entries, const QString &third,
                     const QDateTime &expiry, int number) override;
    QStringList getShares() override;
    bool deleteShare(const QString &share) override;
    QString getAuthToken() override;
    QStringList getChatUsers() override;
    QStringList getRoleRoles(QString role) override;

    // Not part of ClassifyInterface; hosts reach them through the
    // meta-object (QMetaObject::invokeMethod) or by linking the client.
    /**
     * Sets the member roles of a role, the same request as setRoleUsers():
     * the server has one command for both. Sends "CFDOCSETROLEUSERS"; takes
     * the operation lock; sets the last error on failure.
     * \param role the role's name
     * \param roles its members
     * \return true on success, false on failure
     */
    Q_INVOKABLE bool setRoleRoles(QString role, QStringList roles);
    /**
     * Lists the revisions of a document. Sends "CFDOCREV"; takes the
     * operation lock; sets the last error on failure.
     * \param docId the document
     * \return the revision records; an empty list on failure
     */
    Q_INVOKABLE QStringList getRevisionen(QString docId);

    // Loads the message-queue plugin once per object and creates the
    // transport; on a load failure `error` says why.
    bool loadMQPlugin(QString &error);
    // The one road by which a command reaches the server. A transport
    // failure comes back as a block whose command is "ERROR".
    NuvKespClassifyBlock sendSyncCommand(NuvKespClassifyBlock block, int timeout);

Q_SIGNALS:
    /**
     * The transport lost its connection to the broker. It may be reported
     * from inside an operation's exchange; an operation called from a slot
     * connected directly is refused there.
     */
    void clientDisconnect();
    /**
     * The server asks the host to act: "DORELOADALL" when a reply asks for a
     * reload, "SYSUPDATE" after insertMandant() created a tenant, and each
     * request that checkUpdate() collects. Emitted on the calling thread while
     * the operation lock is held: connect with Qt::QueuedConnection to call
     * operations that take the lock; from a slot connected directly they are
     * refused.
     * \param request what the server asks for
     */
    void serverRequest(QString request);

public Q_SLOTS:
    void emitDisconnected();

private:
    // The common operation pattern: lock as the command says, exchange, test
    // the status word, record the error text on failure and return `failure`,
    // or return what `onSuccess` makes of the reply (still under the lock).
    template<typename Result, typename OnSuccess>
    Result perform(const nuv::Command &command, NuvKespClassifyBlock request, Result failure,
                   OnSuccess onSuccess)
    {
        if (refusedInsideExchange() || (command.locked && refusedUnderOwnLock()))
            return failure;
        nuv::OperationLocker locker(command.locked ? &operationLock : nullptr, lockHolder);
        NuvKespClassifyBlock reply;
        if (!exchange(command, std::move(request), reply))
            return failure;
        return onSuccess(reply);
    }
    // For commands whose only result is success or failure.
    bool perform(const nuv::Command &command, NuvKespClassifyBlock request = {});
    // For commands whose result is the reply's string list.
    QStringList performForList(const nuv::Command &command, NuvKespClassifyBlock request = {});
    // True, with the last error set, when the calling thread is inside the
    // transport's own call (a slot connected directly to one of its
    // signals): an operation from there would wait on the exchange under
    // way, or on the operation lock that exchange holds, for ever.
    bool refusedInsideExchange();
    static QString insideExchangeText();
    // True, with the last error set, when the calling thread already holds
    // the operation lock: it is inside a slot connected directly to
    // serverRequest, which locking operations emit under the lock. Taking the
    // lock again there would wait on this very thread for ever.
    bool refusedUnderOwnLock();
    // Send, test and record; no locking. True when the reply passed.
    bool exchange(const nuv::Command &command, NuvKespClassifyBlock request,
                  NuvKespClassifyBlock &reply);

    // Shared by the pass-through commands, which hand every outcome to the
    // caller's out-parameters instead of the last error.
    bool passThrough(const nuv::Command &command, const QString &innerCommand,
                     const QList<QByteArray> &arguments, QList<QByteArray> &answerData,
                     QList<QString> &answerStrings, QString &errorText);
    // Shared by the folder readers: replace `folders` and `payloads` from a
    // reply whose keys pair with its byte arrays.
    static void assembleFolders(const NuvKespClassifyBlock &reply, QStringList &folders,
                                QList<QByteArray> &payloads);

    void setLastError(const QString &text);

    // The operation lock: whole operations that need the session to stay as
    // it is (login, the commands marked locked) run one at a time under it.
    nuv::Mutex operationLock;
    // Two short locks, never held while a signal is emitted.
    // `exchangeLock` keeps the shared request and reply messages consistent
    // while a transport call is under way, so that the operations that skip
    // the operation lock cannot interleave on them. `stateLock` guards the
    // session members, which operations write and the accessors read from
    // any thread, for the few instructions a copy takes.
    nuv::Mutex exchangeLock;
    mutable nuv::Mutex stateLock;

    std::atomic<qint64> profileId { 0 };
    nuvMQClientInterface *mqClient = nullptr;
    nuvMQClassifyMessage requestMessage NUV_GUARDED_BY(exchangeLock);
    nuvMQClassifyMessage replyMessage NUV_GUARDED_BY(exchangeLock);
    QString lastError NUV_GUARDED_BY(stateLock);
    QStringList availablePlugins NUV_GUARDED_BY(stateLock);
    bool disconnected NUV_GUARDED_BY(stateLock) = false;
    QStringList userRoles NUV_GUARDED_BY(stateLock);
    QString username NUV_GUARDED_BY(stateLock);
    QString password NUV_GUARDED_BY(stateLock);
    QString host NUV_GUARDED_BY(stateLock);
    int port NUV_GUARDED_BY(stateLock) = 0;
    QString fullUserName NUV_GUARDED_BY(stateLock);
    QString pluginPath;
    QString currentArchive NUV_GUARDED_BY(stateLock);
    QString updateString NUV_GUARDED_BY(stateLock);
    QString cfId NUV_GUARDED_BY(stateLock);
    // The thread inside a transport call, if any. The transport may reach
    // the client from within that call (connectionLost delivered directly);
    // an exchange started from there would wait on `exchangeLock` for ever.
    std::atomic<Qt::HANDLE> exchangingThread { nullptr };
    // The thread holding `operationLock`, if any; kept by nuv::OperationLocker.
    std::atomic<Qt::HANDLE> lockHolder { nullptr };
};

#endif // NUVCLASSIFYCLIENT_H
