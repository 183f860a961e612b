// Model tests run on a Qt event loop, with settings and a home folder of their own.
#include <QCoreApplication>
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
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
