// SPDX-License-Identifier: MIT
#include "FakePasses.h"
#include "support/GLTest.h"

#include <Host/ChainValidation.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

using ChainDriverTest = GLTest;

TEST_F(ChainDriverTest, whatTheDriverLacksIsNamedWithWhatFollows)
{
    PassInfo strategic = fakeClass("Strategic", {}, {});
    strategic.driverNeeds = {{{QStringLiteral("GL_KVZ_no_such_extension"), QStringLiteral("GL_ARB_draw_instanced")},
        QStringLiteral("each pixel holds one node"), false}};
    PassInfo vital = fakeClass("Vital", {}, {});
    vital.driverNeeds = {{{QStringLiteral("KVZ_another")}, QStringLiteral("the pass draws nothing"), true}};
    PassInfo content = fakeClass("Content", {}, {});
    content.driverNeeds = {{{QStringLiteral("GL_ARB_vertex_array_object")}, QStringLiteral("it is slow"), false}};
    PassRegistry registry;
    ChainDescription chain;
    for (const PassInfo &info : {strategic, vital, content}) {
        registry.add(info);
        ChainPass pass;
        pass.name = pass.className = info.className;
        chain.passes.append(pass);
    }

    const QVector<ChainFinding> findings = validateChainOnDriver(chain, registry);
    ASSERT_EQ(findings.size(), 2);
    EXPECT_EQ(findings[0].severity, ChainFinding::Severity::Warning);
    EXPECT_EQ(findings[0].toString(),
        QStringLiteral(
            "warning: pass \"Strategic\": expected GL_KVZ_no_such_extension, GL_ARB_draw_instanced, found no "
            "GL_KVZ_no_such_extension; each pixel holds one node"));
    EXPECT_EQ(findings[1].pass, QStringLiteral("Vital"));
    EXPECT_EQ(findings[1].severity, ChainFinding::Severity::Error);

    chain.passes[1].enabled = false;
    EXPECT_FALSE(hasErrors(validateChainOnDriver(chain, registry))) << "a disabled pass keeps nothing from running";
}

TEST_F(ChainDriverTest, viewportsBeyondTheLimitAreNamed)
{
    PassRegistry registry;
    registry.add(fakeClass("A", {fakeInput("Kvz_QRect_Viewport", ValueType::Rect)}, {}));
    ChainDescription chain;
    ChainPass pass;
    pass.name = pass.className = QStringLiteral("A");
    chain.passes.append(pass);
    const int limit = glInteger(GL_MAX_TEXTURE_SIZE);
    QVariant &viewport = chain.passes[0].values[QStringLiteral("Kvz_QRect_Viewport")];
    viewport = QRect(0, 0, limit, 1);
    EXPECT_TRUE(validateChainOnDriver(chain, registry).isEmpty());
    viewport = QRect(0, 0, 1, limit + 1);
    const QVector<ChainFinding> findings = validateChainOnDriver(chain, registry);
    ASSERT_EQ(findings.size(), 1);
    EXPECT_EQ(findings[0].toString(),
        QStringLiteral("error: pass \"A\", Kvz_QRect_Viewport: expected sides up to %1, the limit of this driver, "
                       "found [0,0,1,%2]; make it smaller")
            .arg(limit)
            .arg(limit + 1));
}

TEST_F(ChainDriverTest, readyPassesRunOnThisDriver)
{
    ChainDescription chain;
    for (const QString &name : PassRegistry::standard().classNames()) {
        ChainPass pass;
        pass.name = pass.className = name;
        chain.passes.append(pass);
    }
    for (const ChainFinding &finding : validateChainOnDriver(chain))
        EXPECT_EQ(finding.severity, ChainFinding::Severity::Warning) << qPrintable(finding.toString());
}

} // namespace Velmora::Kvz
