// SPDX-License-Identifier: Apache-2.0
#ifndef NUV_OPERATIONDOCS_H
#define NUV_OPERATIONDOCS_H

#include <QString>
#include <QVector>

/*
 * The documentation of every operation a host can call, read at build time
 * from the doc comments in the headers (apidoc/operationdocs.py), so that
 * what the command-line host prints and the HTML reference never disagree.
 */
namespace nuvdoc {

struct ParameterDoc
{
    QString name; // as declared
    QString text;
};

struct OperationDoc
{
    int slot = 0; // position in ClassifyInterface, 1-127; 0 beside it
    QString name;
    QString signature; // "getUsers(QStringList&)": blanks and const & dropped
    QString brief; // the first sentence
    QString details; // the rest of the description
    QVector<ParameterDoc> parameters; // in declaration order
    QString returns; // empty for void
    QString command; // the command word it sends; empty when it sends none
    bool locked = false; // takes the operation lock
};

// The 127 interface operations in slot order, then the invokable members.
const QVector<OperationDoc> &operationDocs();
// The operation in that slot, or (slot 0) the invokable member of that name;
// null when there is none.
const OperationDoc *findOperationDoc(int slot, const QString &name);

} // namespace nuvdoc

#endif // NUV_OPERATIONDOCS_H
