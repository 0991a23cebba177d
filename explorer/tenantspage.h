// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_TENANTSPAGE_H
#define NUVEXPLORER_TENANTSPAGE_H

#include "view.h"

class QLineEdit;
class QTableWidget;

namespace nuvexplorer {

// The tenants; a new tenant brings an archive of its own name.
class TenantsPage : public View
{
    Q_OBJECT

public:
    explicit TenantsPage(Connection *connection, QWidget *parent = nullptr);

    QTableWidget *table() const { return tenants; }
    QLineEdit *nameEdit() const { return name; }

public Q_SLOTS:
    void reload() override;
    void addTenant();

private:
    QTableWidget *tenants;
    QLineEdit *name;
    QLineEdit *description;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_TENANTSPAGE_H
