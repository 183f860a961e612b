#include "StorageModel.h"

#include "Explaining.h"
#include "Preferences.h"
#include "Text.h"
#include "cache/ScanCache.h"
#include "platform/Platform.h"
#include "scan/SkippedFolders.h"
#include "util/Paths.h"

namespace brenvo {

StorageModel::StorageModel(QObject* parent)
    : QObject(parent), catalog_(AppCatalog::empty()), deletions_(new DeletionLog(DeletionLog::defaultFile(), this)) {
    hasFullDiskAccess_ = platform::hasFullDiskAccess();
    session_.setSnapshotSource([](const std::string& locationPath) -> std::optional<Remembered> {
        auto snapshot = ScanCache::readSnapshot(ScanCache::fileURL(locationPath, platform::scansFolder(), false));
        if (!snapshot) return std::nullopt;
        return Remembered{std::move(snapshot->root), snapshot->date};
    });
}

StorageModel::~StorageModel() = default;

void StorageModel::setErrorMessage(std::optional<QString> message) {
    if (errorMessage_ == message) return;
    errorMessage_ = std::move(message);
    emit errorMessageChanged();
}

void StorageModel::setPage(Page page) {
    if (page_ == page) return;
    page_ = page;
    emit pageChanged();
}

void StorageModel::bumpRevision() {
    ++revision_;
    emit treeChanged();
}

void StorageModel::setCatalog(std::shared_ptr<const AppCatalog> catalog) {
    catalog_ = std::move(catalog);
    appMatches_.clear();
}

void StorageModel::refreshFullDiskAccess() {
    const bool access = platform::hasFullDiskAccess();
    if (access == hasFullDiskAccess_) return;
    hasFullDiskAccess_ = access;
    emit scanStateChanged();
}

StorageModel::Skipped StorageModel::skippedTable() {
    return skippedFolders(platform::profile(), Preferences::excludedPaths());
}

std::vector<std::string> StorageModel::ignoredFolders() {
    std::vector<std::string> folders;
    for (const auto& [folder, reason] : skippedTable()) folders.push_back(folder);
    return folders;
}

ScanLocation StorageModel::bestLocation(const std::string& path) { return ScanLocation::best(path, platform::profile()); }

Explanation StorageModel::explain(const FileNode& node) const {
    return Explainer::explain(node, root(), systemExplainContext(catalog_));
}

void StorageModel::openInDefaultApp(FileNode& node) {
    if (node.isAggregate()) {
        emit revealRequested(node.path());
        return;
    }
    if (auto app = installedApp(node)) {
        installerChoice_ = InstallerChoice{NodeRef(&node), *app};
        emit installerChoiceChanged();
        return;
    }
    emit openRequested(node.path());
}

void StorageModel::clearInstallerChoice() {
    installerChoice_.reset();
    emit installerChoiceChanged();
}

bool StorageModel::InstallerChoice::installerIsNewer() const {
    auto parsed = AppCatalog::parseInstallerName(installer->name(), platform::profile().extraNoiseWords);
    return parsed.version && app.version &&
           AppCatalog::compareVersions(*parsed.version, *app.version) == std::strong_ordering::greater;
}

std::string StorageModel::InstallerChoice::message() const {
    const Profile& profile = platform::profile();
    const std::string base =
        app.version ? profile.say("Version " + *app.version + " is in your Applications folder.")
                    : profile.say("It's in your Applications folder.");
    auto parsed = AppCatalog::parseInstallerName(installer->name(), profile.extraNoiseWords);
    if (!parsed.version) return base + " Do you want to open it, or run this installer anyway?";
    if (installerIsNewer())
        return base + " This installer has a newer version (" + *parsed.version + "), so you can install it to update.";
    return base + " This installer is version " + *parsed.version + ", so installing it won't give you anything newer.";
}

std::optional<InstalledApp> StorageModel::installedApp(const FileNode& node) {
    if (auto memo = appMatches_.find(node.id()); memo != appMatches_.end()) return memo->second;
    std::optional<InstalledApp> app;
    if (!node.isAggregate() && Explainer::category(node, platform::profile()) == Category::installer && catalog_ &&
        !catalog_->appRunning(node.path()))
        app = catalog_->app(std::string(node.name()));
    appMatches_[node.id()] = app;
    return app;
}

} // namespace brenvo
