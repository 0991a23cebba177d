// SPDX-License-Identifier: Apache-2.0
#include "calllog.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QHeaderView>
#include <QTableView>

#include <algorithm>

namespace nuvexplorer {

namespace {

// The log keeps the newest calls; a session that polls for hours would
// otherwise grow without end.
constexpr int maximumRows = 5000;

} // namespace

int CallLogModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : records.size();
}

int CallLogModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QString CallLogModel::cell(const CallRecord &record, int column) const
{
    switch (column) {
    case Time:
        return record.started.toString(QStringLiteral("hh:mm:ss.zzz"));
    case Operation:
        return record.operation;
    case Command:
        return record.command;
    case Arguments:
        return record.arguments;
    case Duration:
        return tr("%1 ms").arg(record.milliseconds);
    case Result:
        return record.ok ? record.summary : tr("failed");
    case Error:
        return record.error;
    }
    return {};
}

QVariant CallLogModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= records.size())
        return {};
    const CallRecord &record = records.at(index.row());
    if (role == Qt::DisplayRole || role == Qt::ToolTipRole)
        return cell(record, index.column());
    if (role == Qt::TextAlignmentRole && index.column() == Duration)
        return int(Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

QVariant CallLogModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case Time:
        return tr("Time");
    case Operation:
        return tr("Operation");
    case Command:
        return tr("Command");
    case Arguments:
        return tr("Arguments");
    case Duration:
        return tr("Duration");
    case Result:
        return tr("Result");
    case Error:
        return tr("Error");
    }
    return {};
}

QString CallLogModel::text(const QList<int> &rows) const
{
    QStringList lines;
    QStringList header;
    for (int column = 0; column < ColumnCount; ++column)
        header << headerData(column, Qt::Horizontal).toString();
    lines << header.join(QLatin1Char('\t'));
    for (int row : rows) {
        QStringList cells;
        for (int column = 0; column < ColumnCount; ++column)
            cells << cell(records.at(row), column).replace(QLatin1Char('\t'), QLatin1Char(' '));
        lines << cells.join(QLatin1Char('\t'));
    }
    return lines.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

void CallLogModel::append(const CallRecord &record)
{
    if (records.size() >= maximumRows) {
        beginRemoveRows({}, 0, 0);
        records.removeFirst();
        endRemoveRows();
    }
    beginInsertRows({}, records.size(), records.size());
    records.append(record);
    endInsertRows();
}

void CallLogModel::clear()
{
    beginResetModel();
    records.clear();
    endResetModel();
}

CallLogDock::CallLogDock(QWidget *parent)
    : QDockWidget(tr("Call log"), parent)
    , log(new CallLogModel(this))
    , view(new QTableView(this))
{
    setObjectName(QStringLiteral("callLog"));
    view->setModel(log);
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->setAlternatingRowColors(true);
    view->verticalHeader()->hide();
    view->horizontalHeader()->setStretchLastSection(true);
    view->setContextMenuPolicy(Qt::ActionsContextMenu);
    auto *copy = new QAction(tr("&Copy"), view);
    copy->setShortcut(QKeySequence::Copy);
    copy->setShortcutContext(Qt::WidgetShortcut);
    connect(copy, &QAction::triggered, this, &CallLogDock::copySelection);
    auto *copyEverything = new QAction(tr("Copy &all"), view);
    connect(copyEverything, &QAction::triggered, this, &CallLogDock::copyAll);
    auto *clear = new QAction(tr("C&lear"), view);
    connect(clear, &QAction::triggered, log, &CallLogModel::clear);
    view->addActions({ copy, copyEverything, clear });
    // Follow the newest call unless the person scrolled away from the end.
    connect(log, &QAbstractItemModel::rowsInserted, view, [this] {
        if (!view->selectionModel()->hasSelection())
            view->scrollToBottom();
    });
    setWidget(view);
}

void CallLogDock::copySelection()
{
    QList<int> rows;
    for (const QModelIndex &index : view->selectionModel()->selectedRows())
        rows << index.row();
    std::sort(rows.begin(), rows.end());
    if (!rows.isEmpty())
        QApplication::clipboard()->setText(log->text(rows));
}

void CallLogDock::copyAll()
{
    QList<int> rows;
    for (int row = 0; row < log->rowCount(); ++row)
        rows << row;
    QApplication::clipboard()->setText(log->text(rows));
}

} // namespace nuvexplorer
