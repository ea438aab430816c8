// SPDX-License-Identifier: MIT
// What the driver reports about the shaders of a ShaderRenderPass: their uniforms, compared with the inputs that set
// them.
#include "support/GLTest.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>

namespace Velmora::Kvz {

namespace {

/// A chain that filters a gradient with a fragment shader that has these uniforms and writes `colour`.
ChainDescription filterOf(const QByteArray &uniforms, const QByteArray &colour, const QByteArray &inputs,
    const QByteArray &values = "{}", const QByteArray &connections = "{}")
{
    const QByteArray text = "#version 150\\n" + QByteArray(uniforms)
        + "in vec2 vo_TexCoord;\\nout vec4 o_Frame;\\nvoid main()\\n{\\n    " + "o_Frame = " + colour + ";\\n}\\n";
    ChainDescription chain;
    QString error;
    EXPECT_TRUE(ChainDescription::fromJson(R"({"passes": [
        {"name": "sky", "class": "GradientRenderPass"},
        {"name": "filter", "class": "ShaderRenderPass", "options": {"fragment": ")"
            + text + R"(", "inputs": [)" + inputs + R"(], "outputs": [{"name": "Kvz_KvzTexture*_Frame"}]}, "values": )"
            + values + R"(, "connections": )" + connections + R"(},
        {"name": "screen", "class": "TextureToScreenRenderPass",
            "connections": {"Kvz_KvzTexture*_Texture": "filter.Kvz_KvzTexture*_Frame"}}]})",
        &chain, &error))
        << qPrintable(error);
    EXPECT_TRUE(validateChain(chain).isEmpty()) << qPrintable(validateChain(chain).value(0).toString());
    return chain;
}

QStringList linesOf(const ChainDescription &chain)
{
    QStringList lines;
    for (const ChainFinding &finding : validateChainOnDriver(chain))
        lines.append(finding.toString());
    return lines;
}

const QByteArray image = R"({"name": "Kvz_KvzTexture*_Frame", "kind": "colour"})";

} // namespace

using ShaderUniformsTest = GLTest;

TEST_F(ShaderUniformsTest, whatFitsHasNoFindings)
{
    EXPECT_EQ(
        linesOf(filterOf(
            "uniform sampler2D u_Frame;\\nuniform float u_Amount;\\nuniform vec3 u_Tint;\\n"
            "uniform ivec2 u_Cells;\\nuniform mat3 u_Turn;\\nuniform bool u_On;\\nuniform vec4 Kvz_QRect_Viewport;\\n",
            "texture(u_Frame, vo_TexCoord) * u_Amount * vec4(u_Turn * u_Tint, u_On ? float(u_Cells.x) : "
            "Kvz_QRect_Viewport.z)",
            image
                + R"(, {"name": "u_Amount", "type": "float", "value": 0}, {"name": "u_Tint", "type": "QColor", "value": "red"},
                      {"name": "u_Cells", "type": "QSize"}, {"name": "u_Turn", "type": "QMatrix4x4"}, {"name": "u_On", "type": "int"})",
            R"({"u_Cells": [8, 8], "u_Turn": [1,0,0,0, 0,1,0,0, 0,0,1,0, 0,0,0,1], "u_On": 1})")),
        QStringList());
}

TEST_F(ShaderUniformsTest, aMisspeltInputIsNamedWithWhatItMeans)
{
    EXPECT_EQ(linesOf(filterOf("uniform float u_Amount;\\n", "vec4(u_Amount)",
                  R"({"name": "u_Amuont", "type": "float", "value": 1})")),
        QStringList(
            R"(warning: pass "filter", u_Amuont: expected a uniform "u_Amuont" that its shaders read, found none; )"
            R"(did you mean "u_Amount"?)"));
    // A uniform that is declared but never used does not exist for the driver.
    EXPECT_EQ(
        linesOf(filterOf("uniform float u_Idle;\\n", "vec4(1)", R"({"name": "u_Idle", "type": "float", "value": 1})")),
        QStringList(
            R"(warning: pass "filter", u_Idle: expected a uniform "u_Idle" that its shaders read, found none; the )"
            "input has no effect"));
}

