// SPDX-License-Identifier: Apache-2.0
#include "values.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

#include <limits>

namespace nuvcli {

Value Value::empty(Kind kind)
{
    Value value;
    value.kind = kind;
    return value;
}

bool Value::isEmpty() const
{
    switch (kind) {
    case Kind::String:
        return text.isEmpty();
    case Kind::StringList:
        return list.isEmpty();
    case Kind::Bytes:
        return bytes.isEmpty();
    case Kind::BytesList:
        return byteList.isEmpty();
    case Kind::Pairs:
        return pairs.isEmpty();
    default:
        return false;
    }
}

QString kindName(Kind kind)
{
    switch (kind) {
    case Kind::Void:
        return QStringLiteral("nothing");
    case Kind::Bool:
        return QStringLiteral("bool");
    case Kind::Int:
        return QStringLiteral("int");
    case Kind::Int64:
        return QStringLiteral("int64");
    case Kind::String:
        return QStringLiteral("string");
    case Kind::StringList:
        return QStringLiteral("list");
    case Kind::Bytes:
        return QStringLiteral("bytes");
    case Kind::BytesList:
        return QStringLiteral("bytes-list");
    case Kind::DateTime:
        return QStringLiteral("date-time");
    case Kind::Pairs:
        return QStringLiteral("pairs");
    case Kind::Client:
        return QStringLiteral("client");
    }
    return QString();
}

QString kindSyntax(Kind kind)
{
    switch (kind) {
    case Kind::Bool:
        return QStringLiteral("true or false (also 1/0, yes/no, on/off)");
    case Kind::Int:
        return QStringLiteral("a decimal number from -2147483648 to 2147483647");
    case Kind::Int64:
        return QStringLiteral("a decimal 64-bit number");
    case Kind::String:
        return QStringLiteral("any text; '' for an empty one");
    case Kind::StringList:
        return QStringLiteral("a JSON array of strings, e.g. '[\"a\",\"b\"]'");
    case Kind::Bytes:
        return QStringLiteral("@FILE for a file's contents, or base64 text");
    case Kind::BytesList:
        return QStringLiteral(
            "a JSON array of @FILE or base64 strings, e.g. '[\"@a.pdf\",\"aGk=\"]'");
    case Kind::DateTime:
        return QStringLiteral(
            "ISO 8601, e.g. 2024-03-05T09:07:03 (local time unless a zone is given)");
    case Kind::Pairs:
        return QStringLiteral("(returned only) pairs of strings");
    case Kind::Client:
        return QStringLiteral("(returned only) a client object");
    case Kind::Void:
        break;
    }
    return QString();
}

namespace {

bool fail(QString *error, const QString &text)
{
    if (error)
        *error = text;
    return false;
}

bool parseBool(const QString &word, bool *flag)
{
    const QString lower = word.trimmed().toLower();
    static const QStringList yes { QStringLiteral("true"), QStringLiteral("1"),
                                   QStringLiteral("yes"), QStringLiteral("on") };
    static const QStringList no { QStringLiteral("false"), QStringLiteral("0"),
                                  QStringLiteral("no"), QStringLiteral("off") };
    if (yes.contains(lower))
        *flag = true;
    else if (no.contains(lower))
        *flag = false;
    else
        return false;
    return true;
}

bool parseBytes(const QString &word, QByteArray *bytes, QString *error)
{
    if (word.startsWith(QLatin1Char('@'))) {
        QFile file(word.mid(1));
        if (!file.open(QIODevice::ReadOnly))
            return fail(
                error,
                QStringLiteral("cannot read %1: %2").arg(file.fileName(), file.errorString()));
        *bytes = file.readAll();
        return true;
    }
    // Strict: a typo must not silently become other bytes.
    const auto decoded = QByteArray::fromBase64Encoding(word.trimmed().toLatin1(),
                                                        QByteArray::AbortOnBase64DecodingErrors);
    bool ascii = true;
    for (const QChar c : word)
        ascii = ascii && c.unicode() < 128;
    if (!ascii || decoded.decodingStatus != QByteArray::Base64DecodingStatus::Ok)
        return fail(error, QStringLiteral("'%1' is neither @FILE nor base64 text").arg(word));
    *bytes = decoded.decoded;
    return true;
}

// A JSON array whose elements are all strings.
bool parseStringArray(const QString &word, QStringList *strings, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(word.toUtf8(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isArray())
        return fail(error,
                    QStringLiteral("'%1' is not a JSON array of strings (write e.g. "
                                   "'[\"a\",\"b\"]', '[]' for none)")
                        .arg(word));
    const QJsonArray array = document.array();
    strings->clear();
    for (int i = 0; i < array.size(); ++i) {
        if (!array.at(i).isString())
            return fail(error,
                        QStringLiteral("element %1 of %2 is not a string").arg(i + 1).arg(word));
        strings->append(array.at(i).toString());
    }
    return true;
}

} // namespace

bool parseArgument(Kind kind, const QString &word, Value *value, QString *error)
{
    *value = Value::empty(kind);
    bool ok = false;
    switch (kind) {
    case Kind::String:
        value->text = word;
        return true;
    case Kind::Bool:
        if (!parseBool(word, &value->flag))
            return fail(error,
                        QStringLiteral("'%1' is not a bool (write true or false)").arg(word));
        return true;
    case Kind::Int:
        value->number = word.trimmed().toInt(&ok, 10);
        if (!ok)
            return fail(error, QStringLiteral("'%1' is not a 32-bit decimal number").arg(word));
        return true;
    case Kind::Int64:
        value->number = word.trimmed().toLongLong(&ok, 10);
        if (!ok)
            return fail(error, QStringLiteral("'%1' is not a 64-bit decimal number").arg(word));
        return true;
    case Kind::DateTime:
        value->when = QDateTime::fromString(word.trimmed(), Qt::ISODateWithMs);
        if (!value->when.isValid())
            return fail(error,
                        QStringLiteral("'%1' is not an ISO 8601 date-time (write e.g. "
                                       "2024-03-05T09:07:03)")
                            .arg(word));
        return true;
    case Kind::StringList:
        return parseStringArray(word, &value->list, error);
    case Kind::Bytes:
        return parseBytes(word, &value->bytes, error);
    case Kind::BytesList: {
        QStringList items;
        if (!parseStringArray(word, &items, error))
            return false;
        for (const QString &item : items) {
            QByteArray bytes;
            if (!parseBytes(item, &bytes, error))
                return false;
            value->byteList.append(bytes);
        }
        return true;
    }
    case Kind::Void:
    case Kind::Pairs:
    case Kind::Client:
        break;
    }
    return fail(error, QStringLiteral("a %1 cannot be given as an argument").arg(kindName(kind)));
}

} // namespace nuvcli
