// SPDX-License-Identifier: MIT
#include "Fixtures.h"

#include "support/GLCallRecorder.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QPoint>
#include <QtCore/QRect>
#include <QtCore/QSize>
#include <QtCore/QTemporaryDir>
#include <QtGui/QColor>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

class ShaderProgramTest : public GLTest
{
protected:
    /// A program that reads every uniform of `declarations`, so that all are active.
    static std::unique_ptr<ShaderProgram> programWith(const QString &declarations, const QString &sum)
    {
        return makeQuadProgram(
            QStringLiteral("#version 150\n%1\nout vec4 out_FragColor;\nvoid main() { out_FragColor = vec4(%2); }\n")
                .arg(declarations, sum));
    }

    /// Compiles sources with mistakes; the driver reports them in the log too.
    bool compileWithMistakes(ShaderProgram &program)
    {
        const bool compiled = program.compile();
        log.takeCategory("kvz.gl");
        return compiled;
    }

    static QVector<float> floats(ShaderProgram &program, const char *name, int count)
    {
        QVector<float> values(count, -999.0f);
        glGetUniformfv(program.programID(), glGetUniformLocation(program.programID(), name), values.data());
        return values;
    }
    static QVector<int> ints(ShaderProgram &program, const char *name, int count)
    {
        QVector<int> values(count, -999);
        glGetUniformiv(program.programID(), glGetUniformLocation(program.programID(), name), values.data());
        return values;
    }
    static QVector<unsigned int> unsignedInts(ShaderProgram &program, const char *name, int count)
    {
        QVector<unsigned int> values(count, 999u);
        glGetUniformuiv(program.programID(), glGetUniformLocation(program.programID(), name), values.data());
        return values;
    }
};

const QString plainFragment =
    QStringLiteral("#version 150\nout vec4 out_FragColor;\nvoid main() { out_FragColor = vec4(1.0); }\n");

} // namespace

TEST_F(ShaderProgramTest, compilesAndLinks)
{
    ShaderProgram program;
    EXPECT_FALSE(program.isLinked());
    EXPECT_EQ(program.programID(), 0u);
    EXPECT_FALSE(program.link()); // Nothing is compiled yet.
    program.addShader(GL_VERTEX_SHADER, quadVertexSource, QString());
    program.addShader(GL_FRAGMENT_SHADER, plainFragment, QString());
    EXPECT_TRUE(program.compile()) << qPrintable(program.log());
    EXPECT_FALSE(program.isLinked());
    EXPECT_TRUE(program.link()) << qPrintable(program.log());
    EXPECT_TRUE(program.isLinked());
    EXPECT_TRUE(glIsProgram(program.programID()));
    EXPECT_FALSE(program.hasTessellation());
}

TEST_F(ShaderProgramTest, namesLineAndSourceOfAMistake)
{
    ShaderProgram program;
    program.addShader(GL_VERTEX_SHADER, quadVertexSource, QString());
    program.addShader(GL_FRAGMENT_SHADER,
        "#version 150\nout vec4 out_FragColor;\n\nvoid main()\n{\n    out_FragColor = vec4(u_Missing);\n}\n",
        "tint.frag");
    EXPECT_FALSE(compileWithMistakes(program));
    EXPECT_TRUE(program.log().contains("tint.frag:6: ")) << qPrintable(program.log());
    EXPECT_TRUE(program.log().contains("u_Missing"));
    EXPECT_FALSE(program.link());
    EXPECT_FALSE(program.isLinked());
    EXPECT_TRUE(log.messages().isEmpty()); // Passes decide what is logged.
}

TEST_F(ShaderProgramTest, namesLinesAsWrittenAfterIncludesAndDefines)
{
    QTemporaryDir folder;
    QFile header(folder.filePath("header.glslh"));
    ASSERT_TRUE(header.open(QIODevice::WriteOnly));
    header.write("float fine;\nfloat twice;\nfloat broken = undeclared;\n");
    header.close();
    GLSLMacroProcessor processor;
    processor.addIncludePath(folder.path());
    processor.addDefine("ONE", "1.0");
    processor.addDefine("TWO", "2.0");
    ShaderProgram program;
    program.setMacroProcessor(&processor);
    program.addShader(GL_FRAGMENT_SHADER,
        "#version 150\n#instancedata \"OBJMaterial\"\nout vec4 out_FragColor;\nvoid main()\n{\n"
        "    out_FragColor = vec4(ONE + TWO + missing);\n}\n",
        QString());
    program.addShader(GL_FRAGMENT_SHADER, "#version 150\n#include \"header.glslh\"\n", QString());
    EXPECT_FALSE(compileWithMistakes(program));
    // Both units were compiled, so all mistakes are reported at once.
    EXPECT_TRUE(program.log().contains("<fragment source 0>:6: ")) << qPrintable(program.log());
    EXPECT_TRUE(program.log().contains(header.fileName() + ":3: ")) << qPrintable(program.log());
}

