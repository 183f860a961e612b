// Screen tests run on a Qt application without a display, with settings and a home folder of their own.
#include <QApplication>
#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QTemporaryDir config, home, cache;
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    qputenv("XDG_CACHE_HOME", cache.path().toUtf8());
    qputenv("HOME", home.path().toUtf8());
    qputenv("BRENVO_PROFILE", "linux");
    for (const char* folder : {"Downloads", "Desktop", "Documents"}) QDir(home.path()).mkpath(QString::fromLatin1(folder));
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
