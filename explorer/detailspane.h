// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_DETAILSPANE_H
#define NUVEXPLORER_DETAILSPANE_H

#include "browseview.h"
#include "connection.h"
#include "view.h"

#include <QMap>

#include <functional>

class QLabel;
class QLineEdit;
class QPushButton;
class QTabWidget;
class QTableWidget;
class ClassifyInterface;

namespace nuvexplorer {

/*
 * One document: its classification (editable; saving classifies it again),
 * history, revisions, the archive's remarks, linked documents, deadlines
 * and who may see it.
 */
class DetailsPane : public View
{
    Q_OBJECT

public:
    explicit DetailsPane(Connection *connection, QWidget *parent = nullptr);

    void setFields(const QList<Field> &fields) { fieldList = fields; }
    // Shows this document (empty: none) and reads all of it again.
    void setDocument(const QString &id);
    QString document() const { return id; }

    QTabWidget *tabs() const { return pages; }
    QTableWidget *dataTable() const { return data; }
    QTableWidget *historyTable() const { return history; }
    QTableWidget *linksTable() const { return links; }
    QTableWidget *rightsTable() const { return rights; }
    QPushButton *saveButton() const { return save; }

public Q_SLOTS:
    void reload() override;
    // Classifies the document with the values changed in the data table.
    void saveChanges();

Q_SIGNALS:
    // Everything of the document has been read.
    void loaded();
    void documentSaved(const QString &id);

private:
    QWidget *buildDataPage();
    QWidget *buildLinksPage();
    QWidget *buildDeadlinesPage();
    QWidget *buildRightsPage();
    void showData(const QStringList &entries);
    // Reads a list for one table; `loaded()` follows the last of them.
    void readInto(QTableWidget *table, const QString &operation, const QStringList &headers,
                  std::function<CallResult(ClassifyInterface &, const QString &)> read);

    QList<Field> fieldList;
    QString id;
    QLabel *title;
    QTabWidget *pages;
    QTableWidget *data;
    QPushButton *save;
    QPushButton *revert;
    QTableWidget *history;
    QTableWidget *revisions;
    QTableWidget *remarks;
    QTableWidget *links;
    QLineEdit *linkEdit;
    QTableWidget *deadlines;
    QLineEdit *deadlineDue;
    QLineEdit *deadlineText;
    QTableWidget *rights;
    QLineEdit *principal;
    QLineEdit *rightsLetters;
    QMap<QString, QString> original;
    int loading = 0;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_DETAILSPANE_H
