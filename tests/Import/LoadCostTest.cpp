// SPDX-License-Identifier: MIT
#include "support/LoadCost.h"
#include "ImportHelpers.h"
#include "support/TemporaryFolder.h"

#include <cstdlib>

namespace Velmora::Kvz {

/// The bounds are far above what is measured on an idle machine: times 0.8 to 1.2, up to 80 bytes.
TEST(LoadCostTest, staysNearThatOfTheLibrariesUnderIt)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers cost our own code alone";
#endif
    constexpr int wanted = 200000;
    TemporaryFolder folder;
    for (const MeasuredFormat &format : measuredFormats()) {
        const QString file =
            folder.write(QStringLiteral("%1.%2").arg(QLatin1String(format.name), QLatin1String(format.suffix)),
                format.write(wanted));
        const Cost ours = costOf([&] {
            ImportedScene scene;
            QString error;
            if (!importModel(file, &scene, &error) || scene.items.size() != 1)
                std::_Exit(1);
        });
        const Cost bare = costOf([&] { importBare(file, false); });
        const Cost floor = format.isIndexed ? bare : costOf([&] { importBare(file, true); });
        EXPECT_LT(ours.processorMilliseconds, 3 * floor.processorMilliseconds) << format.name;
        EXPECT_LT((ours.megabytes - bare.megabytes) * 1024 * 1024 / trianglesOf(wanted), 200) << format.name;
    }
}

} // namespace Velmora::Kvz
