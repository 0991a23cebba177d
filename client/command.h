// SPDX-License-Identifier: Apache-2.0
#ifndef NUV_COMMAND_H
#define NUV_COMMAND_H

#include "protocolwords.h"

#include <QLatin1String>

/*
 * What distinguishes one command operation from another, apart from the
 * request fields it fills and the result it picks from the reply: the command
 * word, how the reply's status word is judged, whether the client's operation
 * lock is taken, whether a failure is recorded as the last error, and how
 * long the exchange may take. Everything else is the one shared pattern in
 * NuvClassifyClient::perform().
 */
namespace nuv {

enum class ReplyTest {
    ErrorEquals, // failure only when the status word is exactly "ERROR"
    OkEquals, // success only when the status word is exactly "OK"
    ErrorContained, // failure when "ERROR" occurs anywhere in the status word
    None, // the reply is taken as it comes
};

struct Command
{
    QLatin1String word;
    ReplyTest test = ReplyTest::ErrorEquals;
    bool locked = true;
    bool recordsError = true;
    int timeoutSeconds = 30;

    constexpr explicit Command(const char *commandWord)
        : word(commandWord)
    { }
    constexpr Command unlocked() const
    {
        Command c = *this;
        c.locked = false;
        return c;
    }
    constexpr Command expectingOk() const { return testedBy(ReplyTest::OkEquals); }
    constexpr Command testedBy(ReplyTest t) const
    {
        Command c = *this;
        c.test = t;
        return c;
    }
    // The operation reports failure through its result only.
    constexpr Command keepingLastError() const
    {
        Command c = *this;
        c.recordsError = false;
        return c;
    }
    constexpr Command withTimeout(int seconds) const
    {
        Command c = *this;
        c.timeoutSeconds = seconds;
        return c;
    }
};

inline bool passes(ReplyTest test, const QString &status)
{
    switch (test) {
    case ReplyTest::ErrorEquals:
        return status != QLatin1String(nuvprotocol::status::error);
    case ReplyTest::OkEquals:
        return status == QLatin1String(nuvprotocol::status::ok);
    case ReplyTest::ErrorContained:
        return !status.contains(QLatin1String(nuvprotocol::status::error));
    case ReplyTest::None:
        break;
    }
    return true;
}

} // namespace nuv

#endif // NUV_COMMAND_H
