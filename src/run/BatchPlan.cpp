#include "run/BatchPlan.h"

#include "core/Text.h"
#include "engine/FilenameComposer.h"
#include "files/ParametersFile.h"
#include "files/Reports.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <map>
#include <numeric>
#include <optional>
#include <set>
#include <unordered_set>

namespace vellira {

namespace {

constexpr int kPlanVersion = 1;
// Outputs of one source written between two give-backs of what the host
// cached of it.
constexpr int kReopenEvery = 100;

using Json = nlohmann::json;

// Report bytes as base64 text, and back (none for text that is not base64).
std::string base64Encode(std::string_view bytes) {
    static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = static_cast<unsigned char>(bytes[i]) << 16;
        if (i + 1 < bytes.size()) group |= static_cast<unsigned char>(bytes[i + 1]) << 8;
        if (i + 2 < bytes.size()) group |= static_cast<unsigned char>(bytes[i + 2]);
        out += kDigits[(group >> 18) & 63];
        out += kDigits[(group >> 12) & 63];
        out += i + 1 < bytes.size() ? kDigits[(group >> 6) & 63] : '=';
        out += i + 2 < bytes.size() ? kDigits[group & 63] : '=';
    }
    return out;
}

std::optional<std::string> base64Decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    const auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    std::string out;
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        const int pad = last ? (text[i + 3] == '=') + (text[i + 2] == '=') : 0;
        std::uint32_t group = 0;
        for (int k = 0; k < 4; ++k) {
            const int v = k >= 4 - pad ? 0 : value(text[i + static_cast<std::size_t>(k)]);
            if (v < 0) return std::nullopt;
            group = (group << 6) | static_cast<std::uint32_t>(v);
        }
        out += static_cast<char>((group >> 16) & 0xFF);
        if (pad < 2) out += static_cast<char>((group >> 8) & 0xFF);
        if (pad < 1) out += static_cast<char>(group & 0xFF);
    }
    return out;
}

// A member that must be a whole number that T holds.
template <typename T = int>
T integerAt(const Json& object, const char* key) {
    const Json& value = object.at(key);
    if (!value.is_number_integer() || value < std::numeric_limits<T>::min() || value > std::numeric_limits<T>::max())
        throw PlanError(std::string("not a valid plan: \"") + key + "\" is not a whole number in range");
    return value.get<T>();
}

std::size_t indexIn(const Json& object, const char* key, std::size_t size) {
    const auto index = integerAt<std::size_t>(object, key);
    if (index >= size) throw PlanError("not a valid plan: no such row");
    return index;
}

// The JSON library's message without its "[json.exception.KIND.ID] " tag.
std::string reasonOf(const Json::exception& error) {
    const std::string_view text = error.what();
    const auto tag = text.find("] ");
    return std::string(tag == std::string_view::npos ? text : text.substr(tag + 2));
}

// Reads a document with `read`; what the JSON library throws becomes a
// PlanError saying what is wrong and where the reading stopped.
template <typename Read>
auto readDocument(std::string_view text, Read read) {
    try {
        return read(Json::parse(text));
    } catch (const Json::parse_error& error) {
        // The reason follows "parse error at line L, column C: " and comes
        // before "; last read: 'TEXT'", which may be long.
        std::string why = reasonOf(error);
        if (const auto colon = why.find(": "); colon != std::string::npos) why.erase(0, colon + 2);
        why = why.substr(0, why.find("; last read:"));
        throw PlanError("not a valid plan: " + why + " at byte " + std::to_string(error.byte));
    } catch (const Json::exception& error) {
        throw PlanError("not a valid plan: " + reasonOf(error));
    }
}

// A row's settings from the text the plan keeps of them.
SplitSettings settingsOf(const std::string& text) {
    SplitSettings settings;
    if (text.empty()) return settings;
#ifdef _WIN32
    std::FILE* file = std::tmpfile();
    if (!file) return settings;
    std::fwrite(text.data(), 1, text.size(), file);
    std::rewind(file);
#else
    // Read where it stands: a plan's every row is read before it is applied.
    std::FILE* file = ::fmemopen(const_cast<char*>(text.data()), text.size(), "r");
    if (!file) return settings;
#endif
    readParameters(file, settings, false);
    std::fclose(file);
    return settings;
}