TEST_F(ShaderProgramTest, takesMacrosFromItsProcessor)
{
    ShaderProgram program;
    program.addShader(GL_VERTEX_SHADER, quadVertexSource, QString());
    program.addShader(GL_FRAGMENT_SHADER,
        "#version 150\nout vec4 out_FragColor;\nvoid main() { out_FragColor = vec4(VALUE); }\n", QString());
    EXPECT_FALSE(compileWithMistakes(program));
    {
        GLSLMacroProcessor processor;
        processor.addDefine("VALUE", "0.5");
        program.setMacroProcessor(&processor);
        EXPECT_TRUE(program.compile()) << qPrintable(program.log());
    }
    EXPECT_TRUE(program.link()); // The processor no longer exists.
    program.setMacroProcessor(nullptr);
    EXPECT_FALSE(compileWithMistakes(program));
    EXPECT_FALSE(program.isLinked());
}

TEST_F(ShaderProgramTest, linksSeveralUnitsOfAStage)
{
    const auto program = makeProgram({
        {GL_VERTEX_SHADER, "#version 150\nin vec3 va_Vertex;\nvec4 place();\nvoid main() { gl_Position = place(); }\n"},
        {GL_VERTEX_SHADER, "#version 150\nin vec3 va_Vertex;\nvec4 place() { return vec4(va_Vertex, 1.0); }\n"},
        {GL_FRAGMENT_SHADER,
            "#version 150\nfloat half_();\nout vec4 out_FragColor;\n"
            "void main() { out_FragColor = vec4(half_()); }\n"},
        {GL_FRAGMENT_SHADER, "#version 150\nfloat half_() { return 0.5; }\n"},
    });
    const auto target = makeBlankTexture(2, 2, GL_RGBA32F);
    FramebufferObject framebuffer;
    AutoBinder binder(&framebuffer);
    framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    EXPECT_TRUE(drawQuad(program.get()));
    EXPECT_EQ(readTexture(target.get()).pixel(1, 1), QVector4D(0.5f, 0.5f, 0.5f, 0.5f));
}

TEST_F(ShaderProgramTest, saysWhenItDoesNotLink)
{
    ShaderProgram program;
    program.addShader(GL_VERTEX_SHADER, quadVertexSource, QString());
    program.addShader(GL_FRAGMENT_SHADER,
        "#version 150\nfloat missing();\nout vec4 out_FragColor;\nvoid main() { out_FragColor = vec4(missing()); }\n",
        QString());
    EXPECT_TRUE(program.compile());
    EXPECT_FALSE(program.link());
    EXPECT_TRUE(program.log().contains("missing")) << qPrintable(program.log());
    EXPECT_FALSE(program.hasUniform("u_Anything"));
}

TEST_F(ShaderProgramTest, takesFilesByTheirBareName)
{
    ShaderProgram program;
    program.addShader(GL_VERTEX_SHADER, quadVertexSource, QString());
    program.addShader(GL_FRAGMENT_SHADER,
        "#version 150\n#include \"KvzUtilities.glslh\"\nin vec2 vo_TexCoord;\nout vec4 out_FragColor;\n"
        "void main() { out_FragColor = vec4(directionToLatLong_Tavo(vec3(vo_TexCoord, 1.0)), 0.0, 1.0); }\n",
        QString());
    program.addShaderFromFile(GL_FRAGMENT_SHADER, "KvzUtilities.glslc");
    EXPECT_TRUE(program.compile()) << qPrintable(program.log());
    EXPECT_TRUE(program.link()) << qPrintable(program.log());

    ShaderProgram other;
    other.addShader(GL_VERTEX_SHADER, quadVertexSource, QString());
    other.addShaderFromFile(GL_FRAGMENT_SHADER, "NoSuchFile.glslc");
    EXPECT_FALSE(other.compile());
    EXPECT_TRUE(other.log().contains("NoSuchFile.glslc"));
    EXPECT_FALSE(other.link());
    const QStringList warnings = log.takeWarnings();
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings[0].endsWith("cannot find the shader file 'NoSuchFile.glslc'")) << qPrintable(warnings[0]);
}

