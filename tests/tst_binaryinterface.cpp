// SPDX-License-Identifier: Apache-2.0
// The vtable layout of the three contracts. Hosts and transports are built
// separately against these headers and call through the slots by number, so
// a reordered, inserted or removed virtual breaks them without a compiler
// noticing.

#include "classifyinterface.h"
#include "nuvmqclientinterface.h"
#include "nuvmqmessage.h"

#include <QMetaMethod>
#include <QtTest>

#include <cstring>

namespace {

// Itanium C++ ABI: a pointer to a virtual member function holds 1 + the
// byte offset of its vtable entry, followed by a this-adjustment.
template<typename Pmf> int vtableSlot(Pmf pmf)
{
    static_assert(sizeof(Pmf) == 2 * sizeof(qptrdiff), "Itanium member function pointer");
    qptrdiff words[2];
    std::memcpy(words, &pmf, sizeof words);
    if ((words[0] & 1) == 0 || words[1] != 0)
        return -1; // not virtual, or not in the primary vtable
    return int((words[0] - 1) / qptrdiff(sizeof(void *)));
}

// Reaches QObject's protected virtuals.
struct QObjectSlots : QObject
{
    static int slotOfEvent() { return vtableSlot(&QObjectSlots::event); }
    static int slotOfEventFilter() { return vtableSlot(&QObjectSlots::eventFilter); }
    static int slotOfTimerEvent() { return vtableSlot(&QObjectSlots::timerEvent); }
    static int slotOfChildEvent() { return vtableSlot(&QObjectSlots::childEvent); }
    static int slotOfCustomEvent() { return vtableSlot(&QObjectSlots::customEvent); }
    static int slotOfConnectNotify() { return vtableSlot(&QObjectSlots::connectNotify); }
    static int slotOfDisconnectNotify() { return vtableSlot(&QObjectSlots::disconnectNotify); }
};

// Entries QObject puts before those of a class derived from it.
int qobjectEntries()
{
    return QObjectSlots::slotOfDisconnectNotify() + 1;
}

// A transport that does nothing, to look at the interface's data layout.
class IdleTransport : public nuvMQClientInterface
{
public:
    nuvMQClientInterface *createInstance() override { return nullptr; }
    bool connectToBroker(const QString &, const qint64 &) override { return false; }
    void disconnectFromBroker() override { }
    bool sendSyncMessage(nuvMQMessage *, nuvMQMessage *, int, qint64, int, QString, void *) override
    {
        return false;
    }
    bool sendAsyncMessage(nuvMQMessage *, int) override { return false; }
    bool receiveMessage(nuvMQMessage *, qint64) override { return false; }
    bool subscribeTopic(const QString &) override { return false; }
    bool unsubscribeTopic(const QString &) override { return false; }
    bool sendStream(const QString &, qint64) override { return false; }
    bool receiveStream(const QString &, qint64) override { return false; }
    void setUserName(const QString &) override { }
    void setClientId(const QString &) override { }
    bool isConnected() override { return false; }
    QString getAuthToken() override { return QString(); }
};

} // namespace

class BinaryInterfaceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void qobjectVirtuals_data();
    void qobjectVirtuals();
    void classifyInterfaceSlots_data();
    void classifyInterfaceSlots();
    void transportInterfaceSlots_data();
    void transportInterfaceSlots();
    void messageSlots_data();
    void messageSlots();
    void transportSignals_data();
    void transportSignals();
    void metaObjects();
    void lastErrorTextIsFirstDataMember();
};

