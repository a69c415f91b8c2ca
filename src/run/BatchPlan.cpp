#include "run/BatchPlan.h"

#include "core/Text.h"
#include "files/ParametersFile.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <numeric>

namespace vellira {

namespace {

constexpr int kPlanVersion = 1;
// Outputs of one source written between two give-backs of what the host
// cached of it.
constexpr int kReopenEvery = 100;

std::size_t indexIn(const JsonValue& value, std::size_t size) {
    const int index = value.integer();
    if (index < 0 || static_cast<std::size_t>(index) >= size) throw JsonError("not a valid plan: no such row");
    return static_cast<std::size_t>(index);
}

// A row's settings from the text the plan keeps of them.
SplitSettings settingsOf(const std::string& text) {
    SplitSettings settings;
    std::FILE* file = std::tmpfile();
    if (!file) return settings;
    std::fwrite(text.data(), 1, text.size(), file);
    std::rewind(file);
    readParameters(file, settings, false);
    std::fclose(file);
    return settings;
}

JsonValue eventJson(const EventRecorder::Event& e) {
    return JsonValue::Object{{"kind", static_cast<int>(e.kind)},
                             {"text", e.text},
                             {"row", e.row},
                             {"first", e.first},
                             {"last", e.last},
                             {"file", e.progress.file},
                             {"page", e.progress.page},
                             {"pages", e.progress.pages},
                             {"filesWritten", e.progress.filesWritten}};
}

EventRecorder::Event eventFromJson(const JsonValue& e) {
    const int kind = e["kind"].integer();
    if (kind < EventRecorder::Event::Note || kind > EventRecorder::Event::Written)
        throw JsonError("not a valid plan: an unknown event");
    return {static_cast<EventRecorder::Event::Kind>(kind),
            e["text"].string(),
            e["row"].integer(),
            e["first"].integer(),
            e["last"].integer(),
            {e["file"].string(), e["page"].integer(), e["pages"].integer(), e["filesWritten"].integer()}};
}

}  // namespace

JsonValue planJson(const BatchPlan& plan) {
    JsonValue::Array rows;
    for (std::size_t i = 0; i < plan.rows.size(); ++i) {
        const BatchRow& row = plan.rows[i];
        rows.push_back(JsonValue::Object{{"use", row.use},
                                         {"path", row.path},
                                         {"status", row.status},
                                         {"params", row.params},
                                         {"settings", plan.rowSettings[i]}});
    }
    JsonValue::Array writes;
    for (const auto& w : plan.writes)
        writes.push_back(JsonValue::Object{{"row", static_cast<long long>(w.row)},
                                           {"source", w.source},
                                           {"first", w.first},
                                           {"last", w.last},
                                           {"output", w.output},
                                           {"name", w.name},
                                           {"sequence", static_cast<long long>(w.sequence)},
                                           {"bookmarks", w.bookmarks},
                                           {"append", w.append}});
    JsonValue::Array files;
    for (const auto& [path, bytes] : plan.files)
        files.push_back(JsonValue::Object{{"path", path}, {"base64", base64Encode(bytes)}});
    JsonValue::Array mails;
    for (const auto& list : plan.mails) {
        JsonValue::Array entries;
        for (const auto& e : list.entries)
            entries.push_back(
                JsonValue::Object{{"file", e.file}, {"first", e.first}, {"last", e.last}, {"email", e.email}});
        mails.push_back(JsonValue::Object{{"row", static_cast<long long>(list.row)},
                                          {"entries", entries},
                                          {"afterEvent", static_cast<long long>(list.afterEvent)}});
    }
    JsonValue::Array events;
    for (const auto& e : plan.events) events.push_back(eventJson(e));
    return JsonValue::Object{{"vellira-batch-plan", kPlanVersion},
                             {"rows", rows},
                             {"writes", writes},
                             {"reports", files},
                             {"events", events},
                             {"mails", mails},
                             {"completed", plan.completed},
                             {"stopped", plan.stopped},
                             {"rangesFailed", plan.rangesFailed},
                             {"documentsWithoutRanges", plan.documentsWithoutRanges}};
}

BatchPlan planFromJson(const JsonValue& json) {
    if (!json.has("vellira-batch-plan") || json["vellira-batch-plan"].integer() != kPlanVersion)
        throw JsonError("not a plan of this version of vellira-batch");
    BatchPlan plan;
    for (const auto& row : json["rows"].array()) {
        plan.rows.push_back(
            {row["use"].string(), row["path"].string(), row["status"].string(), row["params"].string()});
        plan.rowSettings.push_back(row["settings"].string());
    }
    for (const auto& w : json["writes"].array())
        plan.writes.push_back({indexIn(w["row"], plan.rows.size()), w["source"].string(), w["first"].integer(),
                               w["last"].integer(), w["output"].string(), w["name"].string(), w["sequence"].integer(),
                               w["bookmarks"].boolean(), w["append"].boolean()});
    for (const auto& file : json["reports"].array()) {
        auto bytes = base64Decode(file["base64"].string());
        if (!bytes) throw JsonError("not a valid plan: a report is not base64");
        plan.files.emplace_back(file["path"].string(), std::move(*bytes));
    }
    for (const auto& e : json["events"].array()) plan.events.push_back(eventFromJson(e));
    for (const auto& list : json["mails"].array()) {
        BatchPlan::Mails mails{indexIn(list["row"], plan.rows.size()),
                               {},
                               static_cast<std::size_t>(std::max(0, list["afterEvent"].integer()))};
        for (const auto& e : list["entries"].array())
            mails.entries.push_back(
                {e["file"].string(), e["first"].integer(), e["last"].integer(), e["email"].string()});
        plan.mails.push_back(std::move(mails));
    }
    plan.completed = json["completed"].boolean();
    plan.stopped = json["stopped"].boolean();
    plan.rangesFailed = json["rangesFailed"].integer();
    plan.documentsWithoutRanges = json["documentsWithoutRanges"].integer();
    return plan;
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

JsonValue shardJson(const ShardResult& result) {
    JsonValue::Array failed;
    for (const auto& [write, message] : result.failed)
        failed.push_back(JsonValue::Object{{"write", static_cast<long long>(write)}, {"message", message}});
    return JsonValue::Object{
        {"shard", result.shard}, {"shards", result.shards}, {"written", result.written}, {"failed", failed}};
}

ShardResult shardFromJson(const JsonValue& json) {
    ShardResult result{json["shard"].integer(), json["shards"].integer(), json["written"].integer(), {}};
    for (const auto& item : json["failed"].array())
        result.failed.emplace_back(static_cast<std::size_t>(std::max(0, item["write"].integer())),
                                   item["message"].string());
    return result;
}

ShardResult applyShard(const BatchPlan& plan, int shard, int shards, DocumentHost& host, RunInterface& ui) {
    ShardResult result{shard, shards, 0, {}};
    const std::vector<bool> mine = shardRows(plan, shard, shards);
    std::string openPath;
    DocHandle source;
    int sinceReopen = 0;
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
    for (const auto& [path, bytes] : plan.files) {
        FileHandle file = openFile(path, "wb");
        if (!file || std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size() ||
            std::fclose(file.release()) != 0)
            ui.note("file error! can't write to report file: " + path);
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
