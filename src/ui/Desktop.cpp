#include "Desktop.h"

#include "util/FileURL.h"
#include "util/Paths.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QProcess>
#include <QStringList>
#include <algorithm>
#include <atomic>
#include <utility>

namespace brenvo {

// Built from the path's bytes: QUrl::fromLocalFile would lose those of a name that is not UTF-8, which
// fileURL percent-encodes one by one (so the text is ASCII).
QUrl urlOf(const std::string& path, bool isFolder) { return QUrl(QString::fromLatin1(fileURL(path, isFolder))); }

namespace {

UrlOpener& opener() {
    static UrlOpener current;
    return current;
}

bool openUrl(const QUrl& url) {
    if (opener()) return opener()(url);
    return QDesktopServices::openUrl(url);
}

// Opening folders stands in for selecting items. Matches of a search may lie in hundreds of folders;
// a few windows are as many as help.
void openFolders(const std::vector<std::string>& paths) {
    constexpr size_t kMostWindows = 5;
    std::vector<std::string> opened;
    for (const std::string& path : paths) {
        std::string folder = parentPath(path);
        if (folder.empty() || std::find(opened.begin(), opened.end(), folder) != opened.end()) continue;
        openUrl(urlOf(folder, true));
        opened.push_back(std::move(folder));
        if (opened.size() == kMostWindows) break;
    }
}

} // namespace

namespace {

// Unknown until the desktop has answered; until then motion is on, as most desktops have it.
std::atomic<int> reducedMotion{-1};

void readMotionSetting() {
    static bool asked = false;
    if (asked) return;
    asked = true;
    // GNOME and the desktops that follow its settings keep the switch here. Read in the background, so
    // no screen waits for a process to start.
    auto* reader = new QProcess(qApp);
    QObject::connect(reader, &QProcess::finished, reader, [reader](int code, QProcess::ExitStatus status) {
        if (status == QProcess::NormalExit && code == 0)
            reducedMotion = reader->readAllStandardOutput().trimmed() == "false" ? 1 : 0;
        reader->deleteLater();
    });
    QObject::connect(reader, &QProcess::errorOccurred, reader, [reader](QProcess::ProcessError) { reader->deleteLater(); });
    reader->start(QStringLiteral("gsettings"),
                  {QStringLiteral("get"), QStringLiteral("org.gnome.desktop.interface"), QStringLiteral("enable-animations")});
}

} // namespace

bool prefersReducedMotion() {
    if (qEnvironmentVariableIsSet("BRENVO_REDUCE_MOTION"))
        return qEnvironmentVariable("BRENVO_REDUCE_MOTION") != QLatin1String("0");
    readMotionSetting();
    return reducedMotion == 1;
}

UrlOpener setUrlOpener(UrlOpener replacement) { return std::exchange(opener(), std::move(replacement)); }

void openItem(const std::string& path) {
    // gio takes the entry's path as text, so only a name that is UTF-8 can be handed over.
    const QString text = QString::fromUtf8(path);
    if (path.ends_with(".desktop") && text.toUtf8().toStdString() == path &&
        QProcess::startDetached(QStringLiteral("gio"), {QStringLiteral("launch"), text}))
        return;
    openUrl(urlOf(path, false));
}

void showInFolder(const std::vector<std::string>& paths) { showInFolder(paths, QDBusConnection::sessionBus()); }

void showInFolder(const std::vector<std::string>& paths, const QDBusConnection& bus) {
    if (paths.empty()) return;
    if (!bus.isConnected()) {
        openFolders(paths);
        return;
    }
    QStringList uris;
    for (const std::string& path : paths) uris << QString::fromLatin1(fileURL(path, false));
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << uris << QString(); // no startup id: the file manager raises its window as it sees fit
    // Asynchronous, so a file manager that is slow to start never holds the window up. A bus with no file
    // manager answers at once; one that doesn't answer at all is given up on after 15 seconds.
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 15000));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [paths](QDBusPendingCallWatcher* done) {
        if (done->isError()) openFolders(paths);
        done->deleteLater();
    });
}

} // namespace brenvo
