// SPDX-License-Identifier: Apache-2.0
#ifndef NUV_BASE64TEXT_H
#define NUV_BASE64TEXT_H

#include <QByteArray>
#include <QString>

/*
 * Base64 straight to and from the QString that carries a message, without a
 * Latin-1 or UTF-8 copy of the text in between.
 *
 * The results equal QByteArray::toBase64() (standard alphabet, padded) read as
 * text, and QByteArray::fromBase64() of the text's UTF-8 form: every character
 * outside the alphabet, '=' and non-ASCII characters included, is skipped.
 */
namespace nuv {

// Whether the base64 text of `byteCount` bytes fits a QString (about 1.07
// billion characters, so 805 MB of bytes). Larger messages cannot be sent;
// the size arithmetic would overflow `int` on the way.
constexpr bool fitsBase64Text(qint64 byteCount)
{
    constexpr qint64 maxTextChars = (qint64(1) << 30) - 64;
    return byteCount >= 0 && (byteCount + 2) / 3 * 4 <= maxTextChars;
}

// A null QString when the bytes do not fit (see fitsBase64Text()).
QString base64Text(const QByteArray &bytes);
QByteArray bytesFromBase64Text(const QString &text);
// Whether `text` is base64 as base64Text() writes it: whole groups of four
// alphabet characters, '=' only as the padding of the last group. False
// with the reason in `problem` (the decoder above skips what does not fit,
// which is what a lenient reader wants and a server must not rely on).
bool isBase64Text(const QString &text, QString *problem = nullptr);

} // namespace nuv

#endif // NUV_BASE64TEXT_H
