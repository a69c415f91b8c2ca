// The word tests of the match engine that stand on their own: where a word
// must stand to start or end a range, and case-insensitive comparison.
#pragma once

#include <cstddef>
#include <string_view>

namespace vellira {

// A position test of the start text: "lo", "lo-hi", "lo|alt", "lo-hi|alt".
struct PositionSpec {
    int lo = 0;
    int hi = 0;
    int alt = 0;
};
PositionSpec parsePosition(std::string_view text);
// Whether a word at (h, v) of `chars` characters passes the start position.
bool startPositionPasses(const PositionSpec& h, const PositionSpec& v, int wordH, int wordV, std::size_t chars);
// Whether it passes the until position (U_h, U_v).
bool untilPositionPasses(int untilH, int untilV, int wordH, int wordV, std::size_t chars);

// Case-insensitive equality by Unicode case folding.
bool equalsIgnoringCase(std::string_view a, std::string_view b);

}  // namespace vellira
