#include "documentsview.h"

namespace nuvexplorer {

DocumentsView::DocumentsView(Connection *connection, QWidget *parent)
    : View(connection, parent)
{ }

void DocumentsView::reload() { }

} // namespace nuvexplorer
