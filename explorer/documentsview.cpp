// SPDX-License-Identifier: Apache-2.0
#include "documentsview.h"

#include "clipboardspage.h"
#include "searchespage.h"
#include "sharespage.h"
#include "temporarypage.h"
#include "trashpage.h"

#include <QTabWidget>

namespace nuvexplorer {

DocumentsView::DocumentsView(Connection *connection, QWidget *parent)
    : TabbedView(connection, parent)
    , trash(new TrashPage(connection, this))
    , clipboards(new ClipboardsPage(connection, this))
    , shares(new SharesPage(connection, this))
    , searches(new SearchesPage(connection, this))
    , temporary(new TemporaryPage(connection, this))
{
    pages->setObjectName(QStringLiteral("documentPages"));
    addPage(trash, tr("&Trash"));
    addPage(clipboards, tr("&Clipboards"));
    addPage(shares, tr("S&hares"));
    addPage(searches, tr("Saved searc&hes"));
    addPage(temporary, tr("Te&mporary classifications"));
}

void DocumentsView::setArchive(const QString &)
{
    trash->forget();
}

} // namespace nuvexplorer
