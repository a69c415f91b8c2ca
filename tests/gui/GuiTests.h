// The GUI test classes, one file each; GuiMain.cpp runs them all in one
// application. Each answers QTest's status for its class.
#pragma once

#include <filesystem>

class QWidget;

namespace vellira::ui {

int runApplicationTests(int argc, char** argv);
int runBatchListTests(int argc, char** argv);
int runFolderChooserTests(int argc, char** argv);

// Writes a picture of a window into the build folder's screenshots.
void saveScreenshot(QWidget* widget, const char* name);

}  // namespace vellira::ui
