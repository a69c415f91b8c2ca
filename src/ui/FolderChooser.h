// The folder chooser: a folder tree with a box in which a path can be typed.
// A typed path is checked before the chooser closes, and a folder that does
// not exist is made, level by level, when the user says so.
#pragma once

#include <QDialog>
#include <QString>

#include <optional>

namespace vellira::ui {

// What a check of a folder path finds.
enum class FolderCheck {
    Good = 0,
    Invalid = 1,       // "is invalid": not an absolute path, or a level's name cannot be a folder's
    CannotCreate = 2,  // "can not be created"
};

// Checks a path's form and, with `create`, makes each missing level in turn.
FolderCheck checkFolder(const QString& path, bool create);

// The titles and prompts the chooser is opened with.
inline constexpr const char* kSaveFolderTitle = "Folder to save documents to...";
inline constexpr const char* kSaveFolderPrompt = "Please choose your folder to save documents to...";
inline constexpr const char* kLoadFolderTitle = "Drive or Directory to load...";
inline constexpr const char* kLoadFolderPrompt = "Please choose your drive to load documents from...";

// Shows the chooser at `initial` (the current folder when empty); answers the
// chosen folder, or nothing when cancelled.
std::optional<QString> chooseFolder(QWidget* parent, const QString& title, const QString& prompt,
                                    const QString& initial);

}  // namespace vellira::ui
