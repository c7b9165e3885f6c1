#include <gtest/gtest.h>

#include <QCoreApplication>

// One Qt application object for the whole run: network and timer tests need its event loop.
int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
