// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_SEARCHESPAGE_H
#define NUVEXPLORER_SEARCHESPAGE_H

#include "view.h"

class QLineEdit;
class QTableWidget;

namespace nuvexplorer {

// The user's saved searches: create one from conditions, run it, delete it.
class SearchesPage : public View
{
    Q_OBJECT

public:
    explicit SearchesPage(Connection *connection, QWidget *parent = nullptr);

    QTableWidget *table() const { return searches; }
    QTableWidget *resultTable() const { return results; }
    QLineEdit *nameEdit() const { return name; }
    QLineEdit *conditionsEdit() const { return conditions; }

public Q_SLOTS:
    void reload() override;
    void createSearch();
    void runSearch();
    void deleteSearch();

private:
    QTableWidget *searches;
    QTableWidget *results;
    QLineEdit *name;
    QLineEdit *description;
    QLineEdit *conditions;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_SEARCHESPAGE_H
