// SPDX-License-Identifier: Apache-2.0
#include "operationdocs.h"

namespace nuvdoc {

const OperationDoc *findOperationDoc(int slot, const QString &name)
{
    for (const OperationDoc &doc : operationDocs())
        if (doc.slot == slot && (slot > 0 || doc.name == name))
            return &doc;
    return nullptr;
}

} // namespace nuvdoc
