// SPDX-License-Identifier: Apache-2.0
#ifndef CLASSIFYINTERFACE_H
#define CLASSIFYINTERFACE_H

#include "nuvinterfaceids.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QStringList>

/*
 * What a host application sees of the classify plugin.
 *
 * The host loads the plugin, casts its root object to this interface by the
 * identifier NUV_CLASSIFY_INTERFACE_IID and calls the operations below. Their
 * order is the binary interface between host and plugin: never reorder,
 * insert or remove one. Overloads keep their separate places.
 *
 * Failure is reported by the result (false, an empty list or string, -1)
 * together with errorString(); no exception crosses this interface.
 * The implementing object also emits clientDisconnect() and
 * serverRequest(QString); connect to them by name.
 */
class ClassifyInterface : public QObject
{
    Q_OBJECT

public:
    ~ClassifyInterface() override = default;

    virtual ClassifyInterface *createInstance(QString pluginPath) = 0; // 1
    virtual bool setUsers(QStringList users) = 0;
    virtual bool getUsers(QStringList &users) = 0;
    virtual bool delUsers(QStringList users, QString context) = 0;
    virtual bool changeUserPassAdmin(QString user, QString newPassword) = 0; // 5
    virtual bool changeUserPass(QString oldPassword, QString newPassword) = 0;
    virtual bool changeExpiredPass(QString user, QString oldPassword, QString newPassword,
                                   QString unused, int unusedNumber) = 0;
    virtual bool updateUsers(QStringList users) = 0;
    virtual QStringList getDocuments(QStringList documents) = 0;
    virtual bool connectToNuvKESP(QString host, int port, QString user, QString pass) = 0; // 10
    virtual bool connectToNuvKESP(QString host, int port, QString user, QString pass,
                                  QString loginExtra) = 0;
    virtual bool getSystemFolders(QStringList &folders, QList<QByteArray> &payloads,
                                  bool withEmpty) = 0;
    virtual bool setSystemFolders(QStringList folders, QList<QByteArray> payloads) = 0;
    virtual void disconnectFromNuvKESP() = 0;
    virtual QStringList getRoles() = 0; // 15
    virtual QStringList getRoleList() = 0;
    virtual QStringList getRoles(QString role) = 0;
    virtual bool setRoles(QStringList roles) = 0;
    virtual bool deleteRoles(QStringList roles) = 0;
    virtual QStringList getUserRoles(QString user) = 0; // 20
    virtual bool setUserRoles(QString user, QStringList roles) = 0;
    virtual QStringList getRoleUsers(QString role) = 0;
    virtual bool setRoleUsers(QString role, QStringList users) = 0;
    virtual QString getPluginInfo() = 0;
    virtual bool classify(QString &docId, QStringList values) = 0; // 25
    virtual bool classifyTemporary(QString &docId, QStringList values) = 0;
    virtual bool newClassify(qint64 documentNumber, QString first, QString second) = 0;
    virtual bool newClassifyTemp(qint64 documentNumber, QString first, QString second,
                                 int number) = 0;
    virtual int getClassifyTemp(qint64 &id, QStringList &values, QStringList &texts) = 0;
    virtual bool deleteClassifyTemp(qint64 id) = 0; // 30
    virtual bool getArchives(QStringList &archives) = 0;
    virtual QStringList getDocumentData(QString docId, QString selector) = 0;
    virtual bool getMandanten(QStringList &tenants, QList<QByteArray> &payloads) = 0;
    virtual qint64 getDocumentCount(QString query, bool withDeleted, bool ignoreArchive) = 0;
    virtual bool getStatusTypes(QStringList &records, QList<QByteArray> &payloads) = 0; // 35
    virtual bool getDocTypes(QStringList &records, QList<QByteArray> &payloads) = 0;
    virtual bool saveStatusTypes(QStringList records, QList<QByteArray> payloads) = 0;
    virtual bool saveDocTypes(QStringList records, QList<QByteArray> payloads) = 0;
    virtual qint64 getClassifyCount(QString query, bool withoutHistory) = 0;
    virtual QStringList getBemerkungen() = 0; // 40
    virtual QString getLastError() = 0;
    virtual bool setDocUsersAndRoles(QString docId, QString first, QStringList entries) = 0;
    virtual bool getDocUsersAndRoles(QString docId, QStringList &entries) = 0;
    virtual bool saveFolderStructure(QString structureKey, QStringList folders,
                                     QList<QByteArray> payloads) = 0;
    virtual bool getFolderStructure(QString structureKey, QStringList &folders,
                                    QList<QByteArray> &payloads) = 0; // 45
    virtual QStringList getClassificationFields(bool flag) = 0;
    virtual QStringList getUserRoles() = 0;
    virtual bool getDocHistory(QString docId, QStringList &history) = 0;
    virtual void checkUpdate() = 0;
    virtual bool insertMandant(QString first, QString second, QByteArray payload) = 0; // 50
    virtual bool setCurrentArchive(QString archive) = 0;
    virtual QString getUsername() = 0;
    virtual bool closeSession() = 0;
    virtual QString getHost() = 0;
    virtual int getPort() = 0; // 55
    virtual bool getNextOid(QString &oid) = 0;
    virtual bool addExtentedSearch(QString first, QString second, QStringList entries) = 0;
    virtual bool deleteExtentedSearch(QString search) = 0;
    virtual QStringList getExtentedSearch(QStringList entries) = 0;
    virtual bool updateExtentedSearch(int search, QString first, QString second,
                                      QStringList entries) = 0; // 60
    virtual QStringList getFolderRoles(QString folder) = 0;
    virtual bool setFolderRoles(QString folder, QStringList roles) = 0;
    virtual bool saveTempDocRollen(QString docId, QStringList entries) = 0;
    virtual QString getMainFolder(QString folder) = 0;
    virtual QString getFullUserName() = 0; // 65
    virtual bool deleteDynAttribute(int attribute) = 0;
    virtual bool addDynAttribute(QString first, QString second, bool flag) = 0;
    virtual QStringList listDynAttributes() = 0;
    virtual bool modifyWerteListe(int list, QStringList values) = 0;
    virtual QStringList getWerteListe(int list) = 0; // 70
    virtual bool modifyDynattribute(QStringList values) = 0;
    virtual bool multipleClassify(QString &docId, QStringList values) = 0;
    virtual bool newClassify(qint64 documentNumber, QString first, QString second,
                             QString folder) = 0;
    virtual bool moveDocumentsToTrash(QStringList documents) = 0;
    virtual bool removeDocumentsFromTrash(QStringList documents) = 0; // 75
    virtual bool getUserRole(QString &role) = 0;
    virtual void updateLastModified() = 0;
    virtual void setLastModified() = 0;
    virtual QString errorString() = 0;
    virtual QStringList getAvailablePlugins() = 0; // 80
    virtual bool newFolder(QString first, QString second, QString third, QString fourth) = 0;
    virtual bool saveUserData(const QString &key1, const QString &key2, const QByteArray &first,
                              QByteArray second, bool flag) = 0;
    virtual bool deleteUserData(const QString &key1, const QString &key2) = 0;
    virtual bool loadUserData(const QString &key, QList<QString> &names,
                              QList<QByteArray> &firsts, QList<QByteArray> &seconds) = 0;
    virtual bool loadUserData(const QString &key1, const QString &key2, QByteArray &first,
                              QByteArray &second) = 0; // 85
    virtual bool moveDocToArchive(qint64 documentNumber, int archive) = 0;
    virtual bool getIndexerInfos(QStringList &infos) = 0;
    virtual bool recreateIndex() = 0;
    virtual QStringList getMinMaxDate() = 0;
    virtual QStringList getScanInputProcessList() = 0; // 90
    virtual QList<QByteArray> getScanInputProcessImage(const QString &process) = 0;
    virtual bool doLdapCommand(const QString &command, const QList<QByteArray> &arguments,
                               QList<QByteArray> &answerData, QList<QString> &answerStrings,
                               QString &errorText) = 0;
    virtual bool doWebCommand(const QString &command, const QList<QByteArray> &arguments,
                              QList<QByteArray> &answerData, QList<QString> &answerStrings,
                              QString &errorText) = 0;
    virtual qint64 getProfileId() = 0;
    virtual void setProfileId(qint64 profileId) = 0; // 95
    virtual QString getCfId() = 0;
    virtual QString getServerVersion() = 0;
    virtual QString getCurrentArchive() = 0;
    virtual QString getPass() = 0;
    virtual bool addLinkedDocuments(const QString &docId, const QStringList &linked) = 0; // 100
    virtual bool removeLinkedDocuments(const QString &docId, const QStringList &linked) = 0;
    virtual QStringList readLinkedDocuments(const QString &docId) = 0;
    virtual QString addClipboard(const QString &name) = 0;
    virtual bool removeClipboard(const QString &clipboard) = 0;
    virtual bool renameClipboard(const QString &clipboard, const QString &newName) = 0; // 105
    virtual bool readClipboards(QList<QPair<QString, QString>> &clipboards) = 0;
    virtual bool readClipboardCards(const QString &clipboard, QList<QString> &cards,
                                    QList<QString> &texts) = 0;
    virtual bool addClipboardCard(const QString &clipboard, const QString &card,
                                  const QString &cardData) = 0;
    virtual bool removeClipboardCard(const QString &clipboard, const QString &card) = 0;
    virtual bool clearClipboardCards(const QString &clipboard) = 0; // 110
    virtual bool updateClibpoardCard(const QString &clipboard, const QString &card,
                                     const QString &cardData) = 0;
    virtual QStringList readClipboardRoles(const QString &clipboard) = 0;
    virtual bool writeClipboardRoles(const QString &clipboard, const QStringList &roles) = 0;
    virtual bool testMail(const QString &address) = 0;
    virtual bool loadRemoteFS(const QString &location, QStringList &entries) = 0; // 115
    virtual bool checkFS(const QString &location) = 0;
    virtual bool doBackup() = 0;
    virtual bool updateBackupConfig() = 0;
    virtual QStringList getDeadLines(QStringList selection) = 0;
    virtual QStringList getDeadLineForDocId(QString docId) = 0; // 120
    virtual bool saveDeadLines(QStringList deadLines) = 0;
    virtual QString addShare(const QString &first, const QStringList &entries, const QString &third,
                             const QDateTime &expiry, int number) = 0;
    virtual QStringList getShares() = 0;
    virtual bool deleteShare(const QString &share) = 0;
    virtual QString getAuthToken() = 0; // 125
    virtual QStringList getChatUsers() = 0;
    virtual QStringList getRoleRoles(QString role) = 0; // 127
};

Q_DECLARE_INTERFACE(ClassifyInterface, NUV_CLASSIFY_INTERFACE_IID)

#endif // CLASSIFYINTERFACE_H
