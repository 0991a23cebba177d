// SPDX-License-Identifier: Apache-2.0
// Clipboards and their cards, shares, and stored extended searches.

#include "commandblocks.h"
#include "nuvclassifyclient.h"

#include <QLocale>

using nuv::Command;
using nuv::fields;
using nuv::listFields;
namespace words = nuvprotocol::words;

namespace {
// A successful reply names the new object in `docId`; an empty name is
// still a success and must not look like the null string of a failure.
QString createdName(const NuvKespClassifyBlock &reply)
{
    return reply.docId.isNull() ? QStringLiteral("") : reply.docId;
}
} // namespace

// Clipboards and cards

QString NuvClassifyClient::addClipboard(const QString &name)
{
    return perform(Command(words::addClipboard), listFields({ name }), QString(), createdName);
}

bool NuvClassifyClient::renameClipboard(const QString &clipboard, const QString &newName)
{
    return perform(Command(words::renameClipboard), fields(clipboard, { newName }));
}

bool NuvClassifyClient::removeClipboard(const QString &clipboard)
{
    return perform(Command(words::removeClipboard), fields(clipboard));
}

bool NuvClassifyClient::readClipboards(QList<QPair<QString, QString>> &clipboards)
{
    return perform(Command(words::readClipboards), {}, false,
                   [&clipboards](const NuvKespClassifyBlock &reply) {
                       // Appended; a name without its byte array gets a null
                       // text rather than a read past the reply.
                       for (int i = 0; i < reply.dataList.size(); ++i)
                           clipboards.append(
                               { reply.dataList.at(i), nuv::textFromBytes(reply.data.value(i)) });
                       return true;
                   });
}

bool NuvClassifyClient::addClipboardCard(const QString &clipboard, const QString &card,
                                         const QString &cardData)
{
    // Joined into one entry here, two entries in the update: the server's
    // two commands differ.
    return perform(Command(words::addClipboardCard),
                   fields(clipboard, { card + nuv::recordSeparator + cardData }));
}

bool NuvClassifyClient::removeClipboardCard(const QString &clipboard, const QString &card)
{
    return perform(Command(words::removeClipboardCard), fields(clipboard, { card }));
}

bool NuvClassifyClient::updateClibpoardCard(const QString &clipboard, const QString &card,
                                            const QString &cardData)
{
    return perform(Command(words::updateClipboardCard), fields(clipboard, { card, cardData }));
}

bool NuvClassifyClient::clearClipboardCards(const QString &clipboard)
{
    return perform(Command(words::clearClipboardCards), fields(clipboard));
}

bool NuvClassifyClient::readClipboardCards(const QString &clipboard, QList<QString> &cards,
                                           QList<QString> &texts)
{
    return perform(Command(words::readClipboardCards), fields(clipboard), false,
                   [&](const NuvKespClassifyBlock &reply) {
                       cards = reply.dataList; // replaced
                       for (const QByteArray &bytes : reply.data) // appended
                           texts.append(nuv::textFromBytes(bytes));
                       return true;
                   });
}

QStringList NuvClassifyClient::readClipboardRoles(const QString &clipboard)
{
    return performForList(Command(words::readClipboardRoles), fields(clipboard));
}

bool NuvClassifyClient::writeClipboardRoles(const QString &clipboard, const QStringList &roles)
{
    return perform(Command(words::writeClipboardRoles), fields(clipboard, roles));
}

// Shares: unlocked, tested for "OK", scalars sent as UTF-8 byte arrays.

QString NuvClassifyClient::addShare(const QString &first, const QStringList &entries,
                                    const QString &third, const QDateTime &expiry, int number)
{
    // The C locale keeps the digits ASCII whatever the host's locale is.
    const QString expiryText = expiry.isValid()
        ? QLocale::c().toString(expiry, QStringLiteral("yyyy-MM-dd hh:mm:ss"))
        : QString();
    const QList<QByteArray> data { third.toUtf8(), QString::number(number).toUtf8(),
                                   expiryText.toUtf8(), first.toUtf8() };
    return perform(Command(words::addShare).unlocked().expectingOk(), listFields(entries, data),
                   QString(), createdName);
}

QStringList NuvClassifyClient::getShares()
{
    return performForList(Command(words::getShares).unlocked().expectingOk());
}

bool NuvClassifyClient::deleteShare(const QString &share)
{
    return perform(Command(words::deleteShare).unlocked().expectingOk(), fields(share));
}

// Extended searches: a whole definition travels as one joined entry.

bool NuvClassifyClient::addExtentedSearch(QString first, QString second, QStringList entries)
{
    return perform(Command(words::addExtendedSearch),
                   listFields({ nuv::joinSearchEntry({ first, second }, entries) }));
}

bool NuvClassifyClient::updateExtentedSearch(int search, QString first, QString second,
                                             QStringList entries)
{
    return perform(
        Command(words::updateExtendedSearch),
        listFields({ nuv::joinSearchEntry({ QString::number(search), first, second }, entries) }));
}

QStringList NuvClassifyClient::getExtentedSearch(QStringList entries)
{
    return performForList(Command(words::getExtendedSearch),
                          listFields({ nuv::joinSearchEntry({}, entries) }));
}

bool NuvClassifyClient::deleteExtentedSearch(QString search)
{
    return perform(Command(words::deleteExtendedSearch), listFields({ search }));
}
