#include "ui/DesktopActions.h"

#include <QDesktopServices>
#include <QMessageBox>
#include <QUrl>

namespace vellira::ui {

namespace {

QString qt(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

}  // namespace

OpenAction systemOpen() {
    return [](const QString& path) { QDesktopServices::openUrl(QUrl::fromLocalFile(path)); };
}

void MessageBoxInterface::note(std::string_view message) {
    QMessageBox::information(parent_, kMessageTitle, qt(message));
}

bool MessageBoxInterface::question(std::string_view message) {
    return QMessageBox::question(parent_, kMessageTitle, qt(message), QMessageBox::Yes | QMessageBox::No,
                                 QMessageBox::No) == QMessageBox::Yes;
}

void MessageBoxInterface::showFile(std::string_view path) { open_(qt(path)); }

}  // namespace vellira::ui
