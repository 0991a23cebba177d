// SPDX-License-Identifier: Apache-2.0
#include "conflictburst.h"

#include "protocolwords.h"
#include "scratchdatabase.h"
#include "startline.h"

#include <QSet>

#include <thread>
#include <vector>

namespace conflicts {

namespace {

namespace words = nuvprotocol::words;

const QString userPassword = QStringLiteral("burst-password-1");

QString joined(const QStringList &fields)
{
    return fields.join(nuvprotocol::recordSeparator);
}

nuvMQClassifyMessage message(const char *word, const QString &docId, const QStringList &list)
{
    nuvMQClassifyMessage m;
    m.command = QLatin1String(word);
    m.setDocId(docId);
    m.setDataList(list);
    return m;
}

QString tag(int caller, int round)
{
    return QStringLiteral("c%1-r%2").arg(caller).arg(round);
}

QString userRecord(const QString &login)
{
    return joined({ login, userPassword, login, QString(), QStringLiteral("0") });
}

// The server answers every success with "OK"; anything else (an error, or
// no reply at all) is a failure.
bool failed(const nuvMQClassifyMessage &reply)
{
    return reply.command != QLatin1String(nuvprotocol::status::ok);
}

qint64 changeCounter(const QString &database)
{
    return testdatabase::queryOnce(database,
                                   QStringLiteral("SELECT count(*) FROM changes"))
        .toLongLong();
}

// What a caller that lost a race must be told; empty where every request
// must succeed.
QString losingText(Scenario scenario)
{
    switch (scenario) {
    case Scenario::SameClipboardName:
        return QStringLiteral("already has a clipboard");
    case Scenario::SameUserName:
        return QStringLiteral("there is already a user");
    default:
        return QString();
    }
}

// Each round one request wins; the rest lose.
bool oneWinnerPerRound(Scenario scenario)
{
    return !losingText(scenario).isEmpty();
}

} // namespace

QString scenarioName(Scenario scenario)
{
    switch (scenario) {
    case Scenario::NewIds:
        return QStringLiteral("new ids");
    case Scenario::SameClipboardName:
        return QStringLiteral("same clipboard name");
    case Scenario::CardsOnOneClipboard:
        return QStringLiteral("cards on one clipboard");
    case Scenario::SameUserName:
        return QStringLiteral("same user name");
    case Scenario::FolderTree:
        return QStringLiteral("one folder tree");
    case Scenario::OneDocument:
        return QStringLiteral("one document's classification");
    }
    return QString();
}

nuvMQClassifyMessage Burst::request(int caller, int round) const
{
    const QString mine = tag(caller, round);
    switch (scenario) {
    case Scenario::NewIds:
        if (round % 2 == 1)
            return message(words::getNextOid, QString(), {});
        return message(words::addClipboard, QString(), { QStringLiteral("ids-") + mine });
    case Scenario::SameClipboardName:
        return message(words::addClipboard, QString(), { QStringLiteral("shared-r%1").arg(round) });
    case Scenario::CardsOnOneClipboard:
        return message(words::addClipboardCard, target,
                       { joined({ QStringLiteral("card-") + mine, mine }) });
    case Scenario::SameUserName:
        // Its own user first: a losing command must not leave it behind.
        return message(words::setUsers, QStringLiteral("0"),
                       { userRecord(QStringLiteral("own-") + mine),
                         userRecord(QStringLiteral("same-r%1").arg(round)) });
    case Scenario::FolderTree:
        return message(words::newFolder, QString(),
                       { QStringLiteral("tree"), target, QStringLiteral("f-") + mine, QString() });
    case Scenario::OneDocument:
        return message(words::classify, target, { joined({ QStringLiteral("title"), mine }) });
    }
    return nuvMQClassifyMessage();
}

QString Burst::prepare(const Send &admin)
{
    nuvMQClassifyMessage made;
    switch (scenario) {
    case Scenario::CardsOnOneClipboard:
        made = admin(message(words::addClipboard, QString(), { QStringLiteral("cards") }));
        break;
    case Scenario::FolderTree:
        made = admin(message(
            words::newFolder, QString(),
            { QStringLiteral("tree"), QString(), QStringLiteral("Root"), QStringLiteral("ROOT") }));
        break;
    case Scenario::OneDocument:
        made = admin(message(words::classify, QString(),
                             { joined({ QStringLiteral("title"), QStringLiteral("start") }) }));
        break;
    default:
        return QString();
    }
    if (failed(made))
        return scenarioName(scenario) + QStringLiteral(": cannot prepare: ") + made.errorText;
    target = made.getDocId();
    if (scenario == Scenario::OneDocument)
        revisionBefore
            = testdatabase::queryOnce(
                  database, QStringLiteral("SELECT revision FROM documents WHERE id = ") + target)
                  .toLongLong();
    return QString();
}

void Burst::start()
{
    counterBefore = changeCounter(database);
}

QStringList Burst::check() const
{
    QStringList broken;
    const auto count = [this](const QString &sql) {
        return testdatabase::queryOnce(database, sql).toLongLong();
    };
    const auto expect = [&broken](const QString &what, qint64 seen, qint64 wanted) {
        if (seen != wanted)
            broken << QStringLiteral("%1: %2, expected %3").arg(what).arg(seen).arg(wanted);
    };
    const qint64 requests = qint64(callers) * rounds;
    const QString loser = losingText(scenario);

    // Per round: who succeeded, and every failure is the system's answer to
    // losing, not a database error leaking through.
    qint64 successes = 0;
    QVector<QVector<int>> winners(rounds);
    QSet<QString> clipboardKeys;
    QSet<QString> objectIds;
    QSet<QString> folderKeys;
    for (int caller = 0; caller < callers; ++caller) {
        for (int round = 0; round < rounds; ++round) {
            const nuvMQClassifyMessage &reply = replies.value(caller).value(round);
            if (!failed(reply)) {
                ++successes;
                winners[round].append(caller);
                const QString key = reply.getDocId();
                if (scenario == Scenario::NewIds)
                    (round % 2 == 1 ? objectIds : clipboardKeys).insert(key);
                else if (scenario == Scenario::FolderTree)
                    folderKeys.insert(key);
            } else if (loser.isEmpty() || !reply.errorText.contains(loser)) {
                broken << QStringLiteral("%1 failed: %2").arg(tag(caller, round), reply.errorText);
            }
        }
    }
    if (oneWinnerPerRound(scenario)) {
        for (int round = 0; round < rounds; ++round)
            expect(QStringLiteral("winners of round %1").arg(round), winners[round].size(), 1);
    } else {
        expect(QStringLiteral("successful requests"), successes, requests);
    }
    // Each successful write moved the counter once, and nothing else did.
    expect(QStringLiteral("change counter"), changeCounter(database) - counterBefore, successes);

    switch (scenario) {
    case Scenario::NewIds: {
        const qint64 clipboards = qint64(callers) * ((rounds + 1) / 2);
        expect(QStringLiteral("distinct clipboard keys"), clipboardKeys.size(), clipboards);
        expect(QStringLiteral("distinct object ids"), objectIds.size(), requests - clipboards);
        expect(QStringLiteral("clipboards stored"),
               count(QStringLiteral("SELECT count(*) FROM clipboards WHERE name LIKE 'ids-%'")),
               clipboards);
        break;
    }
    case Scenario::SameClipboardName:
        for (int round = 0; round < rounds; ++round)
            expect(QStringLiteral("clipboards shared-r%1").arg(round),
                   count(QStringLiteral("SELECT count(*) FROM clipboards WHERE name = "
                                        "'shared-r%1'")
                             .arg(round)),
                   1);
        break;
    case Scenario::CardsOnOneClipboard:
        expect(QStringLiteral("cards stored"),
               count(QStringLiteral("SELECT count(*) FROM clipboard_cards WHERE clipboard_id = ")
                     + target),
               requests);
        // Positions come from the cards already there: a lost update
        // would give two cards one position.
        expect(QStringLiteral("distinct card positions"),
               count(QStringLiteral("SELECT count(DISTINCT position) FROM clipboard_cards"
                                    " WHERE clipboard_id = ")
                     + target),
               requests);
        break;
    case Scenario::SameUserName:
        for (int round = 0; round < rounds; ++round) {
            expect(QStringLiteral("users same-r%1").arg(round),
                   count(QStringLiteral("SELECT count(*) FROM users WHERE login = 'same-r%1'")
                             .arg(round)),
                   1);
            // Only the winner's own user: the losers' commands left nothing.
            expect(QStringLiteral("own users of round %1").arg(round),
                   count(QStringLiteral("SELECT count(*) FROM users WHERE login LIKE 'own-%-r%1'")
                             .arg(round)),
                   1);
            if (winners[round].size() == 1)
                expect(QStringLiteral("the winner's own user in round %1").arg(round),
                       count(QStringLiteral("SELECT count(*) FROM users WHERE login = 'own-%1'")
                                 .arg(tag(winners[round].first(), round))),
                       1);
        }
        break;
    case Scenario::FolderTree: {
        const QString inTree = QStringLiteral(" FROM folders WHERE structure = 'tree'");
        expect(QStringLiteral("distinct folder keys"), folderKeys.size(), requests);
        expect(QStringLiteral("folders below the root"),
               count(QStringLiteral("SELECT count(*)") + inTree
                     + QStringLiteral(" AND parent_key = 'ROOT'")),
               requests);
        // The position is the number of folders already there.
        expect(QStringLiteral("distinct folder positions"),
               count(QStringLiteral("SELECT count(DISTINCT position)") + inTree), requests + 1);
        break;
    }
    case Scenario::OneDocument: {
        const QString document = QStringLiteral(" WHERE doc_id = ") + target;
        expect(QStringLiteral("revision"),
               count(QStringLiteral("SELECT revision FROM documents WHERE id = ") + target),
               revisionBefore + requests);
        expect(QStringLiteral("revisions recorded"),
               count(QStringLiteral("SELECT count(*) FROM doc_revisions") + document
                     + QStringLiteral(" AND revision > %1").arg(revisionBefore)),
               requests);
        // The title is that of the last classification in the history:
        // the whole of one command, not parts of two.
        const QString title
            = testdatabase::queryOnce(
                  database, QStringLiteral("SELECT title FROM documents WHERE id = ") + target)
                  .toString();
        const QString last
            = testdatabase::queryOnce(database,
                                      QStringLiteral("SELECT details FROM doc_history") + document
                                          + QStringLiteral(" ORDER BY id DESC LIMIT 1"))
                  .toString();
        if (last != QStringLiteral("title=") + title)
            broken << QStringLiteral("title '%1' but last history entry '%2'").arg(title, last);
        // Each caller's rounds were applied in the order it sent them.
        for (int caller = 0; caller < callers; ++caller) {
            for (int round = 1; round < rounds; ++round)
                expect(QStringLiteral("%1 after the round before").arg(tag(caller, round)),
                       count(QStringLiteral("SELECT count(*) FROM doc_history a, doc_history b"
                                            " WHERE a.doc_id = %1 AND b.doc_id = %1"
                                            " AND a.details = 'title=%2'"
                                            " AND b.details = 'title=%3' AND a.id < b.id")
                                 .arg(target, tag(caller, round - 1), tag(caller, round))),
                       1);
        }
        break;
    }
    }
    return broken;
}

void runTogether(int callers, const std::function<void(int)> &setUp,
                 const std::function<void()> &onStart, const std::function<void(int)> &body)
{
    nuv::StartLine line(callers, onStart);
    std::vector<std::thread> threads;
    for (int caller = 0; caller < callers; ++caller) {
        threads.emplace_back([&, caller] {
            setUp(caller);
            line.arrive();
            body(caller);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}

} // namespace conflicts