void BinaryInterfaceTest::qobjectVirtuals_data()
{
    QTest::addColumn<int>("slot");
    QTest::addColumn<int>("expected");
    QTest::newRow("metaObject") << vtableSlot(&QObject::metaObject) << 0;
    QTest::newRow("qt_metacast") << vtableSlot(&QObject::qt_metacast) << 1;
    QTest::newRow("qt_metacall") << vtableSlot(&QObject::qt_metacall) << 2;
    // Entries 3 and 4 are the complete and the deleting destructor.
    QTest::newRow("event") << QObjectSlots::slotOfEvent() << 5;
    QTest::newRow("eventFilter") << QObjectSlots::slotOfEventFilter() << 6;
    QTest::newRow("timerEvent") << QObjectSlots::slotOfTimerEvent() << 7;
    QTest::newRow("childEvent") << QObjectSlots::slotOfChildEvent() << 8;
    QTest::newRow("customEvent") << QObjectSlots::slotOfCustomEvent() << 9;
    QTest::newRow("connectNotify") << QObjectSlots::slotOfConnectNotify() << 10;
    QTest::newRow("disconnectNotify, the last: 12 entries in all")
        << QObjectSlots::slotOfDisconnectNotify() << 11;
}

void BinaryInterfaceTest::qobjectVirtuals()
{
    QFETCH(int, slot);
    QFETCH(int, expected);
    QCOMPARE(slot, expected);
    QCOMPARE(qobjectEntries(), 12);
}

