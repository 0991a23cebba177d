// SPDX-License-Identifier: Apache-2.0
#include "detailspane.h"

#include "classifyinterface.h"
#include "connection.h"
#include "records.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTableWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

namespace {

QWidget *page(QWidget *content, QLayout *controls)
{
    auto *widget = new QWidget;
    auto *layout = new QVBoxLayout(widget);
    layout->addWidget(content, 1);
    if (controls)
        layout->addLayout(controls);
    return widget;
}

} // namespace

DetailsPane::DetailsPane(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , title(new QLabel(this))
    , pages(new QTabWidget(this))
    , data(recordTable(QStringLiteral("data"), this))
    , save(new QPushButton(tr("&Save"), this))
    , revert(new QPushButton(tr("Re&vert"), this))
    , history(recordTable(QStringLiteral("history"), this))
    , revisions(recordTable(QStringLiteral("revisions"), this))
    , remarks(recordTable(QStringLiteral("remarks"), this))
    , links(recordTable(QStringLiteral("links"), this))
    , linkEdit(new QLineEdit(this))
    , deadlines(recordTable(QStringLiteral("deadlines"), this))
    , deadlineDue(new QLineEdit(this))
    , deadlineText(new QLineEdit(this))
    , rights(recordTable(QStringLiteral("rights"), this))
    , principal(new QLineEdit(this))
    , rightsLetters(new QLineEdit(QStringLiteral("rw"), this))
{
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    pages->addTab(buildDataPage(), tr("D&ata"));
    pages->addTab(page(history, nullptr), tr("&History"));
    pages->addTab(page(revisions, nullptr), tr("Re&visions"));
    pages->addTab(page(remarks, nullptr), tr("Remar&ks"));
    pages->addTab(buildLinksPage(), tr("&Linked"));
    pages->addTab(buildDeadlinesPage(), tr("Dead&lines"));
    pages->addTab(buildRightsPage(), tr("Vi&sible to"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(title);
    layout->addWidget(pages, 1);
    setDocument(QString());
}

QWidget *DetailsPane::buildDataPage()
{
    data->setColumnCount(2);
    data->setHorizontalHeaderLabels({ tr("Field"), tr("Value") });
    data->horizontalHeader()->setStretchLastSection(true);
    data->setEditTriggers(QAbstractItemView::AllEditTriggers);
    connect(data, &QTableWidget::itemChanged, this, [this] {
        bool changed = false;
        for (int row = 0; row < data->rowCount(); ++row) {
            const QString field = data->item(row, 0)->data(Qt::UserRole).toString();
            if (data->item(row, 1) && data->item(row, 1)->text() != original.value(field))
                changed = true;
        }
        save->setEnabled(changed);
        revert->setEnabled(changed);
    });
    save->setObjectName(QStringLiteral("save"));
    connect(save, &QPushButton::clicked, this, &DetailsPane::saveChanges);
    connect(revert, &QPushButton::clicked, this, &DetailsPane::reload);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(revert);
    buttons->addWidget(save);
    return page(data, buttons);
}

QWidget *DetailsPane::buildLinksPage()
{
    linkEdit->setPlaceholderText(tr("Document number"));
    auto *add = new QPushButton(tr("Lin&k"), this);
    auto *remove = new QPushButton(tr("&Unlink"), this);
    connect(add, &QPushButton::clicked, this, [this] {
        const QString other = linkEdit->text().trimmed();
        const QString doc = id;
        change(QStringLiteral("addLinkedDocuments"), doc + QStringLiteral(": ") + other,
               [doc, other](ClassifyInterface &client) {
                   return client.addLinkedDocuments(doc, { other });
               });
    });
    connect(remove, &QPushButton::clicked, this, [this] {
        const QString other = selectedRecord(links).value(0);
        if (other.isEmpty())
            return;
        const QString doc = id;
        change(QStringLiteral("removeLinkedDocuments"), doc + QStringLiteral(": ") + other,
               [doc, other](ClassifyInterface &client) {
                   return client.removeLinkedDocuments(doc, { other });
               });
    });
    auto *controls = new QHBoxLayout;
    controls->addWidget(linkEdit, 1);
    controls->addWidget(add);
    controls->addWidget(remove);
    return page(links, controls);
}

QWidget *DetailsPane::buildDeadlinesPage()
{
    deadlineDue->setPlaceholderText(tr("yyyy-MM-dd hh:mm:ss"));
    deadlineText->setPlaceholderText(tr("What is due"));
    auto *add = new QPushButton(tr("A&dd"), this);
    auto *done = new QPushButton(tr("Mark &done"), this);
    // Deadline record: id, document, due, assignee, text, state.
    connect(add, &QPushButton::clicked, this, [this] {
        const QString record = joinFields({ QString(), id, deadlineDue->text().trimmed(), QString(),
                                            deadlineText->text(), QStringLiteral("open") });
        change(QStringLiteral("saveDeadLines"), deadlineText->text(),
               [record](ClassifyInterface &client) { return client.saveDeadLines({ record }); });
    });
    connect(done, &QPushButton::clicked, this, [this] {
        QStringList record = selectedRecord(deadlines);
        if (record.isEmpty())
            return;
        record[5] = QStringLiteral("done");
        const QString entry = joinFields(record);
        change(QStringLiteral("saveDeadLines"), record.value(0),
               [entry](ClassifyInterface &client) { return client.saveDeadLines({ entry }); });
    });
    auto *controls = new QHBoxLayout;
    controls->addWidget(deadlineDue);
    controls->addWidget(deadlineText, 1);
    controls->addWidget(add);
    controls->addWidget(done);
    return page(deadlines, controls);
}

QWidget *DetailsPane::buildRightsPage()
{
    principal->setPlaceholderText(tr("User or role"));
    rightsLetters->setMaximumWidth(60);
    rightsLetters->setToolTip(tr("r: read, rw: read and write"));
    auto *grant = new QPushButton(tr("&Grant"), this);
    auto *withdraw = new QPushButton(tr("&Withdraw"), this);
    connect(grant, &QPushButton::clicked, this, [this] {
        const QString entry = joinFields({ principal->text().trimmed(), rightsLetters->text() });
        const QString doc = id;
        change(QStringLiteral("setDocUsersAndRoles"),
               doc + QStringLiteral(": ADD ") + principal->text(),
               [doc, entry](ClassifyInterface &client) {
                   return client.setDocUsersAndRoles(doc, QStringLiteral("ADD"), { entry });
               });
    });
    connect(withdraw, &QPushButton::clicked, this, [this] {
        const QString who = selectedRecord(rights).value(0);
        if (who.isEmpty())
            return;
        const QString doc = id;
        change(QStringLiteral("setDocUsersAndRoles"), doc + QStringLiteral(": REMOVE ") + who,
               [doc, who](ClassifyInterface &client) {
                   return client.setDocUsersAndRoles(doc, QStringLiteral("REMOVE"), { who });
               });
    });
    auto *controls = new QHBoxLayout;
    controls->addWidget(principal, 1);
    controls->addWidget(rightsLetters);
    controls->addWidget(grant);
    controls->addWidget(withdraw);
    return page(rights, controls);
}

void DetailsPane::setDocument(const QString &document)
{
    id = document;
    reload();
}

void DetailsPane::reload()
{
    pages->setEnabled(!id.isEmpty());
    title->setText(id.isEmpty() ? tr("No document selected") : tr("Document %1").arg(id));
    save->setEnabled(false);
    revert->setEnabled(false);
    if (id.isEmpty()) {
        for (QTableWidget *table : { data, history, revisions, remarks, links, deadlines, rights })
            table->setRowCount(0);
        return;
    }
    const QString doc = id;
    loading += 7;
    connection->call(
        QStringLiteral("getDocumentData"), doc,
        [doc](ClassifyInterface &client) {
            return Connection::readList(client,
                                        [&] { return client.getDocumentData(doc, QString()); });
        },
        this,
        [this, doc](const CallResult &result) {
            if (doc == id)
                showData(result.value.toStringList());
            if (--loading == 0)
                emit loaded();
        });
    readInto(history, QStringLiteral("getDocHistory"),
             { tr("Time"), tr("User"), tr("Action"), tr("Details") },
             [](ClassifyInterface &client, const QString &doc) {
                 QStringList list;
                 const bool ok = client.getDocHistory(doc, list);
                 return Connection::fromBool(client, ok, list);
             });
    readInto(revisions, QStringLiteral("getRevisionen"),
             { tr("Revision"), tr("Time"), tr("User"), tr("Changed fields") },
             [](ClassifyInterface &client, const QString &doc) {
                 // Not part of the interface: the plugin's class offers it
                 // as an invokable member.
                 return Connection::readList(client, [&] {
                     QStringList list;
                     QMetaObject::invokeMethod(&client, "getRevisionen", Qt::DirectConnection,
                                               Q_RETURN_ARG(QStringList, list),
                                               Q_ARG(QString, doc));
                     return list;
                 });
             });
    readInto(remarks, QStringLiteral("getBemerkungen"), { tr("Remarks in this archive") },
             [](ClassifyInterface &client, const QString &) {
                 return Connection::readList(client, [&] { return client.getBemerkungen(); });
             });
    readInto(links, QStringLiteral("readLinkedDocuments"), { tr("Linked document") },
             [](ClassifyInterface &client, const QString &doc) {
                 return Connection::readList(client,
                                             [&] { return client.readLinkedDocuments(doc); });
             });
    readInto(deadlines, QStringLiteral("getDeadLineForDocId"),
             { tr("Id"), tr("Document"), tr("Due"), tr("Assignee"), tr("Text"), tr("State") },
             [](ClassifyInterface &client, const QString &doc) {
                 return Connection::readList(client,
                                             [&] { return client.getDeadLineForDocId(doc); });
             });
    readInto(rights, QStringLiteral("getDocUsersAndRoles"), { tr("User or role"), tr("Rights") },
             [](ClassifyInterface &client, const QString &doc) {
                 QStringList list;
                 const bool ok = client.getDocUsersAndRoles(doc, list);
                 return Connection::fromBool(client, ok, list);
             });
}

void DetailsPane::readInto(QTableWidget *table, const QString &operation,
                           const QStringList &headers,
                           std::function<CallResult(ClassifyInterface &, const QString &)> read)
{
    const QString doc = id;
    connection->call(
        operation, doc, [doc, read](ClassifyInterface &client) { return read(client, doc); }, this,
        [this, doc, table, headers](const CallResult &result) {
            if (doc == id)
                showRecords(table, headers, result.value.toStringList());
            if (--loading == 0)
                emit loaded();
        });
}

void DetailsPane::showData(const QStringList &entries)
{
    QMap<QString, QString> values;
    for (const QString &entry : entries) {
        const QStringList parts = fields(entry);
        values.insert(parts.value(0).toLower(), parts.mid(1).join(recordSeparator));
    }
    const QSignalBlocker blocker(data);
    data->setRowCount(fieldList.size());
    original.clear();
    for (int row = 0; row < fieldList.size(); ++row) {
        const Field &field = fieldList.at(row);
        const QString value = values.value(field.name.toLower());
        original.insert(field.name, value);
        auto *label
            = new QTableWidgetItem(field.mandatory ? tr("%1 *").arg(field.label) : field.label);
        label->setData(Qt::UserRole, field.name);
        label->setFlags(label->flags() & ~Qt::ItemIsEditable);
        label->setToolTip(field.name);
        data->setItem(row, 0, label);
        data->setItem(row, 1, new QTableWidgetItem(value));
    }
    data->resizeColumnToContents(0);
}

void DetailsPane::saveChanges()
{
    QStringList entries;
    for (int row = 0; row < data->rowCount(); ++row) {
        const QString field = data->item(row, 0)->data(Qt::UserRole).toString();
        const QString value = data->item(row, 1) ? data->item(row, 1)->text() : QString();
        if (value != original.value(field))
            entries << joinFields({ field, value });
    }
    if (entries.isEmpty() || id.isEmpty())
        return;
    const QString doc = id;
    QStringList shown = entries;
    shown.replaceInStrings(recordSeparator, QStringLiteral("="));
    connection->call(
        QStringLiteral("classify"), doc + QStringLiteral(": ") + shown.join(QStringLiteral(", ")),
        [doc, entries](ClassifyInterface &client) {
            QString target = doc;
            const bool ok = client.classify(target, entries);
            return Connection::fromBool(client, ok, target, target);
        },
        this,
        [this, doc](const CallResult &result) {
            if (!result.ok) {
                emit failed(QStringLiteral("classify"), result.error);
                return;
            }
            emit documentSaved(doc);
        });
}

} // namespace nuvexplorer
