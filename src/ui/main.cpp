// vellira-batch-gui: the desktop application. With a PDF it opens that as the
// current document; with --params FILE the setup is loaded into the main
// dialog, and a setup marked AUTOMATION runs the batch list by itself and
// closes the application when the run ends.
#include "core/Platform.h"
#include "ui/ApplicationWindow.h"
#include "ui/MainDialog.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>

int main(int argc, char** argv) {
    vellira::keepFreedMemoryForReuse();
    QApplication application(argc, argv);
    QApplication::setApplicationName("vellira-batch-gui");
    QApplication::setApplicationVersion("4.01");

    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Vellira Batch: cut PDF runs into one PDF per customer, account or chapter, named by their own text.");
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption params("params", "Load a parameters file (.pcs) into the main dialog.", "FILE");
    parser.addOption(params);
    parser.addPositionalArgument("PDF", "A PDF to open as the current document.", "[PDF]");
    parser.process(application);

    vellira::ui::ApplicationWindow window;
    window.show();
    if (!parser.positionalArguments().isEmpty()) window.openDocument(parser.positionalArguments().constFirst());
    // The main dialog opens with the application, docked or floating as the
    // user left it, unless the user closed it; a setup always opens it.
    if (!parser.isSet(params)) {
        if (window.mainDialogAtStart()) window.openMainDialog();
        return QApplication::exec();
    }
    vellira::ui::MainDialog* dialog = window.openMainDialog();
    dialog->loadSetupFrom(parser.value(params));
    if (dialog->settings().AUTOMATION) {
        // An unattended run: the batch list once the dialog is up, then quit.
        QObject::connect(dialog, &vellira::ui::MainDialog::runFinished, &application, &QApplication::quit,
                         Qt::QueuedConnection);
        QTimer::singleShot(0, dialog, &vellira::ui::MainDialog::processBatchList);
    }
    return QApplication::exec();
}
