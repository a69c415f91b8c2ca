#include "ui/FolderChooser.h"

#include "ui/DesktopActions.h"

#include <QDialogButtonBox>
#include <QDir>
#include <QEvent>
#include <QFileInfo>
#include <QFileSystemModel>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollBar>
#include <QTreeView>
#include <QVBoxLayout>

namespace vellira::ui {

namespace {

constexpr const char* kInvalidMessage = "The folder:\n\n%s\n\nis invalid. Please reenter.";
constexpr const char* kCannotCreateMessage = "The folder:\n\n%s\n\ncan not be created. Please double check.";
constexpr const char* kCreateQuestion = "The folder:\n\n%s\n\ndoes not exist. Do you want the folder to be created?";

#ifdef Q_OS_WIN
constexpr QChar kSeparator = u'\\';
#else
constexpr QChar kSeparator = u'/';
#endif

// How many characters of `path` name its root ("C:\" on Windows, "/"
// elsewhere), or 0 when it does not start at one.
qsizetype rootLength(const QString& path) {
#ifdef Q_OS_WIN
    const bool drive =
        path.size() > 2 && path[0].isLetter() && path[0].unicode() < 128 && path[1] == u':' && path[2] == kSeparator;
    return drive ? 3 : 0;
#else
    return path.startsWith(kSeparator) ? 1 : 0;
#endif
}

// Whether OK may be pressed on `text`: a path from a root, whichever
// separators it was typed with.
bool absoluteForm(const QString& text) { return rootLength(QDir::toNativeSeparators(text)) > 0; }

// A name that can be a folder's on every system the product runs on. A NUL
// would cut the name short on its way to the file system.
bool validFolderName(const QString& name) {
    if (name.isEmpty()) return false;
    const auto padding = [](QChar c) { return c == u'\t' || c == u' ' || c == u'.'; };
    if (padding(name.front()) || padding(name.back())) return false;
    for (const QChar c : name)
        if (c.isNull() || QStringView(u"\"*/:<>?\\|").contains(c)) return false;
    return true;
}

// The message text with the path in place of its "%s".
QString withPath(const char* text, const QString& path) { return QString::fromUtf8(text).replace("%s", path); }

// The folder tree with its path box. OK checks the typed path, offers to
// create a missing folder, and closes only on a folder that exists.
class FolderChooser final : public QDialog {
public:
    FolderChooser(QWidget* parent, const QString& title, const QString& prompt, const QString& initial)
        : QDialog(parent) {
        setObjectName("FolderChooser");
        setWindowTitle(title);
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(12, 12, 12, 12);
        layout->setSpacing(8);

        auto* label = new QLabel(prompt, this);
        label->setObjectName("prompt");
        label->setWordWrap(true);
        layout->addWidget(label);

        path_ = new QLineEdit(this);
        path_->setObjectName("folderPath");
#ifdef Q_OS_WIN
        path_->setMaxLength(260);
#endif
        layout->addWidget(path_);

        model_ = new QFileSystemModel(this);
        model_->setFilter(QDir::AllDirs | QDir::Drives | QDir::NoDotAndDotDot);
        model_->setRootPath(QString());
        tree_ = new QTreeView(this);
        tree_->setObjectName("folderTree");
        tree_->setModel(model_);
        for (int column = 1; column < model_->columnCount(); ++column) tree_->hideColumn(column);
        tree_->setHeaderHidden(true);
        tree_->setSortingEnabled(true);
        tree_->sortByColumn(0, Qt::AscendingOrder);
        tree_->setSelectionMode(QAbstractItemView::SingleSelection);
        layout->addWidget(tree_, 1);

        auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
        ok_ = buttons->button(QDialogButtonBox::Ok);
        ok_->setObjectName("ok");
        buttons->button(QDialogButtonBox::Cancel)->setObjectName("cancel");
        layout->addWidget(buttons);
        connect(buttons, &QDialogButtonBox::accepted, this, &FolderChooser::accept);
        connect(buttons, &QDialogButtonBox::rejected, this, &FolderChooser::reject);

        connect(tree_->selectionModel(), &QItemSelectionModel::currentChanged, this,
                [this](const QModelIndex& current) {
                    if (current.isValid()) path_->setText(QDir::toNativeSeparators(model_->filePath(current)));
                });
        connect(path_, &QLineEdit::textChanged, this,
                [this](const QString& text) { ok_->setEnabled(absoluteForm(text)); });

        // The tree fills and sorts itself in the background, which moves the
        // selected folder: keep it in sight until the user takes the tree over.
        connect(model_, &QFileSystemModel::directoryLoaded, this, &FolderChooser::keepInSight);
        connect(model_, &QFileSystemModel::layoutChanged, this, &FolderChooser::keepInSight);
        connect(tree_->verticalScrollBar(), &QScrollBar::actionTriggered, this, [this] { following_ = false; });
        tree_->installEventFilter(this);
        tree_->viewport()->installEventFilter(this);

        select(initial);
        resize(520, 460);
    }

