// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_CALL_H
#define NUVCLI_CALL_H

#include "operations.h"
#include "output.h"

#include <QStringList>

#include <vector>

/*
 * One call from words to verdict: picking the operation (overloads by the
 * number of arguments), parsing each argument by its parameter's kind, and
 * judging afterwards, by the operation's failure rule, whether it failed.
 */
namespace nuvcli {

struct PreparedCall
{
    const Operation *operation = nullptr;
    // One value per parameter: parsed for In and InOut, empty for Out.
    std::vector<Value> arguments;
};

// words[0] is the operation's name, the rest its arguments. On failure
// `error` says which argument was wrong and how it should look.
bool prepareCall(const QStringList &words, PreparedCall *call, QString *error);

// Sets record.ok and record.error from the operation's failure rule, the
// result and out-parameters in `record`, and errorString() before and
// after the call.
void judge(CallRecord &record, const QString &errorBefore, const QString &errorAfter);

} // namespace nuvcli

#endif // NUVCLI_CALL_H
