// SPDX-License-Identifier: MIT
// Chains with shaders of their own: built, refused and reloaded on a driver.
#include "support/GLTest.h"
#include "support/TemporaryFolder.h"

#include <Chain/RenderChain.h>
#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>

#include <QtGui/QColor>

namespace Velmora::Kvz {

namespace {

const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");

/// A fragment shader that writes an expression.
QByteArray fragment(const QByteArray &expression)
{
    return "#version 150\nuniform vec4 u_Tint;\nuniform sampler2D u_Sky;\nin vec2 vo_TexCoord;\nout vec4 o_Frame;\n\n"
           "void main()\n{\n    o_Frame = "
        + expression + ";\n}\n";
}

const int lineOfExpression = 9;

} // namespace

class ShaderChainTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        context();
    }

    void load(const QByteArray &filterOptions, const QByteArray &rest = QByteArray())
    {
        ChainDescription description;
        QString error;
        const QByteArray json = R"({"passes": [
            {"name": "sky", "class": "GradientRenderPass",
                "values": {"Kvz_QColor_ColorTop": "#0000ff", "Kvz_QColor_ColorBottom": null}},
            {"name": "filter", "class": "ShaderRenderPass", "options": {)"
            + filterOptions + R"(,
                "inputs": [{"name": "Kvz_KvzTexture*_Sky"}, {"name": "u_Tint", "type": "QColor", "value": "#ff0000"}],
                "outputs": [{"name": "Kvz_KvzTexture*_Frame"}]},
                "connections": {"Kvz_KvzTexture*_Sky": "sky.Kvz_KvzTexture*_Frame"}})"
            + rest + R"(],
            "exports": {"frame": "filter.Kvz_KvzTexture*_Frame"}})";
        ASSERT_TRUE(ChainDescription::fromJson(json, &description, &error)) << qPrintable(error);
        description.folder = folder.path(".");
        ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
        chain.setViewport(QRect(0, 0, 8, 4));
    }

    /// Expects the next frame to be refused and returns the reason. The driver's own messages are removed from the log.
    QString refusal()
    {
        EXPECT_FALSE(chain.renderFrame());
        log.takeCategory("kvz.gl");
        return chain.errorString();
    }

    /// The colour that the filter writes to every pixel.
    QVector4D rendered()
    {
        EXPECT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
        Texture *texture = chain.exportedTexture("frame");
        if (!texture) {
            ADD_FAILURE() << "no picture";
            return {};
        }
        const Image image = readTexture(texture);
        EXPECT_EQ(image.width, 8);
        EXPECT_EQ(image.height, 4);
        return image.pixel(5, 1);
    }

    TemporaryFolder folder;
    RenderChain chain;
};

TEST_F(ShaderChainTest, aFileShadesWithItsInputsAndUniforms)
{
    folder.write("a.frag", fragment("texture(u_Sky, vo_TexCoord) + u_Tint"));
    load(R"("fragment": "a.frag")");
    EXPECT_EQ(rendered(), QVector4D(1, 0, 1, 1));
    ASSERT_TRUE(chain.setValue("filter", "u_Tint", QColor(0, 255, 0)));
    EXPECT_EQ(rendered(), QVector4D(0, 1, 1, 1));
    // Back to the default that the chain file gives.
    ASSERT_TRUE(chain.clearValue("filter", "u_Tint"));
    EXPECT_EQ(rendered(), QVector4D(1, 0, 1, 1));
}

