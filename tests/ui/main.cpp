// Screen tests run on a Qt application without a display, with a home, settings and caches of their own.
#include "QtTestHome.h"

#include <QApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    brenvo::test::QtTestHome home;
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
