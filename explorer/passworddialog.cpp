// SPDX-License-Identifier: Apache-2.0
#include "passworddialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

namespace nuvexplorer {

PasswordDialog::PasswordDialog(const QString &title, const QString &explanation, QWidget *parent)
    : QDialog(parent)
    , first(new QLineEdit(this))
    , second(new QLineEdit(this))
    , problem(new QLabel(this))
{
    setWindowTitle(title);
    first->setObjectName(QStringLiteral("newPassword"));
    second->setObjectName(QStringLiteral("repeatPassword"));
    first->setEchoMode(QLineEdit::Password);
    second->setEchoMode(QLineEdit::Password);
    problem->hide();
    auto *text = new QLabel(explanation, this);
    text->setWordWrap(true);
    auto *form = new QFormLayout;
    form->addRow(tr("&New password:"), first);
    form->addRow(tr("&Repeat it:"), second);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(text);
    layout->addWidget(problem);
    layout->addLayout(form);
    layout->addWidget(buttons);
}

QString PasswordDialog::password() const
{
    return first->text();
}

void PasswordDialog::accept()
{
    if (first->text().isEmpty()) {
        problem->setText(tr("The password must not be empty."));
    } else if (first->text() != second->text()) {
        problem->setText(tr("The two passwords differ."));
    } else {
        QDialog::accept();
        return;
    }
    problem->show();
    second->clear();
    first->setFocus();
}

} // namespace nuvexplorer