TEST_F(ShaderChainTest, textInTheChainShadesToo)
{
    load(R"("fragment": "#version 150\nout vec4 o_Frame;\nvoid main() { o_Frame = vec4(0.0, 1.0, 0.0, 1.0); }\n")");
    EXPECT_EQ(rendered(), QVector4D(0, 1, 0, 1));
    EXPECT_EQ(chain.shaderFiles(), QStringList());
}

TEST_F(ShaderChainTest, clearAndBlendReachThePass)
{
    chain.setClearColor(QColor(0, 255, 0));
    load(R"("blend": "Additive",
        "fragment": "#version 150\nout vec4 o_Frame;\nvoid main() { o_Frame = vec4(1.0, 0.0, 0.0, 0.0); }\n")");
    EXPECT_EQ(rendered(), QVector4D(1, 1, 0, 1));
    ASSERT_TRUE(chain.setOption("filter", "blend", "None"));
    EXPECT_EQ(rendered(), QVector4D(1, 0, 0, 0));
    // Without a clear each frame adds to the previous content of the pooled image.
    ASSERT_TRUE(chain.setOption("filter", "blend", "Additive"));
    ASSERT_TRUE(chain.setOption("filter", "clear", false));
    ASSERT_TRUE(chain.setOption("filter", "fragment",
        "#version 150\nout vec4 o_Frame;\nvoid main() { o_Frame = vec4(0.2, 0.0, 0.0, 0.0); }\n"));
    const float first = rendered().x();
    EXPECT_NEAR(first, 0.2, 0.005);
    EXPECT_NEAR(rendered().x(), 0.4, 0.005);
}

TEST_F(ShaderChainTest, aDrawableAndValuesOfTheFrameReachTheShaders)
{
    folder.write("a.vert",
        "#version 150\nuniform mat4 Kvz_QMatrix4x4_CameraMatrix;\nuniform mat4 u_Projection;\nin vec3 va_Vertex;\n\n"
        "void main()\n{\n    gl_Position = u_Projection * Kvz_QMatrix4x4_CameraMatrix * vec4(va_Vertex, 1.0);\n}\n");
    ChainDescription description;
    QString error;
    const QByteArray json = R"({"passes": [
        {"name": "cube", "class": "PrimitiveBuilderRenderPass",
            "options": {"primitives": [{"shape": "cube"}], "useIndirectDrawCommands": false}},
        {"name": "draw", "class": "ShaderRenderPass",
            "options": {"vertex": "a.vert",
                "fragment": "#version 150\nout vec4 o_Frame;\nvoid main() { o_Frame = vec4(1.0); }\n",
                "inputs": [{"name": "Kvz_KvzDrawBuffers*_Geometry"}, {"name": "Kvz_QMatrix4x4_CameraMatrix"},
                    {"name": "u_Projection", "type": "QMatrix4x4"}],
                "outputs": [{"name": "Kvz_KvzTexture*_Frame"}]},
            "connections": {"u_Projection": "frame:Kvz_QMatrix4x4_ProjectionMatrix"}}],
        "exports": {"frame": "draw.Kvz_KvzTexture*_Frame"}})";
    ASSERT_TRUE(ChainDescription::fromJson(json, &description, &error)) << qPrintable(error);
    description.folder = folder.path(".");
    ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    chain.setViewport(QRect(0, 0, 40, 40));
    // A cube of one unit, moved into the upper right quarter of a view of two units.
    QMatrix4x4 camera, projection;
    camera.translate(0.5f, 0.5f, 0);
    projection.ortho(-1, 1, -1, 1, -1, 1);
    chain.setCamera(camera, projection);
    ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
    ASSERT_TRUE(chain.exportedTexture("frame"));
    const Image image = readTexture(chain.exportedTexture("frame"));
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 40; ++x)
            ASSERT_EQ(image.pixel(x, y).x(), x >= 20 && y >= 20 ? 1.0f : 0.0f) << x << ' ' << y;
    }
}

TEST_F(ShaderChainTest, aMistakeIsReportedWithFileAndLineBeforeTheFrame)
{
    const QString file = folder.write("a.frag", fragment("undeclared"));
    load(R"("fragment": "a.frag")");
    const QStringList lines = refusal().split('\n');
    ASSERT_GE(lines.size(), 2) << qPrintable(chain.errorString());
    EXPECT_EQ(lines[0], QStringLiteral("pass \"filter\": its shaders do not compile:"));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("%1:%2: ").arg(file).arg(lineOfExpression))) << qPrintable(lines[1]);
    EXPECT_TRUE(lines[1].contains("undeclared")) << qPrintable(lines[1]);
    EXPECT_EQ(chain.pass("filter"), nullptr);

    // The next frame reads the corrected file.
    folder.write("a.frag", fragment("u_Tint"));
    EXPECT_EQ(rendered(), QVector4D(1, 0, 0, 1));
}

