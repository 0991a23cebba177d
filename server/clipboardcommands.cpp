// SPDX-License-Identifier: Apache-2.0
// Clipboards and their cards, shares of documents, stored searches.

#include "dialect.h"
#include "documents.h"
#include "requestlimits.h"

#include <QRandomGenerator>
#include <QSqlQuery>

namespace nuvserver {

namespace {

enum class ClipboardUse { Cards, Own };

// The clipboard of docId; its owner (and an administrator) may do anything,
// holders of one of its roles may read and change its cards.
qint64 requireClipboard(Context &ctx, ClipboardUse use)
{
    const qint64 id = ctx.docIdNumber(QStringLiteral("the clipboard"));
    const QVariant owner
        = scalar(ctx.db, QStringLiteral("SELECT owner_id FROM clipboards WHERE id = ?"), { id });
    bool allowed = owner.isValid() && (owner.toLongLong() == ctx.user().userId || ctx.isAdmin());
    if (owner.isValid() && !allowed && use == ClipboardUse::Cards) {
        QVariantList values { id };
        const QString held = inList(QStringLiteral("principal"), ctx.principals(), values);
        allowed = exists(ctx.db,
                         QStringLiteral("SELECT 1 FROM clipboard_roles WHERE clipboard_id = ?"
                                        " AND ")
                             + held,
                         values);
    }
    if (!owner.isValid() || (!allowed && use == ClipboardUse::Cards))
        fail(QStringLiteral("there is no clipboard %1 for %2").arg(id).arg(ctx.login()));
    if (!allowed)
        fail(QStringLiteral("only the owner may change clipboard %1").arg(id));
    return id;
}

// CFADDCLIPBOARD: [name] -> docId its key
void addClipboard(Context &ctx)
{
    const QString name = ctx.requireItem(0, QStringLiteral("the clipboard name"));
    checkName(name, QStringLiteral("the clipboard name"));
    if (exists(ctx.db, QStringLiteral("SELECT 1 FROM clipboards WHERE owner_id = ? AND name = ?"),
               { ctx.user().userId, name }))
        fail(QStringLiteral("%1 already has a clipboard '%2'").arg(ctx.login(), name));
    ctx.setDocId(scalar(ctx.db,
                        QStringLiteral("INSERT INTO clipboards(owner_id, name, created)"
                                       " VALUES (?, ?, ?) RETURNING id"),
                        { ctx.user().userId, name, nowText() })
                     .toString());
}

// CFRENAMECLIPBOARD: docId clipboard, [new name]
void renameClipboard(Context &ctx)
{
    const qint64 id = requireClipboard(ctx, ClipboardUse::Own);
    const QString name = ctx.requireItem(0, QStringLiteral("the new name"));
    checkName(name, QStringLiteral("the clipboard name"));
    run(ctx.db, QStringLiteral("UPDATE clipboards SET name = ? WHERE id = ?"), { name, id });
}

// CFREMOVECLIPBOARD: docId clipboard
void removeClipboard(Context &ctx)
{
    run(ctx.db, QStringLiteral("DELETE FROM clipboards WHERE id = ?"),
        { requireClipboard(ctx, ClipboardUse::Own) });
}

// CFREADCLIPBOARDS: dataList keys, data names; the caller's own clipboards
// and those shared with one of its roles
void readClipboards(Context &ctx)
{
    QVariantList values { ctx.user().userId };
    const QString held = inList(QStringLiteral("r.principal"), ctx.principals(), values);
    QSqlQuery query
        = run(ctx.db,
              QStringLiteral("SELECT c.id, c.name FROM clipboards c WHERE c.owner_id = ?"
                             " OR EXISTS (SELECT 1 FROM clipboard_roles r WHERE"
                             " r.clipboard_id = c.id AND ")
                  + held + QStringLiteral(") ORDER BY c.id"),
              values);
    QStringList keys;
    QList<QByteArray> names;
    while (query.next()) {
        keys.append(query.value(0).toString());
        names.append(query.value(1).toString().toUtf8());
    }
    ctx.setList(keys);
    ctx.setData(names);
}

bool cardExists(Context &ctx, qint64 clipboard, const QString &card)
{
    return exists(
        ctx.db, QStringLiteral("SELECT 1 FROM clipboard_cards WHERE clipboard_id = ? AND card = ?"),
        { clipboard, card });
}

// CFCADDCARD: docId clipboard, ["card␟data"]
void addCard(Context &ctx)
{
    const qint64 id = requireClipboard(ctx, ClipboardUse::Cards);
    const QStringList fields = splitFields(ctx.requireItem(0, QStringLiteral("the card")));
    const QString card = fields.at(0);
    if (card.isEmpty())
        fail(QStringLiteral("the card is missing"));
    if (cardExists(ctx, id, card))
        fail(QStringLiteral("clipboard %1 already holds card '%2'").arg(id).arg(card));
    run(ctx.db,
        QStringLiteral(
            "INSERT INTO clipboard_cards(clipboard_id, card, data, position) VALUES (?, ?, ?,"
            " (SELECT coalesce(max(position), 0) + 1 FROM clipboard_cards WHERE clipboard_id = "
            "?))"),
        { id, card, fields.mid(1).join(recordSeparator), id });
}

qint64 requireCard(Context &ctx, QString *card)
{
    const qint64 id = requireClipboard(ctx, ClipboardUse::Cards);
    *card = ctx.requireItem(0, QStringLiteral("the card"));
    if (!cardExists(ctx, id, *card))
        fail(QStringLiteral("clipboard %1 holds no card '%2'").arg(id).arg(*card));
    return id;
}

// CFCUPDATECARD: docId clipboard, [card, data]
void updateCard(Context &ctx)
{
    QString card;
    const qint64 id = requireCard(ctx, &card);
    run(ctx.db,
        QStringLiteral("UPDATE clipboard_cards SET data = ? WHERE clipboard_id = ? AND card = ?"),
        { ctx.requireItem(1, QStringLiteral("the card data")), id, card });
}

// CFCREMOVECARD: docId clipboard, [card]
void removeCard(Context &ctx)
{
    QString card;
    const qint64 id = requireCard(ctx, &card);
    run(ctx.db, QStringLiteral("DELETE FROM clipboard_cards WHERE clipboard_id = ? AND card = ?"),
        { id, card });
}

// CFCCLEARCARDS: docId clipboard
void clearCards(Context &ctx)
{
    run(ctx.db, QStringLiteral("DELETE FROM clipboard_cards WHERE clipboard_id = ?"),
        { requireClipboard(ctx, ClipboardUse::Cards) });
}

// CFCREADCCARDS: docId clipboard -> dataList cards, data their texts
void readCards(Context &ctx)
{
    QSqlQuery query
        = run(ctx.db,
              QStringLiteral("SELECT card, data FROM clipboard_cards WHERE clipboard_id = ?"
                             " ORDER BY position"),
              { requireClipboard(ctx, ClipboardUse::Cards) });
    QStringList cards;
    QList<QByteArray> texts;
    while (query.next()) {
        cards.append(query.value(0).toString());
        texts.append(query.value(1).toString().toUtf8());
    }
    ctx.setList(cards);
    ctx.setData(texts);
}

const KeyedList clipboardRoleList { "clipboard_roles", "clipboard_id", "principal" };

// CFRCBROLES: docId clipboard -> the users and roles it is shared with
void clipboardRoles(Context &ctx)
{
    ctx.setList(readList(ctx.db, clipboardRoleList, requireClipboard(ctx, ClipboardUse::Cards)));
}

// CFWCBROLES: docId clipboard, dataList users and roles
void writeClipboardRoles(Context &ctx)
{
    const qint64 id = requireClipboard(ctx, ClipboardUse::Own);
    for (const QString &principal : ctx.list())
        requirePrincipal(ctx.db, principal);
    writeList(ctx.db, clipboardRoleList, id, ctx.list());
}

// CFADDSHARE: data [recipient, access limit, expiry, title], dataList
// documents -> docId the share key
void addShare(Context &ctx)
{
    const QList<QByteArray> data = ctx.request.getData();
    if (data.size() < 4)
        fail(QStringLiteral("data must hold recipient, limit, expiry and title"));
    const QString recipient = QString::fromUtf8(data.at(0));
    const qint64 limit = qMax<qint64>(
        0, toNumber(QString::fromUtf8(data.at(1)), QStringLiteral("the access limit")));
    const QString expiryText = QString::fromUtf8(data.at(2));
    QString expires;
    if (!expiryText.isEmpty()) {
        const QDateTime expiry = parseTime(expiryText, QStringLiteral("the expiry"));
        if (expiry <= QDateTime::currentDateTimeUtc())
            fail(QStringLiteral("the expiry %1 lies in the past").arg(expiryText));
        expires = timeText(expiry);
    }
    if (ctx.list().isEmpty())
        fail(QStringLiteral("dataList names no document to share"));
    QString key;
    for (int i = 0; i < 4; ++i)
        key += QString::number(QRandomGenerator::system()->generate(), 16)
                   .rightJustified(8, QLatin1Char('0'));
    run(ctx.db,
        QStringLiteral(
            "INSERT INTO shares(key, owner_id, title, recipient, expires, access_limit, created)"
            " VALUES (?, ?, ?, ?, ?, ?, ?)"),
        { key, ctx.user().userId, QString::fromUtf8(data.at(3)), recipient, expires, limit,
          nowText() });
    int position = 0;
    for (const qint64 doc :
         distinctIds(ctx.list(), QStringLiteral("a document number"), ctx.options)) {
        ctx.requireDocument(doc, Access::Read);
        run(ctx.db,
            QStringLiteral("INSERT INTO share_documents(share_key, doc_id, position)"
                           " VALUES (?, ?, ?) ON CONFLICT DO NOTHING"),
            { key, doc, position++ });
        addHistory(ctx, doc, QStringLiteral("shared"), recipient);
    }
    ctx.setDocId(key);
}

// CFGETSHARES: key␟title␟recipient␟expires␟limit␟owner␟documents (comma
// separated) of the caller's shares (an administrator's: all); expired
// shares are removed first
void shares(Context &ctx)
{
    run(ctx.db, QStringLiteral("DELETE FROM shares WHERE expires <> '' AND expires <= ?"),
        { nowText() });
    QVariantList values { ctx.isAdmin() ? 1 : 0, ctx.user().userId };
    const QString documents = commaJoined(
        ctx.db, QStringLiteral("doc_id"),
        QStringLiteral("FROM share_documents WHERE share_key = s.key"), QStringLiteral("position"));
    ctx.setList(queryRecords(ctx.db,
                             QStringLiteral("SELECT s.key, s.title, s.recipient, s.expires,"
                                            " s.access_limit, u.login, coalesce(%1, '')"
                                            " FROM shares s JOIN users u ON u.id = s.owner_id"
                                            " WHERE ? = 1 OR s.owner_id = ?"
                                            " ORDER BY s.created, s.key")
                                 .arg(documents),
                             values));
}

// CFDELSHARE: docId share key
void deleteShare(Context &ctx)
{
    const QString key = ctx.requireDocId(QStringLiteral("the share"));
    const QVariant owner
        = scalar(ctx.db, QStringLiteral("SELECT owner_id FROM shares WHERE key = ?"), { key });
    if (!owner.isValid() || (owner.toLongLong() != ctx.user().userId && !ctx.isAdmin()))
        fail(QStringLiteral("there is no share '%1' of %2").arg(key, ctx.login()));
    run(ctx.db, QStringLiteral("DELETE FROM shares WHERE key = ?"), { key });
}

// Stored searches: one entry, parts joined by U+FEFF.
QStringList searchParts(Context &ctx)
{
    return splitFields(ctx.requireItem(0, QStringLiteral("the search")));
}

void storeSearch(Context &ctx, qint64 number, const QStringList &parts)
{
    const QString name = parts.value(0);
    checkName(name, QStringLiteral("the search name"));
    QStringList conditions = parts.mid(2);
    conditions.removeAll(QString());
    checkDocumentConditions(ctx, conditions);
    if (exists(ctx.db,
               QStringLiteral(
                   "SELECT 1 FROM searches WHERE owner_id = ? AND name = ? AND number <> ?"),
               { ctx.user().userId, name, number }))
        fail(QStringLiteral("%1 already has a search '%2'").arg(ctx.login(), name));
    if (number == 0) {
        ctx.setDocId(scalar(ctx.db,
                            QStringLiteral("INSERT INTO searches(owner_id, name, description,"
                                           " conditions) VALUES (?, ?, ?, ?) RETURNING number"),
                            { ctx.user().userId, name, parts.value(1), joinFields(conditions) })
                         .toString());
    } else {
        run(ctx.db,
            QStringLiteral("UPDATE searches SET name = ?, description = ?, conditions = ?"
                           " WHERE number = ?"),
            { name, parts.value(1), joinFields(conditions), number });
        ctx.setDocId(QString::number(number));
    }
}

// CFEXTSEARCHADD: ["name␟description␟condition␟..."] -> docId its number
void addSearch(Context &ctx)
{
    storeSearch(ctx, 0, searchParts(ctx));
}

qint64 requireOwnSearch(Context &ctx, const QString &nameOrNumber)
{
    QVariant number = scalar(ctx.db,
                             QStringLiteral("SELECT number FROM searches WHERE owner_id = ?"
                                            " AND (name = ? OR CAST(number AS TEXT) = ?)"),
                             { ctx.user().userId, nameOrNumber, nameOrNumber });
    if (!number.isValid())
        fail(QStringLiteral("%1 has no search '%2'").arg(ctx.login(), nameOrNumber));
    return number.toLongLong();
}

// CFEXTSEARCHUPD: ["number␟name␟description␟condition␟..."]
void updateSearch(Context &ctx)
{
    const QStringList parts = searchParts(ctx);
    toNumber(parts.at(0), QStringLiteral("the search number"));
    storeSearch(ctx, requireOwnSearch(ctx, parts.at(0).trimmed()), parts.mid(1));
}

// CFEXTSEARCHDEL: [name or number]
void deleteSearch(Context &ctx)
{
    run(ctx.db, QStringLiteral("DELETE FROM searches WHERE number = ?"),
        { requireOwnSearch(ctx, ctx.requireItem(0, QStringLiteral("the search"))) });
}

// CFEXTSEARCHFIN: ["name or number␟..."] (one empty entry: all) ->
// number␟name␟description␟condition␟... of the caller's searches
void findSearches(Context &ctx)
{
    QStringList wanted = splitFields(ctx.item(0));
    wanted.removeAll(QString());
    QSqlQuery query
        = run(ctx.db,
              QStringLiteral("SELECT number, name, description, conditions FROM searches"
                             " WHERE owner_id = ? ORDER BY number"),
              { ctx.user().userId });
    QStringList records;
    while (query.next()) {
        const QString number = query.value(0).toString();
        const QString name = query.value(1).toString();
        if (!wanted.isEmpty() && !wanted.contains(number) && !wanted.contains(name))
            continue;
        QStringList fields { number, name, query.value(2).toString() };
        const QString conditions = query.value(3).toString();
        if (!conditions.isEmpty())
            fields += splitFields(conditions);
        records.append(joinFields(fields));
    }
    ctx.setList(records);
}

} // namespace

QVector<CommandEntry> clipboardCommands()
{
    return {
        { words::addClipboard, addClipboard, Writes },
        { words::renameClipboard, renameClipboard, Writes },
        { words::removeClipboard, removeClipboard, Writes },
        { words::readClipboards, readClipboards, NeedsSession },
        { words::addClipboardCard, addCard, Writes },
        { words::updateClipboardCard, updateCard, Writes },
        { words::removeClipboardCard, removeCard, Writes },
        { words::clearClipboardCards, clearCards, Writes },
        { words::readClipboardCards, readCards, NeedsSession },
        { words::readClipboardRoles, clipboardRoles, NeedsSession },
        { words::writeClipboardRoles, writeClipboardRoles, Writes },
        { words::addShare, addShare, Writes | IdList },
        { words::getShares, shares, NeedsSession },
        { words::deleteShare, deleteShare, Writes },
        { words::addExtendedSearch, addSearch, Writes },
        { words::updateExtendedSearch, updateSearch, Writes },
        { words::deleteExtendedSearch, deleteSearch, Writes },
        { words::getExtendedSearch, findSearches, NeedsSession },
    };
}

} // namespace nuvserver
