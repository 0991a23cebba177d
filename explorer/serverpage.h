// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_SERVERPAGE_H
#define NUVEXPLORER_SERVERPAGE_H

#include "view.h"

class QLineEdit;
class QPlainTextEdit;

namespace nuvexplorer {

// The server side: version, full-text index, backup and a test mail.
class ServerPage : public View
{
    Q_OBJECT

public:
    explicit ServerPage(Connection *connection, QWidget *parent = nullptr);

    QPlainTextEdit *output() const { return text; }
    QLineEdit *mailEdit() const { return mail; }

public Q_SLOTS:
    void reload() override;
    void backup();
    void sendTestMail();

private:
    void report(const QString &line);

    QPlainTextEdit *text;
    QLineEdit *mail;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_SERVERPAGE_H
