#include "ui/HelpWindow.h"

#include "core/SplitSettings.h"

#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QTabWidget>
#include <QTextBrowser>
#include <QVBoxLayout>

// The README is a resource of the windows' library: a static library's
// resources are registered by hand.
static void registerHelpResources() { Q_INIT_RESOURCE(help); }

namespace vellira::ui {

namespace {

QString qt(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

// The README's part for users: everything before the part for developers.
QString usageText() {
    registerHelpResources();
    QFile readme(":/vellira/README.md");
    if (!readme.open(QIODevice::ReadOnly)) return "The README could not be read.";
    QString text = QString::fromUtf8(readme.readAll());
    if (const auto developers = text.indexOf("\n## Benchmark"); developers >= 0) text.truncate(developers);
    return text;
}

}  // namespace

HelpWindow::HelpWindow(QWidget* parent) : QDialog(parent) {
    setObjectName("HelpWindow");
    setWindowTitle("Vellira Batch help");
    setModal(false);
    resize(820, 640);
    tabs_ = new QTabWidget(this);

    usage_ = new QTextBrowser(tabs_);
    usage_->setObjectName("helpUsage");
    usage_->setOpenExternalLinks(true);
    usage_->setMarkdown(usageText());
    tabs_->addTab(usage_, "&Using Vellira Batch");

    auto* page = new QWidget(tabs_);
    auto* column = new QVBoxLayout(page);
    filter_ = new QLineEdit(page);
    filter_->setObjectName("helpFilter");
    filter_->setPlaceholderText("Show only the settings that mention a word, such as mail or page");
    filter_->setClearButtonEnabled(true);
    settings_ = new QTextBrowser(page);
    settings_->setObjectName("helpSettings");
    column->addWidget(filter_);
    column->addWidget(settings_);
    tabs_->addTab(page, "&Settings");
    connect(filter_, &QLineEdit::textChanged, this, &HelpWindow::listSettings);
    listSettings({});

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs_);
}

void HelpWindow::showSettings(const QString& word) {
    filter_->setText(word);
    tabs_->setCurrentIndex(1);
}

void HelpWindow::listSettings(const QString& word) {
    // Each key as `keys KEY` tells it: name, type and default, its control's
    // label, its meaning and, where there is more to say, the details.
    QString html;
    int shown = 0;
    for (const SettingsKey& key : settingsKeys()) {
        const QString name = qt(key.name);
        const QString label = qt(key.label);
        const QString meaning = qt(key.meaning);
        const QString details = qt(key.details);
        if (!word.isEmpty() && !name.contains(word, Qt::CaseInsensitive) &&
            !label.contains(word, Qt::CaseInsensitive) && !meaning.contains(word, Qt::CaseInsensitive) &&
            !details.contains(word, Qt::CaseInsensitive))
            continue;
        ++shown;
        const QString fallback = qt(keyValueText(key, SplitSettings{}));
        html += QString("<h3>%1</h3><p><i>%2</i>, default <code>%3</code>%4</p><p>%5</p>")
                    .arg(name, qt(keyTypeName(key.type)), fallback.toHtmlEscaped(),
                         label.isEmpty() ? QString() : QString(", in the window: \"%1\"").arg(label.toHtmlEscaped()),
                         meaning.toHtmlEscaped());
        if (!details.isEmpty()) html += "<p style=\"white-space: pre-wrap\">" + details.toHtmlEscaped() + "</p>";
    }
    if (shown == 0) html = QString("<p>No setting mentions \"%1\".</p>").arg(word.toHtmlEscaped());
    settings_->setHtml(html);
}

}  // namespace vellira::ui