TEST_F(ShaderChainTest, mistakesInIncludedFilesAndInTextHaveTheirPlace)
{
    folder.write("a.frag", "#version 150\n#include \"b.glslh\"\n" + fragment("helper()").mid(13));
    const QString included = folder.write("b.glslh", "vec4 helper()\n{\n    return nothing;\n}\n");
    load(R"("fragment": "a.frag")");
    EXPECT_TRUE(refusal().contains(included + QStringLiteral(":3: "))) << qPrintable(chain.errorString());

    load(R"("fragment": "#version 150\nout vec4 o_Frame;\nvoid main() { o_Frame = nothing; }\n")");
    EXPECT_TRUE(refusal().contains("\nfragment:3: ")) << qPrintable(chain.errorString());
}

TEST_F(ShaderChainTest, filesBesideTheShaderAreIncluded)
{
    folder.write("a.frag", "#version 150\n#include \"b.glslh\"\n" + fragment("helper()").mid(13));
    folder.write("b.glslh", "vec4 helper()\n{\n    return vec4(0.0, 0.0, 1.0, 1.0);\n}\n");
    load(R"("fragment": "a.frag")");
    EXPECT_EQ(rendered(), QVector4D(0, 0, 1, 1));
}

TEST_F(ShaderChainTest, stagesThatDoNotFitTogetherAreReported)
{
    load(R"("fragment": "#version 150\nin vec4 vo_TexCoord;\nout vec4 o_Frame;\n)"
         R"(void main() { o_Frame = vo_TexCoord; }\n")");
    EXPECT_TRUE(refusal().contains("vo_TexCoord")) << qPrintable(chain.errorString());
}

TEST_F(ShaderChainTest, aFileThatIsGoneBeforeTheFirstFrameIsReported)
{
    const QString file = folder.write("a.frag", fragment("u_Tint"));
    load(R"("fragment": "a.frag")");
    QFile::remove(file);
    EXPECT_TRUE(refusal().contains(file)) << qPrintable(chain.errorString());
    folder.write("a.frag", fragment("u_Tint"));
    ASSERT_TRUE(chain.reloadShaders()) << qPrintable(chain.errorString());
    EXPECT_EQ(rendered(), QVector4D(1, 0, 0, 1));
}

TEST_F(ShaderChainTest, reloadingTakesTheFileAsItIs)
{
    folder.write("a.frag", fragment("u_Tint"));
    load(R"("fragment": "a.frag")");
    EXPECT_EQ(rendered(), QVector4D(1, 0, 0, 1));
    const RenderPass *sky = chain.pass("sky");
    const RenderPass *filter = chain.pass("filter");

    folder.write("a.frag", fragment("u_Tint.grba"));
    EXPECT_EQ(rendered(), QVector4D(1, 0, 0, 1)) << "nothing changes by itself";
    ASSERT_TRUE(chain.reloadShaders()) << qPrintable(chain.errorString());
    EXPECT_EQ(rendered(), QVector4D(0, 1, 0, 1));
    EXPECT_EQ(chain.pass("sky"), sky) << "passes without shader files stay";
    EXPECT_NE(chain.pass("filter"), filter);
    EXPECT_EQ(chain.passObjectCount(), 2);
}

TEST_F(ShaderChainTest, aBrokenEditKeepsTheLastGoodProgram)
{
    const QString file = folder.write("a.frag", fragment("u_Tint"));
    folder.write("b.frag", fragment("u_Tint.bgra"));
    load(R"("fragment": "a.frag")", R"(,
        {"name": "second", "class": "ShaderRenderPass", "options": {"fragment": "b.frag",
            "outputs": [{"name": "Kvz_KvzTexture*_Frame"}]}})");
    EXPECT_EQ(rendered(), QVector4D(1, 0, 0, 1));
    const RenderPass *first = chain.pass("filter");
    const RenderPass *second = chain.pass("second");
    const GLObjectCounts before = glObjectCounts();

    // One file is changed and another is broken: no pass changes.
    folder.write("a.frag", fragment("u_Tint.grba"));
    folder.write("b.frag", fragment("oops"));
    EXPECT_FALSE(chain.reloadShaders());
    log.takeCategory("kvz.gl");
    EXPECT_TRUE(
        chain.errorString().startsWith("pass \"second\": its shaders do not compile:\n" + folder.path("b.frag")))
        << qPrintable(chain.errorString());
    EXPECT_EQ(chain.pass("filter"), first);
    EXPECT_EQ(chain.pass("second"), second);
    EXPECT_EQ(rendered(), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(glObjectCounts().programs, before.programs) << "what was made in vain is gone";

    QFile::remove(file);
    EXPECT_FALSE(chain.reloadShaders());
    EXPECT_TRUE(chain.errorString().contains(file)) << qPrintable(chain.errorString());
    EXPECT_EQ(rendered(), QVector4D(1, 0, 0, 1)) << "the file is gone, the program is not";

    folder.write("a.frag", fragment("u_Tint.grba"));
    folder.write("b.frag", fragment("u_Tint"));
    ASSERT_TRUE(chain.reloadShaders()) << qPrintable(chain.errorString());
    EXPECT_EQ(rendered(), QVector4D(0, 1, 0, 1));
    EXPECT_EQ(glObjectCounts().programs, before.programs);
}

TEST_F(ShaderChainTest, manyReloadsGrowNothing)
{
    folder.write("a.frag", fragment("u_Tint"));
    load(R"("fragment": "a.frag")");
    rendered();
    const GLObjectCounts before = glObjectCounts();
    const int references = TextureManager::Instance()->poolStatistics().references;
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(chain.reloadShaders()) << qPrintable(chain.errorString());
        EXPECT_EQ(rendered(), QVector4D(1, 0, 0, 1));
    }
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, references);
}

TEST_F(ShaderChainTest, manyFramesReuseTheOutput)
{
    folder.write("a.frag", fragment("u_Tint"));
    load(R"("fragment": "a.frag")");
    rendered();
    rendered();
    const auto before = TextureManager::Instance()->poolStatistics();
    for (int i = 0; i < 10; ++i)
        rendered();
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, before.references);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().live, before.live);
}

} // namespace Velmora::Kvz
