// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_PASSWORDHASH_H
#define NUVSERVER_PASSWORDHASH_H

#include <QString>

/*
 * Password hashes: PBKDF2 with HMAC-SHA256, a random 16-byte salt per
 * password, stored as "pbkdf2-sha256$ITERATIONS$SALT$HASH" (base64). The
 * iteration count travels with the hash, so raising it for new passwords
 * keeps old ones verifiable.
 */
namespace nuvserver {

QString hashPassword(const QString &password, int iterations);
bool verifyPassword(const QString &password, const QString &stored);
// Costs as much as one verification; run for unknown users so that the
// answer time does not tell whether a user exists.
void spendVerificationTime(const QString &password, int iterations);

} // namespace nuvserver

#endif // NUVSERVER_PASSWORDHASH_H
