// SPDX-License-Identifier: Apache-2.0
#include "serverpage.h"

#include "classifyinterface.h"
#include "connection.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace nuvexplorer {

ServerPage::ServerPage(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , text(new QPlainTextEdit(this))
    , mail(new QLineEdit(this))
{
    text->setObjectName(QStringLiteral("serverOutput"));
    text->setReadOnly(true);
    mail->setPlaceholderText(tr("someone@example.org"));
    auto *refresh = new QPushButton(tr("&Information"), this);
    auto *backupButton = new QPushButton(tr("&Back up now"), this);
    auto *mailButton = new QPushButton(tr("Send &test mail"), this);
    connect(refresh, &QPushButton::clicked, this, &ServerPage::reload);
    connect(backupButton, &QPushButton::clicked, this, &ServerPage::backup);
    connect(mailButton, &QPushButton::clicked, this, &ServerPage::sendTestMail);
    auto *controls = new QHBoxLayout;
    controls->addWidget(refresh);
    controls->addWidget(backupButton);
    controls->addStretch();
    controls->addWidget(mail);
    controls->addWidget(mailButton);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(text, 1);
    layout->addLayout(controls);
}

void ServerPage::report(const QString &line)
{
    text->appendPlainText(line);
}

void ServerPage::reload()
{
    text->clear();
    connection->call(
        QStringLiteral("getServerVersion"), QString(),
        [](ClassifyInterface &client) {
            const QString version = client.getServerVersion();
            return Connection::fromBool(client, !version.isEmpty(), version, version);
        },
        this,
        [this](const CallResult &result) {
            report(result.ok ? tr("Server version: %1").arg(result.value.toString())
                             : tr("Server version: %1").arg(result.error));
        });
    connection->call(
        QStringLiteral("getIndexerInfos"), QString(),
        [](ClassifyInterface &client) {
            QStringList infos;
            const bool ok = client.getIndexerInfos(infos);
            return Connection::fromBool(client, ok, infos, infos.join(QStringLiteral(", ")));
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok) {
                report(tr("Index: %1").arg(result.error));
                return;
            }
            for (const QString &info : result.value.toStringList())
                report(tr("Index: %1").arg(info));
        });
}

void ServerPage::backup()
{
    connection->call(
        QStringLiteral("doBackup"), QString(),
        [](ClassifyInterface &client) { return Connection::fromBool(client, client.doBackup()); },
        this,
        [this](const CallResult &result) {
            if (result.ok)
                report(tr("The backup was written."));
            else
                emit failed(QStringLiteral("doBackup"), result.error);
        });
}

void ServerPage::sendTestMail()
{
    const QString address = mail->text().trimmed();
    if (address.isEmpty())
        return;
    connection->call(
        QStringLiteral("testMail"), address,
        [address](ClassifyInterface &client) {
            return Connection::fromBool(client, client.testMail(address));
        },
        this,
        [this, address](const CallResult &result) {
            if (result.ok)
                report(tr("A test mail went to %1.").arg(address));
            else
                emit failed(QStringLiteral("testMail"), result.error);
        });
}

} // namespace nuvexplorer
