// SPDX-License-Identifier: Apache-2.0
#include "script.h"

#include <QIODevice>
#include <QRegularExpression>

#include <algorithm>

namespace nuvcli {

namespace {

bool isNameStart(QChar c)
{
    return c.isLetter() || c == QLatin1Char('_');
}

bool isNameChar(QChar c)
{
    return c.isLetterOrNumber() || c == QLatin1Char('_');
}

class WordBuilder
{
public:
    void literal(QChar c)
    {
        if (word.pieces.isEmpty() || word.pieces.last().variable)
            word.pieces.append({ QString(), false });
        word.pieces.last().text += c;
        started = true;
    }
    void variable(const QString &name)
    {
        word.pieces.append({ name, true });
        started = true;
    }
    void start() { started = true; }
    void finish(QList<ScriptWord> *words)
    {
        if (started)
            words->append(word);
        word = ScriptWord();
        started = false;
    }
    bool inWord() const { return started; }

private:
    ScriptWord word;
    bool started = false;
};

// Reads a variable reference at line[i] == '$'. Returns the index of its
// last character, or -1 when the $ starts no name (and is literal).
int readVariable(const QString &line, int i, QString *name, QString *error)
{
    if (i + 1 < line.size() && line.at(i + 1) == QLatin1Char('{')) {
        const int close = line.indexOf(QLatin1Char('}'), i + 2);
        *name = close < 0 ? QString() : line.mid(i + 2, close - i - 2);
        if (close < 0 || name->isEmpty() || !isNameStart(name->at(0))
            || !std::all_of(name->begin(), name->end(), isNameChar)) {
            *error = QStringLiteral("a ${...} names no variable");
            return -2;
        }
        return close;
    }
    int end = i + 1;
    if (end >= line.size() || !isNameStart(line.at(end)))
        return -1;
    while (end < line.size() && isNameChar(line.at(end)))
        ++end;
    *name = line.mid(i + 1, end - i - 1);
    return end - 1;
}

} // namespace

bool ScriptWord::hasVariables() const
{
    return std::any_of(pieces.begin(), pieces.end(), [](const Piece &p) { return p.variable; });
}

QStringList ScriptWord::variables() const
{
    QStringList names;
    for (const Piece &piece : pieces)
        if (piece.variable)
            names.append(piece.text);
    return names;
}

bool ScriptWord::expand(const QHash<QString, QString> &values, QString *text,
                        QString *missing) const
{
    text->clear();
    for (const Piece &piece : pieces) {
        if (!piece.variable) {
            *text += piece.text;
        } else if (values.contains(piece.text)) {
            *text += values.value(piece.text);
        } else {
            *missing = piece.text;
            return false;
        }
    }
    return true;
}

bool splitWords(const QString &line, QList<ScriptWord> *words, QString *error)
{
    words->clear();
    WordBuilder word;
    enum { Plain, Single, Double } quote = Plain;

    for (int i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (quote == Single) {
            if (c == QLatin1Char('\''))
                quote = Plain;
            else
                word.literal(c);
            continue;
        }
        if (c == QLatin1Char('$')) {
            QString name;
            const int last = readVariable(line, i, &name, error);
            if (last == -2)
                return false;
            if (last >= 0) {
                word.variable(name);
                i = last;
                continue;
            }
        }
        if (quote == Double) {
            if (c == QLatin1Char('"'))
                quote = Plain;
            else if (c == QLatin1Char('\\') && i + 1 < line.size()
                     && QStringLiteral("\"\\$`").contains(line.at(i + 1)))
                word.literal(line.at(++i));
            else
                word.literal(c);
            continue;
        }
        if (c.isSpace()) {
            word.finish(words);
        } else if (c == QLatin1Char('#') && !word.inWord()) {
            break;
        } else if (c == QLatin1Char('\'')) {
            quote = Single;
            word.start();
        } else if (c == QLatin1Char('"')) {
            quote = Double;
            word.start();
        } else if (c == QLatin1Char('\\')) {
            if (i + 1 == line.size()) {
                *error = QStringLiteral("a backslash ends the line");
                return false;
            }
            word.literal(line.at(++i));
        } else {
            word.literal(c);
        }
    }
    if (quote != Plain) {
        *error = quote == Single ? QStringLiteral("a single quote is not closed")
                                 : QStringLiteral("a double quote is not closed");
        return false;
    }
    word.finish(words);
    return true;
}

bool splitWords(const QString &line, QStringList *words, QString *error)
{
    QList<ScriptWord> split;
    if (!splitWords(line, &split, error))
        return false;
    words->clear();
    for (const ScriptWord &word : split) {
        QString text;
        for (const ScriptWord::Piece &piece : word.pieces)
            text += piece.variable ? QStringLiteral("${") + piece.text + QLatin1Char('}')
                                   : piece.text;
        words->append(text);
    }
    return true;
}

bool readScript(QIODevice &device, QList<ScriptLine> *lines, QString *error)
{
    static const QRegularExpression let(QStringLiteral("^\\s*let\\s+([A-Za-z_]\\w*)\\s*=(.*)$"));
    lines->clear();
    int number = 0;
    while (!device.atEnd()) {
        QString text = QString::fromUtf8(device.readLine());
        ++number;
        while (text.endsWith(QLatin1Char('\n')) || text.endsWith(QLatin1Char('\r')))
            text.chop(1);
        ScriptLine line;
        line.number = number;
        line.text = text.trimmed();
        QString call = text;
        const QRegularExpressionMatch match = let.match(text);
        if (match.hasMatch()) {
            line.capture = match.captured(1);
            call = match.captured(2);
        }
        QString why;
        if (!splitWords(call, &line.words, &why)) {
            *error = QStringLiteral("line %1: %2").arg(number).arg(why);
            return false;
        }
        if (line.words.isEmpty() && !line.capture.isEmpty()) {
            *error
                = QStringLiteral("line %1: let %2 = names no call").arg(number).arg(line.capture);
            return false;
        }
        if (!line.words.isEmpty())
            lines->append(line);
    }
    return true;
}

} // namespace nuvcli
