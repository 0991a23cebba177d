// SPDX-License-Identifier: Apache-2.0
#include "console.h"

#include <QIODevice>

#include <cstdio>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace nuvcli {

namespace {

// Reads a line from standard input with the terminal's echo switched off
// for secrets; the echo comes back even when reading fails.
QString readTerminalLine(QTextStream &err, const QString &prompt, bool secret)
{
    err << prompt;
    err.flush();

    termios saved {};
    const bool quiet = secret && tcgetattr(STDIN_FILENO, &saved) == 0;
    if (quiet) {
        termios silent = saved;
        silent.c_lflag &= ~tcflag_t(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    std::string line;
    for (int c = std::getchar(); c != EOF && c != '\n'; c = std::getchar())
        line.push_back(char(c));
    if (quiet) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        err << '\n'; // the user's Enter was not echoed
        err.flush();
    }
    return QString::fromStdString(line);
}

} // namespace

Console systemConsole(QTextStream &out, QTextStream &err, QIODevice *input)
{
    Console console {
        out,    err, QProcessEnvironment::systemEnvironment(), input, isatty(STDIN_FILENO) == 1,
        nullptr
    };
    console.ask = [&err](const QString &prompt, bool secret) {
        return readTerminalLine(err, prompt, secret);
    };
    return console;
}

} // namespace nuvcli
