// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_TYPESPAGE_H
#define NUVEXPLORER_TYPESPAGE_H

#include "view.h"

#include <QList>
#include <QStringList>

class QLineEdit;
class QTableWidget;

namespace nuvexplorer {

/*
 * A table of types (document types or status types): records whose first
 * field is the name, each with a byte array. The server replaces the whole
 * table on every save, so adding and removing send the full list back.
 */
class TypesPage : public View
{
    Q_OBJECT

public:
    enum Kind { DocumentTypes, StatusTypes };

    TypesPage(Kind kind, Connection *connection, QWidget *parent = nullptr);

    QTableWidget *table() const { return types; }
    QLineEdit *nameEdit() const { return name; }

public Q_SLOTS:
    void reload() override;
    void addType();
    void removeType();

private:
    void save(const QStringList &records, const QList<QByteArray> &payloads,
              const QString &arguments);

    Kind kind;
    QTableWidget *types;
    QLineEdit *name;
    QLineEdit *description;
    QStringList records;
    QList<QByteArray> payloads;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_TYPESPAGE_H
