// The GUI test classes, one file each; GuiMain.cpp runs them all in one
// application. Each answers QTest's status for its class.
#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QThread>
#include <QTimer>

#include <filesystem>

class QWidget;

namespace vellira::ui {

int runApplicationTests(int argc, char** argv);
int runBatchListTests(int argc, char** argv);
int runFolderChooserTests(int argc, char** argv);

// Writes a picture of a window into the build folder's screenshots.
void saveScreenshot(QWidget* widget, const char* name);

// Answers the next message box with `button` once it shows, and keeps its
// text.
struct MessageBoxAnswer {
    QString text;
    bool onInterfaceThread = false;
    explicit MessageBoxAnswer(QMessageBox::StandardButton button) {
        auto* timer = new QTimer(qApp);
        QObject::connect(timer, &QTimer::timeout, [this, timer, button] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box) return;
            text = box->text();
            onInterfaceThread = QThread::currentThread() == qApp->thread() && box->thread() == qApp->thread();
            timer->deleteLater();
            box->button(button)->click();
        });
        timer->start(20);
    }
};

}  // namespace vellira::ui
