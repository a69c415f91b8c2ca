// The folder chooser: the check of a typed path, and the real dialog making
// a folder the user asked for.
#include "gui/GuiTests.h"
#include "support/TempDir.h"
#include "ui/FolderChooser.h"

#include <QApplication>
#include <QFileSystemModel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QTreeView>

#include <fstream>

namespace vellira::ui {
namespace {

QString qt(const std::filesystem::path& path) { return QString::fromStdString(path.string()); }

class FolderChooserTest : public QObject {
    Q_OBJECT

private slots:
    void checksEachLevelOfAPath() {
        testing::TempDir dir;
        std::filesystem::create_directories(dir / "existing");
        std::ofstream(dir / "plain.txt") << "not a folder";
        const QString root = qt(dir.path());
        using enum FolderCheck;
        const struct {
            QStringList paths;
            FolderCheck plain, creating;
        } cases[] = {
            {{root + "/existing", root + "/new/inner/deepest", "/"}, Good, Good},
            {{root + "/trailing/", root + "/folder.", root + "/ folder", root + "/../escaped"}, Invalid, Invalid},
            {{root + "/what?", root + "/back\\slash", "relative/folder", ""}, Invalid, Invalid},
            {{root + "/plain.txt/under", root + "/" + QString(300, u'x')}, Good, CannotCreate},
        };
        for (const auto& [paths, plain, creating] : cases)
            for (const QString& path : paths) {
                QVERIFY2(checkFolder(path, false) == plain, qPrintable(path));
                QVERIFY2(checkFolder(path, true) == creating, qPrintable(path));
            }
        QVERIFY(std::filesystem::is_directory(dir / "new" / "inner" / "deepest"));
        QVERIFY(!std::filesystem::exists(dir / "folder."));
        QVERIFY(!std::filesystem::exists(dir / "what?"));
    }

    // A bad name is refused with the dialog left open; a missing folder is
    // made when the user says yes, and the chooser answers it.
    void makesTheFolderTheUserTyped() {
        testing::TempDir dir;
        const QString missing = qt(dir / "made" / "here");
        const QString bad = qt(dir / "bad.");
        QStringList seen;  // what the user saw, in order
        MessageBoxes boxes;
        QTimer::singleShot(0, [&] {
            QWidget* chooser = QApplication::activeModalWidget();
            auto* path = chooser ? chooser->findChild<QLineEdit*>("folderPath") : nullptr;
            auto* ok = chooser ? chooser->findChild<QPushButton*>("ok") : nullptr;
            if (!path || !ok) {
                if (chooser) chooser->close();
                return;
            }
            seen << chooser->windowTitle() << path->text();
            // The tree fills in the background: soon it lists the root's
            // folders with the initial one still in sight.
            const auto* tree = chooser->findChild<QTreeView*>("folderTree");
            const auto* folders = tree ? qobject_cast<const QFileSystemModel*>(tree->model()) : nullptr;
            const bool filled = folders && QTest::qWaitFor([&] {
                                    return folders->rowCount(folders->index("/")) > 1 &&
                                           tree->viewport()->rect().contains(tree->visualRect(tree->currentIndex()));
                                });
            seen << (filled ? "tree filled" : "tree empty");
            QTest::qWait(100);
            saveScreenshot(chooser, "FolderChooser");
            path->clear();
            QTest::keyClicks(path, "relative/folder");
            seen << (ok->isEnabled() ? "relative path taken" : "relative path refused");
            path->setText(bad);
            QTest::mouseClick(ok, Qt::LeftButton);
            seen << (chooser->isVisible() ? "open after refusal" : "closed after refusal");
            path->clear();
            QTest::keyClicks(path, missing);
            QTest::mouseClick(ok, Qt::LeftButton);
            if (chooser->isVisible()) chooser->close();
        });
        const auto chosen = chooseFolder(nullptr, kSaveFolderTitle, kSaveFolderPrompt, qt(dir.path()));

        QCOMPARE(seen, QStringList({kSaveFolderTitle, qt(dir.path()), "tree filled", "relative path refused",
                                    "open after refusal"}));
        QCOMPARE(boxes.texts, QStringList({"The folder:\n\n" + bad + "\n\nis invalid. Please reenter.",
                                           "The folder:\n\n" + missing +
                                               "\n\ndoes not exist. Do you want the folder to be created?"}));
        QCOMPARE(chosen, std::optional<QString>(missing));
        QVERIFY(std::filesystem::is_directory(dir / "made" / "here"));
    }
};

}  // namespace

int runFolderChooserTests(int argc, char** argv) { return runTests<FolderChooserTest>(argc, argv); }

}  // namespace vellira::ui

#include "FolderChooserTest.moc"
