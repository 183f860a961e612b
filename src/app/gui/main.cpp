// brenvo: the application. Start-up runs in a fixed order: the delegate (with the SIGTERM path), the
// model with its sub-models, the settings' defaults, then the window. `brenvo PATH` opens PATH as a
// custom location.
#include "AppDelegate.h"
#include "MainWindow.h"
#include "Preferences.h"
#include "StorageModel.h"
#include "Text.h"
#include "scan/FileSystem.h"

#include <QApplication>

int main(int argc, char** argv) {
    using namespace brenvo;
    fs::raiseDescriptorLimit();
    // Taken before Qt sees the arguments: a folder's name need not be valid text.
    const std::string opened = argc > 1 && argv[1][0] != '-' ? std::string(argv[1]) : std::string();

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Brenvo"));
    QApplication::setOrganizationName(QStringLiteral("Brenvo"));
    QApplication::setDesktopFileName(QStringLiteral("brenvo"));

    AppDelegate delegate;
    StorageModel model;
    Preferences::registerDefaults();
    delegate.applicationDidFinishLaunching();
    QApplication::setQuitOnLastWindowClosed(AppDelegate::shouldTerminateAfterLastWindowClosed());

    // Access to the disk may have been granted while the program was in the background.
    QObject::connect(&app, &QGuiApplication::applicationStateChanged, &model, [&model](Qt::ApplicationState state) {
        if (state == Qt::ApplicationActive) model.refreshFullDiskAccess();
    });
    MainWindow window(model);
    window.show();
    if (!opened.empty()) model.explore(DiskScanner::realPath(opened));
    return QApplication::exec();
}
