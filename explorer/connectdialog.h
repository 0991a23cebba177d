// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_CONNECTDIALOG_H
#define NUVEXPLORER_CONNECTDIALOG_H

#include "connectionsettings.h"

#include <QDialog>

class QCheckBox;
class QLabel;
class QLineEdit;
class QRadioButton;
class QWidget;

namespace nuvexplorer {

// Asks where to connect (an embedded database or message brokers) and as
// whom.
class ConnectDialog : public QDialog
{
    Q_OBJECT

public:
    explicit ConnectDialog(const ConnectionSettings &settings, QWidget *parent = nullptr);

    ConnectionSettings settings() const;
    QString password() const;
    // Shows why the last attempt failed, above the fields.
    void setError(const QString &text);

    void accept() override;

private:
    void updateEnabled();
    void chooseDatabase();
    void chooseCaFile();

    QRadioButton *embedded;
    QRadioButton *broker;
    QLineEdit *database;
    QWidget *databaseRow;
    QLineEdit *brokers;
    QCheckBox *tls;
    QLineEdit *caFile;
    QWidget *caFileRow;
    QLineEdit *user;
    QLineEdit *passwordEdit;
    QLabel *error;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_CONNECTDIALOG_H
