// SPDX-License-Identifier: MIT
// The ports that options give a ShaderRenderPass, and the files that they name. No test here has an OpenGL context.
#include "support/TemporaryFolder.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/PassInfo.h>
#include <Chain/RenderChain.h>

#include <QtGui/QColor>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");

ChainDescription chainOf(const QByteArray &passes)
{
    ChainDescription chain;
    QString error;
    EXPECT_TRUE(ChainDescription::fromJson("{\"passes\": [" + passes + "]}", &chain, &error)) << qPrintable(error);
    return chain;
}

/// A ShaderRenderPass named "filter".
QByteArray filter(const QByteArray &options, const QByteArray &rest = QByteArray())
{
    return R"({"name": "filter", "class": "ShaderRenderPass", "options": {)" + options + "}" + rest + "}";
}

QStringList linesOf(const ChainDescription &chain)
{
    QStringList lines;
    for (const ChainFinding &finding : validateChain(chain))
        lines.append(finding.toString());
    return lines;
}

std::shared_ptr<const PassInfo> described(const QByteArray &options)
{
    const ChainPass pass = chainOf(filter(options)).passes[0];
    return PassRegistry::standard().describe(pass.className, pass.options);
}

} // namespace

TEST(ShaderPassOptionsTest, portsComeFromTheOptions)
{
    const auto info = described(R"(
        "inputs": [
            {"name": "Kvz_KvzTexture*_Normal", "kind": "normal"},
            {"name": "Kvz_KvzDrawBuffers*_Geometry"},
            {"name": "u_Amount", "type": "float", "value": 0.5},
            {"name": "u_Tint", "type": "QColor", "value": "#ff0000"},
            {"name": "Kvz_QMatrix4x4_CameraMatrix"}],
        "outputs": [{"name": "Kvz_KvzTexture*_Frame"}, {"name": "Kvz_KvzTexture*_Mask", "kind": "overlay"}])");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->inputNames(),
        (QStringList{"Kvz_QRect_Viewport", "Kvz_KvzTexture*_Normal", "Kvz_KvzDrawBuffers*_Geometry", "u_Amount",
            "u_Tint", "Kvz_QMatrix4x4_CameraMatrix"}));
    EXPECT_EQ(info->inputs[1].type, ValueType::Texture);
    EXPECT_EQ(info->inputs[1].texture.kind, TextureKind::Normal);
    EXPECT_EQ(info->inputs[2].type, ValueType::DrawBuffers);
    EXPECT_EQ(info->inputs[3].type, ValueType::Float);
    EXPECT_EQ(info->inputs[3].defaultValue, QVariant(0.5f));
    EXPECT_EQ(info->inputs[4].defaultValue, QVariant(QColor(Qt::red)));
    EXPECT_EQ(info->inputs[5].type, ValueType::Matrix4x4);
    EXPECT_FALSE(info->inputs[5].defaultValue.isValid());
    EXPECT_EQ(info->outputNames(), (QStringList{frame, "Kvz_KvzTexture*_Mask"}));
    EXPECT_EQ(info->outputs[0].texture.kind, TextureKind::Colour);
    EXPECT_EQ(info->outputs[1].texture.kind, TextureKind::Overlay);
    EXPECT_TRUE(info->outputs[0].pooled);

    // The class itself keeps only its own ports.
    EXPECT_EQ(PassRegistry::standard().find("ShaderRenderPass")->inputs.size(), 1);
    EXPECT_EQ(PassRegistry::standard().describe("NoPass", {}), nullptr);
}

