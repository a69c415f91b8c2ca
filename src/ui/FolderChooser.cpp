#include "ui/FolderChooser.h"

#include <QFileDialog>

namespace vellira::ui {

FolderCheck checkFolder(const QString&, bool) { return FolderCheck::Good; }

std::optional<QString> chooseFolder(QWidget* parent, const QString& title, const QString&, const QString& initial) {
    const QString chosen = QFileDialog::getExistingDirectory(parent, title, initial);
    if (chosen.isEmpty()) return std::nullopt;
    return chosen;
}

}  // namespace vellira::ui
