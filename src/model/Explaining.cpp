#include "Explaining.h"

#include "explain/RemovedApps.h"
#include "platform/Platform.h"

#include <QMimeDatabase>

namespace brenvo {

ExplainContext systemExplainContext(std::shared_ptr<const AppCatalog> catalog) {
    ExplainContext context;
    context.profile = &platform::profile();
    context.catalog = std::move(catalog);
    static const std::shared_ptr<const AppSystem> apps = platform::appSystem();
    context.apps = apps.get();
    static const std::vector<std::string> commands = RemovedApps::commandFolders(platform::profile().home);
    context.commandFolders = commands;
    context.typeDescription = [](const std::string& extension) -> std::optional<std::string> {
        static const QMimeDatabase types;
        const QMimeType type = types.mimeTypeForFile(QStringLiteral("x.") + QString::fromStdString(extension),
                                                     QMimeDatabase::MatchExtension);
        if (!type.isValid() || type.isDefault() || type.comment().isEmpty()) return std::nullopt;
        return type.comment().toStdString();
    };
    context.demo = platform::isDemo();
    context.now = Date::now();
    return context;
}

} // namespace brenvo
