// SPDX-License-Identifier: MIT
#include <QtGui/QGuiApplication>

#include <gtest/gtest.h>

#include <cstdio>

int main(int argc, char **argv)
{
    // Image readers and colours work without a window system.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    ::testing::InitGoogleTest(&argc, argv);
    QGuiApplication application(argc, argv);
    const int result = RUN_ALL_TESTS();
    // A run that names its tests would pass without any of them after a renaming. Lists and help start no run.
    const ::testing::UnitTest &unit = *::testing::UnitTest::GetInstance();
    if (unit.start_timestamp() != 0 && unit.test_to_run_count() == 0) {
        std::fprintf(stderr, "no test was selected by the filter \"%s\": mend it, or the names of the tests\n",
            ::testing::GTEST_FLAG(filter).c_str());
        return 1;
    }
    return result;
}
