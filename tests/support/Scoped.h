#pragma once

#include "Preferences.h"

#include <QByteArray>
#include <QStringList>
#include <optional>
#include <utility>

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

// An environment variable set (or unset) for one scope.
class ScopedEnv {
public:
    ScopedEnv(const char* name, std::optional<QByteArray> value) : name_(name) {
        if (qEnvironmentVariableIsSet(name)) old_ = qgetenv(name);
        if (value)
            qputenv(name, *value);
        else
            qunsetenv(name);
    }
    ~ScopedEnv() {
        if (old_)
            qputenv(name_, *old_);
        else
            qunsetenv(name_);
    }

private:
    const char* name_;
    std::optional<QByteArray> old_;
};

} // namespace brenvo::test