#define OP(position, name)                                                                         \
    QTest::newRow(#position " " #name) << position << vtableSlot(&ClassifyInterface::name)
#define OVERLOAD(position, name, result, ...)                                                      \
    QTest::newRow(#position " " #name "(" #__VA_ARGS__ ")")                                        \
        << position                                                                                \
        << vtableSlot(                                                                             \
               static_cast<result (ClassifyInterface::*)(__VA_ARGS__)>(&ClassifyInterface::name))

void BinaryInterfaceTest::classifyInterfaceSlots_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<int>("slot");
    OP(1, createInstance);
    OP(2, setUsers);
    OP(3, getUsers);
    OP(4, delUsers);
    OP(5, changeUserPassAdmin);
    OP(6, changeUserPass);
    OP(7, changeExpiredPass);
    OP(8, updateUsers);
    OP(9, getDocuments);
    OVERLOAD(10, connectToNuvKESP, bool, QString, int, QString, QString);
    OVERLOAD(11, connectToNuvKESP, bool, QString, int, QString, QString, QString);
    OP(12, getSystemFolders);
    OP(13, setSystemFolders);
    OP(14, disconnectFromNuvKESP);
    OVERLOAD(15, getRoles, QStringList);
    OP(16, getRoleList);
    OVERLOAD(17, getRoles, QStringList, QString);
    OP(18, setRoles);
    OP(19, deleteRoles);
    OVERLOAD(20, getUserRoles, QStringList, QString);
    OP(21, setUserRoles);
    OP(22, getRoleUsers);
    OP(23, setRoleUsers);
    OP(24, getPluginInfo);
    OP(25, classify);
    OP(26, classifyTemporary);
    OVERLOAD(27, newClassify, bool, qint64, QString, QString);
    OP(28, newClassifyTemp);
    OP(29, getClassifyTemp);
    OP(30, deleteClassifyTemp);
    OP(31, getArchives);
    OP(32, getDocumentData);
    OP(33, getMandanten);
    OP(34, getDocumentCount);
    OP(35, getStatusTypes);
    OP(36, getDocTypes);
    OP(37, saveStatusTypes);
    OP(38, saveDocTypes);
    OP(39, getClassifyCount);
    OP(40, getBemerkungen);
    OP(41, getLastError);
    OP(42, setDocUsersAndRoles);
    OP(43, getDocUsersAndRoles);
    OP(44, saveFolderStructure);
    OP(45, getFolderStructure);
    OP(46, getClassificationFields);
    OVERLOAD(47, getUserRoles, QStringList);
    OP(48, getDocHistory);
    OP(49, checkUpdate);
    OP(50, insertMandant);
    OP(51, setCurrentArchive);
    OP(52, getUsername);
    OP(53, closeSession);
    OP(54, getHost);
    OP(55, getPort);
    OP(56, getNextOid);
    OP(57, addExtentedSearch);
    OP(58, deleteExtentedSearch);
    OP(59, getExtentedSearch);
    OP(60, updateExtentedSearch);
    OP(61, getFolderRoles);
    OP(62, setFolderRoles);
    OP(63, saveTempDocRollen);
    OP(64, getMainFolder);
    OP(65, getFullUserName);
    OP(66, deleteDynAttribute);
    OP(67, addDynAttribute);
    OP(68, listDynAttributes);
    OP(69, modifyWerteListe);
    OP(70, getWerteListe);
    OP(71, modifyDynattribute);
    OP(72, multipleClassify);
    OVERLOAD(73, newClassify, bool, qint64, QString, QString, QString);
    OP(74, moveDocumentsToTrash);
    OP(75, removeDocumentsFromTrash);
    OP(76, getUserRole);
    OP(77, updateLastModified);
    OP(78, setLastModified);
    OP(79, errorString);
    OP(80, getAvailablePlugins);
    OP(81, newFolder);
    OP(82, saveUserData);
    OP(83, deleteUserData);
    OVERLOAD(84, loadUserData, bool, const QString &, QList<QString> &, QList<QByteArray> &,
             QList<QByteArray> &);
    OVERLOAD(85, loadUserData, bool, const QString &, const QString &, QByteArray &, QByteArray &);
    OP(86, moveDocToArchive);
    OP(87, getIndexerInfos);
    OP(88, recreateIndex);
    OP(89, getMinMaxDate);
    OP(90, getScanInputProcessList);
    OP(91, getScanInputProcessImage);
    OP(92, doLdapCommand);
    OP(93, doWebCommand);
    OP(94, getProfileId);
    OP(95, setProfileId);
    OP(96, getCfId);
    OP(97, getServerVersion);
    OP(98, getCurrentArchive);
    OP(99, getPass);
    OP(100, addLinkedDocuments);
    OP(101, removeLinkedDocuments);
    OP(102, readLinkedDocuments);
    OP(103, addClipboard);
    OP(104, removeClipboard);
    OP(105, renameClipboard);
    OP(106, readClipboards);
    OP(107, readClipboardCards);
    OP(108, addClipboardCard);
    OP(109, removeClipboardCard);
    OP(110, clearClipboardCards);
    OP(111, updateClibpoardCard);
    OP(112, readClipboardRoles);
    OP(113, writeClipboardRoles);
    OP(114, testMail);
    OP(115, loadRemoteFS);
    OP(116, checkFS);
    OP(117, doBackup);
    OP(118, updateBackupConfig);
    OP(119, getDeadLines);
    OP(120, getDeadLineForDocId);
    OP(121, saveDeadLines);
    OP(122, addShare);
    OP(123, getShares);
    OP(124, deleteShare);
    OP(125, getAuthToken);
    OP(126, getChatUsers);
    OP(127, getRoleRoles);
}

#undef OP
#undef OVERLOAD

void BinaryInterfaceTest::classifyInterfaceSlots()
{
    QFETCH(int, position);
    QFETCH(int, slot);
    QCOMPARE(slot, qobjectEntries() + position - 1);
}

#define OP(position, name)                                                                         \
    QTest::newRow(#position " " #name) << position << vtableSlot(&nuvMQClientInterface::name)

void BinaryInterfaceTest::transportInterfaceSlots_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<int>("slot");
    OP(1, createInstance);
    OP(2, connectToBroker);
    OP(3, disconnectFromBroker);
    OP(4, sendSyncMessage);
    OP(5, sendAsyncMessage);
    OP(6, receiveMessage);
    OP(7, subscribeTopic);
    OP(8, unsubscribeTopic);
    OP(9, sendStream);
    OP(10, receiveStream);
    OP(11, setUserName);
    OP(12, setClientId);
    OP(13, isConnected);
    OP(14, getAuthToken);
}

#undef OP

void BinaryInterfaceTest::transportInterfaceSlots()
{
    QFETCH(int, position);
    QFETCH(int, slot);
    QCOMPARE(slot, qobjectEntries() + position - 1);
}

void BinaryInterfaceTest::messageSlots_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<int>("slot");
    QTest::newRow("1 convertToBase64") << 1 << vtableSlot(&nuvMQMessage::convertToBase64);
    QTest::newRow("2 convertFromBase64") << 2 << vtableSlot(&nuvMQMessage::convertFromBase64);
    QTest::newRow("3 size") << 3 << vtableSlot(&nuvMQMessage::size);
    QTest::newRow("4 getType") << 4 << vtableSlot(&nuvMQMessage::getType);
}

