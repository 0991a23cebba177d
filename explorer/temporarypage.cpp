// SPDX-License-Identifier: Apache-2.0
#include "temporarypage.h"

#include "classifyinterface.h"
#include "connection.h"
#include "records.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

namespace {

// The server hands out the caller's oldest draft and how many there are;
// the others are found by trying the numbers after it. Numbers are shared
// by all users, so a gap is normal; the search gives up after this many.
constexpr int maximumProbes = 200;

struct Draft
{
    qint64 number = 0;
    int count = 0;
    QStringList values;
    QStringList texts;
};

} // namespace

TemporaryPage::TemporaryPage(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , drafts(recordTable(QStringLiteral("temporary"), this))
    , values(new QLineEdit(this))
    , document(new QLineEdit(this))
{
    values->setPlaceholderText(tr("title=Invoice; remark=to check"));
    document->setPlaceholderText(tr("Document number"));
    auto *create = new QPushButton(tr("&Store values"), this);
    auto *apply = new QPushButton(tr("&Apply to document"), this);
    auto *remove = new QPushButton(tr("De&lete"), this);
    connect(create, &QPushButton::clicked, this, &TemporaryPage::createDraft);
    connect(apply, &QPushButton::clicked, this, &TemporaryPage::applyDraft);
    connect(remove, &QPushButton::clicked, this, &TemporaryPage::deleteDraft);
    auto *form = new QFormLayout;
    auto *valueRow = new QHBoxLayout;
    valueRow->addWidget(values, 1);
    valueRow->addWidget(create);
    form->addRow(tr("&Values:"), valueRow);
    auto *applyRow = new QHBoxLayout;
    applyRow->addWidget(document, 1);
    applyRow->addWidget(apply);
    applyRow->addWidget(remove);
    form->addRow(tr("Selected &draft:"), applyRow);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(drafts, 1);
    layout->addLayout(form);
}

void TemporaryPage::reload()
{
    readFrom(0, -1, maximumProbes, {});
}

void TemporaryPage::readFrom(qint64 number, int expected, int probes, QStringList rows)
{
    const bool done = expected >= 0 && (rows.size() >= expected || probes <= 0);
    if (done) {
        showRecords(drafts, { tr("Number"), tr("Values"), tr("Created"), tr("Owner") }, rows);
        emit loaded();
        return;
    }
    connection->call(
        QStringLiteral("getClassifyTemp"), QString::number(number),
        [number](ClassifyInterface &client) {
            Draft draft;
            draft.number = number;
            // Failure leaves no error text here: 0 is the only sign.
            draft.count = client.getClassifyTemp(draft.number, draft.values, draft.texts);
            CallResult result;
            result.ok = draft.count != 0;
            QStringList shown = draft.values;
            shown.replaceInStrings(recordSeparator, QStringLiteral("="));
            result.value = QStringList {
                QString::number(draft.count),
                joinFields({ QString::number(draft.number), shown.join(QStringLiteral("; ")),
                             draft.texts.value(0), draft.texts.value(1) })
            };
            result.summary = result.ok ? QString::number(draft.number) : tr("none");
            return result;
        },
        this,
        [this, number, expected, probes, rows](const CallResult &result) mutable {
            const QStringList answer = result.value.toStringList();
            if (number == 0) {
                // The oldest draft, and how many the user has.
                if (!result.ok) {
                    readFrom(0, 0, 0, {});
                    return;
                }
                rows << answer.value(1);
                readFrom(fields(answer.value(1)).value(0).toLongLong() + 1, answer.value(0).toInt(),
                         probes, rows);
                return;
            }
            if (result.ok)
                rows << answer.value(1);
            readFrom(number + 1, expected, probes - 1, rows);
        });
}

void TemporaryPage::createDraft()
{
    QStringList entries;
    for (const QString &part : values->text().split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const int equals = part.indexOf(QLatin1Char('='));
        if (equals > 0)
            entries << joinFields({ part.left(equals).trimmed(), part.mid(equals + 1).trimmed() });
    }
    if (entries.isEmpty())
        return;
    change(QStringLiteral("classifyTemporary"), values->text(),
           [entries](ClassifyInterface &client) {
               QString number;
               return client.classifyTemporary(number, entries);
           });
}

void TemporaryPage::applyDraft()
{
    const qint64 number = selectedRecord(drafts).value(0).toLongLong();
    const qint64 target = document->text().trimmed().toLongLong();
    if (number <= 0 || target <= 0)
        return;
    // An empty type and title keep what the stored values say.
    change(QStringLiteral("newClassifyTemp"), tr("%1 to document %2").arg(number).arg(target),
           [number, target](ClassifyInterface &client) {
               return client.newClassifyTemp(target, QString(), QString(), int(number));
           });
}

void TemporaryPage::deleteDraft()
{
    const qint64 number = selectedRecord(drafts).value(0).toLongLong();
    if (number <= 0)
        return;
    change(QStringLiteral("deleteClassifyTemp"), QString::number(number),
           [number](ClassifyInterface &client) { return client.deleteClassifyTemp(number); });
}

} // namespace nuvexplorer
