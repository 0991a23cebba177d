// SPDX-License-Identifier: Apache-2.0
#include "base64text.h"

#include <array>

namespace nuv {

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Six-bit value of an ASCII character, -1 outside the alphabet.
constexpr std::array<signed char, 128> makeDecodeTable()
{
    std::array<signed char, 128> table {};
    for (auto &entry : table)
        entry = -1;
    for (int i = 0; i < 64; ++i)
        table[size_t(alphabet[i])] = static_cast<signed char>(i);
    return table;
}
constexpr std::array<signed char, 128> decodeTable = makeDecodeTable();

} // namespace

QString base64Text(const QByteArray &bytes)
{
    const int size = bytes.size();
    if (!fitsBase64Text(size))
        return QString();
    QString text(((size + 2) / 3) * 4, Qt::Uninitialized);
    ushort *out = reinterpret_cast<ushort *>(text.data());
    const auto *in = reinterpret_cast<const uchar *>(bytes.constData());

    int i = 0;
    for (; i + 2 < size; i += 3) {
        const uint v = uint(in[i]) << 16 | uint(in[i + 1]) << 8 | uint(in[i + 2]);
        out[0] = ushort(alphabet[v >> 18]);
        out[1] = ushort(alphabet[(v >> 12) & 63]);
        out[2] = ushort(alphabet[(v >> 6) & 63]);
        out[3] = ushort(alphabet[v & 63]);
        out += 4;
    }
    if (size - i == 1) {
        const uint v = uint(in[i]) << 16;
        out[0] = ushort(alphabet[v >> 18]);
        out[1] = ushort(alphabet[(v >> 12) & 63]);
        out[2] = out[3] = ushort('=');
    } else if (size - i == 2) {
        const uint v = uint(in[i]) << 16 | uint(in[i + 1]) << 8;
        out[0] = ushort(alphabet[v >> 18]);
        out[1] = ushort(alphabet[(v >> 12) & 63]);
        out[2] = ushort(alphabet[(v >> 6) & 63]);
        out[3] = ushort('=');
    }
    return text;
}

QByteArray bytesFromBase64Text(const QString &text)
{
    const int size = text.size();
    const ushort *in = text.utf16();
    QByteArray bytes(int(qint64(size) * 3 / 4), Qt::Uninitialized);
    auto *out = reinterpret_cast<uchar *>(bytes.data());
    int written = 0;
    uint pending = 0;
    int pendingBits = 0;

    int i = 0;
    while (i < size) {
        // Whole groups of four alphabet characters, the usual case, at once;
        // with no bits pending that gives the same bytes as one at a time.
        if (pendingBits == 0 && i + 4 <= size) {
            const uint c0 = in[i], c1 = in[i + 1], c2 = in[i + 2], c3 = in[i + 3];
            if ((c0 | c1 | c2 | c3) < 128) {
                const int d0 = decodeTable[c0], d1 = decodeTable[c1], d2 = decodeTable[c2],
                          d3 = decodeTable[c3];
                if ((d0 | d1 | d2 | d3) >= 0) {
                    const uint v = uint(d0) << 18 | uint(d1) << 12 | uint(d2) << 6 | uint(d3);
                    out[written] = uchar(v >> 16);
                    out[written + 1] = uchar(v >> 8);
                    out[written + 2] = uchar(v);
                    written += 3;
                    i += 4;
                    continue;
                }
            }
        }
        const ushort c = in[i++];
        const int d = c < 128 ? decodeTable[c] : -1;
        if (d < 0)
            continue;
        pending = (pending << 6) | uint(d);
        pendingBits += 6;
        if (pendingBits >= 8) {
            pendingBits -= 8;
            out[written++] = uchar(pending >> pendingBits);
            pending &= (1u << pendingBits) - 1;
        }
    }
    bytes.truncate(written);
    return bytes;
}

bool isBase64Text(const QString &text, QString *problem)
{
    const auto refuse = [problem](const QString &why) {
        if (problem)
            *problem = why;
        return false;
    };
    const int size = text.size();
    if (size % 4 != 0)
        return refuse(
            QStringLiteral("its base64 text has %1 characters, not a multiple of 4").arg(size));
    const ushort *in = text.utf16();
    int padding = 0;
    if (size > 0 && in[size - 1] == '=')
        padding = size > 1 && in[size - 2] == '=' ? 2 : 1;
    for (int i = 0; i < size - padding; ++i) {
        if (in[i] >= 128 || decodeTable[in[i]] < 0)
            return refuse(QStringLiteral("its base64 text holds a character outside the"
                                         " alphabet at position %1")
                              .arg(i));
    }
    return true;
}

} // namespace nuv
