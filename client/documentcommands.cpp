// SPDX-License-Identifier: Apache-2.0
// Classification, temporary classifications, document data and links,
// trash, archive moves, counts and deadlines.

#include "commandblocks.h"
#include "nuvclassifyclient.h"

using nuv::Command;
using nuv::fields;
using nuv::listFields;
namespace words = nuvprotocol::words;

namespace {
QString number(qint64 value)
{
    return QString::number(value);
}

qint64 replyCount(const NuvKespClassifyBlock &reply)
{
    // Text that is not a number counts as zero, like an empty count.
    return reply.docId.toLongLong();
}
} // namespace

// Classification

bool NuvClassifyClient::classify(QString &docId, QStringList values)
{
    return perform(Command(words::classify), fields(docId, values), false, nuv::assignDocId(docId));
}

bool NuvClassifyClient::multipleClassify(QString &docId, QStringList values)
{
    return perform(Command(words::multipleClassify), fields(docId, values), false,
                   nuv::assignDocId(docId));
}

bool NuvClassifyClient::newClassify(qint64 documentNumber, QString first, QString second)
{
    return perform(Command(words::newClassify), fields(number(documentNumber), { first, second }));
}

bool NuvClassifyClient::newClassify(qint64 documentNumber, QString first, QString second,
                                    QString folder)
{
    return perform(Command(words::newClassifyWithFolder),
                   fields(number(documentNumber), { first, second, folder }));
}

QStringList NuvClassifyClient::getClassificationFields(bool flag)
{
    return performForList(Command(words::getClassificationFields), fields(nuv::flagText(flag)));
}

bool NuvClassifyClient::getNextOid(QString &oid)
{
    return perform(Command(words::getNextOid), fields(oid), false, nuv::assignDocId(oid));
}

QStringList NuvClassifyClient::getDocuments(QStringList documents)
{
    return performForList(Command(words::getDocuments), fields(QStringLiteral("0"), documents));
}

// Temporary classifications

bool NuvClassifyClient::classifyTemporary(QString &docId, QStringList values)
{
    return perform(Command(words::classifyTemporary), fields(docId, values), false,
                   nuv::assignDocId(docId));
}

bool NuvClassifyClient::newClassifyTemp(qint64 documentNumber, QString first, QString second,
                                        int number)
{
    return perform(Command(words::newClassifyTemp),
                   fields(::number(documentNumber), { first, second, ::number(number) }));
}

int NuvClassifyClient::getClassifyTemp(qint64 &id, QStringList &values, QStringList &texts)
{
    // The command carries a second string list in `availablePlugins`, both
    // ways, and reports failure by its result only.
    NuvKespClassifyBlock request = fields(number(id));
    request.availablePlugins = values;
    return perform(Command(words::getClassifyTemp).keepingLastError(), request, 0,
                   [&](const NuvKespClassifyBlock &reply) {
                       values = reply.dataList;
                       // A 32-bit reading: anything beyond that range is 0.
                       id = reply.docId.toInt();
                       for (const QByteArray &bytes : reply.data)
                           texts.append(nuv::textFromBytes(bytes));
                       return reply.availablePlugins.isEmpty()
                           ? 1
                           : reply.availablePlugins.first().toInt();
                   });
}

bool NuvClassifyClient::deleteClassifyTemp(qint64 id)
{
    return perform(Command(words::deleteClassifyTemp), fields(number(id)));
}

// Document data, history, revisions, remarks and links

QStringList NuvClassifyClient::getDocumentData(QString docId, QString selector)
{
    return performForList(Command(words::getDocumentData), fields(docId, { selector }));
}

bool NuvClassifyClient::getDocHistory(QString docId, QStringList &history)
{
    return perform(Command(words::getDocHistory), fields(docId), false,
                   nuv::assignDataList(history));
}

QStringList NuvClassifyClient::getRevisionen(QString docId)
{
    return performForList(Command(words::getRevisionen), fields(docId));
}

QStringList NuvClassifyClient::getBemerkungen()
{
    return performForList(Command(words::getBemerkungen));
}

bool NuvClassifyClient::addLinkedDocuments(const QString &docId, const QStringList &linked)
{
    return perform(Command(words::addLinkedDocuments), fields(docId, linked));
}

bool NuvClassifyClient::removeLinkedDocuments(const QString &docId, const QStringList &linked)
{
    return perform(Command(words::removeLinkedDocuments), fields(docId, linked));
}

QStringList NuvClassifyClient::readLinkedDocuments(const QString &docId)
{
    return performForList(Command(words::readLinkedDocuments), fields(docId));
}

// Trash, archive moves and counts

bool NuvClassifyClient::moveDocumentsToTrash(QStringList documents)
{
    return perform(Command(words::moveDocumentsToTrash).unlocked(), listFields(documents));
}

bool NuvClassifyClient::removeDocumentsFromTrash(QStringList documents)
{
    return perform(Command(words::removeDocumentsFromTrash).unlocked(), listFields(documents));
}

bool NuvClassifyClient::moveDocToArchive(qint64 documentNumber, int archive)
{
    // Crossed on purpose: the document in the list, the archive in `docId`.
    return perform(Command(words::moveDocToArchive),
                   fields(number(archive), { number(documentNumber) }));
}

qint64 NuvClassifyClient::getDocumentCount(QString query, bool withDeleted, bool ignoreArchive)
{
    QStringList request { query };
    // The flag word excludes deleted documents, so it goes out when the
    // caller does not want them.
    if (!withDeleted)
        request << QLatin1String(nuvprotocol::flag::noDeleted);
    if (ignoreArchive)
        request << QLatin1String(nuvprotocol::flag::ignoreArchive);
    return perform(Command(words::getDocumentCount), listFields(request), qint64(-1), replyCount);
}

qint64 NuvClassifyClient::getClassifyCount(QString query, bool withoutHistory)
{
    QStringList request { query };
    if (withoutHistory)
        request << QLatin1String(nuvprotocol::flag::withoutHistory);
    return perform(Command(words::getClassifyCount), listFields(request), qint64(-1), replyCount);
}

// Deadlines

QStringList NuvClassifyClient::getDeadLineForDocId(QString docId)
{
    return performForList(Command(words::getDeadLineForDocId).expectingOk(), listFields({ docId }));
}

QStringList NuvClassifyClient::getDeadLines(QStringList selection)
{
    return performForList(Command(words::getDeadLines).expectingOk(), listFields(selection));
}

bool NuvClassifyClient::saveDeadLines(QStringList deadLines)
{
    return perform(Command(words::saveDeadLines).expectingOk(), listFields(deadLines));
}
