#ifndef NUVEXPLORER_ADMINVIEW_H
#define NUVEXPLORER_ADMINVIEW_H

#include "view.h"

namespace nuvexplorer {

class RolesPage;
class UsersPage;

// What administrators change: users, roles, rights on folders, tenants,
// types, attributes and the server side. Every change is one operation,
// and a refusal shows the server's text.
class AdminView : public TabbedView
{
    Q_OBJECT

public:
    explicit AdminView(Connection *connection, QWidget *parent = nullptr);

    RolesPage *rolesPage() const { return roles; }
    UsersPage *usersPage() const { return users; }

private:
    UsersPage *users;
    RolesPage *roles;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_ADMINVIEW_H
