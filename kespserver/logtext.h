// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_LOGTEXT_H
#define KESPSERVER_LOGTEXT_H

#include <QString>

namespace kesp {

// A field of a log line as it may be written whatever a client sent: control
// characters (a line break above all, which would start a forged line) and
// backslashes escaped C-style, and at most `longest` characters of the
// field kept, the cut marked with "…".
QString logField(const QString &text, int longest = 200);

} // namespace kesp

#endif // KESPSERVER_LOGTEXT_H
