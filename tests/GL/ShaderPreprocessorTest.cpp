// SPDX-License-Identifier: MIT
#include "support/LogCapture.h"

#include <GL/ShaderPreprocessor.h>
#include <Scene/InstanceDataRegistry.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <epoxy/gl.h>
#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

class ShaderPreprocessorTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(folder.isValid());
        processor.addIncludePath(folder.path());
    }
    void TearDown() override
    {
        for (const LogCapture::Message &message : log.messages())
            ADD_FAILURE() << "a log line that the test did not expect: " << qPrintable(message.text);
    }

    QString write(const QString &name, const QString &text)
    {
        const QString path = folder.filePath(name);
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text.toUtf8());
        return path;
    }

    ShaderPreprocessor process(const QString &source, unsigned int stage = GL_FRAGMENT_SHADER)
    {
        return ShaderPreprocessor(stage, source, "<source>", &processor);
    }

    /// The number of the first line of the result with this text; 0 if there is none.
    static int lineOf(const ShaderPreprocessor &preprocessor, const QString &text)
    {
        return preprocessor.text().split('\n').indexOf(text) + 1;
    }

    static void expectOrigin(const ShaderPreprocessor &preprocessor, const QString &text, const QString &file, int line)
    {
        const int number = lineOf(preprocessor, text);
        ASSERT_GT(number, 0) << qPrintable(text);
        EXPECT_EQ(preprocessor.origin(number).file, file) << qPrintable(text);
        EXPECT_EQ(preprocessor.origin(number).line, line) << qPrintable(text);
    }

    QTemporaryDir folder;
    GLSLMacroProcessor processor;
    LogCapture log;
};

} // namespace

TEST_F(ShaderPreprocessorTest, leavesPlainTextAsItIs)
{
    const QString source = "#version 150\n\nout vec4 o;\n// end\nvoid main() { o = vec4(1.0); }\n";
    const ShaderPreprocessor result(GL_FRAGMENT_SHADER, source, "<source>", nullptr);
    EXPECT_EQ(result.text(),
        "#version 150\n#define KVZ_STAGE_FRAGMENT 1\n\nout vec4 o;\n// end\nvoid main() { o = vec4(1.0); }\n");
    EXPECT_TRUE(result.errors().isEmpty());
    EXPECT_TRUE(result.includedFiles().isEmpty());
    expectOrigin(result, "#version 150", "<source>", 1);
    expectOrigin(result, "out vec4 o;", "<source>", 3);
    expectOrigin(result, "void main() { o = vec4(1.0); }", "<source>", 5);
    expectOrigin(result, "#define KVZ_STAGE_FRAGMENT 1", QString(), 0);
    EXPECT_EQ(result.origin(0).line, 0);
    EXPECT_EQ(result.origin(1000).line, 0);
}

TEST_F(ShaderPreprocessorTest, definesTheStage)
{
    const QPair<unsigned int, QString> stages[] = {
        {GL_VERTEX_SHADER, "KVZ_STAGE_VERTEX"},
        {GL_TESS_CONTROL_SHADER, "KVZ_STAGE_TESS_CONTROL"},
        {GL_TESS_EVALUATION_SHADER, "KVZ_STAGE_TESS_EVALUATION"},
        {GL_GEOMETRY_SHADER, "KVZ_STAGE_GEOMETRY"},
        {GL_FRAGMENT_SHADER, "KVZ_STAGE_FRAGMENT"},
    };
    for (const auto &stage : stages)
        EXPECT_EQ(process("#version 150\n", stage.first).text(),
            QStringLiteral("#version 150\n#define %1 1\n").arg(stage.second));
}

