// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_CALLLOG_H
#define NUVEXPLORER_CALLLOG_H

#include "connection.h"

#include <QAbstractTableModel>
#include <QDockWidget>
#include <QVector>

class QTableView;

namespace nuvexplorer {

// Every call the explorer made, oldest first: the host's view of the wire.
class CallLogModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Time, Operation, Command, Arguments, Duration, Result, Error, ColumnCount };

    using QAbstractTableModel::QAbstractTableModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

    const CallRecord &record(int row) const { return records.at(row); }
    // The rows as tab-separated text with a header line, for the clipboard.
    QString text(const QList<int> &rows) const;

public Q_SLOTS:
    void append(const nuvexplorer::CallRecord &record);
    void clear();

private:
    QString cell(const CallRecord &record, int column) const;

    QVector<CallRecord> records;
};

class CallLogDock : public QDockWidget
{
    Q_OBJECT

public:
    explicit CallLogDock(QWidget *parent = nullptr);

    CallLogModel *model() const { return log; }

public Q_SLOTS:
    void copySelection();
    void copyAll();

private:
    CallLogModel *log;
    QTableView *view;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_CALLLOG_H
