// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_ATTRIBUTESPAGE_H
#define NUVEXPLORER_ATTRIBUTESPAGE_H

#include "view.h"

class QCheckBox;
class QLineEdit;
class QTableWidget;

namespace nuvexplorer {

// Dynamic attributes (classification fields an administrator adds) and the
// value list of the selected one.
class AttributesPage : public View
{
    Q_OBJECT

public:
    explicit AttributesPage(Connection *connection, QWidget *parent = nullptr);

    QTableWidget *table() const { return attributes; }
    QLineEdit *nameEdit() const { return name; }
    QLineEdit *labelEdit() const { return label; }
    QLineEdit *valuesEdit() const { return values; }

public Q_SLOTS:
    void reload() override;
    void addAttribute();
    void deleteAttribute();
    void saveValues();

private:
    void loadValues();
    int selectedNumber() const;

    QTableWidget *attributes;
    QLineEdit *name;
    QLineEdit *label;
    QCheckBox *mandatory;
    QLineEdit *values;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_ATTRIBUTESPAGE_H
