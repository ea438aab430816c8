// SPDX-License-Identifier: MIT
#include "ShadowPassFixture.h"

#include <GL/GLExtensions.h>

#include <epoxy/gl.h>

#include <cstdio>

namespace Velmora::Kvz {

QString expectedShadowStrategy()
{
    return qEnvironmentVariable("KVZ_EXPECTED_SHADOW_STRATEGY");
}

QString driverName()
{
    return QString::fromUtf8(reinterpret_cast<const char *>(glGetString(GL_RENDERER)));
}

bool hasVertexStage()
{
    const bool has = hasGLExtension(vertexStageExtension);
    EXPECT_TRUE(has || !expectedShadowStrategy().isEmpty() || !driverName().contains(QStringLiteral("llvmpipe")))
        << "the rows of the vertex stage did not run, for the driver hides " << vertexStageExtension;
    return has;
}

QVector<ShadowDriver> ShadowPassTraits<ShadowMapRenderPass2>::drivers()
{
    // A limit of 3 vertices only prevents layered filtering: batches need 24.
    QVector<ShadowDriver> rows = {
        {"batches, layered filter", "AMD Test", 24, false},
        {"one by one, layered filter", "Test", 4, true},
        {"one by one, single filter", "Test", 3, true},
    };
    if (hasVertexStage()) {
        rows.append({"vertex stage, layered filter", "Test", 4, false});
        rows.append({"vertex stage, single filter", "Test", 3, false});
    }
    for (const ShadowDriver &row : qAsConst(rows))
        std::printf("[ STRATEGY ] %s\n", row.name);
    return rows;
}

} // namespace Velmora::Kvz
