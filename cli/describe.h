// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_DESCRIBE_H
#define NUVCLI_DESCRIBE_H

#include "operations.h"

#include <QJsonObject>
#include <QTextStream>

/*
 * The tool describing itself: the general usage, `list` (every operation in
 * interface order) and `help OPERATION` (its forms, arguments, what it
 * prints and how it fails).
 */
namespace nuvcli {

void printUsage(QTextStream &out);
void printOperationList(QTextStream &out, bool json);
// False when no operation has that name.
bool printOperationHelp(QTextStream &out, const QString &name, bool json);

QJsonObject describeAsJson(const Operation &operation);

} // namespace nuvcli

#endif // NUVCLI_DESCRIBE_H
