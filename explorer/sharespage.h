// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_SHARESPAGE_H
#define NUVEXPLORER_SHARESPAGE_H

#include "view.h"

class QDateTimeEdit;
class QLineEdit;
class QSpinBox;
class QTableWidget;

namespace nuvexplorer {

// Shares of documents with a recipient until an expiry date.
class SharesPage : public View
{
    Q_OBJECT

public:
    explicit SharesPage(Connection *connection, QWidget *parent = nullptr);

    QTableWidget *table() const { return shares; }
    QLineEdit *titleEdit() const { return title; }
    QLineEdit *documentsEdit() const { return documents; }
    QLineEdit *recipientEdit() const { return recipient; }
    QDateTimeEdit *expiryEdit() const { return expiry; }

public Q_SLOTS:
    void reload() override;
    void createShare();
    void deleteShare();

private:
    QTableWidget *shares;
    QLineEdit *title;
    QLineEdit *documents;
    QLineEdit *recipient;
    QDateTimeEdit *expiry;
    QSpinBox *limit;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_SHARESPAGE_H
