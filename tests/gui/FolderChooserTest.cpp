// The folder chooser: the check of a typed path, and the real dialog making
// a folder the user asked for.
#include "gui/GuiTests.h"
#include "support/TempDir.h"
#include "ui/FolderChooser.h"

#include <QApplication>
#include <QFileSystemModel>
#include <QLineEdit>
#include <QMessageBox>
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
            QString path;
            FolderCheck plain, creating;
        } cases[] = {
            {root + "/existing", Good, Good},
            {root + "/new/inner/deepest", Good, Good},
            {root + "/trailing/", Invalid, Invalid},
            {root + "/folder.", Invalid, Invalid},
            {root + "/ folder", Invalid, Invalid},
            {root + "/../escaped", Invalid, Invalid},
            {root + "/what?", Invalid, Invalid},
            {root + "/back\\slash", Invalid, Invalid},
            {"relative/folder", Invalid, Invalid},
            {"", Invalid, Invalid},
            {"/", Good, Good},
            {root + "/plain.txt/under", Good, CannotCreate},
            {root + "/" + QString(300, u'x'), Good, CannotCreate},
        };
        for (const auto& [path, plain, creating] : cases) {
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
        QString title, shownFirst, refused, asked;
        bool treeFilled = false, relativeRefused = false, openAfterRefusal = false;
        QTimer::singleShot(0, [&] {
            QWidget* chooser = QApplication::activeModalWidget();
            auto* path = chooser ? chooser->findChild<QLineEdit*>("folderPath") : nullptr;
            auto* ok = chooser ? chooser->findChild<QPushButton*>("ok") : nullptr;
            if (!path || !ok) {
                if (chooser) chooser->close();
                return;
            }
            title = chooser->windowTitle();
            shownFirst = path->text();
            // The tree fills in the background: soon it lists the root's
            // folders with the initial one still in sight.
            const auto* tree = chooser->findChild<QTreeView*>("folderTree");
            const auto* folders = tree ? qobject_cast<const QFileSystemModel*>(tree->model()) : nullptr;
            treeFilled = folders && QTest::qWaitFor([&] {
                             return folders->rowCount(folders->index("/")) > 1 &&
                                    tree->viewport()->rect().contains(tree->visualRect(tree->currentIndex()));
                         });
            QTest::qWait(100);
            saveScreenshot(chooser, "FolderChooser");
            path->clear();
            QTest::keyClicks(path, "relative/folder");
            relativeRefused = !ok->isEnabled();
            path->setText(bad);
            MessageBoxAnswer invalid(QMessageBox::Ok);
            QTest::mouseClick(ok, Qt::LeftButton);
            refused = invalid.text;
            openAfterRefusal = chooser->isVisible();
            path->clear();
            QTest::keyClicks(path, missing);
            MessageBoxAnswer create(QMessageBox::Yes);
            QTest::mouseClick(ok, Qt::LeftButton);
            asked = create.text;
            if (chooser->isVisible()) chooser->close();
        });
        const auto chosen = chooseFolder(nullptr, kSaveFolderTitle, kSaveFolderPrompt, qt(dir.path()));

        QCOMPARE(title, QString(kSaveFolderTitle));
        QCOMPARE(shownFirst, qt(dir.path()));
        QVERIFY(treeFilled);
        QVERIFY(relativeRefused);
        QCOMPARE(refused, "The folder:\n\n" + bad + "\n\nis invalid. Please reenter.");
        QVERIFY(openAfterRefusal);
        QCOMPARE(asked, "The folder:\n\n" + missing + "\n\ndoes not exist. Do you want the folder to be created?");
        QCOMPARE(chosen, std::optional<QString>(missing));
        QVERIFY(std::filesystem::is_directory(dir / "made" / "here"));
    }
};

}  // namespace

int runFolderChooserTests(int argc, char** argv) {
    FolderChooserTest test;
    return QTest::qExec(&test, argc, argv);
}

}  // namespace vellira::ui

#include "FolderChooserTest.moc"
