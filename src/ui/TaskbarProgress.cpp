#include "ui/TaskbarProgress.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariantMap>

#include <algorithm>

namespace vellira::ui {

namespace {

// The entry is named by the application's desktop file, as installed.
constexpr const char* kEntry = "application://vellira-batch-gui.desktop";

}  // namespace

TaskbarProgress::~TaskbarProgress() {
    if (shownPercent_ >= 0) send(0, false);
}

void TaskbarProgress::show(double done) {
    const int percent = static_cast<int>(std::clamp(done, 0.0, 1.0) * 100);
    if (percent == shownPercent_) return;
    shownPercent_ = percent;
    send(percent / 100.0, true);
}

void TaskbarProgress::send(double done, bool visible) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    QDBusMessage update =
        QDBusMessage::createSignal("/org/ornwick/VelliraBatch", "com.canonical.Unity.LauncherEntry", "Update");
    update << QString(kEntry) << QVariantMap{{"progress", done}, {"progress-visible", visible}};
    bus.send(update);
}

}  // namespace vellira::ui
