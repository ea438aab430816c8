// SPDX-License-Identifier: MIT
#include "Fixtures.h"

#include "support/ChangedShaders.h"
#include "support/GLCallRecorder.h"

#include <GL/OpenGLDeviceContext.h>
#include <GL/ProgramFailures.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

/// Discards the driver's own log messages, which report the same mistakes.
class ProgramFailuresTest : public GLTest
{
protected:
    void TearDown() override
    {
        log.takeCategory("kvz.gl");
        GLTest::TearDown();
    }
};

const QString plainFragment =
    QStringLiteral("#version 150\nout vec4 out_FragColor;\nvoid main() { out_FragColor = vec4(1.0); }\n");

/// A fragment source with a mistake in its third line that names `word`.
QString wrongFragment(const QString &word)
{
    return QStringLiteral("#version 150\nout vec4 out_FragColor;\nvoid main() { out_FragColor = %1; }\n").arg(word);
}

void build(ShaderProgram &program, const QString &fragmentSource, const QString &name = QString())
{
    program.addShader(GL_VERTEX_SHADER, quadVertexSource, QString());
    program.addShader(GL_FRAGMENT_SHADER, fragmentSource, name);
    program.compile();
    program.link();
}

QString join(const QVector<ProgramFailure> &failures)
{
    QStringList logs;
    for (const ProgramFailure &failure : failures)
        logs.append(failure.log);
    return logs.join(QLatin1Char('|'));
}

} // namespace

TEST_F(ProgramFailuresTest, aGoodProgramIsNone)
{
    ShaderProgram program;
    build(program, plainFragment);
    EXPECT_TRUE(program.isLinked());
    EXPECT_FALSE(hasProgramFailures());
    EXPECT_TRUE(takeProgramFailures().isEmpty());
}

TEST_F(ProgramFailuresTest, aRefusedSourceIsOneFailureAlthoughItIsLinkedToo)
{
    ShaderProgram program;
    build(program, wrongFragment("undeclaredWord"), "Wrong.frag");
    ASSERT_TRUE(hasProgramFailures());
    const QVector<ProgramFailure> failures = takeProgramFailures();
    ASSERT_EQ(failures.size(), 1) << qPrintable(join(failures));
    EXPECT_EQ(failures[0].log, program.log());
    EXPECT_TRUE(failures[0].log.contains("undeclaredWord")) << qPrintable(failures[0].log);
    EXPECT_TRUE(failures[0].log.contains("Wrong.frag:3:")) << qPrintable(failures[0].log);

    EXPECT_FALSE(hasProgramFailures());
    EXPECT_TRUE(takeProgramFailures().isEmpty());
    // Linking it again reports nothing new.
    program.link();
    EXPECT_FALSE(hasProgramFailures());
    program.compile();
    EXPECT_EQ(takeProgramFailures().size(), 1);
}

TEST_F(ProgramFailuresTest, aProgramThatDoesNotLinkIsOneFailure)
{
    ShaderProgram program;
    build(program,
        "#version 150\nout vec4 out_FragColor;\nvec4 nobodyDefines();\nvoid main() { out_FragColor = nobodyDefines(); "
        "}\n");
    EXPECT_FALSE(program.isLinked());
    QVector<ProgramFailure> failures = takeProgramFailures();
    ASSERT_EQ(failures.size(), 1) << qPrintable(join(failures));
    EXPECT_TRUE(failures[0].log.contains("nobodyDefines")) << qPrintable(failures[0].log);
    EXPECT_EQ(failures[0].log, program.log());
    EXPECT_FALSE(program.link());
    EXPECT_FALSE(hasProgramFailures());
}

TEST_F(ProgramFailuresTest, aMissingFileIsAFailureToo)
{
    ShaderProgram program;
    program.addShaderFromFile(GL_FRAGMENT_SHADER, "NoSuchFile.glslc");
    EXPECT_FALSE(program.compile());
    EXPECT_EQ(log.takeWarnings().size(), 1);
    const QVector<ProgramFailure> failures = takeProgramFailures();
    ASSERT_EQ(failures.size(), 1);
    EXPECT_TRUE(failures[0].log.contains("NoSuchFile.glslc")) << qPrintable(failures[0].log);
}

