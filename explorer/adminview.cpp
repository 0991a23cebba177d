#include "adminview.h"

#include "rolespage.h"
#include "userspage.h"

#include <QTabWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

AdminView::AdminView(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , pages(new QTabWidget(this))
    , users(new UsersPage(connection, this))
    , roles(new RolesPage(connection, this))
{
    pages->setObjectName(QStringLiteral("administration"));
    addPage(users, tr("&Users"));
    addPage(roles, tr("&Roles"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(pages);
    connect(pages, &QTabWidget::currentChanged, this, &AdminView::reload);
}

void AdminView::addPage(View *page, const QString &title)
{
    pages->addTab(page, title);
    connect(page, &View::failed, this, &View::failed);
}

void AdminView::reload()
{
    if (auto *page = qobject_cast<View *>(pages->currentWidget()))
        page->reload();
}

} // namespace nuvexplorer
