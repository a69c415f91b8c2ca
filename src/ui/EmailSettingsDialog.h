// "Email Settings": the mail server and message, when to send, and where the
// address stands on an output's pages. "&Send Test" mails the from address
// with the values as they stand in the dialog.
#pragma once

#include "mail/MailSender.h"
#include "ui/DesktopActions.h"
#include "ui/OptionsDialog.h"

namespace vellira::ui {

class EmailSettingsDialog : public OptionsDialog {
    Q_OBJECT
public:
    EmailSettingsDialog(const SplitSettings& settings, MailTransport transport, OpenAction open,
                        QWidget* parent = nullptr);

private:
    void sendTest();

    MailTransport transport_;
    OpenAction open_;
};

}  // namespace vellira::ui
