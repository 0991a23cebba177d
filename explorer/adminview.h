#ifndef NUVEXPLORER_ADMINVIEW_H
#define NUVEXPLORER_ADMINVIEW_H

#include "view.h"

class QTabWidget;

namespace nuvexplorer {

class RolesPage;
class UsersPage;

// What administrators change: users, roles, rights on folders, tenants,
// types, attributes and the server side. Every change is one operation,
// and a refusal shows the server's text.
class AdminView : public View
{
    Q_OBJECT

public:
    explicit AdminView(Connection *connection, QWidget *parent = nullptr);

    void setArchive(const QString &archive) { currentArchive = archive; }
    QTabWidget *tabs() const { return pages; }
    RolesPage *rolesPage() const { return roles; }
    UsersPage *usersPage() const { return users; }

public Q_SLOTS:
    void reload() override;

private:
    void addPage(View *page, const QString &title);

    QString currentArchive;
    QTabWidget *pages;
    UsersPage *users;
    RolesPage *roles;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_ADMINVIEW_H
