#include "files/BatchListFile.h"

#include "core/Platform.h"
#include "core/Text.h"
#include "files/SettingsLocations.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace vellira {

namespace {

constexpr int kLinePiece = 512;

#ifdef _WIN32
constexpr const char* kLineEnd = "\r\n";
#else
constexpr const char* kLineEnd = "\n";
#endif

// The next piece of a line: at most 512 characters, up to and including the
// line end. A UTF-8 sequence is one character, never cut; any other byte is
// one character. Answers false at the end of the file.
bool readPiece(std::FILE* file, std::string& piece) {
    piece.clear();
    for (std::size_t chars = 0; chars < kLinePiece; ++chars) {
        const int c = std::getc(file);
        if (c == EOF) break;
        piece += static_cast<char>(c);
        const auto lead = static_cast<unsigned char>(c);
        const int continuations = lead >= 0xF0 && lead < 0xF5   ? 3
                                  : lead >= 0xE0 && lead < 0xF0 ? 2
                                  : lead >= 0xC2 && lead < 0xE0 ? 1
                                                                : 0;
        for (int k = 0; k < continuations; ++k) {
            const int next = std::getc(file);
            if (next == EOF) break;
            if ((next & 0xC0) != 0x80) {
                std::ungetc(next, file);
                break;
            }
            piece += static_cast<char>(next);
        }
        if (c == '\n') break;
    }
    return !piece.empty();
}

bool isPdfName(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".pdf";
}

}  // namespace

bool loadBatchList(const std::filesystem::path& path, std::vector<BatchRow>& rows, RunInterface& ui) {
    FileHandle file = openFile(path, "rb");
    if (!file) {
        ui.note("Can't read list file.");
        return false;
    }
    const std::size_t first = rows.size();
    loadBatchList(file.get(), rows);
    // The list's own paths are taken from its folder, wherever the run starts.
    const std::filesystem::path folder = path.parent_path();
    for (std::size_t row = first; row < rows.size(); ++row) {
        rows[row].path = resolvePath(rows[row].path, folder);
        if (rows[row].params.size() > 1) rows[row].params = resolvePath(rows[row].params, folder);
    }
    return true;
}

void loadBatchList(std::FILE* file, std::vector<BatchRow>& rows) {
    std::string piece;
    while (readPiece(file, piece)) {
        // A NUL ends the text, as in a C string.
        std::size_t length = std::min(piece.size(), piece.find('\0'));
        // Line ends and other vertical controls end the text; the first
        // character is never taken for one.
        for (std::size_t i = length; i-- > 1;)
            if (piece[i] >= 10 && piece[i] <= 13) length = i;
        const std::string_view line(piece.data(), length);
        if (line.empty()) continue;
        const char marker = line.front();
        if (marker != '+' && marker != '~') continue;
        const auto bar = line.find('|');
        const std::string_view pdf = line.substr(1, bar == std::string_view::npos ? std::string_view::npos : bar - 1);
        const std::string_view params = bar == std::string_view::npos ? std::string_view() : line.substr(bar + 1);
        rows.push_back({marker == '+' ? "Yes" : "No", textAsUtf8(pdf), "Ready.", textAsUtf8(params)});
    }
}

bool saveBatchList(const std::filesystem::path& path, const std::vector<BatchRow>& rows,
                   const std::filesystem::path& defaultList, RunInterface& ui) {
    std::string text;
    for (const auto& row : rows) {
        if (row.use != "Yes" && row.use != "No") continue;
        text += row.use == "Yes" ? '+' : '~';
        text.append(row.path).append("|").append(row.params).append(kLineEnd);
    }
    FileHandle file = openFile(path, "wb");
    if (!file) return false;
    const bool written = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    if (std::fclose(file.release()) != 0 || !written) return false;
    if (path != defaultList) ui.note("List saved to file: " + pathText(path));
    return true;
}

int addFolderToBatchList(const std::filesystem::path& folder, bool subFolders, std::vector<BatchRow>& rows) {
    std::vector<std::filesystem::path> found;
    std::error_code error;
    const auto take = [&](const std::filesystem::directory_entry& entry) {
        std::error_code ignored;
        if (entry.is_regular_file(ignored) && isPdfName(entry.path())) found.push_back(entry.path());
    };
    if (subFolders) {
        for (auto it = std::filesystem::recursive_directory_iterator(
                 folder, std::filesystem::directory_options::skip_permission_denied, error);
             !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error))
            take(*it);
    } else {
        for (auto it = std::filesystem::directory_iterator(folder, error);
             !error && it != std::filesystem::directory_iterator(); it.increment(error))
            take(*it);
    }
    std::sort(found.begin(), found.end());
    for (const auto& pdf : found) rows.push_back({"Yes", pathText(pdf), "Ready.", ""});
    return static_cast<int>(found.size());
}

}  // namespace vellira