TEST_F(ProgramFailuresTest, theyComeOldestFirstAndTheFirstSixteenAreKept)
{
    for (int i = 0; i < 20; ++i) {
        ShaderProgram program;
        build(program, wrongFragment(QStringLiteral("word%1").arg(i)));
    }
    const QVector<ProgramFailure> failures = takeProgramFailures();
    ASSERT_EQ(failures.size(), 16);
    for (int i = 0; i < 16; ++i)
        EXPECT_TRUE(failures[i].log.contains(QStringLiteral("word%1").arg(i))) << i << qPrintable(failures[i].log);
    // There is room for failures again.
    ShaderProgram program;
    build(program, wrongFragment("later"));
    EXPECT_EQ(takeProgramFailures().size(), 1);
}

TEST_F(ProgramFailuresTest, aShareGroupHasItsOwn)
{
    ShaderProgram program;
    build(program, wrongFragment("ofTheFirst"));
    HeadlessContext::Options options;
    {
        const auto stranger = HeadlessContext::create(options);
        ASSERT_NE(stranger, nullptr);
        EXPECT_FALSE(hasProgramFailures());
        EXPECT_TRUE(takeProgramFailures().isEmpty());
        ShaderProgram other;
        build(other, wrongFragment("ofTheStranger"));
        EXPECT_TRUE(hasProgramFailures());
        // The context takes its failure with it.
    }
    {
        options.shareWith = &context();
        const auto sharer = HeadlessContext::create(options);
        ASSERT_NE(sharer, nullptr);
        const QVector<ProgramFailure> failures = takeProgramFailures();
        ASSERT_EQ(failures.size(), 1) << qPrintable(join(failures));
        EXPECT_TRUE(failures[0].log.contains("ofTheFirst"));
        ShaderProgram other;
        build(other, wrongFragment("ofTheSharer"));
    }
    context().makeCurrent();
    EXPECT_TRUE(join(takeProgramFailures()).contains("ofTheSharer"));
    EXPECT_FALSE(hasProgramFailures());
}

TEST_F(ProgramFailuresTest, withoutAContextThereAreNone)
{
    ShaderProgram program;
    build(program, wrongFragment("undeclaredWord"));
    context().doneCurrent();
    EXPECT_FALSE(hasProgramFailures());
    EXPECT_TRUE(takeProgramFailures().isEmpty());
    ShaderProgram homeless;
    build(homeless, plainFragment);
    EXPECT_FALSE(homeless.log().isEmpty());
    context().makeCurrent();
    EXPECT_EQ(takeProgramFailures().size(), 1) << "that of the first program";
}

TEST_F(ProgramFailuresTest, askingForThemMakesNoCallOfGL)
{
    ShaderProgram program;
    build(program, wrongFragment("undeclaredWord"));
    GLCallRecorder<&epoxy_glGetIntegerv> integers;
    GLCallRecorder<&epoxy_glGetProgramiv> programs;
    GLCallRecorder<&epoxy_glGetError> errors;
    EXPECT_TRUE(hasProgramFailures());
    takeProgramFailures();
    EXPECT_FALSE(hasProgramFailures());
    EXPECT_EQ(integers.calls.size() + programs.calls.size() + errors.calls.size(), 0u);
}

TEST_F(ProgramFailuresTest, aBuiltInSourceCanBeMadeUnacceptable)
{
    ShaderProgram program;
    {
        const ChangedShaders refused("vec2 directionToLatLong_Tavo(vec3", "refused directionToLatLong_Tavo(vec3");
        program.addShader(GL_VERTEX_SHADER, quadVertexSource, QString());
        program.addShader(GL_FRAGMENT_SHADER, plainFragment, QString());
        program.addShaderFromFile(GL_FRAGMENT_SHADER, "KvzUtilities.glslc");
        program.compile();
        EXPECT_GE(refused.changed, 1);
    }
    const QVector<ProgramFailure> failures = takeProgramFailures();
    ASSERT_EQ(failures.size(), 1);
    EXPECT_TRUE(failures[0].log.contains(":/Media/Shaders/KvzUtilities.glsl")) << qPrintable(failures[0].log);
}

} // namespace Velmora::Kvz
