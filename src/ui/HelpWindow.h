// The help window: how to use the product, from the README it ships with,
// and every setting with what it means, from the same key table that
// `vellira-batch keys` prints. The settings can be narrowed to those whose
// name or text holds a word.
#pragma once

#include <QDialog>

class QLineEdit;
class QTabWidget;
class QTextBrowser;

namespace vellira::ui {

class HelpWindow : public QDialog {
    Q_OBJECT

public:
    explicit HelpWindow(QWidget* parent = nullptr);

    // Shows the settings tab with the keys that hold `word`.
    void showSettings(const QString& word);

private:
    void listSettings(const QString& word);

    QTabWidget* tabs_;
    QTextBrowser* usage_;
    QTextBrowser* settings_;
    QLineEdit* filter_;
};

}  // namespace vellira::ui
