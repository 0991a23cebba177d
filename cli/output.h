// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_OUTPUT_H
#define NUVCLI_OUTPUT_H

#include "operations.h"
#include "values.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QTextStream>

#include <vector>

/*
 * What the tool prints on standard output: the outcome of each call and the
 * client's events, either readably or as one JSON object per line.
 */
namespace nuvcli {

// The tool's exit status.
enum ExitStatus {
    ExitOk = 0,
    ExitFailed = 1, // a call or the login failed
    ExitUsage = 2, // the command line or a script was wrong; nothing ran
    ExitSetup = 3, // the plugin, transport or database could not be found or loaded
    ExitUnreachable = 4, // the broker or the server did not answer the login
    ExitLoginRefused = 5, // the server refused the login
};

// One finished call: its operation, its arguments as they were after the
// call (so out-parameters hold what came back), its result and outcome.
struct CallRecord
{
    const Operation *operation = nullptr;
    std::vector<Value> arguments;
    Value result;
    bool ok = true;
    QString error; // why it failed; empty when ok
    int line = 0; // the script line, 0 outside a script
    int exitStatus = ExitOk;
    bool fatal = false; // the session cannot go on (no login)
};

QJsonValue toJson(const Value &value);
QJsonObject toJson(const CallRecord &record);

// A value as a person reads it: record separators (U+FEFF) show as " | ",
// byte arrays as text when they are printable UTF-8, otherwise as
// "base64:..." (--json keeps everything exact).
QString readable(const Value &value);

class Printer
{
public:
    Printer(QTextStream &out, bool json);

    bool json() const { return asJson; }
    // Scripts show each line and the login as they go (readable output only).
    void setNarrating(bool on) { narrating = on && !asJson; }
    void call(const CallRecord &record);
    void scriptLine(int number, const QString &text);
    void loggedIn(const QString &user, const QString &where);
    void serverRequest(const QString &request);
    void connectionLost();

private:
    void printLabelled(const QString &label, const Value &value);

    QTextStream &out;
    bool asJson;
    bool narrating = false;
};

} // namespace nuvcli

#endif // NUVCLI_OUTPUT_H
