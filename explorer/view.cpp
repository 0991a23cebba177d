#include "view.h"

#include "connection.h"

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

} // namespace nuvexplorer
