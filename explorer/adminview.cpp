#include "adminview.h"

#include "rolespage.h"
#include "userspage.h"

#include <QTabWidget>

namespace nuvexplorer {

AdminView::AdminView(Connection *connection, QWidget *parent)
    : TabbedView(connection, parent)
    , users(new UsersPage(connection, this))
    , roles(new RolesPage(connection, this))
{
    pages->setObjectName(QStringLiteral("administration"));
    addPage(users, tr("&Users"));
    addPage(roles, tr("&Roles"));
}

} // namespace nuvexplorer