TEST_F(ShaderProgramTest, failsOnAnUnknownStageAndAMissingInclude)
{
    ShaderProgram program;
    program.addShader(0x1234, plainFragment, QString());
    EXPECT_FALSE(program.compile());
    EXPECT_FALSE(program.log().isEmpty());
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>({GL_INVALID_ENUM}));
    ShaderProgram including;
    including.addShader(GL_FRAGMENT_SHADER, plainFragment + "#include \"missing.glslh\"\n", QString());
    EXPECT_FALSE(including.compile());
    EXPECT_TRUE(including.log().contains("missing.glslh"));
    EXPECT_EQ(log.takeWarnings().size(), 1);
}

TEST_F(ShaderProgramTest, convertsNumbers)
{
    const auto program = programWith("uniform float u_F; uniform int u_I; uniform uint u_U; uniform bool u_B;",
        "u_F + float(u_I) + float(u_U) + float(u_B)");
    const QVariant twos[] = {2, 2u, 2.0, 2.0f, 2ll, QVariant::fromValue(qint8(2)), QString("2")};
    for (const QVariant &two : twos) {
        for (const char *name : {"u_F", "u_I", "u_U", "u_B"}) {
            program->setUniform(name, 0);
            program->setUniform(name, two);
        }
        EXPECT_EQ(floats(*program, "u_F", 1), QVector<float>({2}));
        EXPECT_EQ(ints(*program, "u_I", 1), QVector<int>({2}));
        EXPECT_EQ(unsignedInts(*program, "u_U", 1), QVector<unsigned int>({2}));
        EXPECT_NE(ints(*program, "u_B", 1)[0], 0);
    }
    for (const char *name : {"u_F", "u_I", "u_U", "u_B"})
        program->setUniform(name, true);
    EXPECT_EQ(floats(*program, "u_F", 1)[0], 1);
    EXPECT_EQ(ints(*program, "u_I", 1)[0], 1);
    program->setUniform("u_F", 0.1);
    EXPECT_EQ(floats(*program, "u_F", 1)[0], 0.1f);
    program->setUniform("u_B", 0);
    program->setUniform("u_B", 0.5);
    EXPECT_NE(ints(*program, "u_B", 1)[0], 0); // Everything but 0 is true, however small.
    program->setUniform("u_F", -3);
    EXPECT_EQ(floats(*program, "u_F", 1)[0], -3);
    program->setUniform("u_I", -7);
    EXPECT_EQ(ints(*program, "u_I", 1)[0], -7);
    program->setUniform("u_I", 2.9f);
    EXPECT_EQ(ints(*program, "u_I", 1)[0], 2);
    program->setUniform("u_U", 4294967295u);
    EXPECT_EQ(unsignedInts(*program, "u_U", 1)[0], 4294967295u);
    program->setUniform("u_U", -1);
    EXPECT_EQ(unsignedInts(*program, "u_U", 1)[0], 0u);
    program->setUniform("u_I", 1e30);
    EXPECT_EQ(ints(*program, "u_I", 1)[0], 2147483647);
}

