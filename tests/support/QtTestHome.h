#pragma once

#include <QDir>
#include <QTemporaryDir>

namespace brenvo::test {

// A home folder, settings folder and cache folder of the suite's own, set before anything reads them.
struct QtTestHome {
    QTemporaryDir config, home, cache, state;
    QtTestHome() {
        qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
        qputenv("XDG_CACHE_HOME", cache.path().toUtf8());
        qputenv("XDG_STATE_HOME", state.path().toUtf8());
        qputenv("HOME", home.path().toUtf8());
        qputenv("BRENVO_PROFILE", "linux");
        for (const char* folder : {"Downloads", "Desktop", "Documents"})
            QDir(home.path()).mkpath(QString::fromLatin1(folder));
    }
};

} // namespace brenvo::test
