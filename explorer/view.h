// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_VIEW_H
#define NUVEXPLORER_VIEW_H

#include <QWidget>

#include <functional>

class ClassifyInterface;
class QTabWidget;

namespace nuvexplorer {

class Connection;

// A page of the main window. It reads what it shows through the connection
// and reads it again when the server asks the host to reload.
class View : public QWidget
{
    Q_OBJECT

public:
    explicit View(Connection *connection, QWidget *parent = nullptr)
        : QWidget(parent)
        , connection(connection)
    { }

public Q_SLOTS:
    virtual void reload() = 0;

Q_SIGNALS:
    // A change failed: the server's text, to be shown as it came.
    void failed(const QString &operation, const QString &error);

protected:
    // Runs one changing call; a refusal is reported with the server's text,
    // and the view reads everything again either way.
    void change(const QString &operation, const QString &arguments,
                std::function<bool(ClassifyInterface &)> body);

    Connection *connection;
};

// A view made of pages; the page in front is the one that reloads.
class TabbedView : public View
{
    Q_OBJECT

public:
    explicit TabbedView(Connection *connection, QWidget *parent = nullptr);

    QTabWidget *tabs() const { return pages; }

public Q_SLOTS:
    void reload() override;

protected:
    void addPage(View *page, const QString &title);

    QTabWidget *pages;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_VIEW_H