TEST_F(ShaderUniformsTest, anInputOfAnotherTypeIsNamed)
{
    const struct
    {
        const char *uniform;
        const char *colour;
        const char *type;
        const char *found;
    } cases[] = {
        {"vec4 u_A", "u_A", R"("float", "value": 1)", "float, int, uint or bool, which float can set, found vec4"},
        {"float u_A", "vec4(u_A)", R"("QColor", "value": "red")", "vec3 or vec4, which QColor can set, found float"},
        {"vec3 u_A", "vec4(u_A, 1)", R"("QRect", "value": [0, 0, 1, 1])",
            "vec4, ivec4 or uvec4, which QRect can set, found vec3"},
        {"mat4 u_A", "u_A[0]", R"("QVector3D", "value": [0, 0, 1])",
            "vec3, ivec3 or uvec3, which QVector3D can set, found mat4"},
        {"sampler2D u_A", "texture(u_A, vo_TexCoord)", R"("int", "value": 1)",
            "float, int, uint or bool, which int can set, found a sampler"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(linesOf(filterOf("uniform " + QByteArray(c.uniform) + ";\\n", c.colour,
                      R"({"name": "u_A", "type": )" + QByteArray(c.type) + "}")),
            QStringList(
                QStringLiteral("warning: pass \"filter\", u_A: expected a uniform of type %1; the uniform is not set")
                    .arg(QLatin1String(c.found))));
    }
    EXPECT_EQ(linesOf(filterOf("uniform vec4 u_Frame;\\n", "u_Frame", image)),
        QStringList(R"(warning: pass "filter", Kvz_KvzTexture*_Frame: expected a uniform of type a sampler, which )"
                    "Texture * can set, found vec4; the uniform is not set"));
}

TEST_F(ShaderUniformsTest, uniformsThatNothingFeedsAreNamed)
{
    EXPECT_EQ(
        linesOf(filterOf("uniform float u_Amount;\\n", "vec4(u_Amount)", R"({"name": "u_Amount", "type": "float"})")),
        QStringList(
            R"(warning: pass "filter", u_Amount: expected something that feeds the uniform, found nothing; it stays )"
            "0: give the input a value or a connection"));
    EXPECT_EQ(linesOf(filterOf("uniform vec3 u_Tint;\\nuniform sampler2D u_Frame;\\n",
                  "vec4(u_Tint, 1) * texture(u_Frame, vo_TexCoord)", "")),
        (QStringList{
            R"(warning: pass "filter", inputs: expected an input that feeds the uniform "u_Frame" (a sampler), found )"
            R"(none; add {"name": "Kvz_KvzTexture*_Frame"})",
            R"(warning: pass "filter", inputs: expected an input that feeds the uniform "u_Tint" (vec3), found none; add )"
            R"({"name": "u_Tint", "type": "QVector3D"})"}));
    // A uniform with an initial value needs no input.
    EXPECT_EQ(linesOf(filterOf("uniform float u_Amount = 0.5;\\n", "vec4(u_Amount)", "")), QStringList());
    EXPECT_EQ(linesOf(filterOf(
                  "uniform float u_Amount = 0.5;\\n", "vec4(u_Amount)", R"({"name": "u_Amount", "type": "float"})")),
        QStringList());
}

/// Without a viewport the first image gives the size; with one, an image that is not read has no effect.
TEST_F(ShaderUniformsTest, theImageThatGivesTheSizeNeedsNoSampler)
{
    EXPECT_EQ(linesOf(filterOf("", "vec4(1)", image, "{}", R"({"Kvz_QRect_Viewport": "none"})")), QStringList());
    const QStringList lines = linesOf(filterOf("", "vec4(1)", image));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].contains("expected a uniform \"u_Frame\" that its shaders read, found none"))
        << qPrintable(lines[0]);
}

TEST_F(ShaderUniformsTest, readyChainsHaveNoFindings)
{
    for (const QString &name : readyChainNames()) {
        ChainDescription chain;
        QString error;
        ASSERT_TRUE(loadChain(name, &chain, &error)) << qPrintable(error);
        for (const ChainFinding &finding : validateChainOnDriver(chain))
            EXPECT_NE(finding.code, ChainFinding::Code::UnusableConfiguration)
                << qPrintable(name) << ": " << qPrintable(finding.toString());
    }
}

} // namespace Velmora::Kvz
