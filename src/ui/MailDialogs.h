// The windows of a run's mailing: "Email List to Send", which asks before
// sending, and "Email Status", which follows the sending.
#pragma once

#include "core/RunInterface.h"

#include <QDialog>

#include <vector>

class QLabel;

namespace vellira::ui {

// One row per mail with its columns "Email", "File", "Extract Page Start"
// and "Extract Page End"; "OK - Send" accepts, "Cancel" rejects.
class EmailListDialog : public QDialog {
    Q_OBJECT
public:
    explicit EmailListDialog(const std::vector<MailEntry>& entries, QWidget* parent = nullptr);
};

// "Sending email:", "Count:", "Sent OK:", "Sent Error:" and "&Stop".
class EmailStatusDialog : public QDialog {
    Q_OBJECT
public:
    explicit EmailStatusDialog(QWidget* parent = nullptr);
    void showStatus(const MailStatus& status);

signals:
    void stopRequested();

private:
    QLabel* recipient_;
    QLabel* count_;
    QLabel* sent_;
    QLabel* failed_;
};

}  // namespace vellira::ui
