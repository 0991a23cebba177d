// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_ADMINVIEW_H
#define NUVEXPLORER_ADMINVIEW_H

#include "view.h"

namespace nuvexplorer {

class AttributesPage;
class FolderRightsPage;
class RolesPage;
class ServerPage;
class TenantsPage;
class TypesPage;
class UsersPage;

// What administrators change: users, roles, rights on folders, tenants,
// types, attributes and the server side. Every change is one operation,
// and a refusal shows the server's text.
class AdminView : public TabbedView
{
    Q_OBJECT

public:
    explicit AdminView(Connection *connection, QWidget *parent = nullptr);

    void setArchive(const QString &archive);
    RolesPage *rolesPage() const { return roles; }
    UsersPage *usersPage() const { return users; }
    FolderRightsPage *folderRightsPage() const { return folderRights; }
    TenantsPage *tenantsPage() const { return tenants; }
    TypesPage *documentTypesPage() const { return documentTypes; }
    TypesPage *statusTypesPage() const { return statusTypes; }
    AttributesPage *attributesPage() const { return attributes; }
    ServerPage *serverPage() const { return server; }

private:
    UsersPage *users;
    RolesPage *roles;
    FolderRightsPage *folderRights;
    TenantsPage *tenants;
    TypesPage *documentTypes;
    TypesPage *statusTypes;
    AttributesPage *attributes;
    ServerPage *server;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_ADMINVIEW_H
