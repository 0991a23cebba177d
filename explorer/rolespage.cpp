// SPDX-License-Identifier: Apache-2.0
#include "rolespage.h"

#include "classifyinterface.h"
#include "connection.h"
#include "records.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

namespace {

enum { NameRole = Qt::UserRole + 1, IsUserRole };

} // namespace

RolesPage::RolesPage(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , roles(new QTreeWidget(this))
    , name(new QLineEdit(this))
    , description(new QLineEdit(this))
    , administrator(new QCheckBox(tr("Holders are &administrators"), this))
    , users(new QLineEdit(this))
    , memberRoles(new QLineEdit(this))
{
    roles->setObjectName(QStringLiteral("roles"));
    roles->setHeaderLabels({ tr("Role or user"), tr("Description") });
    roles->header()->setStretchLastSection(true);
    connect(roles, &QTreeWidget::currentItemChanged, this, &RolesPage::onCurrentChanged);
    name->setObjectName(QStringLiteral("roleName"));
    description->setObjectName(QStringLiteral("roleDescription"));
    users->setObjectName(QStringLiteral("roleUsers"));
    users->setPlaceholderText(tr("user, user ..."));
    memberRoles->setObjectName(QStringLiteral("memberRoles"));
    memberRoles->setPlaceholderText(tr("role, role ..."));

    auto *form = new QFormLayout;
    form->addRow(tr("&Name:"), name);
    form->addRow(tr("&Description:"), description);
    form->addRow(QString(), administrator);
    auto *saveButton = new QPushButton(tr("&Save role"), this);
    auto *newButton = new QPushButton(tr("&New role"), this);
    auto *deleteButton = new QPushButton(tr("De&lete role"), this);
    connect(saveButton, &QPushButton::clicked, this, &RolesPage::saveRole);
    connect(deleteButton, &QPushButton::clicked, this, &RolesPage::deleteRole);
    connect(newButton, &QPushButton::clicked, this, [this] {
        roles->setCurrentItem(nullptr);
        for (QLineEdit *edit : { name, description, users, memberRoles })
            edit->clear();
        administrator->setChecked(false);
        name->setFocus();
    });
    auto *roleButtons = new QHBoxLayout;
    roleButtons->addWidget(newButton);
    roleButtons->addWidget(deleteButton);
    roleButtons->addStretch();
    roleButtons->addWidget(saveButton);
    form->addRow(roleButtons);
    form->addRow(tr("&Users:"), users);
    form->addRow(tr("Member &roles:"), memberRoles);
    auto *membersButton = new QPushButton(tr("Save &members"), this);
    connect(membersButton, &QPushButton::clicked, this, &RolesPage::saveMembers);
    form->addRow(QString(), membersButton);

    auto *editor = new QWidget(this);
    auto *editorLayout = new QVBoxLayout(editor);
    editorLayout->addLayout(form);
    editorLayout->addStretch();
    auto *splitter = new QSplitter(this);
    splitter->addWidget(roles);
    splitter->addWidget(editor);
    splitter->setStretchFactor(0, 1);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(splitter);
}

void RolesPage::reload()
{
    if (!name->text().isEmpty())
        wanted = name->text();
    // Answers of an older reload still on their way are dropped.
    const int round = ++generation;
    connection->call(
        QStringLiteral("getRoleList"), QString(),
        [](ClassifyInterface &client) {
            return Connection::readList(client, [&] { return client.getRoleList(); });
        },
        this,
        [this, round](const CallResult &result) {
            if (round != generation)
                return;
            if (!result.ok) {
                emit failed(QStringLiteral("getRoleList"), result.error);
                return;
            }
            // Role information: name, description, administrator, users.
            known.clear();
            for (const QString &record : result.value.toStringList()) {
                const QStringList parts = fields(record);
                Role role;
                role.description = parts.value(1);
                role.administrator = parts.value(2) == QLatin1String("1");
                known.insert(parts.value(0), role);
            }
            readMembers();
        });
}

void RolesPage::readMembers()
{
    // Each role's member roles and member users, two calls per role; the
    // tree is built when the last answer is in.
    struct Members
    {
        const char *operation;
        QStringList (ClassifyInterface::*read)(QString);
        QStringList Role::*list;
    };
    static const Members kinds[] = {
        { "getRoleRoles", &ClassifyInterface::getRoleRoles, &Role::memberRoles },
        { "getRoleUsers", &ClassifyInterface::getRoleUsers, &Role::users },
    };
    outstanding = known.size() * 2;
    if (outstanding == 0)
        buildTree();
    for (auto it = known.cbegin(); it != known.cend(); ++it) {
        const QString role = it.key();
        for (const Members &kind : kinds) {
            connection->call(
                QLatin1String(kind.operation), role,
                [role, read = kind.read](ClassifyInterface &client) {
                    return Connection::readList(client, [&] { return (client.*read)(role); });
                },
                this,
                [this, role, list = kind.list, round = generation](const CallResult &result) {
                    if (round != generation)
                        return;
                    if (known.contains(role))
                        known[role].*list = result.value.toStringList();
                    if (--outstanding == 0)
                        buildTree();
                });
        }
    }
}

void RolesPage::buildTree()
{
    const QSignalBlocker blocker(roles);
    roles->clear();
    QStringList contained;
    for (const Role &role : qAsConst(known))
        contained << role.memberRoles;
    // A role that belongs to no other role is a root of the tree.
    for (auto it = known.cbegin(); it != known.cend(); ++it)
        if (!contained.contains(it.key()))
            addRoleItem(nullptr, it.key(), {});
    roles->expandAll();
    roles->resizeColumnToContents(0);
    if (!wanted.isEmpty())
        selectRole(wanted);
    emit loaded();
}

void RolesPage::addRoleItem(QTreeWidgetItem *parent, const QString &role, QStringList path)
{
    const Role info = known.value(role);
    auto *item = parent ? new QTreeWidgetItem(parent, { role, info.description })
                        : new QTreeWidgetItem(roles, { role, info.description });
    item->setData(0, NameRole, role);
    item->setData(0, IsUserRole, false);
    QFont font = item->font(0);
    font.setBold(true);
    item->setFont(0, font);
    // Memberships never form a cycle on the server; the path guards
    // against an answer that would make one anyway.
    path << role;
    for (const QString &member : info.memberRoles)
        if (!path.contains(member))
            addRoleItem(item, member, path);
    for (const QString &user : info.users) {
        auto *userItem = new QTreeWidgetItem(item, { user, tr("user") });
        userItem->setData(0, NameRole, user);
        userItem->setData(0, IsUserRole, true);
    }
}

bool RolesPage::selectRole(const QString &role)
{
    for (QTreeWidgetItemIterator it(roles); *it; ++it) {
        if (!(*it)->data(0, IsUserRole).toBool() && (*it)->data(0, NameRole) == role) {
            roles->setCurrentItem(*it);
            onCurrentChanged();
            return true;
        }
    }
    // Not read yet: chosen when the tree arrives.
    wanted = role;
    return false;
}

void RolesPage::onCurrentChanged()
{
    QTreeWidgetItem *item = roles->currentItem();
    if (!item)
        return;
    // A user's line stands for the role it is listed under.
    if (item->data(0, IsUserRole).toBool() && item->parent())
        item = item->parent();
    const QString role = item->data(0, NameRole).toString();
    const Role info = known.value(role);
    name->setText(role);
    description->setText(info.description);
    administrator->setChecked(info.administrator);
    users->setText(info.users.join(QStringLiteral(", ")));
    memberRoles->setText(info.memberRoles.join(QStringLiteral(", ")));
}

void RolesPage::saveRole()
{
    const QString role = name->text().trimmed();
    if (role.isEmpty())
        return;
    wanted = role;
    const QString record
        = joinFields({ role, description->text(),
                       administrator->isChecked() ? QStringLiteral("1") : QStringLiteral("0") });
    change(QStringLiteral("setRoles"), role,
           [record](ClassifyInterface &client) { return client.setRoles({ record }); });
}

void RolesPage::saveMembers()
{
    const QString role = name->text().trimmed();
    if (role.isEmpty())
        return;
    wanted = role;
    // One list replaces the members of the kind it names and leaves the
    // other kind alone; only an empty list removes members, all of them.
    // Emptying one kind therefore clears everything first.
    const QStringList userList = nameList(users->text());
    const QStringList roleList = nameList(memberRoles->text());
    const Role before = known.value(role);
    const bool clearFirst = (userList.isEmpty() && !before.users.isEmpty())
        || (roleList.isEmpty() && !before.memberRoles.isEmpty());
    if (clearFirst || (userList.isEmpty() && roleList.isEmpty()))
        change(QStringLiteral("setRoleUsers"), role + QStringLiteral(": []"),
               [role](ClassifyInterface &client) { return client.setRoleUsers(role, {}); });
    if (!userList.isEmpty())
        change(QStringLiteral("setRoleUsers"),
               role + QStringLiteral(": ") + userList.join(QStringLiteral(", ")),
               [role, userList](ClassifyInterface &client) {
                   return client.setRoleUsers(role, userList);
               });
    if (!roleList.isEmpty())
        change(QStringLiteral("setRoleRoles"),
               role + QStringLiteral(": ") + roleList.join(QStringLiteral(", ")),
               [role, roleList](ClassifyInterface &client) {
                   // An invokable member of the plugin's class, not of the
                   // interface.
                   bool ok = false;
                   QMetaObject::invokeMethod(&client, "setRoleRoles", Qt::DirectConnection,
                                             Q_RETURN_ARG(bool, ok), Q_ARG(QString, role),
                                             Q_ARG(QStringList, roleList));
                   return ok;
               });
}

void RolesPage::deleteRole()
{
    const QString role = name->text().trimmed();
    if (role.isEmpty())
        return;
    wanted.clear();
    name->clear();
    change(QStringLiteral("deleteRoles"), role,
           [role](ClassifyInterface &client) { return client.deleteRoles({ role }); });
}

} // namespace nuvexplorer
