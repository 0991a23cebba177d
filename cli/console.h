// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_CONSOLE_H
#define NUVCLI_CONSOLE_H

#include <QProcessEnvironment>
#include <QString>
#include <QTextStream>

#include <functional>

class QIODevice;

/*
 * Everything the tool takes from and gives to its surroundings: output and
 * error streams, the environment, standard input and the terminal. Tests
 * hand in their own, so the whole tool runs inside a test process.
 */
namespace nuvcli {

struct Console
{
    QTextStream &out;
    QTextStream &err;
    QProcessEnvironment environment;
    // Standard input, for a script read from "-".
    QIODevice *input = nullptr;
    // Whether standard input is a terminal; prompts are made only then.
    bool inputIsTerminal = false;
    // Shows `prompt` and reads one line from the terminal, without echo
    // when `secret`. Called only when inputIsTerminal.
    std::function<QString(const QString &prompt, bool secret)> ask;
};

// The process's own standard streams, environment and terminal.
Console systemConsole(QTextStream &out, QTextStream &err, QIODevice *input);

} // namespace nuvcli

#endif // NUVCLI_CONSOLE_H
