#include "ui/PageView.h"

#include <QAbstractScrollArea>
#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QScrollBar>
#include <QSpinBox>
#include <QStyle>
#include <QThread>
#include <QToolButton>
#include <QToolTip>
#include <QVBoxLayout>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <mutex>

namespace vellira::ui {

namespace {

constexpr int kMargin = 12;     // around the pages, in pixels
constexpr int kGap = 12;        // between two pages
constexpr int kLanding = 6;     // of the gap left in view above a page gone to
constexpr int kLineStep = 24;   // the arrow keys' and the wheel's step
constexpr int kKeepAround = 4;  // pages kept drawn beyond those in view, each way
constexpr int kMeasureChunk = 64;

const QString kNoDocument =
    "No document open\n\nFile > Open (Ctrl+O) opens a PDF, File > Open Recent one opened before.";

const QColor kCodeColour(0, 115, 190);
const QColor kUncertainColour(225, 135, 0);

// How the pages are fitted: to the width of the view, to the whole view, or
// a fixed percentage.
struct Fit {
    enum Kind { Width, Page, Percent } kind = Width;
    int percent = 100;
};

QString pagesText(const PieceMark& piece) {
    return piece.first == piece.last ? QString("page %1").arg(piece.first + 1)
                                     : QString("pages %1\u2013%2").arg(piece.first + 1).arg(piece.last + 1);
}

}  // namespace

QString wordNote(const ViewWord& word) {
    if (word.code != CodeFormat::None) {
        const std::string_view name = codeFormatName(word.code);
        return "Code: " + QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
    }
    if (word.confidence < 0) return {};
    const QString read = QString("read from the image with %1% confidence").arg(word.confidence);
    return word.confidence < kUncertainBelow ? "Uncertain: " + read : read.left(1).toUpper() + read.mid(1);
}

// What the view wants drawn: pages nearest first, at a zoom, with their
// words read under the recognition settings of an epoch; then thumbnails.
struct PageView::Request {
    int document = 0;
    float zoom = 1;
    int epoch = 0;
    TextRecognition recognition;
    std::vector<int> pages;
    QSize thumbnailBox;
    std::vector<int> thumbnails;

    bool sameAs(const Request& other) const {
        return document == other.document && zoom == other.zoom && epoch == other.epoch && pages == other.pages &&
               thumbnailBox == other.thumbnailBox && thumbnails == other.thumbnails;
    }
};

// Opens the document and draws on the view's own thread and host, one page
// at a time, what the view asked for last: the pages in and near view and
// the thumbnails in turn; then, with nothing else to do, it measures the
// pages not yet measured so the layout fits every page.
class PageView::Renderer : public QObject {
public:
    explicit Renderer(PageView& view) : view_(view) {}

    // On the view's thread: replaces what was asked for before. A page
    // taken for the same zoom and epoch is not asked for again: it is on its
    // way until the view has had its words.
    void ask(Request request) {
        std::lock_guard lock(mutex_);
        std::erase_if(taken_, [&](const Taken& each) { return each.document != request.document; });
        std::erase_if(request.pages, [&](int page) {
            return std::any_of(taken_.begin(), taken_.end(), [&](const Taken& each) {
                return each.page == page && each.zoom == request.zoom && each.epoch == request.epoch;
            });
        });
        request_ = std::move(request);
        scheduleLocked();
    }

    void open(const QString& path, int document) {
        host_.reset();
        doc_ = {};
        host_ = std::make_unique<MupdfHost>();
        int pages = 0;
        QSizeF first;
        QString error;
        if (!path.isEmpty()) {
            try {
                doc_ = host_->openDocument(std::filesystem::path(path.toStdString()));
                pages = host_->pageCount(doc_);
                if (pages > 0) {
                    const auto [width, height] = host_->pageSize(doc_, 0);
                    first = QSizeF(width, height);
                }
            } catch (const HostError& failure) {
                error = QString::fromStdString(failure.text());
                doc_ = {};
                pages = 0;
            }
        }
        pageCount_ = pages;
        measured_ = 1;
        {
            std::lock_guard lock(mutex_);
            document_ = document;
            scheduleLocked();
        }
        post(document, [pages, first, error](PageView& view) { view.documentOpened(pages, first, error); });
    }

private:
    struct Taken {
        int document = 0;
        float zoom = 0;
        int epoch = 0;
        int page = 0;
    };
    void delivered(const Taken& page) {
        std::lock_guard lock(mutex_);
        const auto found = std::find_if(taken_.begin(), taken_.end(), [&](const Taken& each) {
            return each.document == page.document && each.zoom == page.zoom && each.epoch == page.epoch &&
                   each.page == page.page;
        });
        if (found != taken_.end()) taken_.erase(found);
    }

    void scheduleLocked() {
        if (scheduled_) return;
        scheduled_ = true;
        QMetaObject::invokeMethod(
            this, [this] { work(); }, Qt::QueuedConnection);
    }

    // Runs `call` on the view, unless another document is shown by then.
    template <class Call>
    void post(int document, Call call) {
        QMetaObject::invokeMethod(
            &view_,
            [view = &view_, document, call = std::move(call)]() mutable {
                if (document == view->document_) call(*view);
            },
            Qt::QueuedConnection);
    }

