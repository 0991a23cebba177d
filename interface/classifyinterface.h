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

/**
 * \file classifyinterface.h
 * What a host application sees of the classify plugin: ClassifyInterface.
 */

/**
 * \brief The operations of the classify plugin, as a host calls them.
 *
 * The host loads the plugin with QPluginLoader, casts its root object to
 * this interface by the identifier NUV_CLASSIFY_INTERFACE_IID, and either
 * uses that object or calls createInstance() for an independent client per
 * session. connectToNuvKESP() must succeed before any command operation.
 *
 * The order of the operations below is the binary interface between host
 * and plugin: never reorder, insert or remove one. Overloads keep their
 * separate places.
 *
 * \par Blocking calls
 * Every command operation sends one command word ("CFDOCCLASSIFY", ...) to
 * the server through the message-queue transport and blocks the calling
 * thread until the answer arrives or the exchange times out (30 seconds,
 * 180 for doWebCommand()). The plugin starts no threads of its own.
 *
 * \par The operation lock
 * Each client object has one non-recursive lock that serialises its command
 * operations; an operation that "takes the operation lock" holds it for its
 * whole exchange, and other threads wait for it. Fifteen operations take no
 * lock: getServerVersion(), getScanInputProcessList(),
 * getScanInputProcessImage(), getShares(), addShare(), deleteShare(),
 * updateLastModified(), setLastModified(), closeSession(),
 * moveDocumentsToTrash(), removeDocumentsFromTrash(), getRoleList(),
 * getUserRole(), doLdapCommand() and changeExpiredPass(); the accessors of
 * the session state take none either.
 *
 * \par Signals
 * The implementing object emits clientDisconnect() when the transport loses
 * its connection, and serverRequest(QString) when the server asks the host to
 * act: "DORELOADALL" whenever a reply asks for a reload, "SYSUPDATE" after
 * insertMandant() created a tenant, and each pending request that
 * checkUpdate() collects. Connect to them by name. serverRequest is emitted
 * on the calling thread while the operation lock is still held, so connect it
 * with Qt::QueuedConnection if the slot calls back into the client. A slot
 * connected directly that calls an operation which takes the lock is refused
 * at once: that call returns its failure value and sets the last error, even
 * where the operation's own failures leave it unchanged, to "called from a
 * slot connected directly to serverRequest while the client's lock is held;
 * connect with Qt::QueuedConnection". Operations that take no lock still run
 * from such a slot. Calls made from inside the transport's own call (a slot
 * connected directly to clientDisconnect while an exchange is under way) are
 * refused the same way.
 *
 * \par The last error
 * Failure is reported by the result (false, an empty list or string, -1 or
 * 0, as each operation says) together with the last error, read with
 * errorString() or getLastError(). A failing operation sets it to the
 * server's or the transport's error text unless its documentation says it
 * does not; a successful one leaves it as it was. Only a successful login
 * clears it. No exception crosses this interface.
 *
 * Out-parameters are replaced on success and left untouched on failure,
 * unless an operation says it appends to them or fills them in both cases.
 */
class ClassifyInterface : public QObject
{
    Q_OBJECT

public:
    ~ClassifyInterface() override = default;

