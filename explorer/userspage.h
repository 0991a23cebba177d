// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_USERSPAGE_H
#define NUVEXPLORER_USERSPAGE_H

#include "view.h"

class QLineEdit;
class QTableWidget;

namespace nuvexplorer {

// The users: create, activate or deactivate, reset a password, give roles.
class UsersPage : public View
{
    Q_OBJECT

public:
    explicit UsersPage(Connection *connection, QWidget *parent = nullptr);

    QTableWidget *table() const { return users; }
    QLineEdit *rolesEdit() const { return roles; }
    bool selectUser(const QString &login);

public Q_SLOTS:
    void reload() override;
    // Ask in a dialog, then call the operation below.
    void askForNewUser();
    void askForPassword();
    // The first password is to be changed at the first login.
    void createUser(const QString &login, const QString &fullName, const QString &mail,
                    const QString &password);
    void resetPassword(const QString &login, const QString &password);
    void toggleActive();
    void saveRoles();

Q_SIGNALS:
    void loaded();

private:
    void showRoles();

    QTableWidget *users;
    QLineEdit *roles;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_USERSPAGE_H