TEST(ShaderPassOptionsTest, validationKnowsThePorts)
{
    const QByteArray options = R"("inputs": [{"name": "Kvz_KvzTexture*_Frame", "kind": "colour"},
        {"name": "u_Amount", "type": "float"}], "outputs": [{"name": "Kvz_KvzTexture*_Frame"}])";
    const QByteArray sky = R"({"name": "sky", "class": "GradientRenderPass"},)";
    const QByteArray screen = R"(,{"name": "screen", "class": "TextureToScreenRenderPass",
        "connections": {"Kvz_KvzTexture*_Texture": "filter.Kvz_KvzTexture*_Frame"}})";
    EXPECT_EQ(linesOf(chainOf(sky + filter(options, R"(, "values": {"u_Amount": 2})") + screen)), QStringList());
    EXPECT_EQ(linesOf(chainOf(sky + filter(options, R"(, "values": {"u_Amuont": 2})") + screen)),
        QStringList(R"(error: pass "filter", u_Amuont: expected an input of ShaderRenderPass, found no such port; did )"
                    R"(you mean "u_Amount"?)"));
    EXPECT_EQ(linesOf(chainOf(sky + filter(options, R"(, "values": {"u_Amount": "much"})") + screen)),
        QStringList(R"(error: pass "filter", u_Amount: expected float: a number, found "much")"));

    // By name the filter takes the gradient; an output that no option names cannot be connected to the screen.
    RenderChain chain;
    ASSERT_TRUE(chain.setDescription(chainOf(sky + filter(options) + screen))) << qPrintable(chain.errorString());
    EXPECT_EQ(chain.inputSource("filter", frame).pass, QStringLiteral("sky"));
    EXPECT_TRUE(chain.setValue("filter", "u_Amount", 3)) << qPrintable(chain.errorString());
    EXPECT_FALSE(chain.setValue("filter", "u_Size", 3));
    const QStringList missing = linesOf(chainOf(sky + filter(R"("inputs": [])") + screen));
    ASSERT_EQ(missing.size(), 1);
    EXPECT_TRUE(missing[0].startsWith("error: pass \"screen\", Kvz_KvzTexture*_Texture: expected an output of "))
        << qPrintable(missing[0]);
}

TEST(ShaderPassOptionsTest, optionsThatMakeNoPortAreFindings)
{
    const struct
    {
        const char *options;
        const char *finding;
    } cases[] = {
        {R"("inputs": [{"name": "u_A"}])",
            R"(inputs[0].type: expected a type, found nothing; its name does not say one, as )"
            R"("Kvz_KvzTexture*_NAME" does for an image)"},
        {R"("inputs": [{"type": "int"}])",
            "inputs[0].name: expected a text in quotes, found nothing; Port name: an image, Kvz_KvzTexture*_NAME, "
            "which "
            "is the sampler u_NAME; a drawable; or the name of a uniform."},
        {R"("inputs": [{"name": "u_A", "type": "flaot"}])",
            "inputs[0].type: expected the name of an enumerator or its number, found \"flaot\"; did you mean "
            "\"float\"?"},
        {R"("inputs": [{"name": "a b", "type": "int"}])",
            R"(inputs[0].name: expected "u_NAME" or a port name such as "Kvz_KvzTexture*_NAME", found "a b")"},
        {R"("inputs": [{"name": "Kvz_KvzTexture*_"}])",
            R"(inputs[0].name: expected "u_NAME" or a port name such as "Kvz_KvzTexture*_NAME", found )"
            R"("Kvz_KvzTexture*_")"},
        {R"("inputs": [{"name": "u_A", "type": "int"}, {"name": "u_A", "type": "int"}])",
            R"(inputs[1].name: expected a unique name, found "u_A"; another input has it)"},
        {R"("inputs": [{"name": "Kvz_QRect_Viewport"}])",
            R"(inputs[0].name: expected a unique name, found "Kvz_QRect_Viewport"; another input has it)"},
        {R"("inputs": [{"name": "Kvz_float_A", "type": "int"}])",
            R"(inputs[0].type: expected the type that its name says, found int for "Kvz_float_A"; leave it out)"},
        {R"("inputs": [{"name": "Kvz_QString_A"}])",
            R"(inputs[0].name: expected an image, a drawable or what a uniform can hold, found "Kvz_QString_A", )"
            "QString"},
        {R"("inputs": [{"name": "u_A", "type": "int", "value": 1.5}])",
            "inputs[0].value: expected a whole number, found 1.5; the input is of type int"},
        {R"("inputs": [{"name": "Kvz_KvzTexture*_A", "value": 3}])",
            "inputs[0].value: expected no value, found 3; the input is of type Texture *"},
        {R"("outputs": [{"name": "o_A"}])", R"(outputs[0].name: expected "Kvz_KvzTexture*_NAME", found "o_A")"},
        {R"("outputs": [{"name": "Kvz_KvzTexture*_A"}, {"name": "Kvz_KvzTexture*_A"}])",
            R"(outputs[1].name: expected a unique name, found "Kvz_KvzTexture*_A"; another output has it)"},
    };
    for (const auto &wrong : cases) {
        EXPECT_EQ(linesOf(chainOf(filter(wrong.options))),
            QStringList(QStringLiteral("error: pass \"filter\", ") + wrong.finding))
            << wrong.options;
    }
}

