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

public Q_SLOTS:
    void reload() override;
    void createUser();
    void toggleActive();
    void resetPassword();
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
