// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include "protocolwords.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTextCodec>

namespace nuvcli {

namespace {

// Beyond 2^53 a JSON number (a double) loses digits; such values travel as
// decimal strings instead.
QJsonValue jsonNumber(qint64 number)
{
    constexpr qint64 exactLimit = qint64(1) << 53;
    if (number > exactLimit || number < -exactLimit)
        return QString::number(number);
    return double(number);
}

QJsonArray jsonStrings(const QStringList &strings)
{
    return QJsonArray::fromStringList(strings);
}

QString readableText(const QString &text)
{
    QString shown = text;
    return shown.replace(nuvprotocol::recordSeparator, QStringLiteral(" | "));
}

QString readableBytes(const QByteArray &bytes)
{
    QTextCodec::ConverterState state;
    const QString text
        = QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &state);
    bool printable = state.invalidChars == 0 && state.remainingChars == 0;
    for (const QChar c : text)
        printable = printable && (c.isPrint() || c == QLatin1Char('\n') || c == QLatin1Char('\t'));
    if (printable)
        return text;
    return QStringLiteral("base64:") + QString::fromLatin1(bytes.toBase64());
}

QStringList readableLines(const Value &value)
{
    QStringList lines;
    switch (value.kind) {
    case Kind::StringList:
        for (const QString &entry : value.list)
            lines.append(readableText(entry));
        break;
    case Kind::BytesList:
        for (const QByteArray &entry : value.byteList)
            lines.append(readableBytes(entry));
        break;
    case Kind::Pairs:
        for (const auto &pair : value.pairs)
            lines.append(readableText(pair.first) + QLatin1Char('\t') + readableText(pair.second));
        break;
    default:
        lines.append(readable(value));
    }
    return lines;
}

bool isMultiple(Kind kind)
{
    return kind == Kind::StringList || kind == Kind::BytesList || kind == Kind::Pairs;
}

} // namespace

QJsonValue toJson(const Value &value)
{
    switch (value.kind) {
    case Kind::Void:
        return QJsonValue::Null;
    case Kind::Bool:
    case Kind::Client:
        return value.flag;
    case Kind::Int:
    case Kind::Int64:
        return jsonNumber(value.number);
    case Kind::String:
        return value.text;
    case Kind::StringList:
        return jsonStrings(value.list);
    case Kind::Bytes:
        return QString::fromLatin1(value.bytes.toBase64());
    case Kind::BytesList: {
        QJsonArray array;
        for (const QByteArray &bytes : value.byteList)
            array.append(QString::fromLatin1(bytes.toBase64()));
        return array;
    }
    case Kind::DateTime:
        return value.when.toString(Qt::ISODate);
    case Kind::Pairs: {
        QJsonArray array;
        for (const auto &pair : value.pairs)
            array.append(QJsonObject { { QStringLiteral("first"), pair.first },
                                       { QStringLiteral("second"), pair.second } });
        return array;
    }
    }
    return QJsonValue::Null;
}

QJsonObject toJson(const CallRecord &record)
{
    QJsonObject object;
    object.insert(QStringLiteral("operation"), record.operation->name);
    object.insert(QStringLiteral("ok"), record.ok);
    object.insert(QStringLiteral("result"), toJson(record.result));
    QJsonObject out;
    const QVector<Parameter> &parameters = record.operation->parameters;
    for (int i = 0; i < parameters.size() && i < int(record.arguments.size()); ++i)
        if (parameters.at(i).direction != Direction::In)
            out.insert(parameters.at(i).name, toJson(record.arguments.at(size_t(i))));
    if (!out.isEmpty())
        object.insert(QStringLiteral("out"), out);
    if (!record.ok)
        object.insert(QStringLiteral("error"), record.error);
    if (record.line > 0)
        object.insert(QStringLiteral("line"), record.line);
    return object;
}

QString readable(const Value &value)
{
    switch (value.kind) {
    case Kind::Void:
        return QString();
    case Kind::Bool:
        return value.flag ? QStringLiteral("true") : QStringLiteral("false");
    case Kind::Client:
        return value.flag ? QStringLiteral("a new client object was created (and released again)")
                          : QStringLiteral("no client object was created");
    case Kind::Int:
    case Kind::Int64:
        return QString::number(value.number);
    case Kind::String:
        return readableText(value.text);
    case Kind::Bytes:
        return readableBytes(value.bytes);
    case Kind::DateTime:
        return value.when.toString(Qt::ISODate);
    case Kind::StringList:
    case Kind::BytesList:
    case Kind::Pairs:
        return readableLines(value).join(QLatin1Char('\n'));
    }
    return QString();
}

Printer::Printer(QTextStream &out, bool json)
    : out(out)
    , asJson(json)
{ }

void Printer::call(const CallRecord &record)
{
    if (asJson) {
        out << QJsonDocument(toJson(record)).toJson(QJsonDocument::Compact) << '\n';
        out.flush();
        return;
    }
    if (!record.ok)
        return; // the reason goes to standard error

    const QVector<Parameter> &parameters = record.operation->parameters;
    bool hasOut = false;
    for (const Parameter &parameter : parameters)
        hasOut = hasOut || parameter.direction != Direction::In;

    if (!hasOut) {
        // A bare result, one entry per line for lists.
        if (record.result.kind != Kind::Void && !record.result.isEmpty())
            for (const QString &line : readableLines(record.result))
                out << line << '\n';
    } else {
        // A true bool result only repeats the success; other results are
        // printed ahead of the out-parameters.
        if (record.result.kind != Kind::Void && record.result.kind != Kind::Bool)
            printLabelled(QStringLiteral("result"), record.result);
        for (int i = 0; i < parameters.size(); ++i)
            if (parameters.at(i).direction != Direction::In)
                printLabelled(parameters.at(i).name, record.arguments.at(size_t(i)));
    }
    out.flush();
}

void Printer::printLabelled(const QString &label, const Value &value)
{
    if (!isMultiple(value.kind)) {
        out << label << ": " << readable(value) << '\n';
        return;
    }
    if (value.isEmpty()) {
        out << label << ": (none)\n";
        return;
    }
    out << label << ":\n";
    for (const QString &line : readableLines(value))
        out << "  " << line << '\n';
}

void Printer::scriptLine(int number, const QString &text)
{
    if (!narrating)
        return;
    out << "[" << number << "] " << text << '\n';
    out.flush();
}

void Printer::loggedIn(const QString &user, const QString &where)
{
    if (!narrating)
        return;
    out << "(logged in as " << user << " on " << where << ")\n";
    out.flush();
}

void Printer::serverRequest(const QString &request)
{
    if (asJson)
        out << QJsonDocument(
                   QJsonObject { { QStringLiteral("event"), QStringLiteral("serverRequest") },
                                 { QStringLiteral("request"), request } })
                   .toJson(QJsonDocument::Compact)
            << '\n';
    else
        out << "server request: " << request << '\n';
    out.flush();
}

void Printer::connectionLost()
{
    if (asJson)
        out << QJsonDocument(
                   QJsonObject { { QStringLiteral("event"), QStringLiteral("clientDisconnect") } })
                   .toJson(QJsonDocument::Compact)
            << '\n';
    else
        out << "connection lost\n";
    out.flush();
}

} // namespace nuvcli
