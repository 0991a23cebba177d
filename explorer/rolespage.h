// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_ROLESPAGE_H
#define NUVEXPLORER_ROLESPAGE_H

#include "view.h"

#include <QMap>
#include <QStringList>

class QCheckBox;
class QLineEdit;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace nuvexplorer {

/*
 * The roles as a tree: each role with the roles that belong to it and its
 * users below it. The selected role's description, administrator flag and
 * members can be changed.
 */
class RolesPage : public View
{
    Q_OBJECT

public:
    explicit RolesPage(Connection *connection, QWidget *parent = nullptr);

    QTreeWidget *tree() const { return roles; }
    bool selectRole(const QString &name);
    QLineEdit *descriptionEdit() const { return description; }
    QLineEdit *usersEdit() const { return users; }

public Q_SLOTS:
    void reload() override;
    void saveRole();
    void saveMembers();
    void deleteRole();

Q_SIGNALS:
    void loaded();

private:
    struct Role
    {
        QString description;
        bool administrator = false;
        QStringList memberRoles;
        QStringList users;
    };

    void readMembers();
    void buildTree();
    void addRoleItem(QTreeWidgetItem *parent, const QString &name, QStringList path);
    void onCurrentChanged();

    QTreeWidget *roles;
    QLineEdit *name;
    QLineEdit *description;
    QCheckBox *administrator;
    QLineEdit *users;
    QLineEdit *memberRoles;
    QMap<QString, Role> known;
    int outstanding = 0;
    int generation = 0;
    QString wanted;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_ROLESPAGE_H
