// The page view as a reader of PDFs uses it: keys and the wheel move and zoom
// as in the viewers people know, and another page is shown from its top.
#include "fixtures/PdfFixture.h"
#include "gui/GuiTests.h"
#include "support/TempDir.h"
#include "ui/PageView.h"

#include <QComboBox>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>

namespace vellira::ui {
namespace {

class PageViewTest : public QObject {
    Q_OBJECT

private slots:
    void movesAndZoomsByKeysAndWheel() {
        testing::TempDir dir;
        const auto pdf = dir / "statements.pdf";
        fixtures::writePdf(fixtures::statements(3, 5), pdf);
        PageView view;
        view.resize(500, 400);
        view.show();
        QSignalSpy shown(&view, &PageView::pageShown);
        view.showDocument(QString::fromStdString(pdf.string()));
        QTRY_COMPARE(shown.count(), 1);
        auto* zoom = view.findChild<QComboBox*>("zoom");
        QScrollBar* bar = view.findChild<QScrollArea*>("pageScroll")->verticalScrollBar();

        // Ctrl+plus from "Fit width" goes to the next percentage above it, on
        // as far as the list goes; Ctrl+minus and Ctrl+wheel come back.
        QTest::keyClick(&view, Qt::Key_Plus, Qt::ControlModifier);
        QVERIFY(zoom->currentText().endsWith('%'));
        const int first = zoom->currentIndex();
        QTest::keyClick(&view, Qt::Key_Plus, Qt::ControlModifier);
        QCOMPARE(zoom->currentIndex(), first + 1);
        QTest::keyClick(&view, Qt::Key_Minus, Qt::ControlModifier);
        QCOMPARE(zoom->currentIndex(), first);
        QWheelEvent wheel(QPointF(50, 50), view.mapToGlobal(QPoint(50, 50)), {}, QPoint(0, 120), Qt::NoButton,
                          Qt::ControlModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(view.findChild<QScrollArea*>("pageScroll")->viewport(), &wheel);
        QCOMPARE(zoom->currentIndex(), first + 1);
        QTRY_VERIFY(bar->maximum() > 0);

        // Space goes down a screen, and at the bottom to the next page's top.
        QTest::keyClick(&view, Qt::Key_Space);
        QVERIFY(bar->value() > 0);
        bar->setValue(bar->maximum());
        QTest::keyClick(&view, Qt::Key_Space);
        QTRY_COMPARE(view.currentPage(), 1);
        QTRY_COMPARE(shown.count() >= 2 && bar->value() == 0, true);
        QTest::keyClick(&view, Qt::Key_Right);
        QCOMPARE(view.currentPage(), 2);
        QTest::keyClick(&view, Qt::Key_Left);
        QCOMPARE(view.currentPage(), 1);
    }
};

}  // namespace

int runPageViewTests(int argc, char** argv) { return runTests<PageViewTest>(argc, argv); }

}  // namespace vellira::ui

#include "PageViewTest.moc"
