// The blank-page test: the dark marks of a page's image, as connected
// blobs, sorted into what a scanner or a hole punch leaves on an empty sheet
// and what a person puts on it. Sizes are in millimetres, so that the test
// gives the same answer at every resolution.
#include "reading/Recognition.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace vellira {

namespace {

constexpr unsigned char kDark = 140;  // darker than this is ink
constexpr double kSpeck = 1.5;        // dust: a blob no longer than this
constexpr double kHoleLow = 4;        // a punched hole: round, this wide or more...
constexpr double kHoleHigh = 10;      // ...and at most this, near an edge
constexpr double kHoleBand = 25;      // how near
constexpr double kShadow = 8;         // a scanner's shadow: this thin at most, along an edge
constexpr double kLongest = 5;        // a stray dot is no longer than this
constexpr double kMostInk = 12;       // square millimetres of ink a blank page may hold
constexpr int kMostBlobs = 3;         // and in no more blobs than this

struct Blob {
    int x0, y0, x1, y1;
    long pixels = 0;
};

}  // namespace

bool looksBlank(const GreyRaster& raster) {
    const int width = raster.width;
    const int height = raster.height;
    if (width <= 0 || height <= 0 || raster.pixels.size() < static_cast<std::size_t>(width) * height) return true;
    const double mm = 25.4 / std::max(raster.dpi, 1);  // one pixel, in millimetres
    const auto at = [width](int x, int y) { return static_cast<std::size_t>(y) * width + x; };
    std::vector<std::uint8_t> seen(raster.pixels.size(), 0);
    std::vector<std::pair<int, int>> stack;
    double ink = 0;
    int blobs = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            if (seen[at(x, y)] || raster.pixels[at(x, y)] >= kDark) continue;
            // The blob this pixel belongs to, eight neighbours round.
            Blob blob{x, y, x, y};
            seen[at(x, y)] = 1;
            stack.assign(1, {x, y});
            while (!stack.empty()) {
                const auto [px, py] = stack.back();
                stack.pop_back();
                ++blob.pixels;
                blob.x0 = std::min(blob.x0, px);
                blob.x1 = std::max(blob.x1, px);
                blob.y0 = std::min(blob.y0, py);
                blob.y1 = std::max(blob.y1, py);
                for (int ny = std::max(py - 1, 0); ny <= std::min(py + 1, height - 1); ++ny)
                    for (int nx = std::max(px - 1, 0); nx <= std::min(px + 1, width - 1); ++nx)
                        if (!seen[at(nx, ny)] && raster.pixels[at(nx, ny)] < kDark) {
                            seen[at(nx, ny)] = 1;
                            stack.emplace_back(nx, ny);
                        }
            }
            const double w = (blob.x1 - blob.x0 + 1) * mm;
            const double h = (blob.y1 - blob.y0 + 1) * mm;
            if (std::max(w, h) <= kSpeck) continue;
            const double left = blob.x0 * mm, top = blob.y0 * mm;
            const double right = (width - 1 - blob.x1) * mm, bottom = (height - 1 - blob.y1) * mm;
            const double nearest = std::min({left, top, right, bottom});
            const bool round =
                std::max(w, h) <= 1.5 * std::min(w, h) && static_cast<double>(blob.pixels) >= 0.5 * (w / mm) * (h / mm);
            if (round && std::min(w, h) >= kHoleLow && std::max(w, h) <= kHoleHigh && nearest <= kHoleBand) continue;
            if (nearest <= mm && std::min(w, h) <= kShadow) continue;
            ink += static_cast<double>(blob.pixels) * mm * mm;
            if (std::max(w, h) > kLongest || ++blobs > kMostBlobs || ink > kMostInk) return false;
        }
    }
    return true;
}

}  // namespace vellira
