// SPDX-License-Identifier: Apache-2.0
#include "logtext.h"

#include <QByteArrayList>

namespace kesp {

QString logField(const QString &text, int longest)
{
    QString out;
    out.reserve(qMin(text.size(), longest) + 8);
    int kept = 0;
    for (const QChar c : text) {
        if (kept == longest) {
            out += QStringLiteral("…");
            break;
        }
        ++kept;
        const ushort u = c.unicode();
        if (u == '\\')
            out += QLatin1String("\\\\");
        else if (u == '\n')
            out += QLatin1String("\\n");
        else if (u == '\r')
            out += QLatin1String("\\r");
        else if (u == '\t')
            out += QLatin1String("\\t");
        else if (u < 0x20 || u == 0x7f || (u >= 0x80 && u < 0xa0) || u == 0x2028 || u == 0x2029)
            out += QStringLiteral("\\u%1").arg(u, 4, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}

} // namespace kesp
