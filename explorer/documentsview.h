#ifndef NUVEXPLORER_DOCUMENTSVIEW_H
#define NUVEXPLORER_DOCUMENTSVIEW_H

#include "view.h"

namespace nuvexplorer {

class DocumentsView : public View
{
    Q_OBJECT

public:
    explicit DocumentsView(Connection *connection, QWidget *parent = nullptr);
    void setArchive(const QString &archive) { currentArchive = archive; }

public Q_SLOTS:
    void reload() override;

private:
    QString currentArchive;
};

} // namespace nuvexplorer

#endif
