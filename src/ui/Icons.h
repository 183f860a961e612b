#pragma once

#include <QIcon>
#include <utility>
#include <vector>

namespace brenvo {

// The icon for a Mac symbol name (the screens name icons that way), from the freedesktop icon theme,
// else a drawing of our own; an unknown name gets a drawing too. Monochrome theme icons and the drawings
// take the palette's text colour, so they stay visible on dark palettes and on selected rows.
// For the GUI thread only.
QIcon icon(const char* symbolName);

// Mac symbol name → freedesktop icon name, for every symbol the screens use.
const std::vector<std::pair<const char*, const char*>>& iconTable();

} // namespace brenvo
