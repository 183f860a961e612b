#pragma once

#include <string>
#include <vector>

namespace brenvo::cli {

// Prints the message and the usage text on standard error; returns the status for a usage error (2).
int usageError(const std::string& message);

// `delete`, `finish-deleting` and `deleted`: the application's deletion engine and its files, from a
// terminal. Each returns the process's exit status.
int deleteCommand(const std::vector<std::string>& args);
int finishDeletingCommand(const std::vector<std::string>& args);
int deletedCommand(const std::vector<std::string>& args);

} // namespace brenvo::cli
