// SPDX-License-Identifier: Apache-2.0
#include "adminview.h"

#include "attributespage.h"
#include "folderrightspage.h"
#include "rolespage.h"
#include "serverpage.h"
#include "tenantspage.h"
#include "typespage.h"
#include "userspage.h"

#include <QTabWidget>

namespace nuvexplorer {

AdminView::AdminView(Connection *connection, QWidget *parent)
    : TabbedView(connection, parent)
    , users(new UsersPage(connection, this))
    , roles(new RolesPage(connection, this))
    , folderRights(new FolderRightsPage(connection, this))
    , tenants(new TenantsPage(connection, this))
    , documentTypes(new TypesPage(TypesPage::DocumentTypes, connection, this))
    , statusTypes(new TypesPage(TypesPage::StatusTypes, connection, this))
    , attributes(new AttributesPage(connection, this))
    , server(new ServerPage(connection, this))
{
    pages->setObjectName(QStringLiteral("administration"));
    addPage(users, tr("&Users"));
    addPage(roles, tr("&Roles"));
    addPage(folderRights, tr("&Folder rights"));
    addPage(tenants, tr("&Tenants"));
    addPage(documentTypes, tr("Document t&ypes"));
    addPage(statusTypes, tr("&Status types"));
    addPage(attributes, tr("A&ttributes"));
    addPage(server, tr("Ser&ver"));
}

void AdminView::setArchive(const QString &archive)
{
    folderRights->setArchive(archive);
}

} // namespace nuvexplorer