    /**
     * Creates an independent client that loads its transport from pluginPath.
     * Sends nothing; takes no lock; does not touch the last error. The new
     * client starts with this one's profile id and no session.
     * \param pluginPath directory of the message-queue plugin; empty for the
     *        application's directory
     * \return the new client, owned by the caller
     */
    virtual ClassifyInterface *createInstance(QString pluginPath) = 0; // 1
    /**
     * Creates users. Sends "CFDOCSETUSERS" with docId "0"; takes the
     * operation lock; sets the last error on failure.
     * \param users one user record per entry, as the server formats them
     * \return true on success, false on failure
     */
    virtual bool setUsers(QStringList users) = 0;
    /**
     * Reads the user records. Sends "CFDOCGETUSERS" with docId "0" and the
     * given list, which the server takes as a filter; takes the operation
     * lock; sets the last error on failure.
     * \param users in: the logins to read (empty: all); out: the user
     *        records on success, untouched on failure
     * \return true on success, false on failure
     */
    virtual bool getUsers(QStringList &users) = 0;
    /**
     * Deletes users. Sends "CFDOCDELETEUSERS"; takes the operation lock; sets
     * the last error on failure.
     * \param users the logins to delete
     * \param successor sent in docId: the user who takes over their documents
     *        (empty: nobody)
     * \return true on success, false on failure
     */
    virtual bool delUsers(QStringList users, QString successor) = 0;
    /**
     * Sets another user's password, as an administrator. Sends
     * "CFDOCCHANGEUSERPASSADMIN"; takes the operation lock; sets the last
     * error on failure.
     * \param user the login whose password is set
     * \param newPassword the new password
     * \return true on success, false on failure
     */
    virtual bool changeUserPassAdmin(QString user, QString newPassword) = 0; // 5
    /**
     * Changes the logged-in user's password. Sends "CFDOCCHANGEUSERPASS";
     * takes the operation lock; sets the last error on failure.
     * \param oldPassword the current password
     * \param newPassword the new password
     * \return true on success, false on failure
     */
    virtual bool changeUserPass(QString oldPassword, QString newPassword) = 0;
    /**
     * Changes an expired password on the connection whose login reported
     * it. Sends "CFDOCCHANGEEXPIREDPASS"; takes no lock; any status word that
     * contains "ERROR" is a failure and sets the last error.
     * \param user the login
     * \param oldPassword the expired password
     * \param newPassword the new password
     * \param unused ignored
     * \param unusedNumber ignored
     * \return true on success, false on failure
     */
    virtual bool changeExpiredPass(QString user, QString oldPassword, QString newPassword,
                                   QString unused, int unusedNumber)
        = 0;
    /**
     * Updates existing users. Sends "CFDOCUPDATEUSERS"; takes the operation
     * lock; sets the last error on failure.
     * \param users one user record per entry
     * \return true on success, false on failure
     */
    virtual bool updateUsers(QStringList users) = 0;
    /**
     * Describes documents. Sends "CFDOCSINFO" with docId "0"; takes the
     * operation lock; sets the last error on failure.
     * \param documents document numbers, or conditions, one per entry
     * \return one document record per document; an empty list on failure
     */
    virtual QStringList getDocuments(QStringList documents) = 0;
    /**
     * Logs in, with an empty extra login value. Same as the five-argument
     * form: Sends "CFLOGIN"; takes the operation lock; sets the last error on
     * failure and clears it on success.
     * \param host the broker's host (embedded transport: the database file)
     * \param port the broker's port
     * \param user the login
     * \param pass the password
     * \return true when logged in, false on failure
     */
    virtual bool connectToNuvKESP(QString host, int port, QString user, QString pass) = 0; // 10
    /**
     * Logs in. Loads the transport plugin on the first call, connects to the
     * broker and Sends "CFLOGIN"; takes the operation lock. On success the
     * session holds the user's roles, full name and plugins and the last
     * error is cleared; on failure the last error is set and the connection
     * is dropped, except after an expired password, when it is kept for
     * changeExpiredPass(). A server of another version is refused.
     * \param host the broker's host (embedded transport: the database file)
     * \param port the broker's port
     * \param user the login
     * \param pass the password
     * \param loginExtra passed to the server as it is
     * \return true when logged in, false on failure
     */
    virtual bool connectToNuvKESP(QString host, int port, QString user, QString pass,
                                  QString loginExtra)
        = 0;
    /**
     * Reads the system folders with their byte arrays. Sends
     * "CFDOCSYSFOLDERS"; takes the operation lock; sets the last error on
     * failure.
     * \param folders out: the folder records on success
     * \param payloads out: one byte array per folder, in the same order
     * \param withEmpty whether empty folders are included
     * \return true on success, false on failure (both lists untouched)
     */
    virtual bool getSystemFolders(QStringList &folders, QList<QByteArray> &payloads, bool withEmpty)
        = 0;
    /**
     * Writes the system folders with their byte arrays. Sends
     * "CFDOCSETSYSFOLDERS"; takes the operation lock; sets the last error on
     * failure.
     * \param folders the folder records
     * \param payloads their byte arrays, by position
     * \return true on success, false on failure
     */
    virtual bool setSystemFolders(QStringList folders, QList<QByteArray> payloads) = 0;
    /**
     * Tells the transport to disconnect from the broker; a later login
     * connects again. Sends nothing; takes no lock; does not touch the last
     * error or the session.
     */
    virtual void disconnectFromNuvKESP() = 0;
    /**
     * Lists the role names. Sends "CFROLES"; takes the operation lock; sets
     * the last error on failure.
     * \return the role names; an empty list on failure
     */
    virtual QStringList getRoles() = 0; // 15
    /**
     * Lists the roles with their information. Sends "CFSENDROLESINFO"; takes
     * no lock; sets the last error on failure.
     * \return one record per role; an empty list on failure
     */
    virtual QStringList getRoleList() = 0;
    /**
     * Lists the roles a role belongs to, directly or not. Sends
     * "CFPARENTROLES"; takes the operation lock; sets the last error on
     * failure.
     * \param role the role's name
     * \return its parent roles; an empty list on failure
     */
    virtual QStringList getRoles(QString role) = 0;
    /**
     * Creates or updates roles. Sends "CFDOCSETROLES"; takes the operation
     * lock; sets the last error on failure.
     * \param roles one role record per entry
     * \return true on success, false on failure
     */
    virtual bool setRoles(QStringList roles) = 0;
    /**
     * Deletes roles. Sends "CFDELETEROLES"; takes the operation lock; sets
     * the last error on failure.
     * \param roles the role names
     * \return true on success, false on failure
     */
    virtual bool deleteRoles(QStringList roles) = 0;
    /**
     * Lists the roles given to a user. Sends "CFDOCGETUSERROLES"; takes the
     * operation lock; sets the last error on failure.
     * \param user the login
     * \return the user's roles; an empty list on failure
     */
    virtual QStringList getUserRoles(QString user) = 0; // 20
    /**
     * Sets a user's roles. Sends "CFDOCSETUSERROLES"; takes the operation
     * lock; sets the last error on failure.
     * \param user the login
     * \param roles the user's roles, replacing the old ones
     * \return true on success, false on failure
     */
    virtual bool setUserRoles(QString user, QStringList roles) = 0;
    /**
     * Lists the users of a role. Sends "CFDOCGETROLEUSERS"; takes the
     * operation lock; sets the last error on failure.
     * \param role the role's name
     * \return its member users; an empty list on failure
     */
    virtual QStringList getRoleUsers(QString role) = 0;
    /**
     * Sets the members of a role. Sends "CFDOCSETROLEUSERS"; takes the
     * operation lock; sets the last error on failure.
     * \param role the role's name
     * \param users its members
     * \return true on success, false on failure
     */
    virtual bool setRoleUsers(QString role, QStringList users) = 0;
    /**
     * The plugin's description, "The classify plugin!". Sends nothing;
     * takes no lock; does not touch the last error.
     * \return the description
     */
    virtual QString getPluginInfo() = 0;
    /**
     * Classifies a document: stores its field values. Sends "CFDOCCLASSIFY";
     * takes the operation lock; sets the last error on failure.
     * \param docId in: the document (empty: a new one); out: the document
     *        the server names, on success only
     * \param values the value entries
     * \return true on success, false on failure
     */
    virtual bool classify(QString &docId, QStringList values) = 0; // 25
    /**
     * Stores a temporary classification. Sends "CFDOCCLASSIFYTEMP"; takes
     * the operation lock; sets the last error on failure.
     * \param docId in: the temporary classification (empty or 0: a new one);
     *        out: its number, on success only
     * \param values the value entries
     * \return true on success, false on failure
     */
    virtual bool classifyTemporary(QString &docId, QStringList values) = 0;
    /**
     * Creates a document for an object id. Sends "CFDOCNEWCLASSIFY"; takes
     * the operation lock; sets the last error on failure.
     * \param objectId the object id, from getNextOid()
     * \param documentType the document type
     * \param title the title
     * \return true on success, false on failure
     */
    virtual bool newClassify(qint64 objectId, QString documentType, QString title) = 0;
    /**
     * Creates a document with the help of a temporary classification. Sends
     * "CFDOCCLASSIFYWITHTEMP"; takes the operation lock; sets the last error
     * on failure.
     * \param objectId the document's object id
     * \param documentType the document type
     * \param title the title
     * \param temporaryId the temporary classification's number
     * \return true on success, false on failure
     */
    virtual bool newClassifyTemp(qint64 objectId, QString documentType, QString title,
                                 int temporaryId)
        = 0;
    /**
     * Reads a temporary classification. Sends "CFDOCGETCLASSIFYTEMP"; takes
     * the operation lock; a failure leaves the last
     * error unchanged.
     * \param id in: its number (0: the caller's oldest); out: the number read
     * \param values in: the fields to return (empty: all); out: its value
     *        entries
     * \param texts out: the texts of the reply's byte arrays are appended
     * \return 0 on failure (nothing changed); on success 1, or the number the
     *         server puts first
     */
    virtual int getClassifyTemp(qint64 &id, QStringList &values, QStringList &texts) = 0;
    /**
     * Deletes a temporary classification. Sends "CFDOCDELETECLASSIFYTEMP";
     * takes the operation lock; sets the last error on failure.
     * \param id its number
     * \return true on success, false on failure
     */
    virtual bool deleteClassifyTemp(qint64 id) = 0; // 30
    /**
     * Lists the archives. Sends "CFDOCGETARCHIVES"; takes the operation lock;
     * sets the last error on failure.
     * \param archives out: the archive names on success, untouched on failure
     * \return true on success, false on failure
     */
    virtual bool getArchives(QStringList &archives) = 0;
    /**
     * Reads a document's data rows. Sends "CFDOCINFO"; takes the operation
     * lock; sets the last error on failure.
     * \param docId the document
     * \param selector which data the server returns
     * \return the rows; an empty list on failure
     */
    virtual QStringList getDocumentData(QString docId, QString selector) = 0;
    /**
     * Lists the tenants with one byte array each. Sends "CFDOCGETMANDANTEN";
     * takes the operation lock; sets the last error on failure.
     * \param tenants out: the tenant records on success
     * \param payloads out: one byte array per tenant is appended, in the
     *        order of the records
     * \return true on success, false on failure (both lists untouched)
     */
    virtual bool getMandanten(QStringList &tenants, QList<QByteArray> &payloads) = 0;
    /**
     * Counts the documents matching a query. Sends "CFDOCGETCOUNT"; takes the
     * operation lock; sets the last error on failure.
     * \param query the server's query text
     * \param withDeleted false to leave deleted documents out
     * \param ignoreArchive true to count in every archive
     * \return the count; -1 on failure
     */
    virtual qint64 getDocumentCount(QString query, bool withDeleted, bool ignoreArchive) = 0;
    /**
     * Lists the status types with their byte arrays. Sends "CFSTATTYPES";
     * takes the operation lock; sets the last error on failure.
     * \param records out: the status-type records on success
     * \param payloads out: the byte arrays on success
     * \return true on success, false on failure (both lists untouched)
     */
    virtual bool getStatusTypes(QStringList &records, QList<QByteArray> &payloads) = 0; // 35
    /**
     * Lists the document types with their byte arrays. Sends
     * "CFGETDOCTYPES"; takes the operation lock; sets the last error on
     * failure.
     * \param records out: the document-type records on success
     * \param payloads out: the byte arrays on success
     * \return true on success, false on failure (both lists untouched)
     */
    virtual bool getDocTypes(QStringList &records, QList<QByteArray> &payloads) = 0;
    /**
     * Replaces the status types. Sends "CFSAVESTATI"; takes the operation
     * lock; sets the last error on failure.
     * \param records the status-type records
     * \param payloads their byte arrays, by position
     * \return true on success, false on failure
     */
    virtual bool saveStatusTypes(QStringList records, QList<QByteArray> payloads) = 0;
    /**
     * Replaces the document types. Sends "CFSAVEDOCTYPES"; takes the
     * operation lock; sets the last error on failure.
     * \param records the document-type records
     * \param payloads their byte arrays, by position
     * \return true on success, false on failure
     */
    virtual bool saveDocTypes(QStringList records, QList<QByteArray> payloads) = 0;
    /**
     * Counts the classifications matching a query. Sends "CFCLASSCOUNT";
     * takes the operation lock; sets the last error on failure.
     * \param query the server's query text
     * \param withoutHistory true to leave the history out
     * \return the count; -1 on failure
     */
    virtual qint64 getClassifyCount(QString query, bool withoutHistory) = 0;
    /**
     * Lists the remarks of the readable documents. Sends "CFBEMERK"; takes
     * the operation lock; sets the last error on failure.
     * \return the remarks; an empty list on failure
     */
    virtual QStringList getBemerkungen() = 0; // 40
    /**
     * The text of the last failure, the same as errorString(). Sends
     * nothing; takes no lock; reads the last error.
     * \return the last error
     */
    virtual QString getLastError() = 0;
    /**
     * Sets who may see a document. Sends "CFSETDOCUSERS"; takes the
     * operation lock; sets the last error on failure.
     * \param docId the document
     * \param mode sent before the entries: "SET" (or empty) replaces them,
     *        "ADD" adds or changes
     * \param entries the rights entries
     * \return true on success, false on failure
     */
    virtual bool setDocUsersAndRoles(QString docId, QString mode, QStringList entries) = 0;
    /**
     * Reads who may see a document. Sends "CFGETDOCUSERS"; takes the
     * operation lock; sets the last error on failure.
     * \param docId the document
     * \param entries out: the rights entries on success, untouched on failure
     * \return true on success, false on failure
     */
    virtual bool getDocUsersAndRoles(QString docId, QStringList &entries) = 0;
    /**
     * Replaces a folder structure. Sends "CFSAVEMANS"; takes the operation
     * lock; sets the last error on failure.
     * \param structureKey the structure
     * \param folders the folder records
     * \param payloads their byte arrays, by position
     * \return true on success, false on failure
     */
    virtual bool saveFolderStructure(QString structureKey, QStringList folders,
                                     QList<QByteArray> payloads)
        = 0;
    /**
     * Reads a folder structure with one byte array per folder. Sends
     * "CFGETMANS"; takes the operation lock; sets the last error on failure.
     * \param structureKey the structure
     * \param folders out: the folder records on success
     * \param payloads out: one byte array per folder on success
     * \return true on success, false on failure (both lists untouched)
     */
    virtual bool getFolderStructure(QString structureKey, QStringList &folders,
                                    QList<QByteArray> &payloads)
        = 0; // 45
    /**
     * Lists the classification fields. Sends "CFCLASSIFYFIELDS"; takes the
     * operation lock; sets the last error on failure.
     * \param withBuiltIn true for the built-in fields too, false for the
     *        attributes only
     * \return the field records; an empty list on failure
     */
    virtual QStringList getClassificationFields(bool withBuiltIn) = 0;
    /**
     * The logged-in user's roles, as the login reported them. Sends nothing;
     * takes no lock; does not touch the last error.
     * \return the roles
     */
    virtual QStringList getUserRoles() = 0;
    /**
     * Reads a document's history. Sends "CFDOCHIST"; takes the operation
     * lock; sets the last error on failure.
     * \param docId the document
     * \param history out: the history entries on success, untouched on
     *        failure
     * \return true on success, false on failure
     */
    virtual bool getDocHistory(QString docId, QStringList &history) = 0;
    /**
     * Polls for pending server requests. Sends "CFUPDATES"; takes the
     * operation lock and emits serverRequest once per pending request while
     * it holds it; sets the last error on failure.
     */
    virtual void checkUpdate() = 0;
    /**
     * Creates a tenant, and emits serverRequest("SYSUPDATE") on success while
     * it holds the lock. Sends "CFNEWMANDANT"; takes the operation lock; sets
     * the last error on failure.
     * \param name the tenant's name
     * \param description its description
     * \param payload its byte array
     * \return true on success, false on failure
     */
    virtual bool insertMandant(QString name, QString description, QByteArray payload) = 0; // 50
    /**
     * Selects the archive that every later command addresses. Sends
     * "CFSELARCHIVE"; takes the operation lock; sets the last error on
     * failure, when the current archive stays as it was.
     * \param archive the archive's name or number
     * \return true on success, false on failure
     */
    virtual bool setCurrentArchive(QString archive) = 0;
    /**
     * The login given to the last login attempt. Sends nothing; takes no
     * lock; does not touch the last error.
     * \return the login
     */
    virtual QString getUsername() = 0;
    /**
     * Closes the server session. Sends "CFCLOSESESSION"; takes no lock; only
     * "OK" is success, anything else sets the last error.
     * \return true on success, false on failure
     */
    virtual bool closeSession() = 0;
    /**
     * The host given to the last login attempt. Sends nothing; takes no
     * lock; does not touch the last error.
     * \return the host
     */
    virtual QString getHost() = 0;
    /**
     * The port given to the last login attempt. Sends nothing; takes no
     * lock; does not touch the last error.
     * \return the port, 0 before any login
     */
    virtual int getPort() = 0; // 55
    /**
     * Asks for a new object id. Sends "CFGETNEXTOID"; takes the operation
     * lock; sets the last error on failure.
     * \param oid in: sent as it is; out: the new object id, on success only
     * \return true on success, false on failure
     */
    virtual bool getNextOid(QString &oid) = 0;
    /**
     * Stores an extended search. Sends "CFEXTSEARCHADD" with the parts joined
     * by U+FEFF; takes the operation lock; sets the last error on failure.
     * \param name the search's name
     * \param description its description
     * \param conditions its conditions
     * \return true on success, false on failure
     */
    virtual bool addExtentedSearch(QString name, QString description, QStringList conditions) = 0;
    /**
     * Deletes an extended search. Sends "CFEXTSEARCHDEL"; takes the operation
     * lock; sets the last error on failure.
     * \param search the search's name or number
     * \return true on success, false on failure
     */
    virtual bool deleteExtentedSearch(QString search) = 0;
    /**
     * Finds extended searches. Sends "CFEXTSEARCHFIN" with the entries joined
     * by U+FEFF; takes the operation lock; sets the last error on failure.
     * \param searches names or numbers of searches (empty: all)
     * \return the search records; an empty list on failure
     */
    virtual QStringList getExtentedSearch(QStringList searches) = 0;
    /**
     * Updates an extended search. Sends "CFEXTSEARCHUPD" with the parts
     * joined by U+FEFF; takes the operation lock; sets the last error on
     * failure.
     * \param search the search's number
     * \param name its name
     * \param description its description
     * \param conditions its conditions
     * \return true on success, false on failure
     */
    virtual bool updateExtentedSearch(int search, QString name, QString description,
                                      QStringList conditions)
        = 0; // 60
    /**
     * Lists the users and roles that may see a folder. Sends "CFGETFOLDROLE";
     * takes the operation lock; sets the last error on failure.
     * \param folder the folder's key
     * \return the users and roles; an empty list on failure
     */
    virtual QStringList getFolderRoles(QString folder) = 0;
    /**
     * Sets the users and roles that may see a folder. Sends "CFSETFOLDROLE";
     * takes the operation lock; sets the last error on failure.
     * \param folder the folder's key
     * \param roles the users and roles (empty: no restriction)
     * \return true on success, false on failure
     */
    virtual bool setFolderRoles(QString folder, QStringList roles) = 0;
    /**
     * Attaches rights entries to a temporary classification; they become the
     * document's rights when it is applied. Sends "CFDOCTEMPUSERS"; takes the
     * operation lock; sets the last error on failure.
     * \param docId the temporary classification
     * \param entries the rights entries
     * \return true on success, false on failure
     */
    virtual bool saveTempDocRollen(QString docId, QStringList entries) = 0;
    /**
     * The topmost folder above a folder. Sends "CFMAINFOLDER"; takes the
     * operation lock; a failure leaves the last error unchanged, since the
     * reply is not tested.
     * \param folder the folder's key
     * \return the main folder's key; empty after a failed exchange
     */
    virtual QString getMainFolder(QString folder) = 0;
    /**
     * The logged-in user's full name, from the login. Sends nothing; takes no
     * lock; does not touch the last error.
     * \return the full name
     */
    virtual QString getFullUserName() = 0; // 65
    /**
     * Deletes a dynamic attribute. Sends "CFDELDYNATT"; takes the operation
     * lock; only "OK" is success; a failure leaves the last
     * error unchanged.
     * \param attribute the attribute's number
     * \return true on success, false on failure
     */
    virtual bool deleteDynAttribute(int attribute) = 0;
    /**
     * Adds a dynamic attribute. Sends "CFADDDYNATT"; takes the operation
     * lock; only "OK" is success; a failure leaves the last
     * error unchanged.
     * \param name the attribute's name
     * \param label its label
     * \param mandatory whether a value is required, sent as "true" or "false"
     * \return true on success, false on failure
     */
    virtual bool addDynAttribute(QString name, QString label, bool mandatory) = 0;
    /**
     * Lists the dynamic attributes. Sends "CFLSTDYNATT"; takes the operation
     * lock; only "OK" is success; a failure leaves the last
     * error unchanged.
     * \return the attribute records; an empty list on failure, which only
     *         the empty result tells
     */
    virtual QStringList listDynAttributes() = 0;
    /**
     * Replaces the value list of a dynamic attribute. Sends "CFMODWERTE";
     * takes the operation lock; only "OK" is success, anything else sets the
     * last error.
     * \param attribute the attribute's number
     * \param values the values (empty: any value)
     * \return true on success, false on failure
     */
    virtual bool modifyWerteListe(int attribute, QStringList values) = 0;
    /**
     * Reads the value list of a dynamic attribute. Sends "CFLSTWERTE"; takes
     * the operation lock; only "OK" is success, anything else sets the last
     * error.
     * \param attribute the attribute's number
     * \return the values; an empty list on failure
     */
    virtual QStringList getWerteListe(int attribute) = 0; // 70
    /**
     * Changes dynamic attributes. Sends "CFMODDYNATT"; takes the operation
     * lock; only "OK" is success, anything else sets the last error.
     * \param records one attribute record per entry
     * \return true on success, false on failure
     */
    virtual bool modifyDynattribute(QStringList records) = 0;
    /**
     * Classifies several documents at once. Sends "CFDOCMULTICLASSIFY";
     * takes the operation lock; sets the last error on failure.
     * \param docId in: the documents, joined by U+FEFF; out: the documents
     *        the server names, on success only
     * \param values the value entries
     * \return true on success, false on failure
     */
    virtual bool multipleClassify(QString &docId, QStringList values) = 0;
    /**
     * Creates a document for an object id in a folder. Sends
     * "CFDOCNEWCLASSIFYWITHFOLDER"; takes the operation lock; sets the last
     * error on failure.
     * \param objectId the object id, from getNextOid()
     * \param documentType the document type
     * \param title the title
     * \param folder the folder's key
     * \return true on success, false on failure
     */
    virtual bool newClassify(qint64 objectId, QString documentType, QString title, QString folder)
        = 0;
    /**
     * Moves documents to the trash. Sends "CFDOCSTOTRASH"; takes no lock;
     * sets the last error on failure.
     * \param documents the documents
     * \return true on success, false on failure
     */
    virtual bool moveDocumentsToTrash(QStringList documents) = 0;
    /**
     * Restores documents from the trash. Sends "CFDOCSFROMTRASH"; takes no
     * lock; sets the last error on failure.
     * \param documents the documents
     * \return true on success, false on failure
     */
    virtual bool removeDocumentsFromTrash(QStringList documents) = 0; // 75
    /**
     * Reads the logged-in user's private role. Sends "CFSENDUSERPRIVATEROLE";
     * takes no lock; sets the last error on failure.
     * \param role out: the role on success, untouched on failure
     * \return true on success, false on failure
     */
    virtual bool getUserRole(QString &role) = 0;
    /**
     * Asks the server for its last-modified mark and discards the answer.
     * Sends "CFLASTUPDATE"; takes no lock; never sets the last error.
     */
    virtual void updateLastModified() = 0;
    /**
     * Moves the server's last-modified mark on, so that other sessions
     * reload. Sends "CFSETLASTMODIFIED"; takes no lock; never sets the last
     * error.
     */
    virtual void setLastModified() = 0;
    /**
     * The text of the last failure. Sends nothing; takes no lock; reads the
     * last error.
     * \return the last error
     */
    virtual QString errorString() = 0;
    /**
     * The plugins the server granted at login. Sends nothing; takes no lock;
     * does not touch the last error.
     * \return the plugin names
     */
    virtual QStringList getAvailablePlugins() = 0; // 80
    /**
     * Creates a folder. Sends "CFNEWFOLDER"; takes the operation lock; only
     * "OK" is success, anything else sets the last error.
     * \param structureKey the folder structure
     * \param parentKey the parent folder's key
     * \param name the folder's name
     * \param key the new folder's key (empty: the server makes one)
     * \return true on success, false on failure
     */
    virtual bool newFolder(QString structureKey, QString parentKey, QString name, QString key) = 0;
    /**
     * Stores an item of per-user data. Sends "CFSAVEUSERDATA" with the byte
     * arrays in the order second, first; takes the operation lock; sets the
     * last error on failure.
     * \param key1 the item's first key
     * \param key2 the item's second key
     * \param first the first byte array
     * \param second the second byte array
     * \param isPublic whether other users may load the item, sent as "1" or
     *        "0"
     * \return true on success, false on failure
     */
    virtual bool saveUserData(const QString &key1, const QString &key2, const QByteArray &first,
                              QByteArray second, bool isPublic)
        = 0;
    /**
     * Deletes an item of per-user data. Sends "CFDELUSERDATA"; takes the
     * operation lock; sets the last error on failure.
     * \param key1 the item's first key
     * \param key2 the item's second key
     * \return true on success, false on failure
     */
    virtual bool deleteUserData(const QString &key1, const QString &key2) = 0;
    /**
     * Loads every item of per-user data under one key. Sends
     * "CFLOADUSERDATA"; takes the operation lock; sets the last error on
     * failure, when no list is touched.
     * \param key the items' first key
     * \param names out: the items' second keys are appended
     * \param firsts out: replaced by the items' first byte arrays
     * \param seconds in: sent to the server; out: replaced by the items'
     *        second byte arrays
     * \return true on success, false on failure
     */
    virtual bool loadUserData(const QString &key, QList<QString> &names, QList<QByteArray> &firsts,
                              QList<QByteArray> &seconds)
        = 0;
    /**
     * Loads one item of per-user data. Sends "CFLOADUSERDATA"; takes the
     * operation lock; sets the last error on failure.
     * \param key1 the item's first key
     * \param key2 the item's second key
     * \param first out: the first byte array, on success only
     * \param second in: sent to the server; out: the second byte array, on
     *        success only
     * \return true on success, false on failure
     */
    virtual bool loadUserData(const QString &key1, const QString &key2, QByteArray &first,
                              QByteArray &second)
        = 0; // 85
    /**
     * Moves a document into another archive. Sends "CFDOCSTOARCHIVE"; takes
     * the operation lock; sets the last error on failure.
     * \param documentNumber the document
     * \param archive the target archive's number
     * \return true on success, false on failure
     */
    virtual bool moveDocToArchive(qint64 documentNumber, int archive) = 0;
    /**
     * Reads the full-text index information. Sends "CFGETINDEXINFOS"; takes
     * the operation lock; sets the last error on failure.
     * \param infos out: the information entries on success, untouched on
     *        failure
     * \return true on success, false on failure
     */
    virtual bool getIndexerInfos(QStringList &infos) = 0;
    /**
     * Rebuilds the full-text index. Sends "CFRECREATEINDEX"; takes the
     * operation lock; sets the last error on failure.
     * \return true on success, false on failure
     */
    virtual bool recreateIndex() = 0;
    /**
     * The earliest and latest document dates. Sends "CFMINMAXDATE"; takes
     * the operation lock; sets the last error on failure.
     * \return the two dates (empty when no document has one); an empty list
     *         on failure
     */
    virtual QStringList getMinMaxDate() = 0;
    /**
     * Lists the scan-input processes. Sends "CFGETSCANINPUTLIST"; takes no
     * lock; sets the last error on failure.
     * \return the process names; an empty list on failure
     */
    virtual QStringList getScanInputProcessList() = 0; // 90
    /**
     * Reads the images of a scan-input process. Sends "CFGETSCANINPUTIMAGE";
     * takes no lock; sets the last error on failure.
     * \param process the process's name
     * \return the images' contents; an empty list on failure
     */
    virtual QList<QByteArray> getScanInputProcessImage(const QString &process) = 0;
    /**
     * Passes a directory (LDAP) command to the server. Sends
     * "CFLDAPCOMMAND"; takes no lock; never sets the last error: the inner
     * command's error goes to errorText.
     * \param command the inner command
     * \param arguments its byte-array arguments
     * \param answerData out: the answer's byte arrays, in both outcomes
     * \param answerStrings out: the answer's strings, in both outcomes
     * \param errorText out: the error text on failure, empty on success
     * \return true on success, false on failure
     */
    virtual bool doLdapCommand(const QString &command, const QList<QByteArray> &arguments,
                               QList<QByteArray> &answerData, QList<QString> &answerStrings,
                               QString &errorText)
        = 0;
    /**
     * Passes a web command to the server, waiting up to 180 seconds. Sends
     * "CFWEBCOMMAND"; takes the operation lock; a failure leaves the last
     * error unchanged: the inner command's error goes to errorText. A call
     * refused under the lock leaves the out-parameters as they were.
     * \param command the inner command
     * \param arguments its byte-array arguments
     * \param answerData out: the answer's byte arrays, in both outcomes
     * \param answerStrings out: the answer's strings, in both outcomes
     * \param errorText out: the error text on failure, empty on success
     * \return true on success, false on failure
     */
    virtual bool doWebCommand(const QString &command, const QList<QByteArray> &arguments,
                              QList<QByteArray> &answerData, QList<QString> &answerStrings,
                              QString &errorText)
        = 0;
    /**
     * The host's profile number. Sends nothing; takes no lock; does not touch
     * the last error.
     * \return the profile number
     */
    virtual qint64 getProfileId() = 0;
    /**
     * Sets the host's profile number; it is not sent to the server. Sends
     * nothing; takes no lock; does not touch the last error.
     * \param profileId the profile number
     */
    virtual void setProfileId(qint64 profileId) = 0; // 95
    /**
     * The client's configuration id, which this client never fills. Sends
     * nothing; takes no lock; does not touch the last error.
     * \return an empty string
     */
    virtual QString getCfId() = 0;
    /**
     * The server's version. Sends "CFSERVERVERSION"; takes no lock; sets the
     * last error on failure.
     * \return the version; an empty string on failure
     */
    virtual QString getServerVersion() = 0;
    /**
     * The archive that every command addresses. Sends nothing; takes no lock;
     * does not touch the last error.
     * \return the current archive
     */
    virtual QString getCurrentArchive() = 0;
    /**
     * The password given to the last login attempt. Sends nothing; takes no
     * lock; does not touch the last error.
     * \return the password
     */
    virtual QString getPass() = 0;
    /**
     * Links documents to a document, both ways. Sends "CFADDLINKEDDOC";
     * takes the operation lock; sets the last error on failure.
     * \param docId the document
     * \param linked the documents to link
     * \return true on success, false on failure
     */
    virtual bool addLinkedDocuments(const QString &docId, const QStringList &linked) = 0; // 100
    /**
     * Removes links from a document. Sends "CFREMOVELINKEDDOC"; takes the
     * operation lock; sets the last error on failure.
     * \param docId the document
     * \param linked the documents to unlink
     * \return true on success, false on failure
     */
    virtual bool removeLinkedDocuments(const QString &docId, const QStringList &linked) = 0;
    /**
     * Lists the documents linked to a document. Sends "CFREADLINKEDDOC";
     * takes the operation lock; sets the last error on failure.
     * \param docId the document
     * \return the linked documents; an empty list on failure
     */
    virtual QStringList readLinkedDocuments(const QString &docId) = 0;
    /**
     * Creates a clipboard. Sends "CFADDCLIPBOARD"; takes the operation lock;
     * sets the last error on failure.
     * \param name the clipboard's name
     * \return the new clipboard's key; a null string on failure
     */
    virtual QString addClipboard(const QString &name) = 0;
    /**
     * Removes a clipboard. Sends "CFREMOVECLIPBOARD"; takes the operation
     * lock; sets the last error on failure.
     * \param clipboard the clipboard's key
     * \return true on success, false on failure
     */
    virtual bool removeClipboard(const QString &clipboard) = 0;
    /**
     * Renames a clipboard. Sends "CFRENAMECLIPBOARD"; takes the operation
     * lock; sets the last error on failure.
     * \param clipboard the clipboard's key
     * \param newName the new name
     * \return true on success, false on failure
     */
    virtual bool renameClipboard(const QString &clipboard, const QString &newName) = 0; // 105
    /**
     * Lists the own and shared clipboards. Sends "CFREADCLIPBOARDS"; takes
     * the operation lock; sets the last error on failure.
     * \param clipboards out: one (key, name) pair per clipboard is appended
     * \return true on success, false on failure (the list untouched)
     */
    virtual bool readClipboards(QList<QPair<QString, QString>> &clipboards) = 0;
    /**
     * Lists the cards of a clipboard. Sends "CFCREADCCARDS"; takes the
     * operation lock; sets the last error on failure.
     * \param clipboard the clipboard's key
     * \param cards out: replaced by the cards
     * \param texts out: the cards' data are appended
     * \return true on success, false on failure (both lists untouched)
     */
    virtual bool readClipboardCards(const QString &clipboard, QList<QString> &cards,
                                    QList<QString> &texts)
        = 0;
    /**
     * Adds a card to a clipboard. Sends "CFCADDCARD" with the card and its
     * data joined by U+FEFF; takes the operation lock; sets the last error on
     * failure.
     * \param clipboard the clipboard's key
     * \param card the card
     * \param cardData the card's data
     * \return true on success, false on failure
     */
    virtual bool addClipboardCard(const QString &clipboard, const QString &card,
                                  const QString &cardData)
        = 0;
    /**
     * Removes a card from a clipboard. Sends "CFCREMOVECARD"; takes the
     * operation lock; sets the last error on failure.
     * \param clipboard the clipboard's key
     * \param card the card
     * \return true on success, false on failure
     */
    virtual bool removeClipboardCard(const QString &clipboard, const QString &card) = 0;
    /**
     * Removes every card from a clipboard. Sends "CFCCLEARCARDS"; takes the
     * operation lock; sets the last error on failure.
     * \param clipboard the clipboard's key
     * \return true on success, false on failure
     */
    virtual bool clearClipboardCards(const QString &clipboard) = 0; // 110
    /**
     * Changes a card's data. Sends "CFCUPDATECARD"; takes the operation lock;
     * sets the last error on failure.
     * \param clipboard the clipboard's key
     * \param card the card
     * \param cardData the card's new data
     * \return true on success, false on failure
     */
    virtual bool updateClibpoardCard(const QString &clipboard, const QString &card,
                                     const QString &cardData)
        = 0;
    /**
     * Lists the users and roles a clipboard is shared with. Sends
     * "CFRCBROLES"; takes the operation lock; sets the last error on failure.
     * \param clipboard the clipboard's key
     * \return the users and roles; an empty list on failure
     */
    virtual QStringList readClipboardRoles(const QString &clipboard) = 0;
    /**
     * Sets the users and roles a clipboard is shared with. Sends
     * "CFWCBROLES"; takes the operation lock; sets the last error on failure.
     * \param clipboard the clipboard's key
     * \param roles the users and roles
     * \return true on success, false on failure
     */
    virtual bool writeClipboardRoles(const QString &clipboard, const QStringList &roles) = 0;
    /**
     * Has the server send a test mail. Sends "CFTESTMAIL"; takes the
     * operation lock; sets the last error on failure.
     * \param address the recipient
     * \return true on success, false on failure
     */
    virtual bool testMail(const QString &address) = 0;
    /**
     * Lists a directory of the server's file system. Sends "CFFSLIST"; takes
     * the operation lock; sets the last error on failure.
     * \param location the directory
     * \param entries out: the entries are appended on success
     * \return true on success, false on failure (the list untouched)
     */
    virtual bool loadRemoteFS(const QString &location, QStringList &entries) = 0; // 115
    /**
     * Checks a location of the server's file system. Sends "CFFSCHECK"; takes
     * the operation lock; sets the last error on failure.
     * \param location the location
     * \return true on success, false on failure
     */
    virtual bool checkFS(const QString &location) = 0;
    /**
     * Starts a backup. Sends "CFDOBACKUP"; takes the operation lock; sets the
     * last error on failure.
     * \return true on success, false on failure
     */
    virtual bool doBackup() = 0;
    /**
     * Has the server reread its backup configuration. Sends "CFBACKUPUPDATE";
     * takes the operation lock; sets the last error on failure.
     * \return true on success, false on failure
     */
    virtual bool updateBackupConfig() = 0;
    /**
     * Reads the deadlines a selection names. Sends "CFSENDDEADLINES"; takes
     * the operation lock; only "OK" is success, anything else sets the last
     * error.
     * \param selection conditions on deadline fields (empty: all)
     * \return the deadline records; an empty list on failure
     */
    virtual QStringList getDeadLines(QStringList selection) = 0;
    /**
     * Reads the deadlines of a document. Sends "CFSENDDEADLINEFORDOCID";
     * takes the operation lock; only "OK" is success, anything else sets the
     * last error.
     * \param docId the document
     * \return the deadline records; an empty list on failure
     */
    virtual QStringList getDeadLineForDocId(QString docId) = 0; // 120
    /**
     * Saves deadlines. Sends "CFSAVEDEADLINES"; takes the operation lock;
     * only "OK" is success, anything else sets the last error.
     * \param deadLines the deadline records
     * \return true on success, false on failure
     */
    virtual bool saveDeadLines(QStringList deadLines) = 0;
    /**
     * Shares documents until a date. Sends "CFADDSHARE" with the scalars as
     * UTF-8 byte arrays; takes no lock; only "OK" is success, anything else
     * sets the last error.
     * \param title the share's title
     * \param documents the documents
     * \param recipient who the share is for
     * \param expiry when it ends, sent as "yyyy-MM-dd hh:mm:ss"
     * \param accessLimit how often it may be used
     * \return the share's key; a null string on failure
     */
    virtual QString addShare(const QString &title, const QStringList &documents,
                             const QString &recipient, const QDateTime &expiry, int accessLimit)
        = 0;
    /**
     * Lists the caller's shares. Sends "CFGETSHARES"; takes no lock; only
     * "OK" is success, anything else sets the last error.
     * \return the share records; an empty list on failure
     */
    virtual QStringList getShares() = 0;
    /**
     * Deletes a share. Sends "CFDELSHARE"; takes no lock; only "OK" is
     * success, anything else sets the last error.
     * \param share the share's key
     * \return true on success, false on failure
     */
    virtual bool deleteShare(const QString &share) = 0;
    /**
     * The token of the transport's session. Sends nothing; takes no lock;
     * does not touch the last error.
     * \return the token; empty before the first login
     */
    virtual QString getAuthToken() = 0; // 125
    /**
     * Lists the users with an open session. Sends "CFCHATUSERS"; takes the
     * operation lock; sets the last error on failure.
     * \return the chat users; an empty list on failure
     */
    virtual QStringList getChatUsers() = 0;
    /**
     * Lists the direct member roles of a role. Sends "CFGETROLESBYROLE";
     * takes the operation lock; sets the last error on failure.
     * \param role the role's name
     * \return its member roles; an empty list on failure
     */
    virtual QStringList getRoleRoles(QString role) = 0; // 127
};

Q_DECLARE_INTERFACE(ClassifyInterface, NUV_CLASSIFY_INTERFACE_IID)

#endif // CLASSIFYINTERFACE_H
