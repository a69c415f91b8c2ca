// (to be written)
#include "gui/GuiTests.h"

#include <QTest>

namespace vellira::ui {
namespace {

class BatchListTest : public QObject {
    Q_OBJECT
};

}  // namespace

int runBatchListTests(int argc, char** argv) {
    BatchListTest test;
    return QTest::qExec(&test, argc, argv);
}

}  // namespace vellira::ui

#include "BatchListTest.moc"