    const QString& chosen() const { return chosen_; }

    void accept() override {
        const QString path = path_->text();
        if (!validate(path)) {
            path_->setFocus();
            return;
        }
        chosen_ = path;
        QDialog::accept();
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        const auto type = event->type();
        if (type == QEvent::MouseButtonPress || type == QEvent::Wheel || type == QEvent::KeyPress) following_ = false;
        return QDialog::eventFilter(watched, event);
    }

private:
    void keepInSight() {
        if (following_ && tree_->currentIndex().isValid())
            tree_->scrollTo(tree_->currentIndex(), QAbstractItemView::PositionAtCenter);
    }

    // Selects the initial folder, or the nearest folder above it that exists;
    // a folder still to be made stays in the box so that OK offers to make it.
    void select(const QString& initial) {
        const QString wanted =
            absoluteForm(initial) ? QDir::cleanPath(QDir::fromNativeSeparators(initial)) : QDir::currentPath();
        QString existing = wanted;
        while (!QFileInfo(existing).isDir() && !QDir(existing).isRoot()) existing = QFileInfo(existing).path();
        const QModelIndex index = model_->index(existing);
        if (index.isValid()) {
            tree_->setCurrentIndex(index);
            keepInSight();
        }
        path_->setText(QDir::toNativeSeparators(wanted));
        ok_->setEnabled(absoluteForm(path_->text()));
    }

    // Checks the path's form, then offers to make it when it is missing.
    bool validate(const QString& path) {
        const auto refuse = [&](FolderCheck check) {
            const char* text = check == FolderCheck::Invalid ? kInvalidMessage : kCannotCreateMessage;
            QMessageBox::warning(this, kMessageTitle, withPath(text, path));
            return false;
        };
        if (const FolderCheck form = checkFolder(path, false); form != FolderCheck::Good) return refuse(form);
        if (QFileInfo(path).isDir()) return true;
        const auto answer = QMessageBox::question(this, kMessageTitle, withPath(kCreateQuestion, path),
                                                  QMessageBox::Yes | QMessageBox::No, QMessageBox::Yes);
        if (answer != QMessageBox::Yes) return false;
        if (const FolderCheck made = checkFolder(path, true); made != FolderCheck::Good) return refuse(made);
        return true;
    }

    QLineEdit* path_ = nullptr;
    QFileSystemModel* model_ = nullptr;
    QTreeView* tree_ = nullptr;
    QPushButton* ok_ = nullptr;
    QString chosen_;
    bool following_ = true;  // the tree still scrolls to the selected folder
};

}  // namespace

FolderCheck checkFolder(const QString& typed, bool create) {
    const QString path = QDir::toNativeSeparators(typed);
    const qsizetype root = rootLength(path);
    if (root == 0) return FolderCheck::Invalid;
    QString reached = path.left(root);
    if (path.size() == root)
        return create && !QFileInfo(reached).isDir() ? FolderCheck::CannotCreate : FolderCheck::Good;
    // One level at a time from the root, so that a bad name further down
    // is reported before anything below it is made.
    for (const QString& name : path.mid(root).split(kSeparator)) {
        if (!validFolderName(name)) return FolderCheck::Invalid;
        reached += name;
        if (create) {
            QDir().mkdir(reached);  // fails harmlessly when the folder is already there
            if (!QFileInfo(reached).isDir()) return FolderCheck::CannotCreate;
        }
        reached += kSeparator;
    }
    return FolderCheck::Good;
}

std::optional<QString> chooseFolder(QWidget* parent, const QString& title, const QString& prompt,
                                    const QString& initial) {
    FolderChooser chooser(parent, title, prompt, initial);
    if (chooser.exec() != QDialog::Accepted) return std::nullopt;
    return chooser.chosen();
}

}  // namespace vellira::ui
