#pragma once

#include "Preferences.h"

#include <QStringList>

namespace brenvo::test {

// Setting values for one test, put back as they were when it ends, so tests pass in any order.
class ScopedUndoSeconds {
public:
    explicit ScopedUndoSeconds(double seconds) : old_(Preferences::undoSeconds()) { Preferences::setUndoSeconds(seconds); }
    ~ScopedUndoSeconds() { Preferences::setUndoSeconds(old_); }
    void set(double seconds) { Preferences::setUndoSeconds(seconds); }

private:
    double old_;
};

class ScopedExcludedFolders {
public:
    explicit ScopedExcludedFolders(const QStringList& folders) : old_(Preferences::excludedFolders()) {
        Preferences::setExcludedFolders(folders);
    }
    ~ScopedExcludedFolders() { Preferences::setExcludedFolders(old_); }

private:
    QStringList old_;
};

} // namespace brenvo::test
