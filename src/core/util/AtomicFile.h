#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace brenvo {

// Files replaced in one step: written to a temporary file beside the target, then renamed over it, so a
// reader finds the old file or the new one, never half of either.

// Opens a new temporary file in `folder` (made if missing); its name goes to `name`. Null on failure,
// with errno set.
std::FILE* openTemporaryIn(const std::string& folder, std::string& name);

// Closes `file`, opened by openTemporaryIn, and with `durable` flushes it to the disk; false (and the
// temporary removed) if anything failed, with errno set. The file is not moved into place.
bool closeTemporary(std::FILE* file, const std::string& name, bool durable);

// Writes `text` to `path` in one step. False on failure, with errno set; the old file is then untouched.
bool writeFileAtomically(const std::string& path, std::string_view text, bool durable);

} // namespace brenvo
