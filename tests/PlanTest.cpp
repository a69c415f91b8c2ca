// A plan says which files apply writes: it is followed only when no other
// user could have written it, and only where its own rows write.
#include "fixtures/PdfFixture.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <algorithm>
#include <fstream>
#include <functional>

namespace vellira {
namespace {

using testing::quoted;
using testing::readFile;
using testing::runProgram;

void editPlan(const std::filesystem::path& plan, const std::function<void(nlohmann::json&)>& edit) {
    auto json = nlohmann::json::parse(readFile(plan));
    edit(json);
    std::ofstream(plan, std::ios::binary | std::ios::trunc) << json.dump();
}

TEST(Plan, IsFollowedOnlyFromItsOwnerAndOnlyWhereItsRowsWrite) {
    struct Case {
        std::string what;
        // Changes the planned run in `dir`, whose plan is work/plan.json.
        std::function<void(const std::filesystem::path& dir)> tamper;
        bool atFinish;               // its one shard is applied before the change; the finish is refused
        std::string refusal, named;  // in the one line that refuses; empty: the plan is applied
    };
    const auto victim = [](const std::filesystem::path& dir) { return (dir / "home" / ".bashrc").string(); };
    const auto output = [](const std::string& path) {
        return [path](const std::filesystem::path& dir) {
            editPlan(dir / "work" / "plan.json",
                     [&](nlohmann::json& plan) { plan["writes"][1]["output"] = (dir / path).string(); });
        };
    };
    const Case cases[] = {
        {"a plan of one's own", [](const auto&) {}, true, "", ""},
        {"a plan its group may write", [](const auto& dir) { chmod((dir / "work" / "plan.json").c_str(), 0664); },
         false, "may be written by its group", "plan.json'"},
        {"a plan in a folder every user may write", [](const auto& dir) { chmod((dir / "work").c_str(), 0777); }, false,
         "may be written by every user and has no sticky bit", "work'"},
        {"a shard result its group may write",
         [](const auto& dir) { chmod((dir / "work" / "plan.json.shard-1-of-1.json").c_str(), 0664); }, true,
         "may be written by its group", "plan.json.shard-1-of-1.json'"},
        {"an output outside its row's folder", output("home/.bashrc"), false, "lies outside the output folder",
         "home/.bashrc'"},
        {"an output that climbs out", output("work/out/../../home/.bashrc"), false, "lies outside the output folder",
         "home/.bashrc'"},
        {"an output through a link",
         [&](const auto& dir) {
             std::filesystem::create_directories(dir / "work" / "out");
             std::filesystem::create_directory_symlink(dir / "home", dir / "work" / "out" / "sub");
             output("work/out/sub/.bashrc")(dir);
         },
         false, "lies outside the output folder", "sub/.bashrc'"},
        {"a report moved elsewhere",
         [&](const auto& dir) {
             editPlan(dir / "work" / "plan.json",
                      [&](nlohmann::json& plan) { plan["reports"][0]["path"] = victim(dir); });
         },
         true, "is not where the report settings of a row put it", "home/.bashrc'"},
    };
    for (const auto& c : cases) {
        testing::TempDir dir;
        const auto work = dir / "work";
        std::filesystem::create_directories(work);
        std::filesystem::create_directories(dir / "home");
        std::ofstream(victim(dir.path())) << "keep";
        fixtures::writePdf(fixtures::statements(9, 3), work / "run.pdf");
        const auto plan = work / "plan.json";
        const auto planned =
            runProgram(dir, "plan --set OUTPUTDIR=" + quoted(work / "out") + " --set REPORTOPTIONSTXT=1 " +
                                quoted(work / "run.pdf") + " -o " + quoted(plan));
        ASSERT_EQ(planned.status, 0) << planned.err;
        if (c.atFinish) {
            const auto shard = runProgram(dir, "apply -q " + quoted(plan) + " --shard 1/1");
            ASSERT_EQ(shard.status, 0) << c.what << "\n" << shard.err;
        }
        c.tamper(dir.path());
        const auto applied = runProgram(dir, "apply -q " + quoted(plan) + (c.atFinish ? " --finish" : " --shard 1/1"));
        std::size_t pdfs = 0;
        if (std::filesystem::exists(work / "out"))
            for (const auto& entry : std::filesystem::recursive_directory_iterator(work / "out"))
                pdfs += entry.path().extension() == ".pdf";
        const bool reported = std::filesystem::exists(work / "run.pdf_report.txt");
        EXPECT_EQ(readFile(victim(dir.path())), "keep") << c.what;
        if (c.refusal.empty()) {
            EXPECT_EQ(applied.status, 0) << c.what << "\n" << applied.err;
            EXPECT_EQ(pdfs, 3u) << c.what;
            EXPECT_TRUE(reported) << c.what;
            continue;
        }
        EXPECT_EQ(applied.status, 1) << c.what;
        EXPECT_EQ(std::count(applied.err.begin(), applied.err.end(), '\n'), 1) << c.what << "\n" << applied.err;
        EXPECT_NE(applied.err.find(c.refusal), std::string::npos) << c.what << "\n" << applied.err;
        EXPECT_NE(applied.err.find(c.named), std::string::npos) << c.what << "\n" << applied.err;
        // Refused before anything was written: the shard's outputs only, and no report.
        EXPECT_EQ(pdfs, c.atFinish ? 3u : 0u) << c.what;
        EXPECT_FALSE(reported) << c.what;
    }
}

}  // namespace
}  // namespace vellira
