#include "ui/PageView.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSpinBox>
#include <QStyle>
#include <QThread>
#include <QToolTip>
#include <QVBoxLayout>
#include <QWheelEvent>

#include <algorithm>
#include <filesystem>

namespace vellira::ui {

namespace {

constexpr int kMargin = 12;  // around the page, in pixels

const QColor kCodeColour(0, 115, 190);
const QColor kUncertainColour(225, 135, 0);

// How the page is fitted: to the width of the view, to the whole view, or a
// fixed percentage.
struct Fit {
    enum Kind { Width, Page, Percent } kind = Width;
    int percent = 100;
};

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

// Draws the page image, the codes and uncertain words read from it, the
// highlighted match, and reports the word under the pointer.
class PageCanvas : public QWidget {
public:
    explicit PageCanvas(PageView& view) : QWidget(&view), view_(view) {
        setMouseTracking(true);
        setObjectName("pageCanvas");
    }
    QImage image;
    float zoom = 1;
    QRectF highlight;  // in points; empty for none

    const ViewWord* wordAt(const QPoint& point) const {
        const QPointF at((point.x() - kMargin) / zoom, (point.y() - kMargin) / zoom);
        for (const ViewWord& word : view_.words())
            if (word.box.adjusted(-1, -1, 1, 1).contains(at)) return &word;
        return nullptr;
    }
    QRect onScreen(const QRectF& box) const {
        return QRectF(box.x() * zoom + kMargin, box.y() * zoom + kMargin, box.width() * zoom, box.height() * zoom)
            .toAlignedRect();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.fillRect(rect(), palette().color(QPalette::Dark));
        if (image.isNull()) return;
        const QRect page(kMargin, kMargin, image.width(), image.height());
        painter.fillRect(page.translated(3, 3), QColor(0, 0, 0, 60));
        painter.drawImage(page.topLeft(), image);
        drawReadWords(painter, page);
        if (!highlight.isEmpty()) {
            const QRect box = onScreen(highlight).adjusted(-2, -2, 2, 2);
            painter.fillRect(box, QColor(255, 200, 0, 110));
            painter.setPen(QPen(QColor(230, 120, 0), 2));
            painter.drawRect(box);
        }
    }
    bool event(QEvent* event) override {
        if (event->type() != QEvent::ToolTip) return QWidget::event(event);
        const auto* help = static_cast<QHelpEvent*>(event);
        const ViewWord* word = wordAt(help->pos());
        const QString note = word ? wordNote(*word) : QString();
        if (note.isEmpty())
            QToolTip::hideText();
        else
            QToolTip::showText(help->globalPos(), word->text + "\n" + note, this);
        return true;
    }
    void mouseMoveEvent(QMouseEvent* event) override {
        const ViewWord* word = wordAt(event->position().toPoint());
        setCursor(word ? Qt::PointingHandCursor : Qt::ArrowCursor);
        emit view_.wordHovered(word ? *word : ViewWord{});
    }
    void mousePressEvent(QMouseEvent* event) override {
        if (event->button() != Qt::LeftButton) return;
        if (const ViewWord* word = wordAt(event->position().toPoint()))
            emit view_.wordClicked(*word, event->globalPosition().toPoint());
    }

private:
    // Words read with little confidence in an amber dashed outline, then
    // codes over them, tinted, with their kind on a tag above them (below,
    // at the top of the page).
    void drawReadWords(QPainter& painter, const QRect& page) {
        const auto tint = [](QColor colour) {
            colour.setAlpha(45);
            return colour;
        };
        painter.setPen(QPen(kUncertainColour, 1.5, Qt::DashLine));
        for (const ViewWord& word : view_.words()) {
            if (word.code != CodeFormat::None || word.confidence < 0 || word.confidence >= kUncertainBelow) continue;
            const QRect box = onScreen(word.box).adjusted(-2, -2, 2, 2);
            painter.fillRect(box, tint(kUncertainColour));
            painter.drawRect(box);
        }
        QFont small = font();
        small.setPointSizeF(font().pointSizeF() * 0.8);
        painter.setFont(small);
        const QFontMetrics metrics(small);
        for (const ViewWord& word : view_.words()) {
            if (word.code == CodeFormat::None) continue;
            const QRect box = onScreen(word.box).adjusted(-2, -2, 2, 2);
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

    PageView& view_;
};

// Opens the document and draws pages on the view's own thread and host. Only
// the newest request is drawn: older ones still waiting are skipped.
class PageView::Renderer : public QObject {
public:
    explicit Renderer(PageView& view) : view_(view) {}

    void open(const QString& path, int generation) {
        host_.reset();
        doc_ = {};
        host_ = std::make_unique<MupdfHost>();
        int pages = 0;
        QString error;
        if (!path.isEmpty()) {
            try {
                doc_ = host_->openDocument(std::filesystem::path(path.toStdString()));
                pages = host_->pageCount(doc_);
            } catch (const HostError& failure) {
                error = QString::fromStdString(failure.text());
                doc_ = {};
            }
        }
        QMetaObject::invokeMethod(
            &view_,
            [view = &view_, pages, error, generation] {
                if (generation != view->generation_) return;
                view->pages_ = pages;
                view->page_ = 0;
                view->documentOpened(error);
            },
            Qt::QueuedConnection);
    }

    void draw(int page, Fit fit, QSize viewport, int generation, const TextRecognition& recognition) {
        if (generation != view_.generation_ || !doc_) return;  // a newer request is on its way
        host_->setTextRecognition(recognition);
        QImage image;
        std::vector<ViewWord> words;
        float zoom = 1;
        try {
            const auto [width, height] = host_->pageSize(doc_, page);
            const float fitWidth = width > 0 ? (viewport.width() - 2.0f * kMargin) / width : 1;
            const float fitPage = height > 0 ? std::min(fitWidth, (viewport.height() - 2.0f * kMargin) / height) : 1;
            zoom = fit.kind == Fit::Width ? fitWidth : fit.kind == Fit::Page ? fitPage : fit.percent / 100.0f;
            zoom = std::clamp(zoom, 0.05f, 8.0f);
            const MupdfHost::PageImage drawn = host_->renderPage(doc_, page, zoom);
            image =
                QImage(drawn.pixels.data(), drawn.width, drawn.height, drawn.width * 3, QImage::Format_RGB888).copy();
            for (const auto& box : host_->wordBoxes(doc_, page))
                words.push_back({QString::fromStdString(box.word.text), box.word.h, box.word.v, box.word.number,
                                 QRectF(box.x0, box.y0, box.x1 - box.x0, box.y1 - box.y0), box.word.code,
                                 box.word.confidence});
        } catch (const HostError&) {
            // A page that cannot be drawn shows empty.
        }
        QMetaObject::invokeMethod(
            &view_,
            [view = &view_, page, zoom, image, words = std::move(words), generation]() mutable {
                view->pageDrawn(page, zoom, image, std::move(words), generation);
            },
            Qt::QueuedConnection);
    }

private:
    PageView& view_;
    std::unique_ptr<MupdfHost> host_;
    DocHandle doc_;
};

PageView::PageView(QWidget* parent)
    : QWidget(parent), renderer_(std::make_unique<Renderer>(*this)), thread_(new QThread(this)) {
    setObjectName("PageView");
    setFocusPolicy(Qt::StrongFocus);
    renderer_->moveToThread(thread_);
    thread_->start();

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    auto* bar = new QHBoxLayout;
    bar->setContentsMargins(6, 4, 6, 4);
    auto* previous = new QPushButton(style()->standardIcon(QStyle::SP_ArrowBack), "", this);
    previous->setObjectName("previousPage");
    previous->setToolTip("Previous page (Page Up, Left)");
    auto* next = new QPushButton(style()->standardIcon(QStyle::SP_ArrowForward), "", this);
    next->setObjectName("nextPage");
    next->setToolTip("Next page (Page Down, Right)");
    pageBox_ = new QSpinBox(this);
    pageBox_->setObjectName("pageNumber");
    pageBox_->setRange(1, 1);
    pageBox_->setKeyboardTracking(false);
    pageTotal_ = new QLabel("of 0", this);
    zoomBox_ = new QComboBox(this);
    zoomBox_->setObjectName("zoom");
    zoomBox_->addItems({"Fit width", "Fit page", "50%", "75%", "100%", "125%", "150%", "200%"});
    zoomBox_->setToolTip("Zoom (Ctrl+plus, Ctrl+minus, Ctrl+wheel)");
    for (QWidget* each : std::initializer_list<QWidget*>{previous, next, pageBox_, zoomBox_})
        each->setFocusPolicy(Qt::ClickFocus);
    bar->addWidget(previous);
    bar->addWidget(next);
    bar->addSpacing(8);
    bar->addWidget(new QLabel("Page", this));
    bar->addWidget(pageBox_);
    bar->addWidget(pageTotal_);
    bar->addStretch();
    bar->addWidget(new QLabel("Zoom", this));
    bar->addWidget(zoomBox_);
    layout->addLayout(bar);

    scroll_ = new QScrollArea(this);
    scroll_->setObjectName("pageScroll");
    scroll_->setBackgroundRole(QPalette::Dark);
    scroll_->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
    canvas_ = new PageCanvas(*this);
    scroll_->setWidget(canvas_);
    scroll_->setFocusPolicy(Qt::NoFocus);
    // Ctrl+wheel zooms, as in the viewers people know; the wheel alone scrolls.
    scroll_->viewport()->installEventFilter(this);
    layout->addWidget(scroll_, 1);

    connect(previous, &QPushButton::clicked, this, [this] { goToPage(page_ - 1); });
    connect(next, &QPushButton::clicked, this, [this] { goToPage(page_ + 1); });
    connect(pageBox_, &QSpinBox::valueChanged, this, [this](int value) { goToPage(value - 1); });
    connect(zoomBox_, &QComboBox::currentIndexChanged, this, [this] { requestPage(); });
}

PageView::~PageView() {
    ++generation_;
    thread_->quit();
    thread_->wait();
}

void PageView::showDocument(const QString& path) {
    const int generation = ++generation_;
    pages_ = 0;
    page_ = 0;
    drawnPage_ = -1;
    words_.clear();
    clearHighlight();
    canvas_->image = QImage();
    canvas_->update();
    QMetaObject::invokeMethod(
        renderer_.get(), [renderer = renderer_.get(), path, generation] { renderer->open(path, generation); },
        Qt::QueuedConnection);
}

void PageView::documentOpened(const QString& error) {
    pageBox_->blockSignals(true);
    pageBox_->setRange(1, std::max(pages_, 1));
    pageBox_->setValue(1);
    pageBox_->blockSignals(false);
    pageTotal_->setText(QString("of %1").arg(pages_));
    requestPage();
    emit documentShown(pages_, error);
}

void PageView::goToPage(int page) {
    if (pages_ == 0) return;
    page = std::clamp(page, 0, pages_ - 1);
    if (page == page_ && !canvas_->image.isNull()) return;
    page_ = page;
    pageBox_->blockSignals(true);
    pageBox_->setValue(page + 1);
    pageBox_->blockSignals(false);
    requestPage();
}

void PageView::requestPage() {
    if (pages_ == 0) return;
    const int generation = ++generation_;
    Fit fit;
    const QString zoom = zoomBox_->currentText();
    if (zoom == "Fit page")
        fit.kind = Fit::Page;
    else if (zoom != "Fit width")
        fit = {Fit::Percent, zoom.chopped(1).toInt()};
    const QSize viewport = scroll_->viewport()->size() - QSize(scroll_->verticalScrollBar()->sizeHint().width(), 0);
    QMetaObject::invokeMethod(
        renderer_.get(),
        [renderer = renderer_.get(), page = page_, fit, viewport, generation, recognition = recognition_] {
            renderer->draw(page, fit, viewport, generation, recognition);
        },
        Qt::QueuedConnection);
}

void PageView::setTextRecognition(const TextRecognition& recognition) {
    const bool changed = recognition.pages != recognition_.pages || recognition.dpi != recognition_.dpi ||
                         recognition.key != recognition_.key || recognition.codes.pages != recognition_.codes.pages ||
                         recognition.codes.dpi != recognition_.codes.dpi ||
                         recognition.codes.key != recognition_.codes.key;
    recognition_ = recognition;
    if (changed && pages_ > 0) requestPage();
}

void PageView::pageDrawn(int page, float zoom, const QImage& image, std::vector<ViewWord> words, int generation) {
    if (generation != generation_ || page != page_) return;
    words_ = std::move(words);
    canvas_->image = image;
    canvas_->zoom = zoom;
    canvas_->highlight = QRectF();
    if (page == highlightPage_) {
        for (const ViewWord& word : words_)
            if (word.number == highlightNumber_) canvas_->highlight = word.box;
    }
    canvas_->resize(image.width() + 2 * kMargin, image.height() + 2 * kMargin);
    // Another page is shown from its top.
    if (page != drawnPage_) scroll_->verticalScrollBar()->setValue(0);
    drawnPage_ = page;
    if (!canvas_->highlight.isEmpty())
        scroll_->ensureVisible(canvas_->onScreen(canvas_->highlight).center().x(),
                               canvas_->onScreen(canvas_->highlight).center().y(), 40, 80);
    canvas_->update();
    emit pageShown(page);
}

void PageView::showHighlight(int page, int wordNumber) {
    highlightPage_ = page;
    highlightNumber_ = wordNumber;
    if (page == page_ && !canvas_->image.isNull()) {
        // Already in view: draw it over the words as they are.
        canvas_->highlight = QRectF();
        for (const ViewWord& word : words_)
            if (word.number == wordNumber) canvas_->highlight = word.box;
        canvas_->update();
        return;
    }
    page_ = -1;  // the page is drawn anew
    goToPage(page);
}

void PageView::clearHighlight() {
    highlightPage_ = highlightNumber_ = -1;
    canvas_->highlight = QRectF();
    canvas_->update();
}

std::optional<ViewWord> PageView::highlightedWord() const {
    if (highlightPage_ != page_ || canvas_->highlight.isEmpty()) return std::nullopt;
    for (const ViewWord& word : words_)
        if (word.number == highlightNumber_) return word;
    return std::nullopt;
}

QPoint PageView::wordCentre(const ViewWord& word) const {
    return canvas_->mapTo(this, canvas_->onScreen(word.box).center());
}

void PageView::zoomBy(int steps) {
    // From a fit, the first step goes to the percentage beside the zoom the
    // fit gave.
    constexpr int kFirstPercent = 2;
    int index = zoomBox_->currentIndex();
    if (index < kFirstPercent) {
        const int percent = static_cast<int>(canvas_->zoom * 100 + 0.5f);
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
    QScrollBar* bar = scroll_->verticalScrollBar();
    const bool control = event->modifiers() & Qt::ControlModifier;
    switch (event->key()) {
        case Qt::Key_PageUp: goToPage(page_ - 1); break;
        case Qt::Key_PageDown: goToPage(page_ + 1); break;
        case Qt::Key_Left: goToPage(page_ - 1); break;
        case Qt::Key_Right: goToPage(page_ + 1); break;
        case Qt::Key_Home: goToPage(0); break;
        case Qt::Key_End: goToPage(pages_ - 1); break;
        case Qt::Key_Up: bar->setValue(bar->value() - 3 * bar->singleStep()); break;
        case Qt::Key_Down: bar->setValue(bar->value() + 3 * bar->singleStep()); break;
        case Qt::Key_Space:
            // A screen on, and at the bottom of a page the top of the next.
            if (event->modifiers() & Qt::ShiftModifier)
                bar->setValue(bar->value() - bar->pageStep());
            else if (bar->value() >= bar->maximum())
                goToPage(page_ + 1);
            else
                bar->setValue(bar->value() + bar->pageStep());
            break;
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

void PageView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (zoomBox_->currentIndex() <= 1) requestPage();
}

}  // namespace vellira::ui
