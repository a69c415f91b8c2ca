// What the desktop does for the application: the system's "open" action for
// a file or folder, and message boxes with the system's texts as they stand.
#pragma once

#include "core/RunInterface.h"

#include <QString>

#include <functional>

class QWidget;

namespace vellira::ui {

// Opens a file or folder with the desktop's default handler.
using OpenAction = std::function<void(const QString& path)>;
OpenAction systemOpen();

// The title of the application's message boxes.
inline constexpr const char* kMessageTitle = "Vellira Batch";

// A RunInterface for work done on the interface thread: notes and questions
// are message boxes over `parent`, files are opened with `open`.
class MessageBoxInterface : public RunInterface {
public:
    MessageBoxInterface(QWidget* parent, OpenAction open) : parent_(parent), open_(std::move(open)) {}
    void note(std::string_view message) override;
    bool question(std::string_view message) override;
    void showFile(std::string_view path) override;

private:
    QWidget* parent_;
    OpenAction open_;
};

}  // namespace vellira::ui
