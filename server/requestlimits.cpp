// SPDX-License-Identifier: Apache-2.0
#include "requestlimits.h"

#include "fieldvalues.h"
#include "sql.h"

#include <QSet>

namespace nuvserver {

namespace {

QString megabytesText(qint64 bytes)
{
    return QString::number(double(bytes) / (1 << 20), 'f', 1);
}

// `what` is "the request has" or "the reply would have".
void checkBytes(qint64 size, qint64 limit, const QString &what, const char *variable,
                const QString &advice = QString())
{
    if (size > limit)
        fail(QStringLiteral("%1 %2 MB, more than the limit of %3 MB (%4)%5")
                 .arg(what, megabytesText(size), megabytesText(limit), QLatin1String(variable),
                      advice));
}

void checkEntries(int count, const QString &name, const EngineOptions &options)
{
    if (count > options.maxListEntries)
        fail(QStringLiteral("%1 holds %2 entries, more than the limit of %3"
                            " (NUV_SERVER_MAX_LIST_ENTRIES)")
                 .arg(name)
                 .arg(count)
                 .arg(options.maxListEntries));
}

void checkText(const QString &text, const QString &where)
{
    if (!QStringView(text).isValidUtf16())
        throw Failure { QStringLiteral("the request holds text that is not valid UTF-16 (an"
                                       " unpaired surrogate in %1); nothing was stored")
                            .arg(where),
                        false, true };
}

void checkList(const QStringList &list, const QString &name, const EngineOptions &options)
{
    checkEntries(list.size(), name, options);
    for (int i = 0; i < list.size(); ++i)
        checkText(list.at(i), QStringLiteral("%1 entry %2").arg(name).arg(i));
}

} // namespace

void checkRequest(const nuvMQClassifyMessage &request, const EngineOptions &options)
{
    checkBytes(request.wireSize(), options.maxRequestBytes, QStringLiteral("the request has"),
               "NUV_SERVER_MAX_REQUEST_MB");
    // Two of the getters are not const.
    nuvMQClassifyMessage fields = request;
    const std::pair<const QString *, const char *> texts[] = {
        { &request.command, "the command" },  { &request.errorText, "the error text" },
        { &request.headerText1, "a header" }, { &request.headerText2, "a header" },
        { &request.headerText3, "a header" }, { &request.headerText4, "a header" },
        { &request.headerText5, "a header" },
    };
    for (const auto &text : texts)
        checkText(*text.first, QLatin1String(text.second));
    checkText(request.getDocId(), QStringLiteral("docId"));
    checkText(request.getUpdateString(), QStringLiteral("updateString"));
    checkText(fields.getCurrentArchive(), QStringLiteral("currentArchive"));
    checkList(request.getDataList(), QStringLiteral("dataList"), options);
    checkList(fields.getAvailablePlugins(), QStringLiteral("availablePlugins"), options);
    checkEntries(request.getData().size(), QStringLiteral("data"), options);
}

void checkRecordCount(const nuvMQClassifyMessage &request, const EngineOptions &options)
{
    const int records = request.getDataList().size();
    if (records > options.maxRecords)
        fail(QStringLiteral("dataList holds %1 entries; a command that changes data takes at"
                            " most %2 (NUV_SERVER_MAX_RECORDS), send the rest in further"
                            " requests")
                 .arg(records)
                 .arg(options.maxRecords));
}

void checkReply(const nuvMQClassifyMessage &reply, const EngineOptions &options)
{
    checkBytes(reply.wireSize(), options.maxReplyBytes, QStringLiteral("the reply would have"),
               "NUV_SERVER_MAX_REPLY_MB", QStringLiteral("; ask for less at a time"));
}

QList<qint64> distinctIds(const QStringList &texts, const QString &what,
                          const EngineOptions &options)
{
    QList<qint64> ids;
    QSet<qint64> seen;
    for (const QString &text : texts) {
        const qint64 id = toNumber(text, what);
        if (seen.contains(id))
            continue;
        if (ids.size() == options.maxIds)
            fail(QStringLiteral("the request names more than %1 different ids, the limit"
                                " (NUV_SERVER_MAX_IDS)")
                     .arg(options.maxIds));
        seen.insert(id);
        ids.append(id);
    }
    return ids;
}

} // namespace nuvserver
