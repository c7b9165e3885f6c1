#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv) {
    // Widgets are tested without a display unless a run asks for one.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    ::testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
