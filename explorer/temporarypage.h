// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_TEMPORARYPAGE_H
#define NUVEXPLORER_TEMPORARYPAGE_H

#include "view.h"

#include <QStringList>

class QLineEdit;
class QTableWidget;

namespace nuvexplorer {

// The user's temporary classifications: stored values to apply to a
// document later.
class TemporaryPage : public View
{
    Q_OBJECT

public:
    explicit TemporaryPage(Connection *connection, QWidget *parent = nullptr);

    QTableWidget *table() const { return drafts; }
    QLineEdit *valuesEdit() const { return values; }
    QLineEdit *documentEdit() const { return document; }

public Q_SLOTS:
    void reload() override;
    void createDraft();
    void applyDraft();
    void deleteDraft();

Q_SIGNALS:
    void loaded();

private:
    void readFrom(qint64 number, int expected, int probes, QStringList rows);

    QTableWidget *drafts;
    QLineEdit *values;
    QLineEdit *document;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_TEMPORARYPAGE_H