    void work() {
        enum { Page, Thumbnail, Measure } task = Measure;
        int page = -1;
        Request job;
        {
            std::lock_guard lock(mutex_);
            if (request_.document != document_) {
                request_.pages.clear();
                request_.thumbnails.clear();
            }
            // Pages and thumbnails take turns, so that the strip fills while
            // the words of scanned pages are read.
            const bool thumbnailTurn = turn_++ % 2 == 1 && !request_.thumbnails.empty();
            if (!request_.pages.empty() && !thumbnailTurn) {
                task = Page;
                page = request_.pages.front();
                request_.pages.erase(request_.pages.begin());
                job.zoom = request_.zoom;
                job.epoch = request_.epoch;
                job.recognition = request_.recognition;
            } else if (!request_.thumbnails.empty()) {
                task = Thumbnail;
                page = request_.thumbnails.front();
                request_.thumbnails.erase(request_.thumbnails.begin());
                job.thumbnailBox = request_.thumbnailBox;
            } else if (doc_ && measured_ < pageCount_) {
                task = Measure;
            } else {
                scheduled_ = false;
                return;
            }
            job.document = document_;
            if (task == Page) taken_.push_back({job.document, job.zoom, job.epoch, page});
        }
        if (doc_ && page < pageCount_) {
            if (task == Page)
                drawPage(job, page);
            else if (task == Thumbnail)
                drawThumbnail(job, page);
            else
                measure(job.document);
        }
        QMetaObject::invokeMethod(
            this, [this] { work(); }, Qt::QueuedConnection);
    }

    // The page's image first, then its words: reading a scanned page's
    // words takes longer than drawing it.
    void drawPage(const Request& job, int page) {
        QImage image;
        QSizeF size;
        try {
            const auto [width, height] = host_->pageSize(doc_, page);
            size = QSizeF(width, height);
            const MupdfHost::PageImage drawn = host_->renderPage(doc_, page, job.zoom);
            image =
                QImage(drawn.pixels.data(), drawn.width, drawn.height, drawn.width * 3, QImage::Format_RGB888).copy();
        } catch (const HostError&) {
            // A page that cannot be drawn shows empty.
        }
        post(job.document,
             [page, zoom = job.zoom, size, image](PageView& view) { view.imageDrawn(page, zoom, size, image); });
        std::vector<ViewWord> words;
        try {
            host_->setTextRecognition(job.recognition);
            for (const auto& box : host_->wordBoxes(doc_, page))
                words.push_back({QString::fromStdString(box.word.text), box.word.h, box.word.v, box.word.number,
                                 QRectF(box.x0, box.y0, box.x1 - box.x0, box.y1 - box.y0), box.word.code,
                                 box.word.confidence});
        } catch (const HostError&) {
            // A page whose words cannot be read shows none.
        }
        post(job.document, [page, job, words = std::move(words)](PageView& view) mutable {
            view.renderer_->delivered({job.document, job.zoom, job.epoch, page});
            view.wordsRead(page, job.epoch, std::move(words));
        });
    }

    void drawThumbnail(const Request& job, int page) {
        QImage image;
        try {
            const auto [width, height] = host_->pageSize(doc_, page);
            if (width <= 0 || height <= 0) return;
            const float zoom = std::min(job.thumbnailBox.width() / width, job.thumbnailBox.height() / height);
            const MupdfHost::PageImage drawn = host_->renderPage(doc_, page, zoom);
            image =
                QImage(drawn.pixels.data(), drawn.width, drawn.height, drawn.width * 3, QImage::Format_RGB888).copy();
        } catch (const HostError&) {
            return;
        }
        post(job.document, [page, image](PageView& view) { view.strip_->setImage(page, image); });
    }

    void measure(int document) {
        const int first = measured_;
        const int end = std::min(pageCount_, first + kMeasureChunk);
        std::vector<QSizeF> sizes;
        for (int page = first; page < end; ++page) {
            try {
                const auto [width, height] = host_->pageSize(doc_, page);
                sizes.emplace_back(width, height);
            } catch (const HostError&) {
                sizes.emplace_back();  // keeps the size it is given
            }
        }
        measured_ = end;
        post(document, [first, sizes = std::move(sizes)](PageView& view) { view.pagesMeasured(first, sizes); });
    }

    PageView& view_;
    std::unique_ptr<MupdfHost> host_;
    DocHandle doc_;
    int pageCount_ = 0;
    int measured_ = 0;

