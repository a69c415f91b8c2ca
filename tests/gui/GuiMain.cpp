// Runs every GUI test class in one application, off-screen.
#include "gui/GuiTests.h"

#include <QApplication>

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    int failed = 0;
    for (const auto run : {vellira::ui::runApplicationTests, vellira::ui::runBatchListTests,
                           vellira::ui::runFolderChooserTests, vellira::ui::runPageViewTests})
        failed += run(argc, argv) != 0;
    return failed;
}