TEST_F(ShaderPreprocessorTest, putsMacrosAfterTheVersion)
{
    processor.addDefine("RADIUS", "4");
    processor.addDefine("KERNEL(i)", "kernel[i]");
    processor.addDefine("EMPTY", QString());
    processor.addDefine("RADIUS", "5"); // Replaces the value and keeps the position.
    EXPECT_EQ(processor.defines().size(), 3);
    EXPECT_EQ(process("// first\n/* second\n */ \n  # version 150 // third\nvoid main() {}").text(),
        "// first\n/* second\n */ \n  # version 150 // third\n#define KVZ_STAGE_FRAGMENT 1\n#define RADIUS 5\n"
        "#define KERNEL(i) kernel[i]\n#define EMPTY \nvoid main() {}");
    // Without a version directive defines come first, even if a comment contains one.
    EXPECT_EQ(process("/* #version 150 */\nvoid main() {}").text(),
        "#define KVZ_STAGE_FRAGMENT 1\n#define RADIUS 5\n#define KERNEL(i) kernel[i]\n#define EMPTY \n"
        "/* #version 150 */\nvoid main() {}");
}

TEST_F(ShaderPreprocessorTest, bringsInFiles)
{
    const QString outer = write("outer.glslh", "float outer();\n#include \"inner.glslh\"\nfloat last();");
    const QString inner = write("inner.glslh", "float inner();");
    const ShaderPreprocessor result = process("#version 150\n#include \"outer.glslh\"\nvoid main() {}\n");
    expectOrigin(result, "float outer();", outer, 1);
    expectOrigin(result, "float inner();", inner, 1);
    expectOrigin(result, "float last();", outer, 3);
    expectOrigin(result, "void main() {}", "<source>", 3);
    EXPECT_FALSE(result.text().contains("#include"));
    EXPECT_EQ(result.includedFiles(), QStringList({outer, inner}));
}

TEST_F(ShaderPreprocessorTest, bringsInEachFileOnce)
{
    write("base.glslh", "float base();");
    write("a.glslh", "#include \"base.glslh\"\nfloat a();");
    write("b.glslh", "#include <base.glslh>\n#include \"./base.glslh\"\nfloat b();");
    const ShaderPreprocessor result = process("#include \"a.glslh\"\n#include \"b.glslh\"\n#include \"a.glslh\"\n");
    EXPECT_EQ(result.text().count("float base();"), 1);
    EXPECT_EQ(result.text().count("float a();"), 1);
    EXPECT_EQ(result.text().count("float b();"), 1);
}

TEST_F(ShaderPreprocessorTest, readsDirectivesAsTheLanguageDoes)
{
    write("file.glslh", "float included();");
    for (const char *directive :
        {"#include \"file.glslh\"", "  #  include \"file.glslh\"", "#include \"file.glslh\" // why",
            "/* why */ #include \"file.glslh\"", "#include<file.glslh>", "#include \"file.glslh\"\r"})
        EXPECT_EQ(process(directive).text().count("float included();"), 1) << directive;
    for (const char *other : {"// #include \"file.glslh\"", "/* #include \"file.glslh\" */",
             "/*\n#include \"file.glslh\"\n#instancedata \"No\"\n*/", "#includes \"file.glslh\"",
             "#version 150 /* begins\n#include \"file.glslh\"\n*/"}) {
        EXPECT_EQ(process(other).text().count("float included();"), 0) << other;
        EXPECT_TRUE(process(other).text().contains("file.glslh")) << other; // Left as it was.
    }
}

TEST_F(ShaderPreprocessorTest, findsFilesBesideTheOneThatNamesThem)
{
    write("same.glslh", "float far();");
    const QString near = write("folder/same.glslh", "float near();");
    write("folder/unit.glslh", "#include \"same.glslh\"");
    EXPECT_TRUE(process("#include \"folder/unit.glslh\"").text().contains("float near();"));
    EXPECT_TRUE(process("#include \"same.glslh\"").text().contains("float far();"));
    const ShaderPreprocessor absolute = process(QStringLiteral("#include \"%1\"").arg(near));
    EXPECT_TRUE(absolute.text().contains("float near();"));
    const ShaderPreprocessor named(
        GL_FRAGMENT_SHADER, "#include \"same.glslh\"", folder.filePath("folder/x.frag"), nullptr);
    EXPECT_TRUE(named.text().contains("float near();"));
}

