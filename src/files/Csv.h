// CSV text: read as lists and reports from other programs write it (a
// delimiter of their choosing, quoted fields, line breaks inside quotes),
// written with commas and fields quoted where they must be.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vellira {

// The logical lines of a CSV text, blank ones left out: a line break inside
// quotes belongs to its field.
std::vector<std::string_view> csvLines(std::string_view text);
// The delimiter (comma, semicolon, tab or bar) a header line holds most of,
// outside quotes.
char csvDelimiter(std::string_view header);
// The fields of one CSV line split at `delimiter`, quotes taken off.
std::vector<std::string> csvFields(std::string_view line, char delimiter);
// A field as written: quoted, its quotes doubled, when it holds a comma, a
// quote or a line break.
std::string csvField(const std::string& text);

}  // namespace vellira
