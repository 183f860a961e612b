#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace brenvo::test {

// An environment variable set (or, given nothing, unset) for one scope, and put back as it was.
class ScopedEnv {
public:
    ScopedEnv(const char* name, std::optional<std::string> value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        set(std::move(value));
    }
    ~ScopedEnv() { set(old_); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

    void set(const std::optional<std::string>& value) {
        if (value)
            ::setenv(name_.c_str(), value->c_str(), 1);
        else
            ::unsetenv(name_.c_str());
    }

private:
    std::string name_;
    std::optional<std::string> old_;
};

} // namespace brenvo::test
