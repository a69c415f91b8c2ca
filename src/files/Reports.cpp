#include "files/Reports.h"

#include "engine/PageWords.h"
#include "files/SettingsLocations.h"

#include <fstream>

namespace vellira {

namespace {

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return count;
}

// printf's "%-Ns", with the width counted in characters rather than bytes.
std::string padded(std::string_view text, std::size_t width) {
    std::string out(text);
    for (std::size_t n = characterCount(text); n < width; ++n) out += ' ';
    return out;
}

}  // namespace

std::filesystem::path pagePositionsPath() { return temporaryFolder() / "page_positions.txt"; }

std::string pagePositionsLine(std::string_view word, int h, int v) {
    return padded(word, 20) + "\t" + padded(std::to_string(h), 3) + "\t" + padded(std::to_string(v), 3) + "\r\n";
}

std::optional<std::filesystem::path> writePagePositions(DocumentHost& host, RunInterface& ui,
                                                        const SplitSettings& settings, int page) {
    std::optional<DocHandle> doc;
    if (const auto view = host.activeViewDocument()) doc = host.documentOfView(*view);
    if (!doc) {
        ui.note("Please open a file first!");
        return std::nullopt;
    }
    const auto path = pagePositionsPath();
    const std::string pathText = reinterpret_cast<const char*>(path.u8string().c_str());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) {
        ui.note("file error! can't write to page positions file: " + pathText);
        return std::nullopt;
    }
    file << "Vellira Batch " << kVersionText << "  -= Ornwick Software =-\r\n\r\n"
         << "View file: " << pathText << "\r\n"
         << "Source PDF File: " << settings.FILENAME << "\r\n\r\n"
         << "Below are the coordinate positions of every word on the current page in view,\r\n"
            "to optionally match on this position enter the coordinates in the main screen 'At position' "
            "boxes\r\n"
            "i.e. h=horizontal position, v=vertical position\r\n\r\n"
         << padded("Word", 20) << "\t" << padded("Horiz", 3) << "\t" << padded("Vert", 3) << "\r\n"
         << padded("----", 20) << "\t" << padded("-----", 3) << "\t" << padded("----", 3) << "\r\n\r\n";
    try {
        streamPageWords(host, *doc, page, streamedWordLimit(settings.TAKENCHARSFORFILENAME), [&](const Word& word) {
            file << pagePositionsLine(word.text, word.h, word.v);
            return true;
        });
    } catch (const HostError& error) {
        ui.note("Abort!! Find Word Error message: " + error.text());
        return std::nullopt;
    }
    file.close();
    if (!file) {
        ui.note("file error! can't write to page positions file: " + pathText);
        return std::nullopt;
    }
    return path;
}

}  // namespace vellira
