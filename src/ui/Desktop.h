#pragma once

#include <QUrl>
#include <functional>
#include <string>
#include <vector>

class QDBusConnection;

namespace brenvo {

// Handing items to the desktop: opening them, and showing them in the file manager.

// A file URL built from the path's bytes, so a name that isn't UTF-8 survives the trip.
QUrl urlOf(const std::string& path, bool isFolder);

// Whether the desktop asked for less motion (GNOME's enable-animations off, or BRENVO_REDUCE_MOTION=1).
// The desktop's answer is read in the background on the first call; until it comes, the answer is no.
bool prefersReducedMotion();

// Opens a file or folder with what the desktop uses for it; an application's desktop entry is launched
// rather than opened as a text file.
void openItem(const std::string& path);

// Shows the items in the file manager with them selected, all in one window when they share a folder.
// A file manager that can't be asked (no session bus, no org.freedesktop.FileManager1, an error) gets
// their folders opened instead. Returns at once; the answer is awaited on the event loop.
void showInFolder(const std::vector<std::string>& paths);
// The same, asking the file manager on `bus` rather than on the session bus.
void showInFolder(const std::vector<std::string>& paths, const QDBusConnection& bus);

// The test seam: everything above opens URLs through this function, QDesktopServices::openUrl unless
// replaced. No file manager or browser runs under the tests, so they put a recorder here. An empty
// function puts QDesktopServices back; the one replaced is returned.
using UrlOpener = std::function<bool(const QUrl&)>;
UrlOpener setUrlOpener(UrlOpener opener);

} // namespace brenvo
