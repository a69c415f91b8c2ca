// The page view as a reader of PDFs uses it: the pages one under the other,
// keys and the wheel move and zoom as in the viewers people know, and Page
// Down walks a page a screen at a time to the top of the next.
#include "fixtures/PdfFixture.h"
#include "gui/GuiTests.h"
#include "support/TempDir.h"
#include "ui/PageView.h"

#include <QAbstractScrollArea>
#include <QComboBox>
#include <QScrollBar>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>
#include <QWheelEvent>

namespace vellira::ui {
namespace {

class PageViewTest : public QObject {
    Q_OBJECT

    std::unique_ptr<testing::TempDir> dir_;
    std::unique_ptr<PageView> view_;

    // A view of `pages` statement pages, shown and drawn.
    PageView& open(int pages) {
        dir_ = std::make_unique<testing::TempDir>();
        const auto pdf = *dir_ / "statements.pdf";
        fixtures::writePdf(fixtures::statements(pages, 5), pdf);
        view_ = std::make_unique<PageView>();
        view_->resize(600, 420);
        view_->show();
        QSignalSpy shown(view_.get(), &PageView::pageShown);
        view_->showDocument(QString::fromStdString(pdf.string()));
        if (!shown.wait(10000)) qWarning("the first page was not drawn");
        return *view_;
    }
    QWidget* canvas() const { return view_->findChild<QWidget*>("pageCanvas"); }
    QScrollBar* bar() const { return view_->findChild<QAbstractScrollArea*>("pageScroll")->verticalScrollBar(); }
    // Where the view's visible part begins and ends, in the view's coordinates.
    int viewTop() const { return canvas()->mapTo(view_.get(), QPoint()).y(); }
    int viewBottom() const { return viewTop() + canvas()->height(); }

private slots:
    void cleanup() {
        view_.reset();
        dir_.reset();
    }

    void zoomsByKeysAndWheel() {
        PageView& view = open(3);
        auto* zoom = view.findChild<QComboBox*>("zoom");
        const int fitted = view.pageArea(0).width();

        // Ctrl+plus from "Fit width" goes to the next percentage above it, on
        // as far as the list goes; Ctrl+minus and Ctrl+wheel come back.
        QTest::keyClick(&view, Qt::Key_Plus, Qt::ControlModifier);
        QVERIFY(zoom->currentText().endsWith('%'));
        QVERIFY(view.pageArea(0).width() > fitted);
        const int first = zoom->currentIndex();
        QTest::keyClick(&view, Qt::Key_Plus, Qt::ControlModifier);
        QCOMPARE(zoom->currentIndex(), first + 1);
        QTest::keyClick(&view, Qt::Key_Minus, Qt::ControlModifier);
        QCOMPARE(zoom->currentIndex(), first);
        QWheelEvent wheel(QPointF(50, 50), view.mapToGlobal(QPoint(50, 50)), {}, QPoint(0, 120), Qt::NoButton,
                          Qt::ControlModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(canvas(), &wheel);
        QCOMPARE(zoom->currentIndex(), first + 1);
        // Arrow keys go from page to page.
        QTest::keyClick(&view, Qt::Key_Right);
        QTest::keyClick(&view, Qt::Key_Right);
        QCOMPARE(view.currentPage(), 2);
        QTest::keyClick(&view, Qt::Key_Left);
        QCOMPARE(view.currentPage(), 1);
        QCOMPARE(view.pageArea(1).top() - viewTop(), 6);
    }

    // Page Down and Space go a screen on, never past the end of a page into
    // the gap or the next page; from a page whose end is in view, to the top
    // of the next. Page Up goes back the same way. The wheel scrolls across
    // pages, and the page number follows the page in view.
    void pageDownWalksToTheTopOfTheNextPage() {
        PageView& view = open(40);
        auto* number = view.findChild<QSpinBox*>("pageNumber");
        QVERIFY(view.pageArea(0).height() > canvas()->height());  // a page takes more than a screen
        int presses = 0;
        while (view.currentPage() == 0 && presses < 10) {
            QTest::keyClick(&view, presses % 2 ? Qt::Key_Space : Qt::Key_PageDown);
            ++presses;
            if (view.currentPage() == 0) QVERIFY(view.pageArea(0).bottom() >= viewBottom() - 8);
        }
        QVERIFY2(presses >= 2, "the first page's end was passed over");
        QCOMPARE(view.currentPage(), 1);
        QCOMPARE(number->value(), 2);
        QCOMPARE(view.pageArea(1).top() - viewTop(), 6);
        QVERIFY(view.pageArea(0).bottom() < viewTop());

        QTest::keyClick(&view, Qt::Key_PageUp);
        QCOMPARE(view.currentPage(), 0);
        QVERIFY(std::abs(view.pageArea(0).bottom() - viewBottom()) <= 8);
        QTest::keyClick(&view, Qt::Key_PageDown);
        QCOMPARE(view.currentPage(), 1);
        QCOMPARE(view.pageArea(1).top() - viewTop(), 6);

        // Three notches of the wheel and the pages go by; the one that fills
        // the view is the page in view.
        for (int notch = 0; notch < 40; ++notch) {
            QWheelEvent wheel(QPointF(50, 50), view.mapToGlobal(QPoint(50, 50)), {}, QPoint(0, -120), Qt::NoButton,
                              Qt::NoModifier, Qt::NoScrollPhase, false);
            QApplication::sendEvent(canvas(), &wheel);
        }
        const int page = view.currentPage();
        QVERIFY(page > 2);
        QCOMPARE(number->value(), page + 1);
        const int middle = viewTop() + canvas()->height() / 2;
        QVERIFY(view.pageArea(page).top() < middle + 12 && view.pageArea(page).bottom() > middle - 12);
        // Its words are those of that page: "continued page 2" and on.
        QTRY_VERIFY(view.words().size() > 2);
        if (page % 5 == 0)
            QCOMPARE(view.words()[0].text, QString("account:"));
        else
            QCOMPARE(view.words()[2].text, QString::number(page % 5 + 1));
        QTest::keyClick(&view, Qt::Key_End);
        QCOMPARE(view.currentPage(), 39);
        QCOMPARE(bar()->value(), bar()->maximum());
    }
};

}  // namespace

int runPageViewTests(int argc, char** argv) { return runTests<PageViewTest>(argc, argv); }

}  // namespace vellira::ui

#include "PageViewTest.moc"
