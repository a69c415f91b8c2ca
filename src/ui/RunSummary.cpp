#include "ui/RunSummary.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QStyle>
#include <QTextBrowser>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>

namespace vellira::ui {

namespace {

QString qt(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

// The mail count the run tells after each document's mails: its own section
// says as much.
bool mailCount(const QString& message) {
    static const QRegularExpression count(R"(^\(\d+\) Emails sent ok: \d+, errors: \d+$)");
    return count.match(message).hasMatch();
}

QString pagesText(int first, int last) {
    return first == last ? QString("page %1").arg(first) : QString("pages %1\u2013%2").arg(first).arg(last);
}

QString escaped(const QString& text) { return text.toHtmlEscaped().replace("\r\n", "<br>").replace('\n', "<br>"); }

QString link(const QString& path, const QString& text) {
    return QString("<a href=\"%1\">%2</a>").arg(QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded), escaped(text));
}

// Why a row failed, in plain words, when the run said nothing while on it.
QString reasonFor(const BatchRow& row, int pieces) {
    const QString path = qt(row.path);
    if (row.status == "file error")
        return QFileInfo::exists(path) ? "The file can't be read." : "The file is not there.";
    if (row.status == "Permissions error") return "The file is protected by a password.";
    if (row.status == "Can't open") return "The file could not be opened as a PDF.";
    if (row.status == "Done" && pieces == 0) return "No piece was written: nothing in it matched the settings.";
    return {};
}

// The files the run works on: the rows in use, or the current document.
int fileCount(const BatchResult& result) {
    if (result.settings.USECURRENT) return 1;
    return static_cast<int>(
        std::count_if(result.rows.begin(), result.rows.end(), [](const BatchRow& row) { return row.use == "Yes"; }));
}

struct Summary {
    QString headline;
    QString html;
    QStringList folders;
    bool trouble = false;
};

Summary summarise(const RunRecord& record, const BatchResult& result) {
    Summary summary;
    QString& html = summary.html;
    const auto section = [&](const QString& title) { html += "<h4>" + escaped(title) + "</h4>"; };
    const bool useCurrent = result.settings.USECURRENT != 0;
    const auto rowAt = [&](int index) -> const BatchRow* {
        return index >= 0 && index < static_cast<int>(result.rows.size())
                   ? &result.rows[static_cast<std::size_t>(index)]
                   : nullptr;
    };

    // Where a stopped run stopped: the file in hand (k of the files in use)
    // and the last page it told.
    const BatchRow* stoppedRow = useCurrent ? nullptr : rowAt(record.lastRow);
    if (result.stopped) {
        int fileNumber = 1;
        for (int index = 0; stoppedRow && index < record.lastRow; ++index)
            fileNumber += result.rows[static_cast<std::size_t>(index)].use == "Yes";
        const QString file = stoppedRow ? qt(stoppedRow->path) : record.file;
        const int page = record.file == file ? record.page : 0;
        summary.headline = page > 0 ? QString("Stopped at file %1, page %2").arg(fileNumber).arg(page)
                                    : QString("Stopped at file %1, before its first page").arg(fileNumber);
        html += "<p>" + escaped(QFileInfo(file).fileName());
        if (page > 0 && record.pages > 0) html += escaped(QString(", page %1 of %2").arg(page).arg(record.pages));
        html += escaped(QString(" (file %1 of %2).").arg(fileNumber).arg(std::max(fileCount(result), 1)));
        if (page > 0 && page < record.pages) {
            const QString rest = pagesText(page + 1, record.pages);
            html += escaped(" " + rest.left(1).toUpper() + rest.mid(1) + (page + 1 == record.pages ? " was" : " were") +
                            " not split.");
        }
        html += "</p>";
    }

    // Files written, by folder, each with the pages of its last range.
    std::vector<std::pair<QString, std::vector<const PlannedRange*>>> byFolder;
    for (const PlannedRange& output : result.outputs) {
        const QString folder = QDir::toNativeSeparators(QFileInfo(qt(output.path)).absolutePath());
        auto known =
            std::find_if(byFolder.begin(), byFolder.end(), [&](const auto& each) { return each.first == folder; });
        if (known == byFolder.end()) known = byFolder.insert(byFolder.end(), {folder, {}});
        known->second.push_back(&output);
    }
    section("Files written");
    if (byFolder.empty()) html += "<p>No file was written.</p>";
    constexpr std::size_t kListed = 200;
    for (const auto& [folder, outputs] : byFolder) {
        summary.folders << folder;
        html += "<p>" +
                escaped(outputs.size() == 1 ? QString("1 file in ") : QString("%1 files in ").arg(outputs.size())) +
                link(folder, folder) + "</p><table cellspacing=\"0\" cellpadding=\"1\">";
        for (std::size_t index = 0; index < std::min(outputs.size(), kListed); ++index) {
            const PlannedRange& output = *outputs[index];
            const QString path = qt(output.path);
            html += "<tr><td>" + link(path, QFileInfo(path).fileName()) + "</td><td>&nbsp;&nbsp;" +
                    escaped(pagesText(output.first, output.last)) + "</td></tr>";
        }
        html += "</table>";
        if (outputs.size() > kListed)
            html += "<p>" + escaped(QString("and %1 more").arg(outputs.size() - kListed)) + "</p>";
    }

    // The files that failed, each with what the run said while on it.
    QString failed;
    int failures = 0;
    for (const auto& [index, reached] : record.rows) {
        const BatchRow* row = rowAt(index);
        if (!row) continue;
        QStringList reasons;
        for (const QString& message : reached.messages)
            if (!mailCount(message)) reasons << message;
        const bool stoppedHere = result.stopped && index == record.lastRow;
        if (reasons.isEmpty() && !stoppedHere) {
            if (const QString reason = reasonFor(*row, reached.piecesWritten); !reason.isEmpty()) reasons << reason;
        }
        if (reasons.isEmpty()) continue;
        ++failures;
        failed += "<p><b>" + escaped(QFileInfo(qt(row->path)).fileName()) + "</b> &mdash; " + escaped(qt(row->status)) +
                  "<br><span style=\"color:gray\">" + escaped(QDir::toNativeSeparators(qt(row->path))) + "</span>";
        for (const QString& reason : reasons) failed += "<br>&bull; " + escaped(reason);
        failed += "</p>";
    }
    if (failures > 0) {
        section("Files with problems");
        html += failed;
    }

    if (!record.replaced.empty()) {
        section("Pieces replaced by a later range of this run");
        html += "<table cellspacing=\"0\" cellpadding=\"1\">";
        for (const auto& each : record.replaced)
            html += "<tr><td>" + escaped(QFileInfo(each.file).fileName()) + "</td><td>&nbsp;&nbsp;" +
                    escaped(pagesText(each.first, each.last) + ", replaced by " +
                            pagesText(each.laterFirst, each.laterLast)) +
                    "</td></tr>";
        html += "</table>";
    }

    if (result.settings.EMAILENABLE || !result.mails.empty() || result.mailsSent + result.mailsFailed > 0) {
        section("Mails");
        html += "<p>" + escaped(QString("Sent: %1, failed: %2").arg(result.mailsSent).arg(result.mailsFailed));
        for (const auto& [file, status] : result.mails)
            if (status != "OK") html += "<br>&bull; " + escaped(QFileInfo(qt(file)).fileName() + ": " + qt(status));
        html += "</p>";
    }

    if (result.exceptions > 0) {
        section("Exceptions");
        html += "<p>" +
                escaped(QString("%1 piece(s) broke a check or are not in the lookup list; exceptions.csv in the "
                                "exceptions folder lists each with the reason.")
                            .arg(result.exceptions)) +
                "</p>";
    }

    // Files the run did not come to before it stopped.
    QStringList notReached;
    if (!result.completed && !useCurrent)
        for (int index = record.lastRow + 1; index < static_cast<int>(result.rows.size()); ++index)
            if (const BatchRow& row = result.rows[static_cast<std::size_t>(index)]; row.use == "Yes")
                notReached << QFileInfo(qt(row.path)).fileName();
    if (!notReached.isEmpty()) {
        section("Files not processed");
        html += "<p>" + escaped(notReached.join(", ")) + "</p>";
    }

    QStringList said;
    for (const QString& message : record.messages)
        if (message != "Done, some errors occurred." && !mailCount(message)) said << escaped(message);
    if (!said.isEmpty()) {
        section("Messages");
        html += "<p>" + said.join("<br>") + "</p>";
    }

    const int written = static_cast<int>(result.outputs.size());
    const QString files = written == 1 ? QString("1 file written") : QString("%1 files written").arg(written);
    summary.trouble =
        failures > 0 || !said.isEmpty() || result.mailsFailed > 0 || result.rangesFailed > 0 || result.exceptions > 0;
    if (summary.headline.isEmpty()) {
        if (!result.completed)
            summary.headline = "The run ended early: " + files;
        else if (failures > 0)
            summary.headline = QString("Done: %1, %2 with problems")
                                   .arg(files)
                                   .arg(failures == 1 ? QString("1 file") : QString("%1 files").arg(failures));
        else
            summary.headline = "Done: " + files;
    }
    return summary;
}

}  // namespace

std::optional<RunRecord::Replaced> RunRecord::replacement(const QString& message) {
    static const QRegularExpression warning(
        R"(^Warning: '(.*)' was written again with pages (\d+)-(\d+), replacing pages (\d+)-(\d+) written earlier in this run$)",
        QRegularExpression::DotMatchesEverythingOption);
    const auto match = warning.match(message);
    if (!match.hasMatch()) return std::nullopt;
    return Replaced{match.captured(1), match.captured(4).toInt(), match.captured(5).toInt(), match.captured(2).toInt(),
                    match.captured(3).toInt()};
}

void RunRecord::rowStatus(int row, const QString& status) {
    rows[row];
    lastRow = row;
    inRow_ = status == "Processing";
}

void RunRecord::note(const QString& message) {
    if (auto replacedPiece = replacement(message))
        replaced.push_back(std::move(*replacedPiece));
    else if (inRow_)
        rows[lastRow].messages << message;
    else
        messages << message;
}

void RunRecord::fileWritten() {
    if (inRow_) ++rows[lastRow].piecesWritten;
}

void RunRecord::progress(const QString& progressFile, int progressPage, int progressPages) {
    file = progressFile;
    page = progressPage;
    pages = progressPages;
}

bool RunSummary::worthShowing(const RunRecord& record, const BatchResult& result) {
    return result.completed || result.stopped || !record.rows.empty() || !result.outputs.empty();
}

RunSummary::RunSummary(const RunRecord& record, const BatchResult& result, OpenAction open, QWidget* parent)
    : QDialog(parent) {
    setObjectName("RunSummary");
    setWindowTitle("Run Summary");
    setModal(false);
    const Summary summary = summarise(record, result);

    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    auto* icon = new QLabel(this);
    const int size = style()->pixelMetric(QStyle::PM_MessageBoxIconSize, nullptr, this);
    icon->setPixmap(style()
                        ->standardIcon(summary.trouble || result.stopped ? QStyle::SP_MessageBoxWarning
                                                                         : QStyle::SP_MessageBoxInformation,
                                       nullptr, this)
                        .pixmap(size, size));
    headline_ = new QLabel(summary.headline, this);
    headline_->setObjectName("summaryHeadline");
    QFont bold = headline_->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.15);
    headline_->setFont(bold);
    headline_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    top->addWidget(icon);
    top->addWidget(headline_, 1);
    layout->addLayout(top);

    details_ = new QTextBrowser(this);
    details_->setObjectName("summaryDetails");
    details_->setOpenLinks(false);
    details_->document()->setDocumentMargin(8);
    details_->setHtml(summary.html);
    connect(details_, &QTextBrowser::anchorClicked, this,
            [open](const QUrl& url) { open(QDir::toNativeSeparators(url.toLocalFile())); });
    layout->addWidget(details_, 1);

    auto* buttons = new QDialogButtonBox(this);
    if (!summary.folders.isEmpty()) {
        auto* folder =
            buttons->addButton(summary.folders.size() == 1 ? "Open Output Folder" : "Open First Output Folder",
                               QDialogButtonBox::ActionRole);
        folder->setObjectName("openOutputFolder");
        connect(folder, &QPushButton::clicked, this, [open, first = summary.folders.front()] { open(first); });
    }
    auto* close = buttons->addButton(QDialogButtonBox::Close);
    close->setObjectName("closeSummary");
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    layout->addWidget(buttons);
    resize(560, 440);
}

QString RunSummary::headline() const { return headline_->text(); }

QString RunSummary::details() const { return details_->toPlainText(); }

}  // namespace vellira::ui
