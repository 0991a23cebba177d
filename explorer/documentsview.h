// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_DOCUMENTSVIEW_H
#define NUVEXPLORER_DOCUMENTSVIEW_H

#include "view.h"

namespace nuvexplorer {

class ClipboardsPage;
class SearchesPage;
class SharesPage;
class TemporaryPage;
class TrashPage;

// Working with documents beyond their classification: the trash,
// clipboards and their cards, shares, saved searches and temporary
// classifications.
class DocumentsView : public TabbedView
{
    Q_OBJECT

public:
    explicit DocumentsView(Connection *connection, QWidget *parent = nullptr);

    void setArchive(const QString &archive);
    TrashPage *trashPage() const { return trash; }
    ClipboardsPage *clipboardsPage() const { return clipboards; }
    SharesPage *sharesPage() const { return shares; }
    SearchesPage *searchesPage() const { return searches; }
    TemporaryPage *temporaryPage() const { return temporary; }

private:
    TrashPage *trash;
    ClipboardsPage *clipboards;
    SharesPage *shares;
    SearchesPage *searches;
    TemporaryPage *temporary;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_DOCUMENTSVIEW_H
