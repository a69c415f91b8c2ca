#include "ui/ThumbnailStrip.h"

#include <QAbstractListModel>
#include <QPainter>
#include <QScrollBar>
#include <QStyle>
#include <QStyledItemDelegate>
#include <QTimer>

#include <algorithm>
#include <functional>

namespace vellira::ui {

namespace {

constexpr int kBarLeft = 4;  // the piece's bar, from the item's left
constexpr int kBarWidth = 5;
constexpr int kImageLeft = 14;  // the image's column, from the item's left
constexpr int kRight = 8;
constexpr int kTop = 6;
constexpr int kKeep = 24;  // images kept beyond those in view, each way
constexpr int kAhead = 4;  // images asked for beyond those in view, each way

QString pagesText(const PieceMark& piece) {
    return piece.first == piece.last ? QString("page %1").arg(piece.first + 1)
                                     : QString("pages %1\u2013%2").arg(piece.first + 1).arg(piece.last + 1);
}

}  // namespace

QColor pieceColour(int piece) {
    // Apart from the selection's blue and the highlight's amber.
    static constexpr QRgb kColours[] = {qRgb(0x0e, 0x84, 0x78), qRgb(0x7b, 0x4f, 0xb0)};
    return QColor(kColours[std::abs(piece) % 2]);
}

class ThumbnailStrip::Model : public QAbstractListModel {
public:
    explicit Model(ThumbnailStrip& strip) : QAbstractListModel(&strip), strip_(strip) {}
    int rowCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : strip_.pages_; }
    QVariant data(const QModelIndex& index, int role) const override {
        const int page = index.row();
        if (!index.isValid() || page >= strip_.pages_) return {};
        switch (role) {
            case Qt::DisplayRole: return QString::number(page + 1);
            case Qt::DecorationRole: {
                const auto found = strip_.images_.find(page);
                return found == strip_.images_.end() ? QVariant() : QVariant(found->second);
            }
            case Qt::ToolTipRole: {
                QString tip = QString("Page %1").arg(page + 1);
                if (const int piece = strip_.pieceOf(page); piece >= 0) {
                    const PieceMark& mark = strip_.pieces_[piece];
                    tip += QString("\n%1: %2").arg(mark.name, pagesText(mark));
                    if (!mark.file.isEmpty()) tip += QString::fromUtf8("\n\u2192 ") + mark.file;
                }
                return tip;
            }
            case PieceRole: return strip_.pieceOf(page);
            case PieceNameRole: return strip_.pieceNameAt(page);
            default: return {};
        }
    }
    void reset(const std::function<void()>& change) {
        beginResetModel();
        change();
        endResetModel();
    }
    void changed(int first, int last, const QList<int>& roles) {
        if (first <= last) emit dataChanged(index(first), index(last), roles);
    }

private:
    ThumbnailStrip& strip_;
};

// A page as a small white sheet with its number under it, the bar of its
// piece beside it and the piece's name over the top of a piece's first page.
class ThumbnailStrip::Delegate : public QStyledItemDelegate {
public:
    explicit Delegate(ThumbnailStrip& strip) : QStyledItemDelegate(&strip), strip_(strip) {}

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const override {
        return {kImageLeft + strip_.box_.width() + kRight,
                kTop + strip_.box_.height() + option.fontMetrics.height() + 8};
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        const int page = index.row();
        const QRect item = option.rect;
        const QSize box = strip_.box_;
        const auto found = strip_.images_.find(page);
        const QImage* image = found == strip_.images_.end() ? nullptr : &found->second;
        const QSize size = image ? image->size().scaled(box, Qt::KeepAspectRatio) : box;
        const int left = item.left() + kImageLeft + (item.width() - kImageLeft - kRight - size.width()) / 2;
        const QRect sheet(QPoint(left, item.top() + kTop + (box.height() - size.height()) / 2), size);
        const bool current = option.state & QStyle::State_Selected;

        painter->save();
        const int piece = strip_.pieceOf(page);
        if (piece >= 0) {
            // The bar runs on through the piece's pages and breaks between pieces.
            const PieceMark& mark = strip_.pieces_[piece];
            const int top = page == mark.first ? item.top() + kTop : item.top();
            const int bottom = page == mark.last ? item.bottom() - 4 : item.bottom() + 1;
            painter->fillRect(QRect(item.left() + kBarLeft, top, kBarWidth, bottom - top), pieceColour(piece));
        }
        if (current) {
            painter->setPen(Qt::NoPen);
            painter->setBrush(option.palette.color(QPalette::Highlight));
            painter->drawRoundedRect(sheet.adjusted(-4, -4, 4, 4), 3, 3);
        }
        painter->fillRect(sheet.translated(2, 2), QColor(0, 0, 0, 50));
        if (image)
            painter->drawImage(sheet, *image);
        else
            painter->fillRect(sheet, Qt::white);
        if (!current) {
            painter->setPen(QColor(0, 0, 0, 60));
            painter->setBrush(Qt::NoBrush);
            painter->drawRect(sheet.adjusted(0, 0, -1, -1));
        }
        if (piece >= 0 && strip_.pieces_[piece].first == page) {
            QFont small = option.font;
            small.setPointSizeF(small.pointSizeF() * 0.85);
            small.setBold(true);
            painter->setFont(small);
            const QFontMetrics metrics(small);
            const QRect tag(sheet.left(), sheet.top(), sheet.width(), metrics.height() + 4);
            painter->fillRect(tag, pieceColour(piece));
            painter->setPen(Qt::white);
            painter->drawText(tag.adjusted(4, 0, -4, 0), Qt::AlignVCenter | Qt::AlignLeft,
                              metrics.elidedText(strip_.pieces_[piece].name, Qt::ElideRight, tag.width() - 8));
        }
        QFont number = option.font;
        number.setBold(current);
        painter->setFont(number);
        painter->setPen(option.palette.color(QPalette::WindowText));
        const QRect label(item.left() + kImageLeft, item.top() + kTop + box.height() + 4,
                          item.width() - kImageLeft - kRight, option.fontMetrics.height());
        painter->drawText(label, Qt::AlignCenter, QString::number(page + 1));
        painter->restore();
    }

private:
    ThumbnailStrip& strip_;
};

