// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_REQUESTLIMITS_H
#define NUVSERVER_REQUESTLIMITS_H

#include "nuvmqclassifymessage.h"
#include "serverengine.h"

#include <QList>
#include <QString>
#include <QStringList>

/*
 * What no request may exceed, so that one caller cannot keep an instance
 * (and, through the database's single write lock, every instance) busy for
 * long: the size of a request and of its lists, the ids one command works
 * on, the size of a reply. Each refusal names the limit and the variable
 * that sets it (docs/security.md).
 */
namespace nuvserver {

// Fails unless the request keeps within the limits and all its text is
// valid UTF-16 (an unpaired surrogate would be stored altered).
void checkRequest(const nuvMQClassifyMessage &request, const EngineOptions &options);
// Fails when a command that changes data gets more records than
// `options.maxRecords`: each record costs statements under the write lock.
void checkRecordCount(const nuvMQClassifyMessage &request, const EngineOptions &options);
// Fails when the reply would be larger than the reply limit.
void checkReply(const nuvMQClassifyMessage &reply, const EngineOptions &options);
// The numbers in `texts`, each named `what` in an error, duplicates removed
// (the first place kept); fails beyond `options.maxIds` distinct ids.
QList<qint64> distinctIds(const QStringList &texts, const QString &what,
                          const EngineOptions &options);

} // namespace nuvserver

#endif // NUVSERVER_REQUESTLIMITS_H
