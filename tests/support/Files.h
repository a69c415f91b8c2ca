// Reads and writes a whole file, bytes as they are.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace vellira::testing {

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace vellira::testing
