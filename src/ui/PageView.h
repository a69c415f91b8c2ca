// The page view of the current document. Pages are drawn by MuPDF on a host
// of the view's own, on a thread of its own, so a long document opens at once
// and a run can work beside it. The view pages and zooms, draws the matches
// "&Show" finds over their words, tells the word under the pointer, and
// offers a clicked word's position to the settings. Codes read from a page's
// image are drawn tinted with their kind beside them, and words read with
// little confidence with a dashed outline.
#pragma once

#include "host/MupdfHost.h"

#include <QImage>
#include <QWidget>

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

class QComboBox;
class QLabel;
class QScrollArea;
class QSpinBox;
class QThread;

namespace vellira::ui {

class PageCanvas;

// A word as the view shows it: its text, its h and v, its number on the
// page, and its box on the drawn page in points; for a code, its kind, and
// for a word read from the page's image, how sure the reading was (0 to 100,
// -1 for a word of the page's text).
struct ViewWord {
    QString text;
    int h = 0;
    int v = 0;
    int number = 0;
    QRectF box;
    CodeFormat code = CodeFormat::None;
    int confidence = -1;
};

// OCR words read with less confidence than this are marked as uncertain.
inline constexpr int kUncertainBelow = 60;

// What the view tells of a word beside its text: the kind of a code, or how
// sure the reading of a word read from the page's image was; empty for a
// word of the page's text.
QString wordNote(const ViewWord& word);

class PageView : public QWidget {
    Q_OBJECT
public:
    explicit PageView(QWidget* parent = nullptr);
    ~PageView() override;

    // Shows a document from its first page; an empty path shows none.
    void showDocument(const QString& path);
    int pageCount() const { return pages_; }
    // The 0-based page in view.
    int currentPage() const { return page_; }
    void goToPage(int page);
    // Draws a match over the word with its number on a 0-based page, and
    // goes there. A new match replaces the last one.
    void showHighlight(int page, int wordNumber);
    void clearHighlight();
    // The highlighted word, once its page is drawn in view.
    std::optional<ViewWord> highlightedWord() const;
    // The words of the page in view, once drawn.
    const std::vector<ViewWord>& words() const { return words_; }
    // Where a word of the page in view is drawn, in the view's coordinates.
    QPoint wordCentre(const ViewWord& word) const;
    // Which pages have their words read from their image, as the settings
    // say; the page in view is drawn again when that changes.
    void setTextRecognition(const TextRecognition& recognition);

signals:
    // A document was opened (or could not be: pages 0 and the host's text).
    void documentShown(int pages, const QString& error);
    // The page in view has been drawn.
    void pageShown(int page);
    // The word under the pointer, or none (an empty text).
    void wordHovered(const vellira::ui::ViewWord& word);
    // A word was clicked; `at` is where, on the screen.
    void wordClicked(const vellira::ui::ViewWord& word, const QPoint& at);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    TextRecognition recognition_;
    class Renderer;
    // Steps the zoom by entries of its list: up for more than 0.
    void zoomBy(int steps);
    int drawnPage_ = -1;  // the page drawn last
    void requestPage();
    void documentOpened(const QString& error);
    void pageDrawn(int page, float zoom, const QImage& image, std::vector<ViewWord> words, int generation);

    std::unique_ptr<Renderer> renderer_;
    QThread* thread_;
    std::atomic<int> generation_{0};
    PageCanvas* canvas_;
    QScrollArea* scroll_;
    QSpinBox* pageBox_;
    QLabel* pageTotal_;
    QComboBox* zoomBox_;
    int pages_ = 0;
    int page_ = 0;
    std::vector<ViewWord> words_;
    int highlightPage_ = -1;
    int highlightNumber_ = -1;
};

}  // namespace vellira::ui
