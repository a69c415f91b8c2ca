// (to be written)
#include "gui/GuiTests.h"

#include <QTest>

namespace vellira::ui {
namespace {

class FolderChooserTest : public QObject {
    Q_OBJECT
};

}  // namespace

int runFolderChooserTests(int argc, char** argv) {
    FolderChooserTest test;
    return QTest::qExec(&test, argc, argv);
}

}  // namespace vellira::ui

#include "FolderChooserTest.moc"
