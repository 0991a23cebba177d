// SPDX-License-Identifier: Apache-2.0
// Archives and tenants, folders and system folders, document and status
// types, dynamic attributes and value lists.

#include "commandblocks.h"
#include "nuvclassifyclient.h"

using nuv::Command;
using nuv::fields;
using nuv::listFields;
namespace words = nuvprotocol::words;

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
    return perform(Command(words::getArchives), {}, false, nuv::assignDataList(archives));
}

bool NuvClassifyClient::setCurrentArchive(QString archive)
{
    return perform(Command(words::setCurrentArchive), fields(archive), false,
                   [this, &archive](const NuvKespClassifyBlock &) {
                       nuv::MutexLocker locker(&stateLock);
                       currentArchive = archive;
                       return true;
                   });
}

bool NuvClassifyClient::insertMandant(QString first, QString second, QByteArray payload)
{
    return perform(Command(words::insertMandant), listFields({ first, second }, { payload }), false,
                   [this](const NuvKespClassifyBlock &) {
                       emit serverRequest(QLatin1String(nuvprotocol::notice::systemUpdate));
                       return true;
                   });
}

bool NuvClassifyClient::getMandanten(QStringList &tenants, QList<QByteArray> &payloads)
{
    return perform(Command(words::getMandanten), {}, false, [&](const NuvKespClassifyBlock &reply) {
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
    return perform(Command(words::getFolderStructure), fields(structureKey), false,
                   [&](const NuvKespClassifyBlock &reply) {
                       assembleFolders(reply, folders, payloads);
                       return true;
                   });
}

bool NuvClassifyClient::saveFolderStructure(QString structureKey, QStringList folders,
                                            QList<QByteArray> payloads)
{
    return perform(Command(words::saveFolderStructure), fields(structureKey, folders, payloads));
}

QString NuvClassifyClient::getMainFolder(QString folder)
{
    // No reply test: after a failed exchange the reply's `docId` is empty.
    return perform(Command(words::getMainFolder).testedBy(nuv::ReplyTest::None), fields(folder),
                   QString(), nuv::replyDocId);
}

bool NuvClassifyClient::newFolder(QString first, QString second, QString third, QString fourth)
{
    return perform(Command(words::newFolder).expectingOk(),
                   listFields({ first, second, third, fourth }));
}

bool NuvClassifyClient::getSystemFolders(QStringList &folders, QList<QByteArray> &payloads,
                                         bool withEmpty)
{
    const QString which = withEmpty ? QLatin1String(nuvprotocol::flag::emptyFolders)
                                    : QLatin1String(nuvprotocol::flag::noEmptyFolders);
    return perform(Command(words::getSystemFolders), fields(QStringLiteral("0"), { which }), false,
                   [&](const NuvKespClassifyBlock &reply) {
                       assembleFolders(reply, folders, payloads);
                       return true;
                   });
}

bool NuvClassifyClient::setSystemFolders(QStringList folders, QList<QByteArray> payloads)
{
    return perform(Command(words::setSystemFolders),
                   fields(QStringLiteral("0"), folders, payloads));
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
    return perform(Command(words::getStatusTypes), {}, false, assignTypeTable(records, payloads));
}

bool NuvClassifyClient::getDocTypes(QStringList &records, QList<QByteArray> &payloads)
{
    return perform(Command(words::getDocTypes), {}, false, assignTypeTable(records, payloads));
}

bool NuvClassifyClient::saveStatusTypes(QStringList records, QList<QByteArray> payloads)
{
    return perform(Command(words::saveStatusTypes), listFields(records, payloads));
}

bool NuvClassifyClient::saveDocTypes(QStringList records, QList<QByteArray> payloads)
{
    return perform(Command(words::saveDocTypes), listFields(records, payloads));
}

// Dynamic attributes and value lists. The first three report failure by
// their result alone; the value-list commands record the error text.

QStringList NuvClassifyClient::listDynAttributes()
{
    return performForList(Command(words::listDynAttributes).expectingOk().keepingLastError());
}

bool NuvClassifyClient::addDynAttribute(QString first, QString second, bool flag)
{
    const QString flagWord = flag ? QStringLiteral("true") : QStringLiteral("false");
    return perform(Command(words::addDynAttribute).expectingOk().keepingLastError(),
                   listFields({ first, second, flagWord }));
}

bool NuvClassifyClient::deleteDynAttribute(int attribute)
{
    return perform(Command(words::deleteDynAttribute).expectingOk().keepingLastError(),
                   listFields({ QString::number(attribute) }));
}

bool NuvClassifyClient::modifyDynattribute(QStringList values)
{
    return perform(Command(words::modifyDynattribute).expectingOk(), listFields(values));
}

QStringList NuvClassifyClient::getWerteListe(int list)
{
    return performForList(Command(words::getWerteListe).expectingOk(),
                          listFields({ QString::number(list) }));
}

bool NuvClassifyClient::modifyWerteListe(int list, QStringList values)
{
    values.prepend(QString::number(list));
    return perform(Command(words::modifyWerteListe).expectingOk(), listFields(values));
}
