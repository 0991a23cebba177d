// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_CLIPBOARDSPAGE_H
#define NUVEXPLORER_CLIPBOARDSPAGE_H

#include "view.h"

class QLineEdit;
class QTableWidget;

namespace nuvexplorer {

// The clipboards the user owns or shares, and the cards on the selected one.
class ClipboardsPage : public View
{
    Q_OBJECT

public:
    explicit ClipboardsPage(Connection *connection, QWidget *parent = nullptr);

    QTableWidget *clipboardTable() const { return clipboards; }
    QTableWidget *cardTable() const { return cards; }
    QLineEdit *nameEdit() const { return name; }
    QLineEdit *cardEdit() const { return card; }
    QLineEdit *cardTextEdit() const { return cardText; }
    bool selectClipboard(const QString &clipboardName);

public Q_SLOTS:
    void reload() override;
    void addClipboard();
    void removeClipboard();
    void addCard();
    void removeCard();

private:
    void loadCards();
    QString selectedKey() const;

    QTableWidget *clipboards;
    QTableWidget *cards;
    QLineEdit *name;
    QLineEdit *card;
    QLineEdit *cardText;
    QString wanted;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_CLIPBOARDSPAGE_H