ThumbnailStrip::ThumbnailStrip(QWidget* parent) : QListView(parent), model_(new Model(*this)) {
    setObjectName("thumbnails");
    setModel(model_);
    setItemDelegate(new Delegate(*this));
    setUniformItemSizes(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    verticalScrollBar()->setSingleStep(40);
    QPalette colours = palette();
    colours.setColor(QPalette::Base, colours.color(QPalette::Window));
    setPalette(colours);
    setFixedWidth(kImageLeft + box_.width() + kRight + style()->pixelMetric(QStyle::PM_ScrollBarExtent) +
                  2 * frameWidth() + 2);
    connect(this, &QListView::clicked, this, [this](const QModelIndex& index) { emit pageChosen(index.row()); });
    connect(selectionModel(), &QItemSelectionModel::currentChanged, this, [this](const QModelIndex& index) {
        if (!following_ && index.isValid()) emit pageChosen(index.row());
    });
}

ThumbnailStrip::~ThumbnailStrip() = default;

void ThumbnailStrip::setDocument(int pages, QSizeF pageSize) {
    model_->reset([&] {
        pages_ = std::max(pages, 0);
        images_.clear();
        pieces_.clear();
        pieceOf_.assign(static_cast<std::size_t>(pages_), -1);
        const int width = box_.width();
        const double shape = pageSize.width() > 0 ? pageSize.height() / pageSize.width() : 1.3;
        box_ = QSize(width, std::clamp(static_cast<int>(width * shape + 0.5), 40, 2 * width));
    });
    scheduleImages();
}

void ThumbnailStrip::setImage(int page, const QImage& image) {
    if (page < 0 || page >= pages_) return;
    images_[page] = image;
    model_->changed(page, page, {Qt::DecorationRole});
}

void ThumbnailStrip::setPieces(const std::vector<PieceMark>& pieces) {
    pieces_.clear();
    std::fill(pieceOf_.begin(), pieceOf_.end(), -1);
    for (const PieceMark& piece : pieces) {
        const int first = std::max(piece.first, 0);
        const int last = std::min(piece.last, pages_ - 1);
        if (first > last) continue;
        const int number = static_cast<int>(pieces_.size());
        pieces_.push_back({first, last, piece.name, piece.file});
        std::fill(pieceOf_.begin() + first, pieceOf_.begin() + last + 1, number);
    }
    model_->changed(0, pages_ - 1, {Qt::ToolTipRole, PieceRole, PieceNameRole});
    viewport()->update();
}

int ThumbnailStrip::pieceOf(int page) const {
    return page >= 0 && page < static_cast<int>(pieceOf_.size()) ? pieceOf_[static_cast<std::size_t>(page)] : -1;
}

QString ThumbnailStrip::pieceNameAt(int page) const {
    const int piece = pieceOf(page);
    return piece >= 0 && pieces_[piece].first == page ? pieces_[piece].name : QString();
}

void ThumbnailStrip::setCurrentPage(int page) {
    if (page < 0 || page >= pages_) return;
    following_ = true;
    const QModelIndex index = model_->index(page);
    setCurrentIndex(index);
    scrollTo(index);
    following_ = false;
}

void ThumbnailStrip::scrollContentsBy(int dx, int dy) {
    QListView::scrollContentsBy(dx, dy);
    scheduleImages();
}

void ThumbnailStrip::resizeEvent(QResizeEvent* event) {
    QListView::resizeEvent(event);
    scheduleImages();
}

void ThumbnailStrip::showEvent(QShowEvent* event) {
    QListView::showEvent(event);
    scheduleImages();
}

void ThumbnailStrip::scheduleImages() {
    if (asking_) return;
    asking_ = true;
    QTimer::singleShot(0, this, &ThumbnailStrip::askForImages);
}

void ThumbnailStrip::askForImages() {
    asking_ = false;
    if (!isVisible() || pages_ == 0) return emit imagesWanted({});
    const int middle = viewport()->width() / 2;
    int first = indexAt(QPoint(middle, 0)).row();
    int last = indexAt(QPoint(middle, viewport()->height() - 1)).row();
    if (first < 0) first = 0;
    if (last < 0) last = pages_ - 1;
    last = std::max(first, last);
    for (auto each = images_.begin(); each != images_.end();) {
        if (each->first < first - kKeep || each->first > last + kKeep)
            each = images_.erase(each);
        else
            ++each;
    }
    std::vector<int> wanted;
    const auto want = [&](int page) {
        if (page >= 0 && page < pages_ && !images_.contains(page)) wanted.push_back(page);
    };
    for (int page = first; page <= last; ++page) want(page);
    for (int step = 1; step <= kAhead; ++step) {
        want(last + step);
        want(first - step);
    }
    emit imagesWanted(wanted);
}

}  // namespace vellira::ui
