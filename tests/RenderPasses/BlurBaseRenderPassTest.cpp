// SPDX-License-Identifier: MIT
#include "BlurReference.h"
#include "support/GLTest.h"

#include <GL/GLStatistics.h>
#include <GL/ShaderProgram.h>
#include <RenderPasses/BlurBaseRenderPass.h>

#include <QtCore/QRegularExpression>

#include <limits>
#include <memory>

namespace Velmora::Kvz {

namespace {

/// The base class with its protected members made public.
class Blur : public BlurBaseRenderPass
{
public:
    Blur(float stencilMask, float radius, float extent)
        : BlurBaseRenderPass(stencilMask, radius, extent)
    { }
    Blur(float radius, float extent)
        : Blur(0, radius, extent)
    {
        calculateBlurWeights();
    }

    using BlurBaseRenderPass::calculateBlurWeights;
    using BlurBaseRenderPass::getBaseFragmentShaderSource;
    using BlurBaseRenderPass::getBaseVertexShaderSource;
    using BlurBaseRenderPass::m_blurRadius;
    using BlurBaseRenderPass::m_framebuffer;
    using BlurBaseRenderPass::m_kernelExtent;
    using BlurBaseRenderPass::m_offsets;
    using BlurBaseRenderPass::m_samplesCountName;
    using BlurBaseRenderPass::m_screenQuad;
    using BlurBaseRenderPass::m_shaderProgram;
    using BlurBaseRenderPass::m_stencilMask;
    using BlurBaseRenderPass::m_weights;
    using BlurBaseRenderPass::makeShaderProgram;
};

/// Six decimal places.
QStringList printed(const QVector<float> &values)
{
    QStringList texts;
    for (float value : values)
        texts.append(QString::number(double(value), 'f', 6));
    return texts;
}

/// Records the macros that the preprocessor defines in the sources of programs.
class MacrosInForce
{
public:
    MacrosInForce()
    {
        m_sources.onCall = [this](GLuint, GLsizei, const GLchar *const *strings, const GLint *lengths) {
            m_texts.append(QString::fromUtf8(strings[0], lengths[0]));
        };
    }
    /// The value of a macro in each source, empty where it is not defined.
    QStringList values(const QString &name) const
    {
        QStringList values;
        const QRegularExpression define(QStringLiteral("#define %1\\b *(.*)").arg(name));
        for (const QString &text : m_texts)
            values.append(define.match(text).captured(1));
        return values;
    }

private:
    GLCallRecorder<&epoxy_glShaderSource> m_sources;
    QStringList m_texts;
};

} // namespace

using BlurBaseRenderPassTest = GLTest;

TEST(BlurKernelTest, hasThePrintedValues)
{
    struct Case
    {
        float radius;
        float extent;
        QStringList weights;
        QStringList offsets;
    };
    const auto list = [](const char *texts) { return QString::fromLatin1(texts).split(QLatin1Char(' ')); };
    const Case cases[] = {
        {0.0f, 3.0f, list("1.000000"), list("0.000000")},
        {1.0f, 3.0f, list("0.402583 0.298709"), list("0.000000 1.182470")},
        {1.5f, 3.0f, list("0.266543 0.323029 0.043700"), list("0.000000 1.339264 3.174315")},
        {2.0f, 3.0f, list("0.199666 0.297316 0.091856 0.010995"), list("0.000000 1.407343 3.294233 5.201836")},
        {2.0f, 2.0f, list("0.204155 0.304001 0.093922"), list("0.000000 1.407343 3.294233")},
    };
    for (const Case &c : cases) {
        const Blur blur(c.radius, c.extent);
        EXPECT_EQ(printed(blur.m_weights), c.weights) << c.radius << " " << c.extent;
        EXPECT_EQ(printed(blur.m_offsets), c.offsets) << c.radius << " " << c.extent;
    }
}

TEST(BlurKernelTest, agreesWithDoublePrecisionForAllRadii)
{
    double weightError = 0;
    double offsetError = 0;
    for (float extent : {2.0f, 3.0f}) {
        for (int i = 0; i <= 64 * 8; ++i) {
            const float radius = float(i) / 8.0f;
            const Blur blur(radius, extent);
            const Kernel kernel = foldedKernel(radius, extent);
            ASSERT_EQ(blur.m_weights.size(), kernel.weights.size()) << radius << " " << extent;
            ASSERT_EQ(blur.m_offsets.size(), kernel.offsets.size()) << radius << " " << extent;
            double sum = -double(blur.m_weights[0]);
            for (int k = 0; k < kernel.weights.size(); ++k) {
                weightError = std::max(weightError, std::abs(double(blur.m_weights[k]) - kernel.weights[k]));
                offsetError = std::max(offsetError, std::abs(double(blur.m_offsets[k]) - kernel.offsets[k]));
                sum += 2.0 * double(blur.m_weights[k]);
            }
            EXPECT_NEAR(sum, 1.0, 2e-6) << radius << " " << extent;
            EXPECT_EQ(blur.m_offsets[0], 0.0f);
        }
    }
    std::printf("             largest error of a weight %.2e, of an offset %.2e\n", weightError, offsetError);
    // Sums of a few hundred floats; offsets reach 192, where adjacent floats are 1.5e-5 apart.
    EXPECT_LE(weightError, 1e-6);
    EXPECT_LE(offsetError, 3e-5);
}

TEST(BlurKernelTest, endsAtTheFirstOddSampleAtOrBeyondTheLimit)
{
    const auto samples = [](float radius, float extent) { return 2 * Blur(radius, extent).m_weights.size() - 1; };
    EXPECT_EQ(samples(0.0f, 3.0f), 1);
    EXPECT_EQ(samples(0.25f, 3.0f), 1) << "a limit of 0.75 is beyond the centre alone";
    EXPECT_EQ(samples(1.0f, 3.0f), 3) << "a limit of 3 is tested before sample 3 is taken";
    EXPECT_EQ(samples(1.5f, 3.0f), 5) << "a limit of 4.5";
    EXPECT_EQ(samples(2.0f, 3.0f), 7) << "a limit of 6 takes sample 6";
    EXPECT_EQ(samples(2.0f, 2.0f), 5) << "a limit of 4 takes sample 4";
    EXPECT_EQ(samples(1.0f, 2.0f), 3) << "a limit of 2 takes sample 2";
    EXPECT_EQ(samples(-1.0f, 3.0f), 1);
    EXPECT_EQ(Blur(-1.0f, 3.0f).m_weights, QVector<float>{1.0f});
    EXPECT_EQ(Blur(-1.0f, 3.0f).m_offsets, QVector<float>{0.0f});
}

TEST(BlurKernelTest, endsForRadiiThatAreNotNumbers)
{
    EXPECT_EQ(Blur(std::numeric_limits<float>::quiet_NaN(), 3.0f).m_weights.size(), 1);
    EXPECT_EQ(Blur(-std::numeric_limits<float>::infinity(), 3.0f).m_weights.size(), 1);
    const Blur endless(std::numeric_limits<float>::infinity(), 3.0f);
    EXPECT_EQ(endless.m_weights.size(), endless.m_offsets.size());
    EXPECT_EQ(endless.m_weights.size(), 8388608);
}

TEST(BlurKernelTest, isComputedEachTime)
{
    Blur blur(0, 8.0f, 3.0f);
    EXPECT_TRUE(blur.m_weights.isEmpty());
    EXPECT_TRUE(blur.m_offsets.isEmpty());
    blur.calculateBlurWeights();
    EXPECT_EQ(blur.m_weights.size(), 13);
    blur.m_blurRadius = 2.0f;
    blur.calculateBlurWeights();
    EXPECT_EQ(blur.m_weights, Blur(2.0f, 3.0f).m_weights);
    EXPECT_EQ(blur.m_offsets, Blur(2.0f, 3.0f).m_offsets);
}

TEST_F(BlurBaseRenderPassTest, holdsNothingAsConstructed)
{
    const GLObjectCounts before = glObjectCounts();
    const Blur blur(0.5f, 2.0f, 3.0f);
    EXPECT_EQ(blur.m_stencilMask, 0.5f);
    EXPECT_EQ(blur.m_blurRadius, 2.0f);
    EXPECT_EQ(blur.m_kernelExtent, 3.0f);
    EXPECT_EQ(blur.m_samplesCountName, QStringLiteral("SAMPLES_COUNT"));
    EXPECT_EQ(blur.m_framebuffer, nullptr);
    EXPECT_EQ(blur.m_shaderProgram, nullptr);
    EXPECT_TRUE(blur.m_screenQuad.isNull());
    EXPECT_EQ(blur.numInputs(), 0);
    EXPECT_EQ(blur.numOutputs(), 0);
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(BlurBaseRenderPassTest, bakesTheNumberOfTapsIntoItsPrograms)
{
    MacrosInForce macros;
    Blur blur(0, 2.0f, 3.0f);
    const std::unique_ptr<ShaderProgram> early(blur.makeShaderProgram(Blur::getBaseFragmentShaderSource()));
    EXPECT_TRUE(early->isLinked()) << qPrintable(early->log());
    blur.calculateBlurWeights();
    const std::unique_ptr<ShaderProgram> program(blur.makeShaderProgram(Blur::getBaseFragmentShaderSource()));
    EXPECT_TRUE(program->isLinked()) << qPrintable(program->log());
    EXPECT_TRUE(program->log().isEmpty()) << qPrintable(program->log());

    // One vertex and one fragment source for each program.
    const QString none;
    EXPECT_EQ(macros.values(QStringLiteral("SAMPLES_COUNT")),
        (QStringList{QStringLiteral("1"), QStringLiteral("1"), QStringLiteral("4"), QStringLiteral("4")}));
    EXPECT_EQ(macros.values(QStringLiteral("STENCIL_MASK")), (QStringList{none, none, none, none}));
}

TEST_F(BlurBaseRenderPassTest, definesTheMaskForEveryFlagButZero)
{
    for (float flag : {1.0f, -0.25f, 1e-20f}) {
        MacrosInForce macros;
        const Blur blur(flag, 2.0f, 3.0f);
        const std::unique_ptr<ShaderProgram> program(blur.makeShaderProgram(Blur::getBaseFragmentShaderSource()));
        EXPECT_TRUE(program->isLinked()) << qPrintable(program->log());
        EXPECT_EQ(
            macros.values(QStringLiteral("STENCIL_MASK")), (QStringList{QStringLiteral("1"), QStringLiteral("1")}));
    }
}

TEST_F(BlurBaseRenderPassTest, namesAnOutputThatItsSourceDoesNotHave)
{
    GLCallRecorder<&epoxy_glBindFragDataLocation> names;
    QStringList bound;
    names.onCall = [&bound](GLuint, GLuint location, const GLchar *name) {
        bound.append(QStringLiteral("%1 %2").arg(location).arg(QString::fromLatin1(name)));
    };
    const Blur blur(2.0f, 3.0f);
    const std::unique_ptr<ShaderProgram> program(blur.makeShaderProgram(Blur::getBaseFragmentShaderSource()));
    EXPECT_EQ(bound, QStringList(QStringLiteral("0 out_FragColor")));
    EXPECT_EQ(glGetFragDataLocation(program->programID(), "out_FragColor"), -1);
    EXPECT_EQ(glGetFragDataLocation(program->programID(), "o_Output"), 0);
}

TEST_F(BlurBaseRenderPassTest, givesAProgramThatDoesNotCompileAsItIs)
{
    const Blur blur(2.0f, 3.0f);
    const std::unique_ptr<ShaderProgram> program(blur.makeShaderProgram(QStringLiteral("#version 150\nnonsense\n")));
    ASSERT_TRUE(program);
    EXPECT_FALSE(program->isLinked());
    EXPECT_FALSE(program->log().isEmpty());
    log.takeCategory(QStringLiteral("kvz.gl"));
}

TEST_F(BlurBaseRenderPassTest, surfacesOfItsSourcesAreThoseThatPassesSet)
{
    const Blur blur(2.0f, 3.0f);
    const std::unique_ptr<ShaderProgram> program(blur.makeShaderProgram(Blur::getBaseFragmentShaderSource()));
    for (const char *name : {"u_Input", "stepVec", "weight", "offset"})
        EXPECT_TRUE(program->hasUniform(QString::fromLatin1(name))) << name;
    EXPECT_FALSE(program->hasUniform(QStringLiteral("u_ResolutionDivider"))) << "declared, never read";
    EXPECT_TRUE(Blur::getBaseFragmentShaderSource().contains(QStringLiteral("uniform float u_ResolutionDivider;")));
    EXPECT_EQ(program->attributeLocation(QStringLiteral("va_Vertex")), 0);
    EXPECT_GE(program->attributeLocation(QStringLiteral("va_TexCoord")), 0);
    EXPECT_TRUE(Blur::getBaseVertexShaderSource().startsWith(QStringLiteral("#version 150\n")));
    EXPECT_TRUE(Blur::getBaseFragmentShaderSource().startsWith(QStringLiteral("#version 150\n")));
}

} // namespace Velmora::Kvz
