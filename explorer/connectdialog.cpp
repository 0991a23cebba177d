// SPDX-License-Identifier: Apache-2.0
#include "connectdialog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

namespace nuvexplorer {

namespace {

// A line edit with a "Browse..." button beside it.
QWidget *withBrowseButton(QLineEdit *edit, QObject *receiver, std::function<void()> choose)
{
    auto *row = new QWidget;
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(edit);
    auto *button = new QPushButton(ConnectDialog::tr("Browse..."), row);
    QObject::connect(button, &QPushButton::clicked, receiver, std::move(choose));
    layout->addWidget(button);
    return row;
}

} // namespace

ConnectDialog::ConnectDialog(const ConnectionSettings &settings, QWidget *parent)
    : QDialog(parent)
    , embedded(new QRadioButton(tr("&Embedded database"), this))
    , broker(new QRadioButton(tr("Message &broker"), this))
    , database(new QLineEdit(settings.database, this))
    , brokers(new QLineEdit(settings.brokers, this))
    , tls(new QCheckBox(tr("Use &TLS"), this))
    , caFile(new QLineEdit(settings.caFile, this))
    , user(new QLineEdit(settings.user, this))
    , passwordEdit(new QLineEdit(this))
    , error(new QLabel(this))
{
    setWindowTitle(tr("Connect to an archive"));
    database->setObjectName(QStringLiteral("database"));
    brokers->setObjectName(QStringLiteral("brokers"));
    brokers->setPlaceholderText(tr("host:port, host:port ..."));
    user->setObjectName(QStringLiteral("user"));
    passwordEdit->setObjectName(QStringLiteral("password"));
    passwordEdit->setEchoMode(QLineEdit::Password);
    tls->setChecked(settings.tls);
    (settings.kind == ConnectionSettings::Broker ? broker : embedded)->setChecked(true);
    error->setWordWrap(true);
    error->setTextInteractionFlags(Qt::TextSelectableByMouse);
    error->hide();

    databaseRow = withBrowseButton(database, this, [this] { chooseDatabase(); });
    caFileRow = withBrowseButton(caFile, this, [this] { chooseCaFile(); });

    auto *form = new QFormLayout;
    form->addRow(embedded);
    form->addRow(tr("&Database:"), databaseRow);
    form->addRow(broker);
    form->addRow(tr("B&rokers:"), brokers);
    form->addRow(QString(), tls);
    form->addRow(tr("&CA file:"), caFileRow);
    form->addRow(tr("&User:"), user);
    form->addRow(tr("&Password:"), passwordEdit);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(tr("C&onnect"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(error);
    layout->addLayout(form);
    layout->addWidget(buttons);

    connect(embedded, &QRadioButton::toggled, this, &ConnectDialog::updateEnabled);
    connect(tls, &QCheckBox::toggled, this, &ConnectDialog::updateEnabled);
    updateEnabled();
    (settings.user.isEmpty() ? user : passwordEdit)->setFocus();
}

ConnectionSettings ConnectDialog::settings() const
{
    ConnectionSettings result;
    result.kind = broker->isChecked() ? ConnectionSettings::Broker : ConnectionSettings::Embedded;
    result.database = database->text().trimmed();
    result.brokers = brokers->text().trimmed();
    result.tls = tls->isChecked();
    result.caFile = caFile->text().trimmed();
    result.user = user->text().trimmed();
    return result;
}

QString ConnectDialog::password() const
{
    return passwordEdit->text();
}

void ConnectDialog::setError(const QString &text)
{
    error->setText(text);
    error->setVisible(!text.isEmpty());
}

void ConnectDialog::accept()
{
    QVector<QPair<QString, int>> addresses;
    QString problem;
    if (!settings().addresses(&addresses, &problem)) {
        setError(problem);
        return;
    }
    if (user->text().trimmed().isEmpty()) {
        setError(tr("Give the user name."));
        user->setFocus();
        return;
    }
    QDialog::accept();
}

void ConnectDialog::updateEnabled()
{
    const bool useBroker = broker->isChecked();
    databaseRow->setEnabled(!useBroker);
    brokers->setEnabled(useBroker);
    tls->setEnabled(useBroker);
    caFileRow->setEnabled(useBroker && tls->isChecked());
}

void ConnectDialog::chooseDatabase()
{
    const QString file = QFileDialog::getSaveFileName(
        this, tr("Database"), database->text(), tr("Databases (*.db *.sqlite);;All files (*)"),
        nullptr, QFileDialog::DontConfirmOverwrite);
    if (!file.isEmpty())
        database->setText(file);
}

void ConnectDialog::chooseCaFile()
{
    const QString file = QFileDialog::getOpenFileName(this, tr("CA certificates"), caFile->text(),
                                                      tr("PEM files (*.pem *.crt);;All files (*)"));
    if (!file.isEmpty())
        caFile->setText(file);
}

} // namespace nuvexplorer
