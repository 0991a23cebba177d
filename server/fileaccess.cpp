// SPDX-License-Identifier: Apache-2.0
#include "fileaccess.h"

#include "sql.h"

#include <QDir>
#include <QFileInfo>
#include <QStringList>

namespace nuvserver {

bool liesInside(const QString &root, const QString &path)
{
    const QString base = QFileInfo(root).canonicalFilePath();
    const QString target = QFileInfo(path).canonicalFilePath();
    return !base.isEmpty() && !target.isEmpty()
        && (target == base || target.startsWith(base + QLatin1Char('/')));
}

QString resolveInside(const QString &root, const QString &relative, const QString &what,
                      const QString &shown)
{
    const QString named = shown.isNull() ? relative : shown;
    const QString base = QFileInfo(root).canonicalFilePath();
    if (base.isEmpty())
        fail(QStringLiteral("the configured directory of %1 does not exist").arg(what));
    if (QDir::isAbsolutePath(relative) || relative.startsWith(QLatin1Char('/'))
        || relative.startsWith(QLatin1Char('~')) || relative.contains(QLatin1Char('\\')))
        fail(QStringLiteral("%1 '%2' must be a relative path").arg(what, named));
    QStringList parts;
    for (const QString &part : relative.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        if (part == QLatin1String(".."))
            fail(QStringLiteral("%1 '%2' must not contain '..'").arg(what, named));
        if (part != QLatin1String("."))
            parts.append(part);
    }
    const QString candidate
        = parts.isEmpty() ? base : base + QLatin1Char('/') + parts.join(QLatin1Char('/'));
    if (!QFileInfo::exists(candidate))
        fail(QStringLiteral("%1 '%2' does not exist").arg(what, named));
    if (!liesInside(base, candidate))
        fail(QStringLiteral("%1 '%2' leads outside the configured directory").arg(what, named));
    return QFileInfo(candidate).canonicalFilePath();
}

} // namespace nuvserver
