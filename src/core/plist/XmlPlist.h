#pragma once

#include "plist/PlistValue.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace brenvo::plist {

// Reads an XML property list such as an application's Info.plist: an optional XML declaration, DOCTYPE,
// comments and processing instructions around <plist> (or a bare value), holding <dict>, <array>,
// <string>, <integer>, <real>, <true/>, <false/>, <date> and <data>. Text may use the five predefined
// entities, numeric character references and CDATA sections. Only UTF-8 documents are accepted.
//
// Containers nested deeper than maxDepth are rejected. On failure returns nothing and, if `error` is
// given, fills it in as "line N: what is wrong".
std::optional<Value> parseXml(std::string_view xml, std::string* error = nullptr,
                              std::size_t maxDepth = kDefaultMaxDepth);

// "2024-01-31T12:00:00Z" as seconds since 2001-01-01 UTC; the trailing parts may be left out
// ("2024-01-31Z", "2024Z"). Nothing for anything else or a date that does not exist.
std::optional<double> parseIsoDate(std::string_view text);

} // namespace brenvo::plist