Json eventJson(const EventRecorder::Event& e) {
    return {{"kind", static_cast<int>(e.kind)},
            {"text", e.text},
            {"row", e.row},
            {"first", e.first},
            {"last", e.last},
            {"file", e.progress.file},
            {"page", e.progress.page},
            {"pages", e.progress.pages},
            {"filesWritten", e.progress.filesWritten}};
}

EventRecorder::Event eventFromJson(const Json& e) {
    const int kind = integerAt(e, "kind");
    if (kind < EventRecorder::Event::Note || kind > EventRecorder::Event::Written)
        throw PlanError("not a valid plan: an unknown event");
    return {
        static_cast<EventRecorder::Event::Kind>(kind),
        e.at("text").get<std::string>(),
        integerAt(e, "row"),
        integerAt(e, "first"),
        integerAt(e, "last"),
        {e.at("file").get<std::string>(), integerAt(e, "page"), integerAt(e, "pages"), integerAt(e, "filesWritten")}};
}

}  // namespace

std::string planText(const BatchPlan& plan) {
    Json rows = Json::array();
    for (std::size_t i = 0; i < plan.rows.size(); ++i) {
        const BatchRow& row = plan.rows[i];
        rows.push_back({{"use", row.use},
                        {"path", row.path},
                        {"status", row.status},
                        {"params", row.params},
                        {"settings", plan.rowSettings[i]}});
    }
    Json writes = Json::array();
    for (const auto& w : plan.writes)
        writes.push_back({{"row", w.row},
                          {"source", w.source},
                          {"first", w.first},
                          {"last", w.last},
                          {"output", w.output},
                          {"name", w.name},
                          {"sequence", w.sequence},
                          {"bookmarks", w.bookmarks},
                          {"append", w.append}});
    Json files = Json::array();
    for (const auto& [path, bytes] : plan.files) files.push_back({{"path", path}, {"base64", base64Encode(bytes)}});
    Json mails = Json::array();
    for (const auto& list : plan.mails) {
        Json entries = Json::array();
        for (const auto& e : list.entries) {
            entries.push_back({{"file", e.file}, {"first", e.first}, {"last", e.last}, {"email", e.email}});
            if (!e.subject.empty()) entries.back()["subject"] = e.subject;
        }
        mails.push_back({{"row", list.row}, {"entries", entries}, {"afterEvent", list.afterEvent}});
    }
    Json events = Json::array();
    for (const auto& e : plan.events) events.push_back(eventJson(e));
    Json json = {{"vellira-batch-plan", kPlanVersion},
                 {"rows", rows},
                 {"writes", writes},
                 {"reports", files},
                 {"events", events},
                 {"mails", mails},
                 {"completed", plan.completed},
                 {"stopped", plan.stopped},
                 {"rangesFailed", plan.rangesFailed},
                 {"documentsWithoutRanges", plan.documentsWithoutRanges},
                 {"scansFailed", plan.scansFailed}};
    if (plan.pagesRecognized > 0) json["pagesRecognized"] = plan.pagesRecognized;
    if (plan.exceptions > 0) json["exceptions"] = plan.exceptions;
    try {
        return json.dump() + "\n";
    } catch (const Json::type_error& error) {
        // A path or a word that is not UTF-8 has no place in a JSON document.
        throw PlanError("a text of the plan is not UTF-8 (" + reasonOf(error) + ")");
    }
}

