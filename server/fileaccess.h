// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_FILEACCESS_H
#define NUVSERVER_FILEACCESS_H

#include <QString>

/*
 * Paths that a request names are always relative to a configured directory
 * and never leave it: no absolute path, no "..", and no symbolic link that
 * resolves outside.
 */
namespace nuvserver {

// The canonical path of `relative` inside `root`; fails, naming `what` and
// `shown` (the path as the request gave it; default `relative`), when the
// path escapes the root or does not exist.
QString resolveInside(const QString &root, const QString &relative, const QString &what,
                      const QString &shown = QString());
// Whether `path` (existing) resolves to `root` or below it.
bool liesInside(const QString &root, const QString &path);

} // namespace nuvserver

#endif // NUVSERVER_FILEACCESS_H
