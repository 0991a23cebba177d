// SPDX-License-Identifier: Apache-2.0
#include "userspage.h"

#include "classifyinterface.h"
#include "connection.h"
#include "passworddialog.h"
#include "records.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

namespace {

// User record: login, full name, e-mail, password expired, active.
enum { Login, FullName, Mail, Expired, Active };

} // namespace

UsersPage::UsersPage(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , users(recordTable(QStringLiteral("users"), this))
    , roles(new QLineEdit(this))
{
    users->setSortingEnabled(false);
    roles->setObjectName(QStringLiteral("userRoles"));
    roles->setPlaceholderText(tr("role, role ..."));
    connect(users, &QTableWidget::currentCellChanged, this, &UsersPage::showRoles);

    auto *create = new QPushButton(tr("&New user..."), this);
    auto *toggle = new QPushButton(tr("Ac&tivate / deactivate"), this);
    auto *reset = new QPushButton(tr("Reset &password..."), this);
    auto *saveRolesButton = new QPushButton(tr("Save r&oles"), this);
    connect(create, &QPushButton::clicked, this, &UsersPage::askForNewUser);
    connect(toggle, &QPushButton::clicked, this, &UsersPage::toggleActive);
    connect(reset, &QPushButton::clicked, this, &UsersPage::askForPassword);
    connect(saveRolesButton, &QPushButton::clicked, this, &UsersPage::saveRoles);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(create);
    buttons->addWidget(toggle);
    buttons->addWidget(reset);
    buttons->addStretch();
    auto *roleRow = new QFormLayout;
    auto *roleLine = new QHBoxLayout;
    roleLine->addWidget(roles, 1);
    roleLine->addWidget(saveRolesButton);
    roleRow->addRow(tr("Roles of the &user:"), roleLine);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(users, 1);
    layout->addLayout(roleRow);
    layout->addLayout(buttons);
}

void UsersPage::reload()
{
    const QString selected = selectedRecord(users).value(Login);
    connection->call(
        QStringLiteral("getUsers"), QString(),
        [](ClassifyInterface &client) {
            QStringList list;
            const bool ok = client.getUsers(list);
            return Connection::fromBool(client, ok, list);
        },
        this,
        [this, selected](const CallResult &result) {
            if (!result.ok)
                emit failed(QStringLiteral("getUsers"), result.error);
            showRecords(users,
                        { tr("Login"), tr("Full name"), tr("E-mail"), tr("Password expired"),
                          tr("Active") },
                        result.value.toStringList());
            selectUser(selected);
            emit loaded();
        });
}

bool UsersPage::selectUser(const QString &login)
{
    for (int row = 0; row < users->rowCount(); ++row) {
        if (users->item(row, Login)->text() == login) {
            users->setCurrentCell(row, Login);
            return true;
        }
    }
    return false;
}

void UsersPage::showRoles()
{
    const QString login = selectedRecord(users).value(Login);
    roles->clear();
    if (login.isEmpty())
        return;
    connection->call(
        QStringLiteral("getUserRoles"), login,
        [login](ClassifyInterface &client) {
            return Connection::readList(client, [&] { return client.getUserRoles(login); });
        },
        this,
        [this, login](const CallResult &result) {
            if (selectedRecord(users).value(Login) == login)
                roles->setText(result.value.toStringList().join(QStringLiteral(", ")));
        });
}

void UsersPage::askForNewUser()
{
    QDialog dialog(this);
    dialog.setWindowTitle(tr("New user"));
    auto *login = new QLineEdit(&dialog);
    auto *fullName = new QLineEdit(&dialog);
    auto *mail = new QLineEdit(&dialog);
    auto *password = new QLineEdit(&dialog);
    password->setEchoMode(QLineEdit::Password);
    auto *form = new QFormLayout(&dialog);
    form->addRow(tr("&Login:"), login);
    form->addRow(tr("&Full name:"), fullName);
    form->addRow(tr("&E-mail:"), mail);
    form->addRow(tr("First &password:"), password);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    form->addRow(buttons);
    if (dialog.exec() == QDialog::Accepted)
        createUser(login->text().trimmed(), fullName->text(), mail->text(), password->text());
}

void UsersPage::createUser(const QString &login, const QString &fullName, const QString &mail,
                           const QString &password)
{
    // New-user record: login, password, full name, e-mail, password expired.
    const QString record = joinFields({ login, password, fullName, mail, QStringLiteral("1") });
    change(QStringLiteral("setUsers"), login,
           [record](ClassifyInterface &client) { return client.setUsers({ record }); });
}

void UsersPage::toggleActive()
{
    QStringList record = selectedRecord(users);
    if (record.isEmpty())
        return;
    const bool active = record.value(Active) == QLatin1String("1");
    record[Active] = active ? QStringLiteral("0") : QStringLiteral("1");
    // User record for an update: login, full name, e-mail, expired, active.
    const QString entry = joinFields(record);
    change(QStringLiteral("updateUsers"),
           record.value(Login) + (active ? tr(": deactivate") : tr(": activate")),
           [entry](ClassifyInterface &client) { return client.updateUsers({ entry }); });
}

void UsersPage::askForPassword()
{
    const QString login = selectedRecord(users).value(Login);
    if (login.isEmpty())
        return;
    PasswordDialog dialog(tr("Reset the password of %1").arg(login),
                          tr("%1 must change it at the next login.").arg(login), this);
    if (dialog.exec() == QDialog::Accepted)
        resetPassword(login, dialog.password());
}

void UsersPage::resetPassword(const QString &login, const QString &password)
{
    change(QStringLiteral("changeUserPassAdmin"), login,
           [login, password](ClassifyInterface &client) {
               return client.changeUserPassAdmin(login, password);
           });
}

void UsersPage::saveRoles()
{
    const QString login = selectedRecord(users).value(Login);
    if (login.isEmpty())
        return;
    const QStringList list = nameList(roles->text());
    change(QStringLiteral("setUserRoles"), login + QStringLiteral(": ") + list.join(", "),
           [login, list](ClassifyInterface &client) { return client.setUserRoles(login, list); });
}

} // namespace nuvexplorer