BatchPlan planFromText(std::string_view text) {
    return readDocument(text, [](const Json& json) {
        if (!json.is_object() || !json.contains("vellira-batch-plan") || json["vellira-batch-plan"] != kPlanVersion)
            throw PlanError("not a plan of this version of vellira-batch");
        BatchPlan plan;
        for (const auto& row : json.at("rows")) {
            plan.rows.push_back({row.at("use").get<std::string>(), row.at("path").get<std::string>(),
                                 row.at("status").get<std::string>(), row.at("params").get<std::string>()});
            plan.rowSettings.push_back(row.at("settings").get<std::string>());
        }
        for (const auto& w : json.at("writes"))
            plan.writes.push_back({indexIn(w, "row", plan.rows.size()), w.at("source").get<std::string>(),
                                   integerAt(w, "first"), integerAt(w, "last"), w.at("output").get<std::string>(),
                                   w.at("name").get<std::string>(), integerAt<long>(w, "sequence"),
                                   w.at("bookmarks").get<bool>(), w.at("append").get<bool>()});
        for (const auto& file : json.at("reports")) {
            auto bytes = base64Decode(file.at("base64").get<std::string>());
            if (!bytes) throw PlanError("not a valid plan: a report is not base64");
            plan.files.emplace_back(file.at("path").get<std::string>(), std::move(*bytes));
        }
        for (const auto& e : json.at("events")) plan.events.push_back(eventFromJson(e));
        for (const auto& list : json.at("mails")) {
            BatchPlan::Mails mails{
                indexIn(list, "row", plan.rows.size()), {}, integerAt<std::size_t>(list, "afterEvent")};
            for (const auto& e : list.at("entries"))
                mails.entries.push_back({e.at("file").get<std::string>(), integerAt(e, "first"), integerAt(e, "last"),
                                         e.at("email").get<std::string>(), e.value("subject", std::string())});
            plan.mails.push_back(std::move(mails));
        }
        plan.completed = json.at("completed").get<bool>();
        plan.stopped = json.at("stopped").get<bool>();
        plan.rangesFailed = integerAt(json, "rangesFailed");
        plan.documentsWithoutRanges = integerAt(json, "documentsWithoutRanges");
        // Plans written before scans that failed were counted have none.
        if (json.contains("scansFailed")) plan.scansFailed = integerAt(json, "scansFailed");
        if (json.contains("pagesRecognized")) plan.pagesRecognized = integerAt(json, "pagesRecognized");
        if (json.contains("exceptions")) plan.exceptions = integerAt(json, "exceptions");
        return plan;
    });
}

std::optional<std::string> pathOutsideItsJob(const BatchPlan& plan) {
    // Each row's output folder (none for a row that was not split) and the
    // places of every row's reports.
    std::vector<std::string> folders(plan.rows.size());
    std::vector<std::string> held(plan.rows.size());  // a row's exceptions folder, where it is not in its own
    std::set<std::string> reports;
    for (std::size_t row = 0; row < plan.rows.size(); ++row) {
        if (plan.rowSettings[row].empty()) continue;
        const SplitSettings settings = settingsOf(plan.rowSettings[row]);
        folders[row] = outputFolder(settings);
        if (std::filesystem::path(settings.EXCEPTIONSFOLDER).is_absolute()) held[row] = settings.EXCEPTIONSFOLDER;
        const auto paths = reportPaths(settings, settings.FILENAME);
        reports.insert({pathText(paths.text), pathText(paths.csv)});
    }
    FolderBounds bounds;
    const auto outside = [&](const char* what, const std::string& path, std::size_t row) -> std::optional<std::string> {
        if (bounds.liesInside(path, folders[row]) || (!held[row].empty() && bounds.liesInside(path, held[row])))
            return std::nullopt;
        return std::string(what) + " '" + path + "' lies outside the output folder '" + folders[row] + "' of its row";
    };
    for (const auto& w : plan.writes)
        if (auto why = outside("the output", w.output, w.row)) return why;
    for (const auto& list : plan.mails)
        for (const auto& e : list.entries)
            if (auto why = outside("the file to mail", e.file, list.row)) return why;
    // The exceptions report goes into a row's exceptions folder.
    const auto exceptionsReport = [&](const std::string& path) {
        if (std::filesystem::path(path).filename() != "exceptions.csv") return false;
        for (std::size_t row = 0; row < plan.rows.size(); ++row)
            if (!folders[row].empty() && !outside("", path, row)) return true;
        return false;
    };
    for (const auto& [path, bytes] : plan.files)
        if (!reports.count(path) && !exceptionsReport(path))
            return "the report '" + path + "' is not where the report settings of a row put it";
    return std::nullopt;
}

