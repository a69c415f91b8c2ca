// The GUI test classes, one file each; GuiMain.cpp runs them all in one
// application. Each answers QTest's status for its class.
#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QMessageBox>
#include <QTest>
#include <QTimer>
#include <QWidget>

#include <filesystem>

namespace vellira::ui {

template <class Tests>
int runTests(int argc, char** argv) {
    Tests tests;
    return QTest::qExec(&tests, argc, argv);
}

int runApplicationTests(int argc, char** argv);
int runBatchListTests(int argc, char** argv);
int runFolderChooserTests(int argc, char** argv);
int runPageViewTests(int argc, char** argv);

// Writes a picture of a window into the build folder's screenshots.
inline void saveScreenshot(QWidget* widget, const char* name) {
    QDir().mkpath(VELLIRA_SCREENSHOTS);
    widget->grab().save(QString(VELLIRA_SCREENSHOTS) + "/" + name + ".png");
}

// Answers every message box that shows while it lives, keeping their texts:
// "Yes" where the box asks, "OK" otherwise.
struct MessageBoxes {
    QStringList texts;
    bool onInterfaceThread = true;
    QTimer timer;
    MessageBoxes() {
        QObject::connect(&timer, &QTimer::timeout, [this] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box) return;
            texts << box->text();
            onInterfaceThread = onInterfaceThread && box->thread() == qApp->thread();
            QAbstractButton* yes = box->button(QMessageBox::Yes);
            (yes ? yes : box->button(QMessageBox::Ok))->click();
        });
        timer.start(20);
    }
};

}  // namespace vellira::ui
