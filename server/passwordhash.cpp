// SPDX-License-Identifier: Apache-2.0
#include "passwordhash.h"

#include <QCryptographicHash>
#include <QPasswordDigestor>
#include <QRandomGenerator>
#include <QStringList>

namespace nuvserver {

namespace {
const QString scheme = QStringLiteral("pbkdf2-sha256");
constexpr int keyLength = 32;
constexpr int saltLength = 16;

QByteArray derive(const QString &password, const QByteArray &salt, int iterations)
{
    return QPasswordDigestor::deriveKeyPbkdf2(QCryptographicHash::Sha256, password.toUtf8(), salt,
                                              iterations, keyLength);
}

bool equalInConstantTime(const QByteArray &a, const QByteArray &b)
{
    if (a.size() != b.size())
        return false;
    unsigned char difference = 0;
    for (int i = 0; i < a.size(); ++i)
        difference |= static_cast<unsigned char>(a.at(i) ^ b.at(i));
    return difference == 0;
}
} // namespace

QString hashPassword(const QString &password, int iterations)
{
    QByteArray salt(saltLength, Qt::Uninitialized);
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32 *>(salt.data()),
                                          saltLength / int(sizeof(quint32)));
    const int rounds = qMax(1, iterations);
    return QStringList { scheme, QString::number(rounds), QString::fromLatin1(salt.toBase64()),
                         QString::fromLatin1(derive(password, salt, rounds).toBase64()) }
        .join(QLatin1Char('$'));
}

bool verifyPassword(const QString &password, const QString &stored)
{
    const QStringList parts = stored.split(QLatin1Char('$'));
    if (parts.size() != 4 || parts.at(0) != scheme)
        return false;
    bool ok = false;
    const int iterations = parts.at(1).toInt(&ok);
    if (!ok || iterations < 1)
        return false;
    const QByteArray salt = QByteArray::fromBase64(parts.at(2).toLatin1());
    const QByteArray expected = QByteArray::fromBase64(parts.at(3).toLatin1());
    return equalInConstantTime(derive(password, salt, iterations), expected);
}

void spendVerificationTime(const QString &password, int iterations)
{
    derive(password, QByteArray(saltLength, '\0'), qMax(1, iterations));
}

} // namespace nuvserver
