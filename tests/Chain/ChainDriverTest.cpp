// SPDX-License-Identifier: MIT
#include "FakePasses.h"
#include "support/GLTest.h"
#include "support/ImageFiles.h"

#include <Chain/ChainValidation.h>
#include <GL/GLExtensions.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>

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

TEST_F(ChainDriverTest, imagesBeyondTheLimitAreNamedWhereTheyAreNotScaledDown)
{
    const TemporaryFolder folder;
    const int limit = glInteger(GL_MAX_TEXTURE_SIZE);
    const int width = std::max(20000, limit + 1);
    const QString wide = writeImage(folder, QStringLiteral("wide.png"), distinctImage(width, 1, QImage::Format_RGB32));
    const auto check = [](const char *className, const char *port, const QString &path) {
        ChainDescription chain;
        ChainPass pass;
        pass.name = pass.className = QString::fromUtf8(className);
        pass.values.insert(QString::fromUtf8(port), path);
        chain.passes.append(pass);
        return validateChainOnDriver(chain);
    };
    const QVector<ChainFinding> findings = check("TextureLoaderRenderPass", "Kvz_QString_TexturePath", wide);
    ASSERT_EQ(findings.size(), 1);
    EXPECT_EQ(findings[0].toString(),
        QStringLiteral("error: pass \"TextureLoaderRenderPass\", Kvz_QString_TexturePath: expected sides up to %1, the "
                       "limit of this driver, found \"%2\" of %3 by 1 pixels; make it smaller")
            .arg(limit)
            .arg(wide)
            .arg(width));
    EXPECT_EQ(check("CubemapLoaderRenderPass", "Kvz_QString_CubemapPathNegY", wide).size(), 1);
    EXPECT_TRUE(check("BackgroundImageRenderPass", "Kvz_string_FadeImageUrl1", wide).isEmpty()) << "scaled down";
    const QString small = writeImage(folder, QStringLiteral("small.png"), distinctImage(8, 8));
    EXPECT_TRUE(check("TextureLoaderRenderPass", "Kvz_QString_TexturePath", small).isEmpty());
    EXPECT_TRUE(check("TextureLoaderRenderPass", "Kvz_QString_TexturePath", folder.path("missing.png")).isEmpty())
        << "that is said without a driver";
}

TEST_F(ChainDriverTest, listsNeedFloatsAsIntegers)
{
    const char *const extension = "GL_ARB_shader_bit_encoding";
    for (const char *name :
        {"VisibilityBufferRenderPass", "VisibilityOcclusionRenderPass", "VisibilityDeferredRenderPass"}) {
        ChainDescription chain;
        ChainPass pass;
        pass.name = pass.className = QString::fromUtf8(name);
        chain.passes.append(pass);
        const QVector<ChainFinding> findings = validateChainOnDriver(chain);
        const auto isFound = std::any_of(findings.begin(), findings.end(), [&](const ChainFinding &finding) {
            return finding.severity == ChainFinding::Severity::Error
                && finding.expected == QString::fromUtf8(extension);
        });
        EXPECT_NE(isFound, hasGLExtension(extension)) << name;
    }
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