    std::mutex mutex_;  // guards what follows
    Request request_;
    std::vector<Taken> taken_;
    unsigned turn_ = 0;
    int document_ = 0;
    bool scheduled_ = false;
};

// The scrolled part of the view: it draws the pages in view and tells the
// word under the pointer.
class PageView::Canvas : public QAbstractScrollArea {
public:
    explicit Canvas(PageView& view) : QAbstractScrollArea(&view), view_(view) {
        setObjectName("pageScroll");
        viewport()->setObjectName("pageCanvas");
        viewport()->setMouseTracking(true);
        setBackgroundRole(QPalette::Dark);
        viewport()->setBackgroundRole(QPalette::Dark);
        setFrameShape(QFrame::NoFrame);
        setFocusPolicy(Qt::NoFocus);
        // Always there, so fitting the width does not make it come and go.
        setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
        verticalScrollBar()->setSingleStep(kLineStep);
        horizontalScrollBar()->setSingleStep(kLineStep);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(viewport());
        view_.paintPages(painter);
    }
    void scrollContentsBy(int, int) override {
        viewport()->update();
        view_.scrolled();
    }
    void resizeEvent(QResizeEvent*) override { view_.relayout(); }
    bool viewportEvent(QEvent* event) override {
        if (event->type() != QEvent::ToolTip) return QAbstractScrollArea::viewportEvent(event);
        const auto* help = static_cast<QHelpEvent*>(event);
        const ViewWord* word = view_.wordAt(help->pos()).second;
        const QString note = word ? wordNote(*word) : QString();
        if (note.isEmpty())
            QToolTip::hideText();
        else
            QToolTip::showText(help->globalPos(), word->text + "\n" + note, viewport());
        return true;
    }
    void mouseMoveEvent(QMouseEvent* event) override {
        const ViewWord* word = view_.wordAt(event->position().toPoint()).second;
        viewport()->setCursor(word ? Qt::PointingHandCursor : Qt::ArrowCursor);
        emit view_.wordHovered(word ? *word : ViewWord{});
    }
    void mousePressEvent(QMouseEvent* event) override {
        if (event->button() != Qt::LeftButton) return;
        const auto [page, word] = view_.wordAt(event->position().toPoint());
        if (!word) return;
        const ViewWord clicked = *word;
        view_.setCurrent(page);
        emit view_.wordClicked(clicked, event->globalPosition().toPoint());
    }

private:
    PageView& view_;
};

PageView::PageView(QWidget* parent)
    : QWidget(parent),
      renderer_(std::make_unique<Renderer>(*this)),
      thread_(new QThread(this)),
      asked_(std::make_unique<Request>()) {
    setObjectName("PageView");
    setFocusPolicy(Qt::StrongFocus);
    emptyNote_ = kNoDocument;
    renderer_->moveToThread(thread_);
    thread_->start();

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    auto* bar = new QHBoxLayout;
    bar->setContentsMargins(6, 4, 6, 4);
    auto* thumbnailsShown = new QToolButton(this);
    thumbnailsShown->setObjectName("thumbnailsShown");
    thumbnailsShown->setText("Pages");
    thumbnailsShown->setToolTip("Show or hide the page thumbnails");
    thumbnailsShown->setCheckable(true);
    thumbnailsShown->setChecked(true);
    auto* previous = new QPushButton(style()->standardIcon(QStyle::SP_ArrowBack), "", this);
    previous->setObjectName("previousPage");
    previous->setToolTip("Previous page (Left)");
    auto* next = new QPushButton(style()->standardIcon(QStyle::SP_ArrowForward), "", this);
    next->setObjectName("nextPage");
    next->setToolTip("Next page (Right)");
    pageBox_ = new QSpinBox(this);
    pageBox_->setObjectName("pageNumber");
    pageBox_->setRange(1, 1);
    pageBox_->setKeyboardTracking(false);
    pageTotal_ = new QLabel("of 0", this);
    zoomBox_ = new QComboBox(this);
    zoomBox_->setObjectName("zoom");
    zoomBox_->addItems({"Fit width", "Fit page", "50%", "75%", "100%", "125%", "150%", "200%"});
    zoomBox_->setToolTip("Zoom (Ctrl+plus, Ctrl+minus, Ctrl+wheel)");
    for (QWidget* each : std::initializer_list<QWidget*>{thumbnailsShown, previous, next, pageBox_, zoomBox_})
        each->setFocusPolicy(Qt::ClickFocus);
    bar->addWidget(thumbnailsShown);
    bar->addSpacing(8);
    bar->addWidget(previous);
    bar->addWidget(next);
    bar->addSpacing(8);
    bar->addWidget(new QLabel("Page", this));
    bar->addWidget(pageBox_);
    bar->addWidget(pageTotal_);
    bar->addSpacing(12);  // apart however narrow the view
    bar->addStretch();
    bar->addWidget(new QLabel("Zoom", this));
    bar->addWidget(zoomBox_);
    layout->addLayout(bar);

    auto* body = new QHBoxLayout;
    body->setContentsMargins(0, 0, 0, 0);
    body->setSpacing(0);
    strip_ = new ThumbnailStrip(this);
    canvas_ = new Canvas(*this);
    // Ctrl+wheel zooms, as in the viewers people know; the wheel alone scrolls.
    canvas_->viewport()->installEventFilter(this);
    body->addWidget(strip_);
    body->addWidget(canvas_, 1);
    layout->addLayout(body, 1);

    connect(thumbnailsShown, &QToolButton::toggled, strip_, &QWidget::setVisible);
    connect(strip_, &ThumbnailStrip::pageChosen, this, &PageView::goToPage);
    connect(strip_, &ThumbnailStrip::imagesWanted, this, [this](const std::vector<int>& pages) {
        thumbnailsWanted_ = pages;
        askForPages();
    });
    connect(previous, &QPushButton::clicked, this, [this] { goToPage(page_ - 1); });
    connect(next, &QPushButton::clicked, this, [this] { goToPage(page_ + 1); });
    connect(pageBox_, &QSpinBox::valueChanged, this, [this](int value) { goToPage(value - 1); });
    connect(zoomBox_, &QComboBox::currentIndexChanged, this, [this] { relayout(); });
}

PageView::~PageView() {
    ++document_;
    thread_->quit();
    thread_->wait();
}

void PageView::showDocument(const QString& path) {
    const int document = ++document_;
    emptyNote_ = path.isEmpty() ? kNoDocument : QString();
    pages_ = 0;
    page_ = 0;
    sizes_.clear();
    tops_.clear();
    drawn_.clear();
    pieces_.clear();
    pieceOf_.clear();
    thumbnailsWanted_.clear();
    highlightPage_ = highlightNumber_ = -1;
    revealing_ = false;
    strip_->setDocument(0, {});
    relayout();
    askForPages();
    QMetaObject::invokeMethod(
        renderer_.get(), [renderer = renderer_.get(), path, document] { renderer->open(path, document); },
        Qt::QueuedConnection);
}

void PageView::documentOpened(int pages, QSizeF firstSize, const QString& error) {
    pages_ = pages;
    page_ = 0;
    if (pages == 0) emptyNote_ = error.isEmpty() ? QString("The document has no pages.") : error;
    if (firstSize.isEmpty()) firstSize = QSizeF(612, 792);
    sizes_.assign(static_cast<std::size_t>(pages), firstSize);
    largest_ = firstSize;
    pieceOf_.assign(static_cast<std::size_t>(pages), -1);
    pageBox_->blockSignals(true);
    pageBox_->setRange(1, std::max(pages_, 1));
    pageBox_->setValue(1);
    pageBox_->blockSignals(false);
    pageTotal_->setText(QString("of %1").arg(pages_));
    strip_->setDocument(pages_, firstSize);
    relayout();
    place(0, 0);
    setCurrent(0);
    if (highlightPage_ >= 0)
        showHighlight(highlightPage_, highlightNumber_);
    else
        askForPages();
    emit documentShown(pages_, error);
}

// --- Layout -----------------------------------------------------------------

int PageView::pageHeight(int page) const {
    return std::max(1, static_cast<int>(std::lround(sizes_[page].height() * zoom_)));
}

int PageView::pageWidth(int page) const {
    return std::max(1, static_cast<int>(std::lround(sizes_[page].width() * zoom_)));
}

int PageView::band(int page) const {
    const int piece = pieceOf_.empty() ? -1 : pieceOf_[page];
    return piece >= 0 && pieces_[piece].first == page ? bandHeight_ : 0;
}

int PageView::landing(int page) const { return page == 0 ? 0 : tops_[page] - band(page) - kLanding; }

int PageView::slotAt(int y) const {
    int low = 0;
    int high = pages_ - 1;
    while (low < high) {
        const int middle = (low + high + 1) / 2;
        if (landing(middle) <= y)
            low = middle;
        else
            high = middle - 1;
    }
    return low;
}

std::pair<int, int> PageView::pagesInView() const {
    const int top = canvas_->verticalScrollBar()->value();
    return {slotAt(top), slotAt(top + canvas_->viewport()->height() - 1)};
}

QRect PageView::pageRect(int page) const {
    const int across = std::max(0, (canvas_->viewport()->width() - contentWidth_) / 2);
    const int widest = contentWidth_ - 2 * kMargin;
    const int left = across - canvas_->horizontalScrollBar()->value() + kMargin + (widest - pageWidth(page)) / 2;
    return {left, tops_[page] - canvas_->verticalScrollBar()->value(), pageWidth(page), pageHeight(page)};
}

QRect PageView::onScreen(const QRect& page, const QRectF& box) const {
    return QRectF(page.left() + box.x() * zoom_, page.top() + box.y() * zoom_, box.width() * zoom_,
                  box.height() * zoom_)
        .toAlignedRect();
}

QRect PageView::pageArea(int page) const {
    if (page < 0 || page >= pages_ || tops_.empty()) return {};
    const QRect area = pageRect(page);
    return {canvas_->viewport()->mapTo(this, area.topLeft()), area.size()};
}

float PageView::fittedZoom() const {
    Fit fit;
    const QString zoom = zoomBox_->currentText();
    if (zoom == "Fit page")
        fit.kind = Fit::Page;
    else if (zoom != "Fit width")
        fit = {Fit::Percent, zoom.chopped(1).toInt()};
    const QSize view = canvas_->viewport()->size();
    const double width = largest_.width() > 0 ? (view.width() - 2.0 * kMargin) / largest_.width() : 1;
    const double page =
        largest_.height() > 0 ? std::min(width, (view.height() - 2.0 * kMargin) / largest_.height()) : 1;
    const double chosen = fit.kind == Fit::Width ? width : fit.kind == Fit::Page ? page : fit.percent / 100.0;
    return std::clamp(static_cast<float>(chosen), 0.05f, 8.0f);
}

void PageView::relayout() {
    QScrollBar* down = canvas_->verticalScrollBar();
    QScrollBar* across = canvas_->horizontalScrollBar();
    // Where the view stands: on a page gone to, or so far into a page.
    const bool laidOut = !tops_.empty() && static_cast<int>(tops_.size()) == pages_;
    const int top = down->value();
    const int anchor = laidOut ? slotAt(top) : 0;
    const bool landed = laidOut && top == landing(anchor);
    const int into = laidOut ? top - tops_[anchor] : 0;
    const double sideways = across->maximum() > 0 ? double(across->value()) / across->maximum() : 0.5;
    const float before = zoom_;

    bandHeight_ = fontMetrics().height() + 10;
    zoom_ = fittedZoom();
    tops_.resize(static_cast<std::size_t>(pages_));
    int widest = 0;
    int y = kMargin;
    for (int page = 0; page < pages_; ++page) {
        y += band(page);
        tops_[page] = y;
        y += pageHeight(page) + kGap;
        widest = std::max(widest, pageWidth(page));
    }
    contentHeight_ = pages_ > 0 ? y - kGap + kMargin : 0;
    contentWidth_ = pages_ > 0 ? widest + 2 * kMargin : 0;

    const QSize view = canvas_->viewport()->size();
    placing_ = true;
    down->setRange(0, std::max(0, contentHeight_ - view.height()));
    down->setPageStep(view.height());
    across->setRange(0, std::max(0, contentWidth_ - view.width()));
    across->setPageStep(view.width());
    placing_ = false;
    if (pages_ > 0) {
        const int again = landed      ? landing(anchor)
                          : into >= 0 ? tops_[anchor] + static_cast<int>(std::lround(into * zoom_ / before))
                                      : tops_[anchor] + into;
        place(again, static_cast<int>(std::lround(sideways * across->maximum())));
    }
    canvas_->viewport()->update();
    askForPages();
}

void PageView::place(int top, int left) {
    placing_ = true;
    canvas_->verticalScrollBar()->setValue(top);
    if (left >= 0) canvas_->horizontalScrollBar()->setValue(left);
    placing_ = false;
}

void PageView::scrolled() {
    if (!placing_) followView();
    askForPages();
}

void PageView::followView() {
    if (pages_ == 0 || tops_.empty()) return;
    const auto [first, last] = pagesInView();
    const int height = canvas_->viewport()->height();
    int best = first;
    int most = -1;
    for (int page = first; page <= last; ++page) {
        const QRect area = pageRect(page);
        const int shown = std::min(area.bottom(), height) - std::max(area.top(), 0);
        if (shown > most) most = shown, best = page;
    }
    if (best != page_) setCurrent(best);
}

void PageView::setCurrent(int page) {
    page_ = page;
    pageBox_->blockSignals(true);
    pageBox_->setValue(page + 1);
    pageBox_->blockSignals(false);
    strip_->setCurrentPage(page);
    const auto found = drawn_.find(page);
    if (found != drawn_.end() && found->second.wordsEpoch >= 0) emit pageShown(page);
}

void PageView::goToPage(int page) {
    if (pages_ == 0 || tops_.empty()) return;
    page = std::clamp(page, 0, pages_ - 1);
    setCurrent(page);
    place(landing(page));
    askForPages();
}

// A screen on within a page, never past its end; from a page whose end is in
// view, the top of the next page.
void PageView::pageDown() {
    if (pages_ == 0) return;
    QScrollBar* bar = canvas_->verticalScrollBar();
    const int top = bar->value();
    const int height = canvas_->viewport()->height();
    const int page = slotAt(top);
    const int end = tops_[page] + pageHeight(page);
    if (top + height >= end) {
        if (page + 1 < pages_)
            goToPage(page + 1);
        else
            bar->setValue(bar->maximum());
        return;
    }
    const int step = std::max(height - 3 * kLineStep, height / 2);
    bar->setValue(std::min(top + step, end + kLanding - height));
}

// A screen back within a page, never before its top; from a page's top, the
// last screen of the page before.
void PageView::pageUp() {
    if (pages_ == 0) return;
    QScrollBar* bar = canvas_->verticalScrollBar();
    const int top = bar->value();
    const int height = canvas_->viewport()->height();
    const int page = slotAt(top);
    const int step = std::max(height - 3 * kLineStep, height / 2);
    if (top > landing(page)) {
        bar->setValue(std::max(top - step, landing(page)));
    } else if (page > 0) {
        const int before = page - 1;
        setCurrent(before);
        place(std::max(landing(before), tops_[before] + pageHeight(before) + kLanding - height));
    }
}

// --- Drawing ----------------------------------------------------------------

void PageView::askForPages() {
    Request request;
    request.document = document_;
    request.zoom = zoom_;
    request.epoch = recognitionEpoch_;
    request.recognition = recognition_;
    request.thumbnailBox = strip_->imageBox();
    request.thumbnails = thumbnailsWanted_;
    if (pages_ > 0 && !tops_.empty()) {
        const auto [first, last] = pagesInView();
        const auto want = [&](int page) {
            if (page < 0 || page >= pages_) return;
            const auto found = drawn_.find(page);
            if (found == drawn_.end() || found->second.zoom != zoom_ || found->second.wordsEpoch != recognitionEpoch_)
                request.pages.push_back(page);
        };
        for (int page = first; page <= last; ++page) want(page);
        want(last + 1);
        want(first - 1);
        for (auto each = drawn_.begin(); each != drawn_.end();) {
            if (each->first < first - kKeepAround || each->first > last + kKeepAround)
                each = drawn_.erase(each);
            else
                ++each;
        }
    }
    if (request.sameAs(*asked_)) return;
    *asked_ = request;
    renderer_->ask(std::move(request));
}

void PageView::imageDrawn(int page, float zoom, QSizeF size, const QImage& image) {
    if (page >= pages_) return;
    const bool resized = !size.isEmpty() && (std::abs(size.width() - sizes_[page].width()) > 0.5 ||
                                             std::abs(size.height() - sizes_[page].height()) > 0.5);
    Drawn& drawn = drawn_[page];
    if (zoom == zoom_ || drawn.image.isNull()) {
        drawn.image = image;
        drawn.zoom = zoom;
    }
    if (resized) {
        sizes_[page] = size;
        largest_ = largest_.expandedTo(size);
        relayout();
    } else {
        canvas_->viewport()->update();
        askForPages();
    }
}

void PageView::wordsRead(int page, int epoch, std::vector<ViewWord> words) {
    const auto found = drawn_.find(page);
    if (epoch != recognitionEpoch_ || found == drawn_.end()) return;
    found->second.words = std::move(words);
    found->second.wordsEpoch = epoch;
    if (page == highlightPage_ && revealing_) revealHighlight();
    canvas_->viewport()->update();
    if (page == page_) emit pageShown(page);
    askForPages();
}

void PageView::pagesMeasured(int first, const std::vector<QSizeF>& sizes) {
    bool changed = false;
    for (std::size_t each = 0; each < sizes.size() && first + static_cast<int>(each) < pages_; ++each) {
        QSizeF& size = sizes_[first + each];
        const QSizeF& measured = sizes[each];
        if (measured.isEmpty() ||
            (std::abs(measured.width() - size.width()) <= 0.5 && std::abs(measured.height() - size.height()) <= 0.5))
            continue;
        size = measured;
        largest_ = largest_.expandedTo(measured);
        changed = true;
    }
    if (changed) relayout();
}

void PageView::paintPages(QPainter& painter) {
    const QRect view = canvas_->viewport()->rect();
    painter.fillRect(view, palette().color(QPalette::Dark));
    if (pages_ == 0 || tops_.empty()) {
        painter.setPen(palette().color(QPalette::BrightText));
        painter.drawText(view.adjusted(20, 20, -20, -20), Qt::AlignCenter | Qt::TextWordWrap, emptyNote_);
        return;
    }
    const auto [first, last] = pagesInView();
    for (int page = first; page <= last; ++page) {
        const QRect area = pageRect(page);
        drawPieceMarks(painter, page, area);
        painter.fillRect(area.translated(3, 3), QColor(0, 0, 0, 60));
        const auto found = drawn_.find(page);
        if (found == drawn_.end() || found->second.image.isNull()) {
            painter.fillRect(area, Qt::white);
            continue;
        }
        const Drawn& drawn = found->second;
        const bool scaled = drawn.image.size() != area.size();
        painter.setRenderHint(QPainter::SmoothPixmapTransform, scaled);
        painter.drawImage(area, drawn.image);
        drawReadWords(painter, area, drawn.words);
        if (page != highlightPage_) continue;
        for (const ViewWord& word : drawn.words) {
            if (word.number != highlightNumber_) continue;
            const QRect box = onScreen(area, word.box).adjusted(-2, -2, 2, 2);
            painter.fillRect(box, QColor(255, 200, 0, 110));
            painter.setPen(QPen(QColor(230, 120, 0), 2));
            painter.drawRect(box);
        }
    }
}

// Words read with little confidence in an amber dashed outline, then codes
// over them, tinted, with their kind on a tag above them (below, at the top
// of the page).
void PageView::drawReadWords(QPainter& painter, const QRect& page, const std::vector<ViewWord>& words) {
    const auto tint = [](QColor colour) {
        colour.setAlpha(45);
        return colour;
    };
    painter.setPen(QPen(kUncertainColour, 1.5, Qt::DashLine));
    for (const ViewWord& word : words) {
        if (word.code != CodeFormat::None || word.confidence < 0 || word.confidence >= kUncertainBelow) continue;
        const QRect box = onScreen(page, word.box).adjusted(-2, -2, 2, 2);
        painter.fillRect(box, tint(kUncertainColour));
        painter.drawRect(box);
    }
    QFont small = font();
    small.setPointSizeF(font().pointSizeF() * 0.8);
    painter.setFont(small);
    const QFontMetrics metrics(small);
    for (const ViewWord& word : words) {
        if (word.code == CodeFormat::None) continue;
        const QRect box = onScreen(page, word.box).adjusted(-2, -2, 2, 2);
        painter.fillRect(box, tint(kCodeColour));
        painter.setPen(QPen(kCodeColour, 2));
        painter.drawRect(box);
        const std::string_view name = codeFormatName(word.code);
        const QString text = QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
        QRect tag(0, 0, metrics.horizontalAdvance(text) + 8, metrics.height() + 2);
        tag.moveBottomLeft(box.topLeft() - QPoint(0, 1));
        if (tag.top() < page.top()) tag.moveTopLeft(box.bottomLeft() + QPoint(0, 2));
        painter.fillRect(tag, kCodeColour);
        painter.setPen(Qt::white);
        painter.drawText(tag, Qt::AlignCenter, text);
    }
}

// A piece's pages have a bar of its colour beside them, and its first page a
// tab over its top with the piece's name, pages and file.
void PageView::drawPieceMarks(QPainter& painter, int page, const QRect& area) {
    const int piece = pieceOf_.empty() ? -1 : pieceOf_[page];
    if (piece < 0) return;
    const PieceMark& mark = pieces_[piece];
    const QColor colour = pieceColour(piece);
    const bool first = mark.first == page;
    const int top = first ? area.top() - bandHeight_ : area.top();
    const int bottom = page < mark.last ? area.bottom() + kGap + 1 : area.bottom() + 1;
    painter.fillRect(QRect(area.left() - 8, top, 4, bottom - top), colour);
    if (!first) return;

    const QRect tab(area.left(), area.top() - bandHeight_, area.width(), bandHeight_);
    QPainterPath shape;
    shape.addRoundedRect(tab.adjusted(0, 0, 0, 6), 5, 5);
    painter.save();
    painter.setClipRect(tab);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(shape, colour);
    painter.restore();
    QFont bold = font();
    bold.setBold(true);
    const QFontMetrics boldMetrics(bold);
    const QRect text = tab.adjusted(10, 0, -10, 0);
    const QString name = boldMetrics.elidedText(mark.name, Qt::ElideRight, text.width() * 3 / 5);
    painter.setPen(Qt::white);
    painter.setFont(bold);
    painter.drawText(text, Qt::AlignVCenter | Qt::AlignLeft, name);
    QString details = "   " + pagesText(mark);
    if (!mark.file.isEmpty()) details += QString::fromUtf8("   \u2192 ") + mark.file;
    const int used = boldMetrics.horizontalAdvance(name);
    painter.setFont(font());
    painter.drawText(text.adjusted(used, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft,
                     fontMetrics().elidedText(details, Qt::ElideRight, text.width() - used));
}

std::pair<int, const ViewWord*> PageView::wordAt(const QPoint& point) const {
    if (pages_ == 0 || tops_.empty()) return {-1, nullptr};
    const int page = slotAt(point.y() + canvas_->verticalScrollBar()->value());
    const QRect area = pageRect(page);
    const auto found = drawn_.find(page);
    if (!area.contains(point) || found == drawn_.end()) return {page, nullptr};
    const QPointF at((point.x() - area.left()) / zoom_, (point.y() - area.top()) / zoom_);
    for (const ViewWord& word : found->second.words)
        if (word.box.adjusted(-1, -1, 1, 1).contains(at)) return {page, &word};
    return {page, nullptr};
}

// --- Highlights, words and pieces -------------------------------------------

void PageView::setTextRecognition(const TextRecognition& recognition) {
    const bool changed = recognition.pages != recognition_.pages || recognition.dpi != recognition_.dpi ||
                         recognition.key != recognition_.key || recognition.codes.pages != recognition_.codes.pages ||
                         recognition.codes.dpi != recognition_.codes.dpi ||
                         recognition.codes.key != recognition_.codes.key;
    recognition_ = recognition;
    if (!changed) return;
    ++recognitionEpoch_;
    askForPages();
}

void PageView::setPieces(const std::vector<PlannedRange>& ranges) {
    std::vector<PieceMark> pieces;
    for (const PlannedRange& range : ranges) {
        const int first = std::max(range.first - 1, 0);
        const int last = std::min(range.last - 1, pages_ - 1);
        if (first > last) continue;
        pieces.push_back({first, last, QString::fromStdString(range.name),
                          QString::fromStdString(std::filesystem::path(range.path).filename().string())});
    }
    std::vector<int> pieceOf(static_cast<std::size_t>(pages_), -1);
    for (int piece = 0; piece < static_cast<int>(pieces.size()); ++piece)
        std::fill(pieceOf.begin() + pieces[piece].first, pieceOf.begin() + pieces[piece].last + 1, piece);
    // The tabs take room above the pages they mark: the layout changes only
    // when the pages that begin pieces do.
    std::vector<int> startsBefore, startsNow;
    for (const PieceMark& piece : pieces_) startsBefore.push_back(piece.first);
    for (const PieceMark& piece : pieces) startsNow.push_back(piece.first);
    pieces_ = std::move(pieces);
    pieceOf_ = std::move(pieceOf);
    strip_->setPieces(pieces_);
    if (startsBefore != startsNow)
        relayout();
    else
        canvas_->viewport()->update();
}

void PageView::showHighlight(int page, int wordNumber) {
    highlightPage_ = page;
    highlightNumber_ = wordNumber;
    revealing_ = true;
    if (pages_ == 0) return;  // gone to once the document is open
    const auto [first, last] = pagesInView();
    if (page != page_ || page < first || page > last) goToPage(page);
    const auto found = drawn_.find(page);
    if (found != drawn_.end() && found->second.wordsEpoch >= 0) revealHighlight();
    canvas_->viewport()->update();
}

// Scrolls the highlighted word into view, with room around it.
void PageView::revealHighlight() {
    revealing_ = false;
    const auto found = drawn_.find(highlightPage_);
    if (found == drawn_.end()) return;
    for (const ViewWord& word : found->second.words) {
        if (word.number != highlightNumber_) continue;
        const QRect box = onScreen(pageRect(highlightPage_), word.box);
        const QSize view = canvas_->viewport()->size();
        int down = 0;
        int across = 0;
        constexpr int kRoomDown = 80;
        constexpr int kRoomAcross = 40;
        if (box.top() < kRoomDown)
            down = box.top() - kRoomDown;
        else if (box.bottom() > view.height() - kRoomDown)
            down = std::min(box.bottom() - (view.height() - kRoomDown), box.top() - kRoomDown);
        if (box.left() < kRoomAcross)
            across = box.left() - kRoomAcross;
        else if (box.right() > view.width() - kRoomAcross)
            across = box.right() - (view.width() - kRoomAcross);
        place(canvas_->verticalScrollBar()->value() + down, canvas_->horizontalScrollBar()->value() + across);
        const QRect shown = onScreen(pageRect(highlightPage_), word.box);
        emit highlightRevealed(QRect(canvas_->viewport()->mapToGlobal(shown.topLeft()), shown.size()));
        return;
    }
}

void PageView::clearHighlight() {
    highlightPage_ = highlightNumber_ = -1;
    revealing_ = false;
    canvas_->viewport()->update();
}

std::optional<ViewWord> PageView::highlightedWord() const {
    const auto found = drawn_.find(highlightPage_);
    if (highlightPage_ != page_ || found == drawn_.end()) return std::nullopt;
    for (const ViewWord& word : found->second.words)
        if (word.number == highlightNumber_) return word;
    return std::nullopt;
}

const std::vector<ViewWord>& PageView::words() const {
    static const std::vector<ViewWord> none;
    const auto found = drawn_.find(page_);
    return found == drawn_.end() ? none : found->second.words;
}

QPoint PageView::wordCentre(const ViewWord& word) const {
    if (pages_ == 0 || tops_.empty()) return {};
    return canvas_->viewport()->mapTo(this, onScreen(pageRect(page_), word.box).center());
}

// --- Keys and the wheel -----------------------------------------------------

void PageView::zoomBy(int steps) {
    // From a fit, the first step goes to the percentage beside the zoom the
    // fit gave.
    constexpr int kFirstPercent = 2;
    int index = zoomBox_->currentIndex();
    if (index < kFirstPercent) {
        const int percent = static_cast<int>(zoom_ * 100 + 0.5f);
        index = steps > 0 ? zoomBox_->count() - 1 : kFirstPercent;
        for (int each = kFirstPercent; each < zoomBox_->count(); ++each) {
            const int value = zoomBox_->itemText(each).chopped(1).toInt();
            if (steps > 0 && value > percent) {
                index = each;
                break;
            }
            if (steps < 0 && value < percent) index = each;
        }
    } else {
        index = std::clamp(index + steps, kFirstPercent, zoomBox_->count() - 1);
    }
    zoomBox_->setCurrentIndex(index);
}

bool PageView::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Wheel) {
        auto* wheel = static_cast<QWheelEvent*>(event);
        if (wheel->modifiers() & Qt::ControlModifier) {
            if (wheel->angleDelta().y() != 0) zoomBy(wheel->angleDelta().y() > 0 ? 1 : -1);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void PageView::keyPressEvent(QKeyEvent* event) {
    QScrollBar* bar = canvas_->verticalScrollBar();
    const bool control = event->modifiers() & Qt::ControlModifier;
    switch (event->key()) {
        case Qt::Key_PageUp: pageUp(); break;
        case Qt::Key_PageDown: pageDown(); break;
        case Qt::Key_Space:
            if (event->modifiers() & Qt::ShiftModifier)
                pageUp();
            else
                pageDown();
            break;
        case Qt::Key_Left: goToPage(page_ - 1); break;
        case Qt::Key_Right: goToPage(page_ + 1); break;
        case Qt::Key_Home: goToPage(0); break;
        case Qt::Key_End:
            // The end of the document, as far down as it goes.
            if (pages_ == 0) break;
            setCurrent(pages_ - 1);
            place(bar->maximum());
            break;
        case Qt::Key_Up: bar->setValue(bar->value() - 3 * kLineStep); break;
        case Qt::Key_Down: bar->setValue(bar->value() + 3 * kLineStep); break;
        case Qt::Key_Plus:
        case Qt::Key_Equal:
            if (!control) return QWidget::keyPressEvent(event);
            zoomBy(1);
            break;
        case Qt::Key_Minus:
            if (!control) return QWidget::keyPressEvent(event);
            zoomBy(-1);
            break;
        default: QWidget::keyPressEvent(event);
    }
}

}  // namespace vellira::ui