std::vector<bool> shardRows(const BatchPlan& plan, int shard, int shards) {
    // Rows that write one output are one group (its first row stands for
    // it), so that the group's writes stay in list order.
    std::vector<std::size_t> parent(plan.rows.size());
    std::iota(parent.begin(), parent.end(), std::size_t{0});
    const auto root = [&](std::size_t row) {
        while (parent[row] != row) row = parent[row] = parent[parent[row]];
        return row;
    };
    std::map<std::string, std::size_t> writerOf;
    std::vector<int> writes(plan.rows.size(), 0);
    for (const auto& w : plan.writes) {
        ++writes[w.row];
        const auto [known, added] = writerOf.try_emplace(w.output, w.row);
        if (!added) {
            const std::size_t a = root(known->second), b = root(w.row);
            parent[std::max(a, b)] = std::min(a, b);
        }
    }
    // Groups in list order, each to the shard with the fewest outputs so far.
    std::map<std::size_t, int> groupLoad;
    for (std::size_t row = 0; row < plan.rows.size(); ++row) groupLoad[root(row)] += writes[row];
    std::vector<int> load(static_cast<std::size_t>(shards), 0);
    std::map<std::size_t, int> shardOf;
    for (const auto& [group, size] : groupLoad) {
        const auto least = std::min_element(load.begin(), load.end()) - load.begin();
        shardOf[group] = static_cast<int>(least);
        load[static_cast<std::size_t>(least)] += std::max(size, 1);
    }
    std::vector<bool> mine(plan.rows.size());
    for (std::size_t row = 0; row < plan.rows.size(); ++row) mine[row] = shardOf[root(row)] == shard - 1;
    return mine;
}

