#include "ui/EmailSettingsDialog.h"

#include <QApplication>
#include <QCheckBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace vellira::ui {

namespace {

constexpr const char* kDefaultLogName = "emails_log.txt";

QCheckBox* checkBox(QWidget* parent, const char* key, const char* label) {
    auto* box = new QCheckBox(label, parent);
    box->setObjectName(key);
    return box;
}

}  // namespace

EmailSettingsDialog::EmailSettingsDialog(const SplitSettings& settings, MailTransport transport, OpenAction open,
                                         QWidget* parent)
    : OptionsDialog(parent), transport_(std::move(transport)), open_(std::move(open)) {
    setObjectName("EmailSettingsDialog");
    setWindowTitle("Email Settings");
    auto* layout = new QVBoxLayout(this);

    auto* config = new QGroupBox("Config", this);
    auto* grid = new QGridLayout(config);
    int row = 0;
    grid->addWidget(checkBox(config, "USEOUTLOOK", "Use Microsoft outlook instead of stmp server"), row++, 0, 1, 3);
    auto* sendTest = new QPushButton("&Send Test", config);
    sendTest->setObjectName("sendTest");
    grid->addWidget(new QLabel("SMTP Server:", config), row, 0);
    grid->addWidget(edit("EMAILSMTP"), row, 1);
    grid->addWidget(sendTest, row++, 2);
    grid->addWidget(hint(config, "SSL on a given port: ssl:HOST:PORT, e.g. ssl:smtp.gmail.com:465"), row++, 1, 1, 2);
    grid->addWidget(
        hint(config, "TLS (STARTTLS): tls:HOST:PORT, e.g. tls:smtp.gmail.com:587 or tls:smtp.office365.com:587"), row++,
        1, 1, 2);
    const auto field = [&](const char* label, QWidget* control) {
        grid->addWidget(new QLabel(label, config), row, 0);
        grid->addWidget(control, row++, 1, 1, 2);
    };
    field("Login:", edit("EMAILLOGIN"));
    auto* password = edit("EMAILPASSWORD");
    password->setEchoMode(QLineEdit::Password);
    field("Password:", password);
    field("From Address:", edit("EMAILFROM"));
    field("From Name:", edit("EMAILFROMNAME"));
    field("CC Address:", edit("EMAILCC"));
    field("Subject:", edit("EMAILSUBJECT"));
    auto* message = new QPlainTextEdit(config);
    message->setObjectName("EMAILMSG");
    message->setMinimumHeight(90);
    grid->addWidget(new QLabel("Message:", config), row, 0, Qt::AlignTop);
    grid->addWidget(message, row++, 1, 1, 2);
    grid->addWidget(checkBox(config, "EMAILHTML", "html message (SMTP send only)"), row++, 1, 1, 2);
    grid->setColumnStretch(1, 1);
    layout->addWidget(config);

    auto* options = new QGroupBox("Options", this);
    auto* optionsGrid = new QGridLayout(options);
    optionsGrid->addWidget(checkBox(options, "EMAILENABLE", "Enable sending of emails"), 0, 0, 1, 4);
    optionsGrid->addWidget(checkBox(options, "EMAILCONFIRM", "Confirm before sending"), 1, 0, 1, 4);
    optionsGrid->addWidget(checkBox(options, "EMAILTEST", "Test mode! all emails will be sent to from address instead"),
                           2, 0, 1, 4);
    auto* logFile = edit("EMAILLOGFILE");
    auto* setLog = new QPushButton("Set", options);
    setLog->setObjectName("setLog");
    auto* viewLog = new QPushButton("View", options);
    viewLog->setObjectName("viewLog");
    optionsGrid->addWidget(new QLabel("Log file:", options), 3, 0);
    optionsGrid->addWidget(logFile, 3, 1);
    optionsGrid->addWidget(setLog, 3, 2);
    optionsGrid->addWidget(viewLog, 3, 3);
    optionsGrid->addWidget(new QLabel("Retry for (seconds):", options), 4, 0);
    optionsGrid->addWidget(edit("EMAILRETRYSECONDS"), 4, 1);
    optionsGrid->addWidget(
        hint(options, "A mail the server put off, or could not take, is tried again this long (0: once)"), 5, 1, 1, 3);
    optionsGrid->setColumnStretch(1, 1);
    layout->addWidget(options);

    auto* matching = new QGroupBox("Matching options", this);
    auto* matchGrid = new QGridLayout(matching);
    const auto bounds = [&](int at, const char* label, const char* from, const char* to) {
        matchGrid->addWidget(new QLabel(label, matching), at, 0);
        matchGrid->addWidget(edit(from), at, 1);
        matchGrid->addWidget(new QLabel("to", matching), at, 2);
        matchGrid->addWidget(edit(to), at, 3);
    };
    bounds(0, "Email match vertical position:", "EMAILMATCHVERT", "EMAILMATCHVERTTO");
    bounds(1, "Email match horizontal position:", "EMAILMATCHHORIZ", "EMAILMATCHHORIZTO");
    matchGrid->addWidget(hint(matching, "(Set -1 for any position)"), 2, 1, 1, 3);
    matchGrid->addWidget(new QLabel("After text:", matching), 3, 0);
    matchGrid->addWidget(edit("EMAILHORIZAFTERTEXT"), 3, 1, 1, 3);
    matchGrid->addWidget(new QLabel("Before text:", matching), 4, 0);
    matchGrid->addWidget(edit("EMAILHORIZBEFORETEXT"), 4, 1, 1, 3);
    layout->addWidget(matching);

    connect(sendTest, &QPushButton::clicked, this, &EmailSettingsDialog::sendTest);
    connect(setLog, &QPushButton::clicked, this, [this, logFile] {
        const QString start = logFile->text().isEmpty() ? QString(kDefaultLogName) : logFile->text();
        const QString chosen = QFileDialog::getSaveFileName(this, "Save txt log file", start, "*.txt");
        if (!chosen.isEmpty()) logFile->setText(chosen);
    });
    connect(viewLog, &QPushButton::clicked, this, [this, logFile] {
        if (!logFile->text().isEmpty()) open_(logFile->text());
    });
    finish(layout, settings);
}

void EmailSettingsDialog::sendTest() {
    // Message boxes of the test mail come with the normal cursor back.
    class TestMailInterface : public MessageBoxInterface {
    public:
        using MessageBoxInterface::MessageBoxInterface;
        void note(std::string_view message) override {
            if (QApplication::overrideCursor()) QApplication::restoreOverrideCursor();
            MessageBoxInterface::note(message);
        }
    };
    SplitSettings settings;
    takeInto(settings);
    TestMailInterface ui(this, open_);
    QApplication::setOverrideCursor(Qt::WaitCursor);
    sendTestMail(settings, ui, transport_);
    if (QApplication::overrideCursor()) QApplication::restoreOverrideCursor();
}

}  // namespace vellira::ui
