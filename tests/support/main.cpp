// SPDX-License-Identifier: MIT
#include <QtGui/QGuiApplication>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    // Image readers and colours need no window system.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    ::testing::InitGoogleTest(&argc, argv);
    QGuiApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
