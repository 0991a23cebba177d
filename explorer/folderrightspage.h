// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_FOLDERRIGHTSPAGE_H
#define NUVEXPLORER_FOLDERRIGHTSPAGE_H

#include "view.h"

class QLineEdit;

namespace nuvexplorer {

class FolderTree;

// Who may see a folder: the users and roles it is restricted to (none: no
// restriction). The rights on one document are set in its details.
class FolderRightsPage : public View
{
    Q_OBJECT

public:
    explicit FolderRightsPage(Connection *connection, QWidget *parent = nullptr);

    void setArchive(const QString &archive);
    FolderTree *folders() const { return tree; }
    QLineEdit *rolesEdit() const { return roles; }

public Q_SLOTS:
    void reload() override;
    void saveRoles();

private:
    FolderTree *tree;
    QLineEdit *roles;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_FOLDERRIGHTSPAGE_H