std::string shardText(const ShardResult& result) {
    Json failed = Json::array();
    for (const auto& [write, message] : result.failed) failed.push_back({{"write", write}, {"message", message}});
    const Json json = {
        {"shard", result.shard}, {"shards", result.shards}, {"written", result.written}, {"failed", failed}};
    // A message is only told again: a byte that is not UTF-8 in it may be
    // replaced.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

ShardResult shardFromText(std::string_view text) {
    return readDocument(text, [](const Json& json) {
        ShardResult result{integerAt(json, "shard"), integerAt(json, "shards"), integerAt(json, "written"), {}};
        for (const auto& item : json.at("failed"))
            result.failed.emplace_back(integerAt<std::size_t>(item, "write"), item.at("message").get<std::string>());
        return result;
    });
}

ShardResult applyShard(const BatchPlan& plan, int shard, int shards, DocumentHost& host, RunInterface& ui) {
    ShardResult result{shard, shards, 0, {}};
    const std::vector<bool> mine = shardRows(plan, shard, shards);
    std::string openPath;
    DocHandle source;
    int sinceReopen = 0;
    std::unordered_set<std::string> tidied;  // output folders rid of what killed runs left
    for (std::size_t index = 0; index < plan.writes.size() && !ui.cancelled(); ++index) {
        const PlannedWrite& w = plan.writes[index];
        if (!mine[w.row]) continue;
        ui.progress({w.source, w.last, 0, result.written});
        const auto output = host.makeHostPath(w.output);
        DocHandle target;
        try {
            if (openPath != w.source) {
                if (source) host.closeDocument(source);
                source = {};
                openPath.clear();
                source = host.openDocumentUnseen(host.makeHostPath(w.source));
                openPath = w.source;
                sinceReopen = 0;
            } else if (++sinceReopen >= kReopenEvery) {
                source = host.reopenDocument(source);
                sinceReopen = 0;
            }
            target = host.createDocument();
            std::error_code ignored;
            if (w.append && std::filesystem::exists(output, ignored)) {
                const DocHandle old = host.openDocumentUnseen(output);
                try {
                    host.insertPages(target, old, 0, host.pageCount(old), w.bookmarks);
                } catch (const HostError&) {
                    host.closeDocument(old);
                    throw;
                }
                host.closeDocument(old);
            }
            host.insertPages(target, source, w.first - 1, w.last - w.first + 1, w.bookmarks);
            if (output.has_parent_path()) std::filesystem::create_directories(output.parent_path(), ignored);
            removeStaleTemporaries(output.parent_path(), tidied);
            host.saveDocument(target, output);
            host.closeDocument(target);
        } catch (const HostError& error) {
            if (target) host.closeDocument(target);
            const std::string message = "Abort!! Save Error message: " + error.text() + ", file: '" + w.output + "'";
            ui.note(message);
            result.failed.emplace_back(index, message);
            continue;
        }
        ++result.written;
        ui.fileWritten(w.output, w.first, w.last);
    }
    if (source) host.closeDocument(source);
    return result;
}

BatchResult finishPlan(const BatchPlan& plan, const std::vector<ShardResult>& shards, const std::string& password,
                       const MailTransport& transport, RunInterface& ui) {
    BatchResult result;
    result.rows = plan.rows;
    result.completed = plan.completed;
    result.stopped = plan.stopped;
    result.rangesFailed = plan.rangesFailed;
    result.documentsWithoutRanges = plan.documentsWithoutRanges;
    result.scansFailed = plan.scansFailed;
    result.pagesRecognized = plan.pagesRecognized;
    result.exceptions = plan.exceptions;
    std::uint32_t unique = 0;
    for (const auto& [path, bytes] : plan.files) {
        StagedFile report;
        if (!report.open(pathFromText(path), unique)) {
            ui.note("file error! can't write to report file: " + path);
            ++result.rangesFailed;
            continue;
        }
        report.put(bytes);
        if (!report.close(ui) || !report.putInPlace(ui)) ++result.rangesFailed;
    }

    std::map<std::size_t, std::string> failed;
    for (const auto& shard : shards) failed.insert(shard.failed.begin(), shard.failed.end());
    std::map<std::string, std::size_t> outputIndex;
    // Each document's mail goes where the run sent it: after its document.
    std::size_t nextMail = 0;
    const auto sendMailsDue = [&](std::size_t told) {
        for (; nextMail < plan.mails.size() && plan.mails[nextMail].afterEvent <= told; ++nextMail) {
            if (ui.cancelled()) continue;
            const auto& list = plan.mails[nextMail];
            SplitSettings settings = settingsOf(plan.rowSettings[list.row]);
            settings.EMAILPASSWORD = password;
            const MailCounts counts = sendMailList(settings, list.entries, ui, transport);
            result.mailsSent += counts.sent;
            result.mailsFailed += counts.failed;
            result.mails.insert(result.mails.end(), counts.results.begin(), counts.results.end());
            ui.note(formatText("(%d) Emails sent ok: %d, errors: %d", counts.handled, counts.sent, counts.failed));
        }
    };
    EventRecorder::replay(
        plan.events, ui,
        [&](const EventRecorder::Event&, std::size_t index) {
            if (index >= plan.writes.size()) return;
            const PlannedWrite& w = plan.writes[index];
            if (const auto why = failed.find(index); why != failed.end()) {
                ui.note(why->second);
                ++result.rangesFailed;
                return;
            }
            ++result.filesWritten;
            ui.fileWritten(w.output, w.first, w.last);
            const PlannedRange range{w.first, w.last, w.name, w.output};
            const auto [known, added] = outputIndex.try_emplace(w.output, result.outputs.size());
            if (added)
                result.outputs.push_back(range);
            else
                result.outputs[known->second] = range;
        },
        sendMailsDue);
    result.stopped = result.stopped || ui.cancelled();
    return result;
}

}  // namespace vellira