TEST_F(ShaderPreprocessorTest, findsOurOwnFilesWithoutAnIncludePath)
{
    const ShaderPreprocessor result(
        GL_FRAGMENT_SHADER, "#version 150\n#include \"KvzUtilities.glslh\"\n", QString(), nullptr);
    EXPECT_TRUE(result.text().contains("directionToLatLong_Tavo"));
    EXPECT_EQ(result.includedFiles(), QStringList({":/Media/Shaders/KvzUtilities.glslh"}));
    // The library's own files precede files of the same name elsewhere.
    write("KvzUtilities.glslh", "float impostor();");
    EXPECT_FALSE(process("#include \"KvzUtilities.glslh\"").text().contains("impostor"));
}

TEST_F(ShaderPreprocessorTest, searchesFoldersInTheirOrder)
{
    QTemporaryDir second;
    processor.addIncludePath(second.path());
    processor.addIncludePath(folder.path()); // Already known.
    EXPECT_EQ(processor.includePaths(), QStringList({folder.path(), second.path()}));
    QFile file(second.filePath("x.glslh"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    EXPECT_EQ(ShaderPreprocessor::findFile("x.glslh", &processor), second.filePath("x.glslh"));
    const QString first = write("x.glslh", QString());
    EXPECT_EQ(ShaderPreprocessor::findFile("x.glslh", &processor), first);
    EXPECT_EQ(ShaderPreprocessor::findFile(first, nullptr), first);
    EXPECT_TRUE(ShaderPreprocessor::findFile("x.glslh", nullptr).isEmpty());
    EXPECT_TRUE(ShaderPreprocessor::findFile(QString(), &processor).isEmpty());
    EXPECT_TRUE(ShaderPreprocessor::findFile(".", &processor).isEmpty());
}

TEST_F(ShaderPreprocessorTest, saysWhichFileIsMissingAndWhere)
{
    const QString outer = write("outer.glslh", "\n\n#include \"missing.glslh\"\nfloat after();");
    const ShaderPreprocessor result = process("#version 150\n#include \"outer.glslh\"\n#include\n");
    ASSERT_EQ(result.errors().size(), 2);
    EXPECT_TRUE(result.errors()[0].startsWith(outer + ":3: ")) << qPrintable(result.errors()[0]);
    EXPECT_TRUE(result.errors()[0].contains("'missing.glslh'"));
    EXPECT_TRUE(result.errors()[1].startsWith("<source>:3: "));
    const QStringList lines = log.takeWarnings();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].endsWith(result.errors()[0]));
    // The lines after it keep their numbers.
    expectOrigin(result, "float after();", outer, 4);
}

TEST_F(ShaderPreprocessorTest, leavesConditionsToTheDriver)
{
    const QString file = write("file.glslh", "const int value = OF_FILE;");
    // Taken out, then brought in twice: it is there once.
    const ShaderPreprocessor both = process("#version 150\n#define OF_FILE 7\n#if 0\n#include \"file.glslh\"\n#endif\n"
                                            "#ifdef OF_FILE\n#include \"file.glslh\"\n#endif\n#include \"file.glslh\"\n"
                                            "#include \"file.glslh\"\nvoid main() {}\n");
    EXPECT_EQ(both.text().count("const int value"), 3) << "guarded by a macro";
    EXPECT_EQ(both.text().count("#if"), both.text().count("#endif"));
    EXPECT_EQ(both.includedFiles(), QStringList(file));
    EXPECT_EQ(both.errors(), QStringList());

    const QString outer = write("outer.glslh",
        "#if 0\n#include \"missing.glslh\"\n#instancedata \"No\"\n#include "
        "\"outer.glslh\"\n#endif\nfloat outer();");
    const ShaderPreprocessor result = process("#include \"outer.glslh\"\n");
    EXPECT_EQ(result.errors(), QStringList()) << "what is taken out is not looked for";
    expectOrigin(result, "#error cannot find the shader file 'missing.glslh' to include", outer, 2);
    expectOrigin(result, "float outer();", outer, 6);
    EXPECT_EQ(result.text().count("#error"), 3);
}

