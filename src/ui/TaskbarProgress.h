// A run's progress on the application's entry in the taskbar or dock, where
// the desktop shows it: the launcher entry signal that KDE Plasma's task
// manager and GNOME's docks read, sent on the session bus. Without a session
// bus nothing is sent.
#pragma once

namespace vellira::ui {

class TaskbarProgress {
public:
    TaskbarProgress() = default;
    ~TaskbarProgress();
    TaskbarProgress(const TaskbarProgress&) = delete;
    TaskbarProgress& operator=(const TaskbarProgress&) = delete;

    // Shows the share of the work done, 0 to 1; sent when it moved by a
    // percent or more.
    void show(double done);

private:
    void send(double done, bool visible);

    int shownPercent_ = -1;  // what the entry shows, -1 for nothing
};

}  // namespace vellira::ui
