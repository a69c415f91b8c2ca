#include "core/RunInterface.h"

namespace vellira {

bool RunInterface::confirmMails(const std::vector<MailEntry>& entries) {
    std::string list = "Email List to Send\nEmail\tFile\tExtract Page Start\tExtract Page End";
    for (const auto& entry : entries)
        list += "\n" + entry.email + "\t" + entry.file + "\t" + std::to_string(entry.first) + "\t" +
                std::to_string(entry.last);
    return question(list + "\nOK - Send");
}

void RunInterface::mailStatus(const MailStatus& progress) { status("Sending email: " + progress.recipient); }

}  // namespace vellira
