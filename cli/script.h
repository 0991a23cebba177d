// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_SCRIPT_H
#define NUVCLI_SCRIPT_H

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

class QIODevice;

/*
 * Scripts: one call per line, written as on the command line. Words are
 * quoted as in a POSIX shell ('single' keeps everything, "double" lets \",
 * \\ and \$ through, a backslash outside quotes escapes one character), so a
 * line can be tried out in a shell. Blank lines and lines whose first word
 * starts with # are skipped.
 *
 * Calls hand values on through variables: after a successful call, $result
 * holds its result and each out-parameter is set under its own name
 * ($docId, $archives, ...); "let NAME = CALL" keeps the result as $NAME.
 * $NAME and ${NAME} expand outside single quotes, within one word; lists
 * expand to JSON arrays.
 */
namespace nuvcli {

// One word: literal pieces and variable references, in order.
struct ScriptWord
{
    struct Piece
    {
        QString text; // the literal text, or the variable's name
        bool variable = false;
    };
    QList<Piece> pieces;

    bool hasVariables() const;
    QStringList variables() const;
    // The word with every variable replaced; false with `missing` set when
    // one has no value.
    bool expand(const QHash<QString, QString> &values, QString *text, QString *missing) const;
};

struct ScriptLine
{
    int number = 0; // 1-based line number in the file
    QString text;
    QString capture; // NAME of "let NAME = ...", else empty
    QList<ScriptWord> words; // the operation and its arguments
};

// Splits one line into words; a # at the start of a word ends the line.
bool splitWords(const QString &line, QList<ScriptWord> *words, QString *error);
// The same for a line without variables, as plain strings (a $ is kept).
bool splitWords(const QString &line, QStringList *words, QString *error);

// Reads every call of a script. On a quoting mistake `error` names the line.
bool readScript(QIODevice &device, QList<ScriptLine> *lines, QString *error);

} // namespace nuvcli

#endif // NUVCLI_SCRIPT_H
