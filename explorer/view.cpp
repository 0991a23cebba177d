// SPDX-License-Identifier: Apache-2.0
#include "view.h"

#include "connection.h"

#include <QTabWidget>
#include <QVBoxLayout>

namespace nuvexplorer {

void View::change(const QString &operation, const QString &arguments,
                  std::function<bool(ClassifyInterface &)> body)
{
    connection->call(
        operation, arguments,
        [body](ClassifyInterface &client) { return Connection::fromBool(client, body(client)); },
        this,
        [this, operation](const CallResult &result) {
            if (!result.ok)
                emit failed(operation, result.error);
            reload();
        });
}

TabbedView::TabbedView(Connection *connection, QWidget *parent)
    : View(connection, parent)
    , pages(new QTabWidget(this))
{
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(pages);
    connect(pages, &QTabWidget::currentChanged, this, &TabbedView::reload);
}

void TabbedView::addPage(View *page, const QString &title)
{
    pages->addTab(page, title);
    connect(page, &View::failed, this, &View::failed);
}

void TabbedView::reload()
{
    if (auto *page = qobject_cast<View *>(pages->currentWidget()))
        page->reload();
}

} // namespace nuvexplorer
