#include "service/MailJournal.h"

#include "core/SplitSettings.h"
#include "files/Csv.h"

namespace vellira::service {

bool RunMailJournal::starting(const MailAttempt& attempt) {
    if (!hook_) {
        try {
            journal_ = std::make_unique<Journal>(defaultJournalPath());
        } catch (const JournalError& error) {
            openError_ = error.what();
        }
        hook_.emplace(journal_.get(), 0);
    }
    return hook_->starting(attempt);
}

void RunMailJournal::attempted(const MailAttempt& attempt) {
    if (hook_) hook_->attempted(attempt);
}

std::string RunMailJournal::problem() const {
    return !openError_.empty() ? openError_ : hook_ ? hook_->problem() : std::string();
}

bool MailJournalHook::starting(const MailAttempt& attempt) {
    if (!journal_) return true;
    try {
        const auto id = journal_->startMail(source_, attempt);
        if (!id) return false;
        ids_[{attempt.file, attempt.recipient}] = *id;
    } catch (const JournalError& error) {
        if (problem_.empty()) problem_ = error.what();
    }
    return true;
}

void MailJournalHook::attempted(const MailAttempt& attempt) {
    if (attempt.status == "failed") failures_.push_back(attempt.recipient + ": " + attempt.answer);
    const auto found = ids_.find({attempt.file, attempt.recipient});
    if (!journal_ || found == ids_.end()) return;
    try {
        journal_->updateMail(found->second, attempt.status, attempt.answer);
    } catch (const JournalError& error) {
        if (problem_.empty()) problem_ = error.what();
    }
}

std::string mailStatusText(const std::vector<MailRecord>& mails, bool csv) {
    std::string text = csv ? "time,status,attempts,cut_off,recipient,file,first,last,answer\r\n" : "";
    for (const auto& mail : mails) {
        // Tries cut off after the mail may have gone are told with the status.
        const std::string status =
            mail.status +
            (mail.cutOff > 0 && !csv ? " (may have gone " + std::to_string(mail.cutOff + 1) + " times)" : "");
        if (csv)
            text += csvField(mail.time) + "," + mail.status + "," + std::to_string(mail.attempts) + "," +
                    std::to_string(mail.cutOff) + "," + csvField(mail.recipient) + "," + csvField(mail.file) + "," +
                    std::to_string(mail.first) + "," + std::to_string(mail.last) + "," + csvField(mail.answer) + "\r\n";
        else
            text += mail.time + "\t" + status + "\t" + std::to_string(mail.attempts) + "\t" + mail.recipient + "\t" +
                    mail.file + "\t" + mail.answer + "\n";
    }
    return text;
}

namespace {

// Tells each try to the caller's interface, and keeps it on the record the
// mail was sent from before.
class ResendInterface final : public RunInterface {
public:
    ResendInterface(Journal& journal, RunInterface& ui, std::int64_t id) : journal_(journal), ui_(ui), id_(id) {}
    void note(std::string_view message) override { ui_.note(message); }
    bool question(std::string_view message) override { return ui_.question(message); }
    void status(std::string_view text) override { ui_.status(text); }
    bool mailStarting(const MailAttempt& attempt) override {
        journal_.restartMail(id_);
        return ui_.mailStarting(attempt);
    }
    void mailAttempted(const MailAttempt& attempt) override {
        journal_.updateMail(id_, attempt.status, attempt.answer);
        ui_.mailAttempted(attempt);
    }

private:
    Journal& journal_;
    RunInterface& ui_;
    std::int64_t id_;
};

}  // namespace

MailCounts resendMails(Journal& journal, const std::vector<MailRecord>& mails, const std::string& password,
                       const MailTransport& transport, RunInterface& ui) {
    MailCounts counts;
    for (const auto& mail : mails) {
        if (ui.cancelled()) break;
        SplitSettings settings;
        if (!restoreMailSettings(mail.settings, settings)) {
            ++counts.handled;
            ++counts.failed;
            counts.results.emplace_back(mail.file, "Error - the journal lost the mail's settings");
            continue;
        }
        settings.EMAILPASSWORD = password;
        // The recipient as it was: test mode already put the sender there.
        settings.EMAILTEST = 0;
        settings.EMAILCONFIRM = 0;
        ResendInterface resend(journal, ui, mail.id);
        const MailCounts one =
            sendMailList(settings, {{mail.file, mail.first, mail.last, mail.recipient}}, resend, transport);
        counts.handled += one.handled;
        counts.sent += one.sent;
        counts.failed += one.failed;
        counts.results.insert(counts.results.end(), one.results.begin(), one.results.end());
    }
    return counts;
}

}  // namespace vellira::service
