#include "Preferences.h"
#include "ScanWindow.h"
#include "Text.h"
#include "scan/FileSystem.h"

#include <QApplication>
#include <QDir>

int main(int argc, char** argv) {
    brenvo::fs::raiseDescriptorLimit();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Brenvo"));
    QApplication::setOrganizationName(QStringLiteral("Brenvo"));
    brenvo::Preferences::registerDefaults();
    // The path is taken as raw bytes: a folder name need not be valid text.
    brenvo::ScanWindow window(argc > 1 ? brenvo::toQString(argv[1]) : QDir::homePath());
    window.show();
    window.startScan();
    return QApplication::exec();
}
