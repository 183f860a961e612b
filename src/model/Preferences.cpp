#include "Preferences.h"

#include "Text.h"
#include "platform/Platform.h"
#include "util/Paths.h"

#include <QSettings>
#include <algorithm>

namespace brenvo::Preferences {

namespace {

QSettings store() { return QSettings(QStringLiteral("Brenvo"), QStringLiteral("Brenvo")); }

QString key(const char* name) { return QString::fromLatin1(name); }

template <typename T> T read(const char* name, T fallback) {
    QVariant value = store().value(key(name));
    if (!value.isValid() || !value.canConvert<T>()) return fallback;
    return value.value<T>();
}

void write(const char* name, const QVariant& value) {
    QSettings settings = store();
    settings.setValue(key(name), value);
}

} // namespace

void registerDefaults() {
    QSettings settings = store();
    for (const char* name : {kShowInMenuBar, kLowSpaceWarnings})
        if (!settings.contains(key(name))) settings.setValue(key(name), true);
}

double storedUndoSeconds() { return read<double>(kUndoSeconds, 8.0); }

double undoSeconds() {
    if (platform::isDemo()) return 5.0;
    // A day at most: anything longer is a damaged setting, not a wish.
    const double stored = storedUndoSeconds();
    return stored > 0 ? std::min(stored, 86400.0) : 8.0;
}

int warnBelowGB() { return read<int>(kWarnBelowGB, 0); }
bool lowSpaceWarnings() { return read<bool>(kLowSpaceWarnings, true); }
bool showInMenuBar() { return read<bool>(kShowInMenuBar, true); }
QStringList excludedFolders() { return store().value(key(kExcludedFolders)).toStringList(); }

std::vector<std::string> excludedPaths() {
    std::vector<std::string> paths;
    for (const QString& folder : excludedFolders()) paths.push_back(toBytes(folder));
    return paths;
}
QString folderChart() { return read<QString>(kFolderChart, QStringLiteral("map")); }
bool hasSeenWelcome() { return read<bool>(kHasSeenWelcome, false); }

void setUndoSeconds(double seconds) { write(kUndoSeconds, seconds); }
void setWarnBelowGB(int gigabytes) { write(kWarnBelowGB, gigabytes); }
void setLowSpaceWarnings(bool on) { write(kLowSpaceWarnings, on); }
void setShowInMenuBar(bool on) { write(kShowInMenuBar, on); }
void setExcludedFolders(const QStringList& paths) { write(kExcludedFolders, paths); }
void setFolderChart(const QString& chart) { write(kFolderChart, chart); }
void setHasSeenWelcome(bool seen) { write(kHasSeenWelcome, seen); }

bool isExcluded(std::string_view path) {
    for (const QString& entry : excludedFolders()) {
        const std::string folder = toBytes(entry);
        if (isInside(path, folder)) return true;
    }
    return false;
}

bool isExcluded(const QString& path) { return isExcluded(toBytes(path)); }

} // namespace brenvo::Preferences