void BinaryInterfaceTest::messageSlots()
{
    QFETCH(int, position);
    QFETCH(int, slot);
    // No base class: the two destructor entries come first.
    QCOMPARE(slot, 2 + position - 1);
}

void BinaryInterfaceTest::transportSignals_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QVector<int>>("parameterTypes");
    QTest::newRow("1 connectionLost") << 1 << QByteArray("connectionLost") << QVector<int>();
    QTest::newRow("2 totalStreamSize")
        << 2 << QByteArray("totalStreamSize") << QVector<int> { qMetaTypeId<qint64>() };
    QTest::newRow("3 streamedSize")
        << 3 << QByteArray("streamedSize") << QVector<int> { qMetaTypeId<qint64>() };
    QTest::newRow("4 newStreamedFile")
        << 4 << QByteArray("newStreamedFile") << QVector<int> { qMetaTypeId<QStringList>() };
}

void BinaryInterfaceTest::transportSignals()
{
    QFETCH(int, position);
    QFETCH(QByteArray, name);
    QFETCH(QVector<int>, parameterTypes);
    const QMetaObject &meta = nuvMQClientInterface::staticMetaObject;
    const QMetaMethod method = meta.method(meta.methodOffset() + position - 1);
    QCOMPARE(method.methodType(), QMetaMethod::Signal);
    QCOMPARE(method.name(), name);
    QCOMPARE(method.parameterCount(), parameterTypes.size());
    for (int i = 0; i < parameterTypes.size(); ++i)
        QCOMPARE(method.parameterType(i), parameterTypes.at(i));
}

void BinaryInterfaceTest::metaObjects()
{
    const QMetaObject &classify = ClassifyInterface::staticMetaObject;
    QCOMPARE(classify.className(), "ClassifyInterface");
    QCOMPARE(classify.superClass(), &QObject::staticMetaObject);
    // No signals, slots or properties of its own.
    QCOMPARE(classify.methodCount(), classify.methodOffset());
    QCOMPARE(classify.propertyCount(), classify.propertyOffset());

    const QMetaObject &transport = nuvMQClientInterface::staticMetaObject;
    QCOMPARE(transport.className(), "nuvMQClientInterface");
    QCOMPARE(transport.superClass(), &QObject::staticMetaObject);

    QCOMPARE(QByteArray(qobject_interface_iid<ClassifyInterface *>()),
             QByteArray(NUV_IID_PREFIX) + ".ClassifyInterface/1.2");
    QCOMPARE(QByteArray(qobject_interface_iid<nuvMQClientInterface *>()),
             QByteArray(NUV_IID_PREFIX) + ".kesp.nuvMQClientInterface/1.2");
}

void BinaryInterfaceTest::lastErrorTextIsFirstDataMember()
{
    IdleTransport transport;
    const auto *object = reinterpret_cast<const char *>(static_cast<QObject *>(&transport));
    const auto *text = reinterpret_cast<const char *>(&transport.lastErrorText);
    QCOMPARE(qptrdiff(text - object), qptrdiff(sizeof(QObject)));
}

QTEST_GUILESS_MAIN(BinaryInterfaceTest)
#include "tst_binaryinterface.moc"
