// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_PASSWORDDIALOG_H
#define NUVEXPLORER_PASSWORDDIALOG_H

#include <QDialog>

class QLabel;
class QLineEdit;

namespace nuvexplorer {

// Asks for a new password twice: after a login refused for an expired
// password, or when an administrator resets one.
class PasswordDialog : public QDialog
{
    Q_OBJECT

public:
    PasswordDialog(const QString &title, const QString &explanation, QWidget *parent = nullptr);

    QString password() const;
    void accept() override;

private:
    QLineEdit *first;
    QLineEdit *second;
    QLabel *problem;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_PASSWORDDIALOG_H
