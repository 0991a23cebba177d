// SPDX-License-Identifier: Apache-2.0
// Archives and tenants, folders and system folders, document and status
// types, dynamic attributes and value lists.

#include "nuvclassifyclient.h"
#include "records.h"

using nuv::Command;
using nuv::fields;
using nuv::listFields;

namespace {
// Where the two record kinds keep the key that pairs them with a payload.
constexpr int tenantNumberField = 3;
constexpr int folderKeyField = 5;

int tenantNumber(const QStringRef &text)
{
    return text.toInt(); // not a number: tenant 0
}

// Folder keys compare as plain strings; the reference into the reply is
// enough while the pairing runs.
QStringRef folderKey(const QStringRef &text)
{
    return text;
}
} // namespace

// Archives and tenants

bool NuvClassifyClient::getArchives(QStringList &archives)
{
    return perform(Command("CFDOCGETARCHIVES"), {}, false, nuv::assignDataList(archives));
}

bool NuvClassifyClient::setCurrentArchive(QString archive)
{
    return perform(Command("CFSELARCHIVE"), fields(archive), false,
                   [this, &archive](const NuvKespClassifyBlock &) {
                       nuv::MutexLocker locker(&stateLock);
                       currentArchive = archive;
                       return true;
                   });
}

bool NuvClassifyClient::insertMandant(QString first, QString second, QByteArray payload)
{
    return perform(Command("CFNEWMANDANT"), listFields({ first, second }, { payload }), false,
                   [this](const NuvKespClassifyBlock &) {
                       emit serverRequest(QStringLiteral("SYSUPDATE"));
                       return true;
                   });
}

bool NuvClassifyClient::getMandanten(QStringList &tenants, QList<QByteArray> &payloads)
{
    return perform(Command("CFDOCGETMANDANTEN"), {}, false, [&](const NuvKespClassifyBlock &reply) {
        tenants = reply.dataList;
        // Appended: unlike the folder readers, the caller's
        // earlier byte arrays stay in front.
        payloads += nuv::pairRecordsWithPayloads<int>(reply.dataList, reply.docId, reply.data,
                                                      tenantNumberField, tenantNumber);
        return true;
    });
}

// Folders

// Both folder readers pair the n-th non-empty key with data[n]: skipping an
// empty key without consuming a byte array and dropping empty keys before
// counting come to the same, so one pairing serves both.
void NuvClassifyClient::assembleFolders(const NuvKespClassifyBlock &reply, QStringList &folders,
                                        QList<QByteArray> &payloads)
{
    payloads = nuv::pairRecordsWithPayloads<QStringRef>(reply.dataList, reply.docId, reply.data,
                                                        folderKeyField, folderKey);
    folders = reply.dataList;
}

bool NuvClassifyClient::getFolderStructure(QString structureKey, QStringList &folders,
                                           QList<QByteArray> &payloads)
{
    return perform(Command("CFGETMANS"), fields(structureKey), false,
                   [&](const NuvKespClassifyBlock &reply) {
                       assembleFolders(reply, folders, payloads);
                       return true;
                   });
}

bool NuvClassifyClient::saveFolderStructure(QString structureKey, QStringList folders,
                                            QList<QByteArray> payloads)
{
    return perform(Command("CFSAVEMANS"), fields(structureKey, folders, payloads));
}

QString NuvClassifyClient::getMainFolder(QString folder)
{
    // No reply test: after a failed exchange the reply's `docId` is empty.
    return perform(Command("CFMAINFOLDER").testedBy(nuv::ReplyTest::None), fields(folder),
                   QString(), nuv::replyDocId);
}

bool NuvClassifyClient::newFolder(QString first, QString second, QString third, QString fourth)
{
    return perform(Command("CFNEWFOLDER").expectingOk(),
                   listFields({ first, second, third, fourth }));
}

bool NuvClassifyClient::getSystemFolders(QStringList &folders, QList<QByteArray> &payloads,
                                         bool withEmpty)
{
    const QString which
        = withEmpty ? QStringLiteral("EMPTYFOLDERS") : QStringLiteral("NOEMPTYFOLDERS");
    return perform(Command("CFDOCSYSFOLDERS"), fields(QStringLiteral("0"), { which }), false,
                   [&](const NuvKespClassifyBlock &reply) {
                       assembleFolders(reply, folders, payloads);
                       return true;
                   });
}

bool NuvClassifyClient::setSystemFolders(QStringList folders, QList<QByteArray> payloads)
{
    return perform(Command("CFDOCSETSYSFOLDERS"), fields(QStringLiteral("0"), folders, payloads));
}

// Document and status types

namespace {
auto assignTypeTable(QStringList &records, QList<QByteArray> &payloads)
{
    return [&records, &payloads](const NuvKespClassifyBlock &reply) {
        records = reply.dataList;
        payloads = reply.data;
        return true;
    };
}
} // namespace

bool NuvClassifyClient::getStatusTypes(QStringList &records, QList<QByteArray> &payloads)
{
    return perform(Command("CFSTATTYPES"), {}, false, assignTypeTable(records, payloads));
}

bool NuvClassifyClient::getDocTypes(QStringList &records, QList<QByteArray> &payloads)
{
    return perform(Command("CFGETDOCTYPES"), {}, false, assignTypeTable(records, payloads));
}

bool NuvClassifyClient::saveStatusTypes(QStringList records, QList<QByteArray> payloads)
{
    return perform(Command("CFSAVESTATI"), listFields(records, payloads));
}

bool NuvClassifyClient::saveDocTypes(QStringList records, QList<QByteArray> payloads)
{
    return perform(Command("CFSAVEDOCTYPES"), listFields(records, payloads));
}

// Dynamic attributes and value lists. The first three report failure by
// their result alone; the value-list commands record the error text.

QStringList NuvClassifyClient::listDynAttributes()
{
    return performForList(Command("CFLSTDYNATT").expectingOk().keepingLastError());
}

bool NuvClassifyClient::addDynAttribute(QString first, QString second, bool flag)
{
    const QString flagWord = flag ? QStringLiteral("true") : QStringLiteral("false");
    return perform(Command("CFADDDYNATT").expectingOk().keepingLastError(),
                   listFields({ first, second, flagWord }));
}

bool NuvClassifyClient::deleteDynAttribute(int attribute)
{
    return perform(Command("CFDELDYNATT").expectingOk().keepingLastError(),
                   listFields({ QString::number(attribute) }));
}

bool NuvClassifyClient::modifyDynattribute(QStringList values)
{
    return perform(Command("CFMODDYNATT").expectingOk(), listFields(values));
}

QStringList NuvClassifyClient::getWerteListe(int list)
{
    return performForList(Command("CFLSTWERTE").expectingOk(),
                          listFields({ QString::number(list) }));
}

bool NuvClassifyClient::modifyWerteListe(int list, QStringList values)
{
    values.prepend(QString::number(list));
    return perform(Command("CFMODWERTE").expectingOk(), listFields(values));
}
