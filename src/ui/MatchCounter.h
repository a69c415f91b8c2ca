// Counts the matches "&Show" is about to show, on a thread and host of its
// own, so that each highlight can tell which match of how many it is. A new
// count, or the counter's end, stops one still working.
#pragma once

#include "run/BatchJob.h"

#include <QObject>

#include <memory>
#include <thread>

namespace vellira::ui {

class MatchCounter : public QObject {
    Q_OBJECT

public:
    explicit MatchCounter(QObject* parent = nullptr);
    ~MatchCounter() override;

    // Starts counting the matches of a show job; `counted` tells the number.
    void count(BatchJob job);

signals:
    void counted(int matches);

private:
    class Interface;
    void stop();

    std::shared_ptr<Interface> interface_;
    std::thread worker_;
};

}  // namespace vellira::ui
