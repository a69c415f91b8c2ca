// The narrow list of small page images beside the page view. It holds no
// document of its own: it asks for the images of the pages it shows (and a
// few around them) and keeps only those, so a document of any length lists
// at once. A click goes to the page. The pieces a split would cut are marked
// on it: a bar of the piece's colour beside its pages and its name on the
// first one.
#pragma once

#include <QImage>
#include <QListView>
#include <QSizeF>

#include <unordered_map>
#include <vector>

namespace vellira::ui {

// One piece a split would cut: its 0-based first and last pages, the name
// captured for it and the file it would be written to.
struct PieceMark {
    int first = 0;
    int last = 0;
    QString name;
    QString file;
};

// The colour a piece is marked in; pieces side by side take turns.
QColor pieceColour(int piece);

class ThumbnailStrip : public QListView {
    Q_OBJECT
public:
    // What the strip tells of a page beside its image: the piece it belongs
    // to (-1 for none) and, on a piece's first page, the piece's name.
    enum Role { PieceRole = Qt::UserRole + 1, PieceNameRole };

    explicit ThumbnailStrip(QWidget* parent = nullptr);
    ~ThumbnailStrip() override;

    // A document of `pages` pages; their boxes take the shape of `pageSize`
    // (in points). No pages: an empty strip.
    void setDocument(int pages, QSizeF pageSize);
    // The box a page's image is drawn to fit, in pixels.
    QSize imageBox() const { return box_; }
    // A page's image, drawn; kept while the page is in or near view.
    void setImage(int page, const QImage& image);
    bool hasImage(int page) const { return images_.contains(page); }
    void setPieces(const std::vector<PieceMark>& pieces);
    // The piece a page belongs to (-1 for none), and on a piece's first page
    // the piece's name.
    int pieceOf(int page) const;
    QString pieceNameAt(int page) const;
    // Selects the page in view and scrolls it into the strip, quietly.
    void setCurrentPage(int page);

signals:
    // The user chose a page.
    void pageChosen(int page);
    // The pages in or near view that have no image yet, nearest first.
    void imagesWanted(const std::vector<int>& pages);

protected:
    void scrollContentsBy(int dx, int dy) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    class Model;
    class Delegate;
    friend class Model;
    friend class Delegate;
    // Asks, once the events at hand are done, for the images in view.
    void scheduleImages();
    void askForImages();

    Model* model_;
    QSize box_{96, 124};
    int pages_ = 0;
    std::unordered_map<int, QImage> images_;
    std::vector<int> pieceOf_;  // per page
    std::vector<PieceMark> pieces_;
    bool asking_ = false;
    bool following_ = false;  // the view moves the selection
};

}  // namespace vellira::ui
