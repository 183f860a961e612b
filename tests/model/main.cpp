// Model tests run on a Qt event loop, with a home, settings and caches of their own.
#include "QtTestHome.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    brenvo::test::QtTestHome home;
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
