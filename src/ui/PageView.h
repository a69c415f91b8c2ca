// The page view of the current document: its pages one under the other,
// scrolled through as one, with their thumbnails beside them. Pages are drawn
// by MuPDF on a host of the view's own, on a thread of its own, and only those
// in or near view, so a long document opens at once and a run can work beside
// it. The view pages and zooms, marks where each piece a split would cut
// begins, draws the matches "&Show" finds over their words, tells the word
// under the pointer, and offers a clicked word's position to the settings.
// Codes read from a page's image are drawn tinted with their kind beside
// them, and words read with little confidence with a dashed outline.
#pragma once

#include "core/PlannedRange.h"
#include "host/MupdfHost.h"
#include "ui/ThumbnailStrip.h"

#include <QImage>
#include <QWidget>

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

class QComboBox;
class QLabel;
class QPainter;
class QSpinBox;
class QThread;

namespace vellira::ui {

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
    // The 0-based page in view: the one that fills most of the view, or the
    // one gone to last.
    int currentPage() const { return page_; }
    // Scrolls the top of a page into view.
    void goToPage(int page);
    // Draws a match over the word with its number on a 0-based page, and
    // scrolls it into view. A new match replaces the last one.
    void showHighlight(int page, int wordNumber);
    void clearHighlight();
    // The highlighted word, once its page is drawn in view.
    std::optional<ViewWord> highlightedWord() const;
    // The words of the page in view, once drawn.
    const std::vector<ViewWord>& words() const;
    // Where a word of the page in view is drawn, in the view's coordinates.
    QPoint wordCentre(const ViewWord& word) const;
    // Where a page is laid out, in the view's coordinates; it may lie
    // outside the part in view.
    QRect pageArea(int page) const;
    // Which pages have their words read from their image, as the settings
    // say; the pages in view are drawn again when that changes.
    void setTextRecognition(const TextRecognition& recognition);
    // The ranges a split would cut (1-based pages): each is marked with its
    // name where it begins, and on the thumbnails beside its pages.
    void setPieces(const std::vector<PlannedRange>& ranges);
    ThumbnailStrip& thumbnails() { return *strip_; }

signals:
    // A document was opened (or could not be: pages 0 and the host's text).
    void documentShown(int pages, const QString& error);
    // The page in view has been drawn, with its words.
    void pageShown(int page);
    // The word under the pointer, or none (an empty text).
    void wordHovered(const vellira::ui::ViewWord& word);
    // A word was clicked; `at` is where, on the screen.
    void wordClicked(const vellira::ui::ViewWord& word, const QPoint& at);
    // The highlighted word was scrolled into view: where it is, on the screen.
    void highlightRevealed(const QRect& onScreen);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    class Renderer;
    class Canvas;
    struct Request;
    // A page drawn at a zoom, and its words read under the recognition
    // settings of an epoch (-1: not yet).
    struct Drawn {
        QImage image;
        float zoom = 0;
        std::vector<ViewWord> words;
        int wordsEpoch = -1;
    };

    // Steps the zoom by entries of its list: up for more than 0.
    void zoomBy(int steps);
    float fittedZoom() const;
    // Lays the pages out again at the zoom and size of the view, keeping the
    // place in view.
    void relayout();
    // Scrolls by the program: the page in view stays the one set.
    void place(int top, int left = -1);
    void scrolled();
    // Makes the page that fills most of the view the page in view.
    void followView();
    void setCurrent(int page);
    void pageDown();
    void pageUp();
    void revealHighlight();
    // Asks the renderer for the pages in and near view that are not drawn
    // as they are shown now, and for the thumbnails the strip wants.
    void askForPages();

    // Layout, in pixels of the content: the top of each page's image, where
    // the view goes to show a page, and the page whose part of the content
    // holds a line.
    int pageHeight(int page) const;
    int pageWidth(int page) const;
    int band(int page) const;
    int landing(int page) const;
    int slotAt(int y) const;
    std::pair<int, int> pagesInView() const;
    // Where a page is drawn in the canvas, and a box of it in points.
    QRect pageRect(int page) const;
    QRect onScreen(const QRect& page, const QRectF& box) const;
    // The page and word under a point of the canvas.
    std::pair<int, const ViewWord*> wordAt(const QPoint& point) const;
    void paintPages(QPainter& painter);
    void drawReadWords(QPainter& painter, const QRect& page, const std::vector<ViewWord>& words);
    void drawPieceMarks(QPainter& painter, int page, const QRect& area);

    void documentOpened(int pages, QSizeF firstSize, const QString& error);
    void imageDrawn(int page, float zoom, QSizeF size, const QImage& image);
    void wordsRead(int page, int epoch, std::vector<ViewWord> words);
    void pagesMeasured(int first, const std::vector<QSizeF>& sizes);

    TextRecognition recognition_;
    int recognitionEpoch_ = 0;
    std::unique_ptr<Renderer> renderer_;
    QThread* thread_;
    int document_ = 0;   // counts the documents shown
    QString emptyNote_;  // shown while there is no page
    Canvas* canvas_;
    ThumbnailStrip* strip_;
    QSpinBox* pageBox_;
    QLabel* pageTotal_;
    QComboBox* zoomBox_;
    int pages_ = 0;
    int page_ = 0;
    float zoom_ = 1;
    std::vector<QSizeF> sizes_;  // in points
    QSizeF largest_;             // the widest width and the tallest height
    std::vector<int> tops_;
    int contentWidth_ = 0;
    int contentHeight_ = 0;
    int bandHeight_ = 0;
    std::unordered_map<int, Drawn> drawn_;
    std::vector<PieceMark> pieces_;
    std::vector<int> pieceOf_;  // per page, -1 for none
    std::vector<int> thumbnailsWanted_;
    std::unique_ptr<Request> asked_;  // what the renderer was asked for last
    bool placing_ = false;
    int highlightPage_ = -1;
    int highlightNumber_ = -1;
    bool revealing_ = false;  // the highlight is scrolled into view once drawn
};

}  // namespace vellira::ui