TEST_F(ShaderPreprocessorTest, refusesFilesThatIncludeThemselves)
{
    const QString a = write("a.glslh", "#include \"b.glslh\"\nfloat a();");
    const QString b = write("b.glslh", "float b();\n#include \"a.glslh\"");
    const ShaderPreprocessor result = process("#include \"a.glslh\"\n");
    ASSERT_EQ(result.errors().size(), 1);
    EXPECT_TRUE(result.errors()[0].startsWith(b + ":2: "));
    EXPECT_EQ(log.takeWarnings().size(), 1);
    EXPECT_EQ(result.text().count("float a();"), 1);
    EXPECT_EQ(result.text().count("float b();"), 1);
}

TEST_F(ShaderPreprocessorTest, bringsInPlans)
{
    const ShaderPreprocessor result = process("#version 150\n#instancedata \"OBJMaterial\"\nvoid main() {}\n");
    QStringList declarations = InstanceDataRegistry::Instance().getPlan("OBJMaterial").declarations().split('\n');
    declarations.removeAll(QString());
    ASSERT_FALSE(declarations.isEmpty());
    for (const QString &declaration : qAsConst(declarations))
        expectOrigin(result, declaration, "<source>", 2);
    expectOrigin(result, "void main() {}", "<source>", 3);
}

TEST_F(ShaderPreprocessorTest, saysWhichPlanIsUnknown)
{
    const ShaderPreprocessor result = process("\n#instancedata \"NoSuchPlan\"\n");
    ASSERT_EQ(result.errors().size(), 1);
    EXPECT_TRUE(result.errors()[0].startsWith("<source>:2: "));
    EXPECT_TRUE(result.errors()[0].contains("'NoSuchPlan'"));
    EXPECT_TRUE(result.errors()[0].contains("OBJMaterial")); // Names the plans that exist.
    EXPECT_EQ(log.takeWarnings().size(), 1);
}

TEST_F(ShaderPreprocessorTest, dropsVersionsOfFilesAndRefusesLateOnes)
{
    write("unit.glslh", "#version 150\nfloat unit();");
    EXPECT_EQ(process("#version 150\n#include \"unit.glslh\"\n").text().count("#version"), 1);
    const ShaderPreprocessor late = process("float x;\n#version 150\n");
    ASSERT_EQ(late.errors().size(), 1);
    EXPECT_TRUE(late.errors()[0].startsWith("<source>:2: "));
    EXPECT_EQ(log.takeWarnings().size(), 1);
}

TEST_F(ShaderPreprocessorTest, mapsWhatDriversSay)
{
    const QString file = write("file.glslh", "float a;\nfloat b;");
    const ShaderPreprocessor result = process("#version 150\n#include \"file.glslh\"\nfloat c;\n");
    const int b = lineOf(result, "float b;");
    const int c = lineOf(result, "float c;");
    const struct
    {
        QString driver;
        QString mapped;
    } forms[] = {
        {QStringLiteral("0:%1(7): error: `d' undeclared").arg(b), file + ":2: error: `d' undeclared"},
        {QStringLiteral("0(%1) : error C1503: undefined variable").arg(c),
            "<source>:3: error C1503: undefined variable"},
        {QStringLiteral("ERROR: 0:%1: 'd' : undeclared identifier").arg(c),
            "ERROR: <source>:3: 'd' : undeclared identifier"},
        {QStringLiteral("WARNING: 0:%1: unused").arg(b), "WARNING: " + file + ":2: unused"},
        {"ERROR: 1 compilation errors.", "ERROR: 1 compilation errors."},
        {"0:2(1): warning: in a define", "0:2(1): warning: in a define"}, // A line that is not in any source.
        {"0:999(1): error: past the end", "0:999(1): error: past the end"},
        {"error 10: no place", "error 10: no place"},
        {"", ""},
    };
    QStringList driver;
    QStringList mapped;
    for (const auto &form : forms) {
        EXPECT_EQ(result.mapLog(form.driver), form.mapped);
        driver.append(form.driver);
        mapped.append(form.mapped);
    }
    EXPECT_EQ(result.mapLog(driver.join('\n')), mapped.join('\n'));
}

} // namespace Velmora::Kvz
