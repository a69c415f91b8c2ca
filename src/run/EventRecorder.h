// A run's interface kept as a record: what a run tells (messages, progress,
// row statuses, files written), in order, to be told later, when the run's
// results are put in place. Questions cannot wait: they are asked at once,
// one at a time when several records ask.
#pragma once

#include "core/RunInterface.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace vellira {

class EventRecorder final : public RunInterface {
public:
    struct Event {
        enum Kind { Note, Status, Progressed, ShownFile, RowStatus, Written } kind = Note;
        std::string text;  // the message, the status, or the file
        int row = 0;
        int first = 0;
        int last = 0;
        Progress progress;
    };

    // With `passOn`, messages, progress and statuses are also told to `ui`
    // as they come.
    EventRecorder(RunInterface& ui, std::mutex& asking, bool passOn = false)
        : ui_(ui), asking_(asking), passOn_(passOn) {}

    void note(std::string_view message) override {
        events.push_back({Event::Note, std::string(message)});
        if (passOn_) ui_.note(message);
    }
    bool question(std::string_view message) override {
        const std::lock_guard lock(asking_);
        return ui_.question(message);
    }
    // What a journal keeps of each mail cannot wait for the replay either.
    bool mailStarting(const MailAttempt& attempt) override {
        const std::lock_guard lock(asking_);
        return ui_.mailStarting(attempt);
    }
    void mailAttempted(const MailAttempt& attempt) override {
        const std::lock_guard lock(asking_);
        ui_.mailAttempted(attempt);
    }
    bool outputWanted(std::string_view path, int first, int last) override {
        const std::lock_guard lock(asking_);
        return ui_.outputWanted(path, first, last);
    }
    void progress(const Progress& now) override {
        // Only where a document stands last is worth telling again.
        if (!events.empty() && events.back().kind == Event::Progressed && events.back().progress.file == now.file)
            events.back().progress = now;
        else
            events.push_back({Event::Progressed, {}, 0, 0, 0, now});
        if (passOn_) ui_.progress(now);
    }
    void status(std::string_view text) override {
        events.push_back({Event::Status, std::string(text)});
        if (passOn_) ui_.status(text);
    }
    void showFile(std::string_view path) override { events.push_back({Event::ShownFile, std::string(path)}); }
    void rowStatus(int row, std::string_view status) override {
        events.push_back({Event::RowStatus, std::string(status), row});
        if (passOn_) ui_.rowStatus(row, status);
    }
    void fileWritten(std::string_view path, int first, int last) override {
        events.push_back({Event::Written, std::string(path), 0, first, last});
    }

    // Tells the record to `ui`, in order; a file written goes to `written`
    // (the file's number among the files written), which tells it. `before`,
    // when given, is called with each event's number before it is told, and
    // with the number of events at the end.
    static void replay(const std::vector<Event>& events, RunInterface& ui,
                       const std::function<void(const Event&, std::size_t)>& written,
                       const std::function<void(std::size_t)>& before = {}) {
        std::size_t files = 0;
        for (std::size_t index = 0; index <= events.size(); ++index) {
            if (before) before(index);
            if (index == events.size()) break;
            const Event& event = events[index];
            switch (event.kind) {
                case Event::Note: ui.note(event.text); break;
                case Event::Status: ui.status(event.text); break;
                case Event::Progressed: ui.progress(event.progress); break;
                case Event::ShownFile: ui.showFile(event.text); break;
                case Event::RowStatus: ui.rowStatus(event.row, event.text); break;
                case Event::Written: written(event, files++); break;
            }
        }
    }

    std::vector<Event> events;

private:
    RunInterface& ui_;
    std::mutex& asking_;
    bool passOn_;
};

}  // namespace vellira