TEST_F(ShaderProgramTest, convertsVectorsColoursAndRectangles)
{
    const auto program = programWith("uniform vec2 u_V2; uniform vec3 u_V3; uniform vec4 u_V4; uniform ivec2 u_I2; "
                                     "uniform ivec3 u_I3; uniform ivec4 u_I4; uniform uvec2 u_U2; uniform uvec3 u_U3; "
                                     "uniform uvec4 u_U4; uniform bvec2 u_B2;",
        "u_V2.y + u_V3.z + u_V4.w + float(u_I2.y + u_I3.z + u_I4.w) + float(u_U2.y + u_U3.z + u_U4.w) + float(u_B2.y)");
    program->setUniform("u_V2", QVector2D(1, 2));
    program->setUniform("u_V3", QVector3D(1, 2, 3));
    program->setUniform("u_V4", QVector4D(1, 2, 3, 4));
    program->setUniform("u_I2", QVector2D(-1, 2));
    program->setUniform("u_I3", QVector3D(-1, 2, 3));
    program->setUniform("u_I4", QVector4D(-1, 2, 3, 4));
    program->setUniform("u_U2", QVector2D(1, 2));
    program->setUniform("u_U3", QVector3D(1, 2, 3));
    program->setUniform("u_U4", QVector4D(1, 2, 3, 4));
    program->setUniform("u_B2", QVector2D(0, 1));
    EXPECT_EQ(floats(*program, "u_V2", 2), QVector<float>({1, 2}));
    EXPECT_EQ(floats(*program, "u_V3", 3), QVector<float>({1, 2, 3}));
    EXPECT_EQ(floats(*program, "u_V4", 4), QVector<float>({1, 2, 3, 4}));
    EXPECT_EQ(ints(*program, "u_I2", 2), QVector<int>({-1, 2}));
    EXPECT_EQ(ints(*program, "u_I3", 3), QVector<int>({-1, 2, 3}));
    EXPECT_EQ(ints(*program, "u_I4", 4), QVector<int>({-1, 2, 3, 4}));
    EXPECT_EQ(unsignedInts(*program, "u_U2", 2), QVector<unsigned int>({1, 2}));
    EXPECT_EQ(unsignedInts(*program, "u_U3", 3), QVector<unsigned int>({1, 2, 3}));
    EXPECT_EQ(unsignedInts(*program, "u_U4", 4), QVector<unsigned int>({1, 2, 3, 4}));
    EXPECT_EQ(ints(*program, "u_B2", 2)[0], 0);
    EXPECT_NE(ints(*program, "u_B2", 2)[1], 0);

    program->setUniform("u_V4", QColor(51, 102, 153, 204));
    program->setUniform("u_V3", QColor(51, 102, 153, 204));
    const float expected[] = {0.2f, 0.4f, 0.6f, 0.8f};
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(floats(*program, "u_V4", 4)[i], expected[i], 1e-6);
        if (i < 3) {
            EXPECT_NEAR(floats(*program, "u_V3", 3)[i], expected[i], 1e-6);
        }
    }
    program->setUniform("u_V4", QRect(3, 4, 50, 60));
    program->setUniform("u_I4", QRect(3, 4, 50, 60));
    EXPECT_EQ(floats(*program, "u_V4", 4), QVector<float>({3, 4, 50, 60}));
    EXPECT_EQ(ints(*program, "u_I4", 4), QVector<int>({3, 4, 50, 60}));
    for (const QVariant &pair :
        {QVariant(QSize(7, 8)), QVariant(QSizeF(7, 8)), QVariant(QPoint(7, 8)), QVariant(QPointF(7, 8))}) {
        for (const char *name : {"u_V2", "u_I2", "u_U2"}) {
            program->setUniform(name, QVector2D(0, 0));
            program->setUniform(name, pair);
        }
        EXPECT_EQ(floats(*program, "u_V2", 2), QVector<float>({7, 8}));
        EXPECT_EQ(ints(*program, "u_I2", 2), QVector<int>({7, 8}));
        EXPECT_EQ(unsignedInts(*program, "u_U2", 2), QVector<unsigned int>({7, 8}));
    }
}

TEST_F(ShaderProgramTest, convertsMatrices)
{
    const auto program = programWith("uniform mat4 u_M4; uniform mat3 u_M3;", "u_M4[3][2] + u_M3[2][1]");
    QMatrix4x4 matrix;
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column)
            matrix(row, column) = float(10 * row + column);
    }
    program->setUniform("u_M4", matrix);
    program->setUniform("u_M3", matrix);
    const QVector<float> four = floats(*program, "u_M4", 16);
    const QVector<float> three = floats(*program, "u_M3", 9);
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            EXPECT_EQ(four[4 * column + row], float(10 * row + column)); // GL reads by columns.
            if (row < 3 && column < 3) {
                EXPECT_EQ(three[3 * column + row], float(10 * row + column));
            }
        }
    }
}

TEST_F(ShaderProgramTest, setsSamplersByUnit)
{
    const auto program = programWith(
        "uniform sampler2D u_A; uniform sampler2DArray u_B;", "texture(u_A, vec2(0.5)) + texture(u_B, vec3(0.5))");
    program->setUniform("u_A", 3);
    program->setUniform("u_B", 4);
    EXPECT_EQ(ints(*program, "u_A", 1)[0], 3);
    EXPECT_EQ(ints(*program, "u_B", 1)[0], 4);
}

