#include "ui/MatchCounter.h"

#include "host/MupdfHost.h"

#include <QMetaObject>

namespace vellira::ui {

// A show that answers every "Show next highlight" with yes and counts the
// highlights; it says nothing.
class MatchCounter::Interface : public RunInterface {
public:
    int matches = 0;
    void note(std::string_view) override {}
    bool question(std::string_view) override { return true; }
    void highlight(int, std::string_view, std::uint16_t) override { ++matches; }
};

MatchCounter::MatchCounter(QObject* parent) : QObject(parent) {}

MatchCounter::~MatchCounter() { stop(); }

void MatchCounter::stop() {
    if (interface_) interface_->requestCancel();
    if (worker_.joinable()) worker_.join();
    interface_.reset();
}

void MatchCounter::count(BatchJob job) {
    stop();
    interface_ = std::make_shared<Interface>();
    worker_ = std::thread([this, interface = interface_, job = std::move(job)] {
        MupdfHost host;
        runShow(job, host, *interface);
        if (interface->cancelled()) return;
        const int matches = interface->matches;
        QMetaObject::invokeMethod(
            this, [this, matches] { emit counted(matches); }, Qt::QueuedConnection);
    });
}

}  // namespace vellira::ui