TEST(ShaderPassOptionsTest, filesAreResolvedAgainstTheFolderOfTheChainFile)
{
    TemporaryFolder folder;
    QDir(folder.path(".")).mkpath("shaders");
    const QString shader = folder.write("shaders/a.frag", "#version 150\n");
    const QString file = folder.write("chain.json",
        "{\"passes\": [" + filter(R"("fragment": "shaders/a.frag", "vertex": "#version 150\nvoid main() {}\n")")
            + "]}");
    ChainDescription chain;
    QString error;
    ASSERT_TRUE(loadChain(file, &chain, &error)) << qPrintable(error);
    EXPECT_EQ(linesOf(chain), QStringList());
    RenderChain runner;
    ASSERT_TRUE(runner.setDescription(chain)) << qPrintable(runner.errorString());
    EXPECT_EQ(runner.shaderFiles(), QStringList(shader));

    // Paths stay as they were written, also in a file saved beside the original.
    EXPECT_TRUE(chain.toJson().contains("\"shaders/a.frag\"")) << chain.toJson().constData();
    ASSERT_TRUE(saveChain(chain, folder.path("copy.json"), &error)) << qPrintable(error);
    EXPECT_TRUE(folder.read("copy.json").contains("\"shaders/a.frag\""));
    // Saved in another folder, the path is different and leads to the same file.
    QDir(folder.path(".")).mkpath("chains");
    ASSERT_TRUE(saveChain(chain, folder.path("chains/copy.json"), &error)) << qPrintable(error);
    EXPECT_TRUE(folder.read("chains/copy.json").contains("\"../shaders/a.frag\""));
    ChainDescription moved;
    ASSERT_TRUE(loadChain(folder.path("chains/copy.json"), &moved, &error)) << qPrintable(error);
    EXPECT_EQ(linesOf(moved), QStringList());
}

TEST(ShaderPassOptionsTest, aMissingFileIsAFindingWithItsPath)
{
    TemporaryFolder folder;
    ChainDescription chain = chainOf(filter(R"("fragment": "none.frag")"));
    chain.folder = folder.path(".");
    EXPECT_EQ(linesOf(chain),
        QStringList(QStringLiteral("error: pass \"filter\", fragment: expected a shader file, found \"%1\", which is "
                                   "not there; relative names are resolved against the folder of the chain file")
                        .arg(folder.path("none.frag"))));
    chain.passes[0].options["fragment"] = folder.path("");
    EXPECT_TRUE(linesOf(chain).value(0).contains("which is not a file")) << qPrintable(linesOf(chain).value(0));
    chain.passes[0].options["fragment"] = 3;
    EXPECT_TRUE(linesOf(chain).value(0).contains("expected the name of a shader file in quotes, found 3"));
}

TEST(ShaderPassOptionsTest, includedFilesBelongToTheShaderFiles)
{
    TemporaryFolder folder;
    const QString shader = folder.write("a.frag", "#version 150\n#include \"b.glslh\"\nvoid main() {}\n");
    const QString included = folder.write("b.glslh", "\n");
    ChainDescription description = chainOf(filter(R"("fragment": "a.frag")"));
    description.folder = folder.path(".");
    RenderChain chain;
    ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    EXPECT_EQ(chain.shaderFiles(), (QStringList{shader, included}));
}

TEST(ShaderPassOptionsTest, aReadyChainTakesItsShaderAlongWhenItIsWritten)
{
    ChainDescription chain;
    QString error;
    ASSERT_TRUE(loadChain("toon", &chain, &error)) << qPrintable(error);
    TemporaryFolder folder;
    ASSERT_TRUE(saveChain(chain, folder.path("toon.json"), &error)) << qPrintable(error);
    EXPECT_TRUE(folder.read("toon.json").contains("\":/Media/Chains/toon.frag\""));
    ASSERT_TRUE(loadChain(folder.path("toon.json"), &chain, &error)) << qPrintable(error);
    EXPECT_EQ(linesOf(chain), QStringList());
}

} // namespace Velmora::Kvz
