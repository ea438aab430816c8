// SPDX-License-Identifier: MIT
#include "FakePasses.h"
#include "support/GLTest.h"

#include <Host/ChainValidation.h>

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
