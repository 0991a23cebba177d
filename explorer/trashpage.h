// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_TRASHPAGE_H
#define NUVEXPLORER_TRASHPAGE_H

#include "view.h"

#include <QStringList>

class QLabel;
class QLineEdit;
class QTableWidget;

namespace nuvexplorer {

/*
 * The trash of the archive. The server lists no documents in the trash,
 * only counts them; the page shows the documents moved there from this
 * window and any whose numbers are typed in, and moves them in and out.
 */
class TrashPage : public View
{
    Q_OBJECT

public:
    explicit TrashPage(Connection *connection, QWidget *parent = nullptr);

    QTableWidget *table() const { return documents; }
    QLineEdit *numbersEdit() const { return numbers; }
    QLabel *countLabel() const { return count; }
    // Another archive: the documents shown belong to the old one.
    void forget();
    // A document moved to the trash elsewhere in the window.
    void remember(const QString &id);

public Q_SLOTS:
    void reload() override;
    void moveToTrash();
    void restore();

Q_SIGNALS:
    void loaded();

private:
    QStringList typed();

    QLabel *count;
    QLineEdit *numbers;
    QTableWidget *documents;
    QStringList shown;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_TRASHPAGE_H