TEST_F(ShaderProgramTest, setsArrays)
{
    const auto program = programWith("uniform float u_Kernel[5]; uniform vec2 u_Pairs[3]; uniform mat4 u_M[2];",
        "u_Kernel[0] + u_Kernel[1] + u_Kernel[2] + u_Kernel[3] + u_Kernel[4] + u_Pairs[0].x + u_Pairs[1].x + "
        "u_Pairs[2].y"
        " + u_M[0][0][0] + u_M[1][0][0]");
    const auto kernel = [&] {
        QVector<float> values;
        for (const char *name : {"u_Kernel[0]", "u_Kernel[1]", "u_Kernel[2]", "u_Kernel[3]", "u_Kernel[4]"})
            values += floats(*program, name, 1);
        return values;
    };
    program->setUniform("u_Kernel", QVector<float>({1, 2, 3, 4, 5}));
    EXPECT_EQ(kernel(), QVector<float>({1, 2, 3, 4, 5}));
    program->setUniform("u_Kernel", QVector<float>({9, 8}));
    EXPECT_EQ(kernel(), QVector<float>({9, 8, 3, 4, 5}));
    program->setUniform("u_Kernel", QVector<float>({1, 2, 3, 4, 5}));
    EXPECT_EQ(kernel(), QVector<float>({1, 2, 3, 4, 5}));
    program->setUniform(
        "u_Kernel[0]", QVector<float>({5, 4, 3, 2, 1, 0, -1})); // Too many values, and the other way to name the array.
    EXPECT_EQ(kernel(), QVector<float>({5, 4, 3, 2, 1}));
    program->setUniform("u_Kernel", QVector<float>());
    EXPECT_EQ(kernel(), QVector<float>({5, 4, 3, 2, 1}));
    program->setUniform("u_Kernel", 7.0f); // A single value goes to the first element.
    EXPECT_EQ(kernel(), QVector<float>({7, 4, 3, 2, 1}));
    program->setUniform("u_Pairs", QVector<float>({1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(floats(*program, "u_Pairs[2]", 2), QVector<float>({5, 6}));
    QVector<float> matrices(32);
    for (int i = 0; i < 32; ++i)
        matrices[i] = float(i);
    program->setUniform("u_M", matrices);
    EXPECT_EQ(floats(*program, "u_M[1]", 16), matrices.mid(16));
}

TEST_F(ShaderProgramTest, sendsAValueOnce)
{
    const auto program =
        programWith("uniform float u_F; uniform vec4 u_V4; uniform int u_I; uniform mat4 u_M4; uniform float u_A[2];",
            "u_F + u_V4.x + float(u_I) + u_M4[0][0] + u_A[0] + u_A[1]");
    GLCallRecorder<&epoxy_glUniform1fv> oneFloat;
    GLCallRecorder<&epoxy_glUniform4fv> fourFloats;
    GLCallRecorder<&epoxy_glUniform1iv> oneInt;
    GLCallRecorder<&epoxy_glUniformMatrix4fv> matrix;
    const auto sent = [&] {
        return oneFloat.calls.size() + fourFloats.calls.size() + oneInt.calls.size() + matrix.calls.size();
    };
    QMatrix4x4 projection;
    projection.ortho(0, 1, 0, 1, 0, 1);
    const auto setAll = [&] {
        program->setUniform("u_F", 0.0f);
        program->setUniform("u_V4", QColor(Qt::red));
        program->setUniform("u_I", 5);
        program->setUniform("u_M4", projection);
        program->setUniform("u_A", QVector<float>({1, 2}));
    };
    setAll();
    EXPECT_EQ(sent(), 5u);
    setAll();
    EXPECT_EQ(sent(), 5u);
    program->setUniform("u_F", 0); // The same value in another type.
    program->setUniform("u_V4", QVector4D(1, 0, 0, 1));
    EXPECT_EQ(sent(), 5u);
    program->setUniform("u_F", 1);
    EXPECT_EQ(sent(), 6u);
    program->setUniform("u_A", QVector<float>({1}));
    EXPECT_EQ(sent(), 7u);
    program->setUniform("u_A", QVector<float>({1, 2})); // Only the first element is known for certain.
    EXPECT_EQ(sent(), 8u);
}

TEST_F(ShaderProgramTest, aLocationThatIsHandedOutLeavesTheCache)
{
    const auto program = programWith("uniform float u_F; uniform float u_A[3];", "u_F + u_A[0] + u_A[1] + u_A[2]");
    AutoBinder binder(program.get());
    program->setUniform("u_F", 1);
    program->setUniform("u_A", QVector<float>({1, 2, 3}));
    glUniform1f(program->getUniformLocation("u_F"), 5);
    const int element = program->getUniformLocation("u_A[1]");
    ASSERT_GE(element, 0);
    glUniform1f(element, 5);
    program->setUniform("u_F", 1);
    program->setUniform("u_A", QVector<float>({1, 2, 3}));
    EXPECT_EQ(floats(*program, "u_F", 1)[0], 1);
    EXPECT_EQ(floats(*program, "u_A[1]", 1)[0], 2);
    EXPECT_EQ(program->getUniformLocation("u_None"), -1);
    EXPECT_EQ(program->getUniformLocation("u_A[3]"), -1);
    EXPECT_EQ(program->getUniformLocation("u_None[1]"), -1);
}

TEST_F(ShaderProgramTest, linkingAgainStartsOver)
{
    const auto program = programWith("uniform float u_F;", "u_F");
    program->setUniform("u_F", 3);
    ASSERT_TRUE(program->link());
    EXPECT_EQ(floats(*program, "u_F", 1)[0], 0); // The value that GL starts with.
    program->setUniform("u_F", 3);
    EXPECT_EQ(floats(*program, "u_F", 1)[0], 3);
    ASSERT_TRUE(program->compile());
    EXPECT_FALSE(program->isLinked());
    // It has no uniforms until it is linked again.
    EXPECT_FALSE(program->hasUniform("u_F"));
    EXPECT_EQ(program->getUniformLocation("u_F"), -1);
    EXPECT_EQ(program->attributeLocation("va_Vertex"), -1);
    program->setUniform("u_F", 4);
    ASSERT_TRUE(program->link());
    program->setUniform("u_F", 3);
    EXPECT_EQ(floats(*program, "u_F", 1)[0], 3);
    EXPECT_EQ(program->attributeLocation("va_Vertex"), 0);
}

TEST_F(ShaderProgramTest, ignoresNamesThatItDoesNotHave)
{
    const auto program = programWith("uniform float u_F; uniform float u_Unused;", "u_F");
    EXPECT_TRUE(program->hasUniform("u_F"));
    EXPECT_FALSE(program->hasUniform("u_Unused"));
    EXPECT_FALSE(program->hasUniform("u_f"));
    EXPECT_FALSE(program->hasUniform(QString()));
    program->setUniform("u_None", 1);
    program->setUniform("u_Unused", 1);
    program->setUniform(QString(), 1);
    program->setUniform("u_None", QVector<float>({1}));
    ShaderProgram empty;
    empty.setUniform("u_F", 1);
    EXPECT_FALSE(empty.hasUniform("u_F"));
    EXPECT_EQ(empty.getUniformLocation("u_F"), -1);
    EXPECT_EQ(empty.attributeLocation("va_Vertex"), -1);
}

TEST_F(ShaderProgramTest, refusesValuesThatDoNotFitWithOneLineForEachName)
{
    const auto program = programWith("uniform vec3 u_V3; uniform int u_I; uniform mat4 u_M4; uniform mat2 u_M2;",
        "u_V3.x + float(u_I) + u_M4[0][0] + u_M2[0][0]");
    program->setUniform("u_V3", QVector3D(1, 2, 3));
    for (const QVariant &value : {QVariant(1), QVariant(QVector2D(1, 2)), QVariant(QVector4D(1, 2, 3, 4)),
             QVariant("text"), QVariant(), QVariant(QMatrix4x4())})
        program->setUniform("u_V3", value);
    QStringList warnings = log.takeWarnings();
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings[0].contains("u_V3")) << qPrintable(warnings[0]);
    EXPECT_EQ(floats(*program, "u_V3", 3), QVector<float>({1, 2, 3}));
    program->setUniform("u_V3", QVector3D(4, 5, 6));
    EXPECT_EQ(floats(*program, "u_V3", 3), QVector<float>({4, 5, 6}));

    program->setUniform("u_I", QVector<float>({1, 2}));
    program->setUniform("u_I", QColor(Qt::red));
    EXPECT_EQ(log.takeWarnings().size(), 1);
    program->setUniform("u_M4", QVector4D());
    program->setUniform("u_M2", QMatrix4x4());
    program->setUniform("u_M2", QVector<float>({1, 2, 3, 4}));
    EXPECT_EQ(log.takeWarnings().size(), 2);
}

TEST_F(ShaderProgramTest, setsUniformsWhileAnotherProgramIsBound)
{
    const auto first = programWith("uniform float u_F;", "u_F");
    const auto second = programWith("uniform float u_F;", "u_F");
    first->setUniform("u_F", 1);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(floats(*first, "u_F", 1)[0], 1);
    AutoBinder outer(first.get());
    {
        AutoBinder inner(second.get());
        first->setUniform("u_F", 2);
        EXPECT_EQ(GLuint(glInteger(GL_CURRENT_PROGRAM)), second->programID());
        EXPECT_EQ(floats(*first, "u_F", 1)[0], 2);
        EXPECT_EQ(floats(*second, "u_F", 1)[0], 0);
    }
    glUseProgram(0);
    first->setUniform("u_F", 3);
    EXPECT_EQ(floats(*first, "u_F", 1)[0], 3);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
}

TEST_F(ShaderProgramTest, putsOutputsWhereTheListSays)
{
    const auto program = makeProgram({{GL_VERTEX_SHADER, quadVertexSource},
                                         {GL_FRAGMENT_SHADER,
                                             "#version 150\nout vec4 out_B;\nout vec4 out_A;\n"
                                             "void main() { out_A = vec4(0.25); out_B = vec4(0.75); }\n"}},
        {"out_A", "out_None", "out_B"});
    EXPECT_EQ(glGetFragDataLocation(program->programID(), "out_A"), 0);
    EXPECT_EQ(glGetFragDataLocation(program->programID(), "out_B"), 2);
}

TEST_F(ShaderProgramTest, fixesTheLocationsOfStandardAttributes)
{
    const auto program = makeProgram({{GL_VERTEX_SHADER, R"(#version 150
in vec3 va_Tangent;
in vec4 va_Color;
in float va_Own;
in vec2 va_TexCoord;
in vec3 va_Normal;
in vec3 va_Vertex;
void main() { gl_Position = vec4(va_Vertex + va_Normal + va_Tangent + vec3(va_TexCoord, va_Own), 1.0) + va_Color; }
)"},
        {GL_FRAGMENT_SHADER, plainFragment}});
    EXPECT_EQ(program->attributeLocation("va_Vertex"), 0);
    EXPECT_EQ(program->attributeLocation("va_Normal"), 1);
    EXPECT_EQ(program->attributeLocation("va_TexCoord"), 2);
    EXPECT_EQ(program->attributeLocation("va_Color"), 3);
    EXPECT_EQ(program->attributeLocation("va_Tangent"), 4);
    EXPECT_GT(program->attributeLocation("va_Own"), 4);
    EXPECT_EQ(program->attributeLocation("va_None"), -1);
    for (const char *name : {"va_Vertex", "va_TexCoord", "va_Tangent", "va_Own"})
        EXPECT_EQ(glGetAttribLocation(program->programID(), name), program->attributeLocation(name));
}

TEST_F(ShaderProgramTest, bindsAsNoneUntilItIsLinked)
{
    const auto good = makeColorProgram();
    const auto target = makeBlankTexture(2, 2, GL_RGBA8);
    FramebufferObject framebuffer;
    AutoBinder framebufferBinder(&framebuffer);
    framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    AutoBinder outer(good.get());
    ShaderProgram bad;
    bad.addShader(GL_FRAGMENT_SHADER, "#version 150\nnonsense\n", QString());
    EXPECT_FALSE(compileWithMistakes(bad));
    EXPECT_FALSE(bad.link());
    {
        AutoBinder binder(&bad);
        EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
        bad.setUniform("u_Color", QColor(Qt::red));
    }
    EXPECT_FALSE(drawQuad(&bad));
    EXPECT_EQ(GLuint(glInteger(GL_CURRENT_PROGRAM)), good->programID());
    EXPECT_TRUE(drawQuad(good.get()));
}

} // namespace Velmora::Kvz
