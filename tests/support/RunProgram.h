// Runs the real vellira-batch program, as a user would, and keeps what it said.
#pragma once

#include "support/Files.h"
#include "support/TempDir.h"

#include <sys/wait.h>
#include <array>
#include <cstdio>
#include <string>

namespace vellira::testing {

struct ProgramResult {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs vellira-batch with `arguments` (shell words), with TMPDIR,
// XDG_CONFIG_HOME and XDG_STATE_HOME pointing into `dir`, and any further `environment`
// ("NAME=value" shell words).
inline ProgramResult runProgram(const TempDir& dir, const std::string& arguments, const std::string& environment = "") {
    const auto errPath = dir / "stderr.txt";
    std::filesystem::create_directories(dir / "tmp");
    std::filesystem::create_directories(dir / "config");
    const std::string command = "TMPDIR='" + (dir / "tmp").string() + "' XDG_CONFIG_HOME='" +
                                (dir / "config").string() + "' XDG_STATE_HOME='" + (dir / "state").string() + "' " +
                                environment + " '" VELLIRA_BATCH_EXE "' " + arguments + " 2>'" + errPath.string() +
                                "' </dev/null";
    ProgramResult result;
    FILE* pipe = popen(command.c_str(), "r");
    std::array<char, 4096> buffer;
    for (std::size_t n; (n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) result.out.append(buffer.data(), n);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.err = readFile(errPath);
    return result;
}

// A path as one single-quoted shell word.
inline std::string quoted(const std::filesystem::path& path) { return "'" + path.string() + "'"; }

}  // namespace vellira::testing
