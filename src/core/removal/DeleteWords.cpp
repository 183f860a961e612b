#include "removal/DeleteWords.h"

#include "format/Formatters.h"

#include <charconv>

namespace brenvo::DeleteWords {

std::string question(int64_t count, std::string_view firstName) {
    if (count == 1) return "Delete " + format::quoted(firstName) + " permanently?";
    return "Delete " + format::count(count) + " items permanently?";
}

std::string seconds(double value) {
    char text[32];
    const auto written = std::to_chars(text, text + sizeof text, value);
    return std::string(text, written.ptr);
}

std::string promise(std::optional<int64_t> size, double undoSeconds) {
    const std::string freed = size ? format::bytes(*size) + " will be freed."
                                   : std::string("How much space will be freed is unknown, as Brenvo couldn't look "
                                                 "inside everything.");
    return freed + " Items are deleted for good, not moved to the Trash, but you'll have " + seconds(undoSeconds) +
           " seconds to undo.";
}

std::string protectedLeft(int64_t count) {
    return format::count(count) + " protected item(s) in your selection will be left where they are.";
}

} // namespace brenvo::DeleteWords
