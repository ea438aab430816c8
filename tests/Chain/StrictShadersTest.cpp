// SPDX-License-Identifier: MIT
// Every shader text that reaches the driver satisfies a strict compiler too.
#include "support/DriverClaims.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/ModelChain.h"
#include "support/MultisampleTextures.h"
#include "support/TemporaryFolder.h"

#include <Chain/ChainLibrary.h>
#include <RenderPasses/CameraSpaceZBufferRenderPass.h>
#include <RenderPasses/FastApproximateAntiAliasingRenderPass.h>
#include <RenderPasses/SMAARenderPass.h>
#include <RenderPasses/ScalableAmbientObscuranceRenderPass.h>

#include <QtCore/QDir>
#include <QtCore/QMap>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

const QSize size(64, 48);
const QString validator = QStringLiteral("glslangValidator");

/// A shader as the driver got it.
struct Shader
{
    GLenum stage;
    QByteArray text;
    QString origin; ///< What was drawn when it came for the first time.
};

/// The file suffix that tells the validator the stage.
QString ending(GLenum stage)
{
    switch (stage) {
    case GL_VERTEX_SHADER:
        return QStringLiteral("vert");
    case GL_TESS_CONTROL_SHADER:
        return QStringLiteral("tesc");
    case GL_TESS_EVALUATION_SHADER:
        return QStringLiteral("tese");
    case GL_GEOMETRY_SHADER:
        return QStringLiteral("geom");
    case GL_FRAGMENT_SHADER:
        return QStringLiteral("frag");
    default:
        return QStringLiteral("unknown");
    }
}

/// Whether this message of the validator is accepted: the obscurance shader is kept as published, with lines for
/// compilers that have these extensions.
bool isAccepted(const QString &message, const Shader &shader)
{
    static const QRegularExpression unknownExtension(
        QStringLiteral("^WARNING: 0:\\d+: '#extension' : extension (not supported|is only partially supported): "
                       "GL_(EXT_gpu_shader4|ARB_gpu_shader5)$"));
    const QString published = gSaoFragmentShaderSource.mid(gSaoFragmentShaderSource.indexOf(QLatin1Char('\n')));
    return unknownExtension.match(message).hasMatch() && QString::fromUtf8(shader.text).endsWith(published);
}

/// The text plus what the validator lacks: below version 330 it knows the type of GL_ARB_shader_atomic_counters but not
/// its functions. Line numbers are kept.
QByteArray completed(QByteArray text)
{
    for (const char *const name : {"u_HeadCounter", "u_FragmentCount"}) {
        const QByteArray counter = QByteArray("uniform atomic_uint ") + name + ";";
        text.replace(counter, counter + " uint atomicCounterIncrement(atomic_uint counter);");
    }
    return text;
}

/// The line of a text that a message refers to, and two lines before and after it, numbered.
QString excerpt(const QByteArray &text, const QString &message)
{
    static const QRegularExpression place(QStringLiteral("^\\w+: 0:(\\d+):"));
    const int line = place.match(message).captured(1).toInt();
    const QList<QByteArray> lines = text.split('\n');
    QString shown;
    for (int i = qMax(1, line - 2); i <= qMin(lines.size(), line + 2); ++i) {
        shown += QStringLiteral("%1 %2 | %3\n")
                     .arg(i == line ? QStringLiteral(">") : QStringLiteral(" "))
                     .arg(i, 4)
                     .arg(QString::fromUtf8(lines[i - 1]));
    }
    return shown;
}

/// Compiles each text by itself and fails the test with the validator's messages.
void expectStrictlyRight(const QVector<Shader> &shaders)
{
    const TemporaryFolder folder;
    QStringList files;
    for (const Shader &shader : shaders)
        files.append(
            folder.write(QStringLiteral("%1.%2").arg(files.size()).arg(ending(shader.stage)), completed(shader.text)));
    QProcess process;
    process.start(validator, files);
    if (!process.waitForStarted()) {
        ADD_FAILURE() << "cannot run " << qPrintable(validator) << ": run scripts/setup, which installs glslang-tools";
        return;
    }
    ASSERT_TRUE(process.waitForFinished(60000)) << qPrintable(validator) << " does not end";
    ASSERT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.readAllStandardError(), QByteArray());

    // The output has each file's name, followed by the messages about it.
    int file = -1;
    QMap<int, QStringList> messages;
    const QStringList output = QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'));
    for (const QString &line : output) {
        const QString message = line.trimmed();
        if (files.contains(message)) {
            file = files.indexOf(message);
        } else if (!message.isEmpty()) {
            ASSERT_GE(file, 0) << qPrintable(message);
            if (!isAccepted(message, shaders[file]))
                messages[file].append(message);
        }
    }
    for (auto it = messages.cbegin(); it != messages.cend(); ++it) {
        const Shader &shader = shaders[it.key()];
        ADD_FAILURE() << qPrintable(shader.origin) << ", " << qPrintable(ending(shader.stage)) << ":\n"
                      << qPrintable(it->join(QLatin1Char('\n'))) << '\n'
                      << qPrintable(excerpt(shader.text, it->first()));
    }
    EXPECT_EQ(file, files.size() - 1) << "the validator stopped before its last file";
    EXPECT_TRUE(!messages.isEmpty() || process.exitCode() == 0) << "exit status " << process.exitCode();
}

class StrictShadersTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        sources.onCall = [this](GLuint shader, GLsizei count, const GLchar *const *texts, const GLint *lengths) {
            GLint stage = 0;
            glGetShaderiv(shader, GL_SHADER_TYPE, &stage);
            QByteArray text;
            for (GLsizei i = 0; i < count; ++i)
                text += lengths ? QByteArray(texts[i], lengths[i]) : QByteArray(texts[i]);
            if (known.contains({GLenum(stage), text}))
                return;
            known.insert({GLenum(stage), text});
            shaders.append({GLenum(stage), text, origin});
        };
    }

    /// Renders frames of a chain in a scene with motion. Shader texts from now on belong to this chain.
    void run(const QString &name, const ChainDescription &description)
    {
        origin = name;
        if (!model)
            model = importScene(QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj")).build();
        ASSERT_TRUE(model);
        ModelChain drawn(description, model, size);
        for (int frame = 0; frame < 2; ++frame) {
            QMatrix4x4 matrix = model->modelMatrix(0);
            matrix.translate(0, 0.001f, 0);
            model->setModelMatrix(0, matrix);
            ASSERT_TRUE(drawn.chain.renderFrame()) << qPrintable(drawn.chain.errorString());
        }
    }

    void TearDown() override
    {
        model.clear();
        GLTest::TearDown();
    }

    QString origin;
    QVector<Shader> shaders; ///< All different ones.
    QSet<QPair<GLenum, QByteArray>> known;
    QSharedPointer<GPUModel> model;
    GLCallRecorder<&epoxy_glShaderSource> sources;
};

ChainDescription described(const QByteArray &json)
{
    ChainDescription description;
    QString error;
    EXPECT_TRUE(ChainDescription::fromJson(json, &description, &error)) << qPrintable(error);
    return description;
}

} // namespace

TEST_F(StrictShadersTest, theShadersOfTheReadyChainsAndTheExamples)
{
    QStringList chains = readyChainNames();
    const QDir examples(QStringLiteral(KVZ_SOURCE_DIR "/docs/examples"));
    for (const QString &file : examples.entryList({QStringLiteral("*.json")}))
        chains.append(examples.filePath(file));
    QStringList missingClasses = PassRegistry::standard().classNames();
    for (const QString &chain : qAsConst(chains)) {
        SCOPED_TRACE(qPrintable(chain));
        ChainDescription description;
        QString error;
        ASSERT_TRUE(loadChain(chain, &description, &error)) << qPrintable(error);
        for (const ChainPass &pass : qAsConst(description.passes))
            missingClasses.removeAll(pass.className);
        ASSERT_NO_FATAL_FAILURE(run(QDir(chain).dirName(), description));
    }
    EXPECT_EQ(missingClasses, QStringList()) << "in no chain: their shaders are not looked at";
    expectStrictlyRight(shaders);
}

TEST_F(StrictShadersTest, theShadersOfTheShadowMapsForEachFilterAndDriver)
{
    for (int filter = 0; filter < 4; ++filter) {
        ChainDescription description = described(R"({"lights": ["directional:35,55", "point:60,60"], "passes": [
            {"name": "maps", "class": "ShadowMapRenderPass", "values": {"Kvz_QSize_MapSize": [32, 32]}}]})");
        description.passes[0].values.insert(QStringLiteral("Kvz_int_FilterType"), filter);
        ASSERT_NO_FATAL_FAILURE(run(QStringLiteral("ShadowMapRenderPass, filter %1").arg(filter), description));
    }
    struct Driver
    {
        QByteArray renderer;
        int geometryVertices;
        QByteArray hiddenExtension;
    };
    // Batches in the geometry stage, the vertex stage with both ways to filter, and one layer at a time.
    const QByteArray viewportLayer = "GL_ARB_shader_viewport_layer_array";
    const Driver drivers[] = {{"AMD", 24, viewportLayer}, {"Test", 4, {}}, {"Test", 3, {}}, {"Test", 4, viewportLayer},
        {"Test", 3, viewportLayer}};
    for (const Driver &driver : drivers) {
        const DriverClaims claims(driver.renderer, driver.geometryVertices, driver.hiddenExtension);
        for (int filter = 0; filter < 2; ++filter) {
            ChainDescription description = described(R"({"lights": ["directional:35,55", "point:60,60"], "passes": [
                {"name": "maps", "class": "ShadowMapRenderPass2", "values": {"Kvz_QSize_MapSize": [32, 32]}}]})");
            description.passes[0].values.insert(QStringLiteral("Kvz_int_FilterType"), filter);
            ASSERT_NO_FATAL_FAILURE(run(QStringLiteral("ShadowMapRenderPass2, filter %1, %2, %3 vertices, without '%4'")
                                            .arg(filter)
                                            .arg(QString::fromUtf8(driver.renderer))
                                            .arg(driver.geometryVertices)
                                            .arg(QString::fromUtf8(driver.hiddenExtension)),
                description));
        }
    }
    expectStrictlyRight(shaders);
}

TEST_F(StrictShadersTest, theShadersOfTransparencyWithoutLists)
{
    const DriverClaims claims({}, 0, "GL_ARB_shader_atomic_counters");
    ChainDescription description;
    QString error;
    for (const QString &chain : {QStringLiteral("transparency-lists"), QStringLiteral("transparency-lists-basic")}) {
        ASSERT_TRUE(loadChain(chain, &description, &error)) << qPrintable(error);
        ASSERT_NO_FATAL_FAILURE(run(chain + QStringLiteral(" without lists"), description));
    }
    expectStrictlyRight(shaders);
}

TEST_F(StrictShadersTest, theShadersOfOptions)
{
    const QPair<const char *, const char *> passes[] = {
        {"ModelRenderPass, discardOnDiffuseAlpha",
            R"({"class": "ModelRenderPass", "options": {"discardOnDiffuseAlpha": true}})"},
        {"ItemIdRenderPass", R"({"class": "ItemIdRenderPass"})"},
        {"TransparencyRenderPass",
            R"({"class": "TransparencyRenderPass", "options": {"clearColor": "#506070", "premultiply": false}})"},
        {"GaussianBlurRenderPass, stencilMask",
            R"({"class": "GaussianBlurRenderPass", "options": {"stencilMask": 0.5},
                "values": {"Kvz_float_BlurRadius": 2.5},
                "connections": {"Kvz_KvzTexture*_Input": "back.Kvz_KvzTexture*_Frame"}})"},
        {"ToneMapRenderPass, filmic",
            R"({"name": "tone", "class": "ToneMapRenderPass", "options": {"operator": "filmic"},
                "connections": {"Kvz_KvzTexture*_Indirect": "back.Kvz_KvzTexture*_Frame"}},
                {"class": "TextureToScreenRenderPass",
                    "connections": {"Kvz_KvzTexture*_Texture": "tone.Kvz_KvzTexture*_Linear"}})"},
        {"CutoutAntiAliasingRenderPass, fxaa",
            R"({"class": "CutoutAntiAliasingRenderPass", "options": {"mode": "fxaa"}})"},
        {"CutoutAntiAliasingRenderPass, smaa-4x",
            R"({"class": "CutoutAntiAliasingRenderPass", "options": {"mode": "smaa-4x"},
                "connections": {"Kvz_KvzTexture*_SecondFrame": "back.Kvz_KvzTexture*_Frame"}})"},
        {"ToneMapRenderPass, none", R"({"class": "ToneMapRenderPass", "options": {"operator": "none"}})"},
        {"GaussianBlurRenderPass of one tap",
            R"({"class": "GaussianBlurRenderPass", "values": {"Kvz_float_BlurRadius": 0.25},
                "connections": {"Kvz_KvzTexture*_Input": "back.Kvz_KvzTexture*_Frame"}})"},
    };
    for (const auto &pass : passes) {
        const QByteArray json = R"({"passes": [{"name": "back", "class": "GradientRenderPass"}, )";
        ASSERT_NO_FATAL_FAILURE(run(QString::fromUtf8(pass.first), described(json + pass.second + "]}")));
    }
    expectStrictlyRight(shaders);
}

/// Single-sample and multisampled images for passes that are driven directly.
class StrictShadersOfImagesTest : public StrictShadersTest
{
protected:
    static QVariant give(const std::unique_ptr<Texture> &texture) { return QVariant::fromValue(texture.get()); }

    const Image colour = filled(size.width(), size.height(), QVector4D(0.5f, 0.5f, -1, 1));
    const Image depth = Image(size.width(), size.height(), 1);
};

TEST_F(StrictShadersOfImagesTest, theShadersOfObscurance)
{
    using Pass = ScalableAmbientObscuranceRenderPass;
    enum Kind { None, Plain, Multisampled };
    const auto makeColour = [this](int kind) {
        return kind == None ? nullptr
            : kind == Plain ? makeTexture(colour, GL_RGBA32F)
                            : makeMultisampleTexture(colour, GL_RGBA32F, 4);
    };
    for (int depthKind : {Plain, Multisampled}) {
        for (int positionKind : {None, Plain, Multisampled}) {
            for (int normalKind : {None, Plain, Multisampled}) {
                for (auto processing : {Pass::NormalTransposeInvert, Pass::NormalScreenSpace}) {
                    // Documented as unsupported.
                    if (normalKind == Multisampled && processing == Pass::NormalScreenSpace)
                        continue;
                    origin =
                        QStringLiteral("ScalableAmbientObscuranceRenderPass, depth %1, positions %2, normals %3 as %4")
                            .arg(depthKind)
                            .arg(positionKind)
                            .arg(normalKind)
                            .arg(processing);
                    const std::unique_ptr<Texture> depths = depthKind == Plain
                        ? makeTexture(depth, GL_DEPTH_COMPONENT32F)
                        : makeMultisampleTexture(depth, depth, GL_DEPTH_COMPONENT32F, 4);
                    const std::unique_ptr<Texture> positions = makeColour(positionKind);
                    const std::unique_ptr<Texture> normals = makeColour(normalKind);
                    Pass pass;
                    pass.setNormalProcessing(processing);
                    pass.setInput(Pass::Viewport, QRect(QPoint(), size));
                    pass.setInput(Pass::Depth, give(depths));
                    pass.setInput(Pass::NumberMultisamples, depthKind == Plain ? 1 : 4);
                    if (positions)
                        pass.setInput(Pass::CameraSpacePosition, give(positions));
                    if (normals)
                        pass.setInput(Pass::Normal, give(normals));
                    pass.start(nullptr);
                }
            }
        }
    }
    EXPECT_GE(shaders.size(), 2 + 4 * 4) << "of each kind of source with each kind of normals there is a text";
    expectStrictlyRight(shaders);
}

TEST_F(StrictShadersOfImagesTest, theShadersOfMorphologicalAntiAliasing)
{
    using Pass = SMAARenderPass;
    const std::unique_ptr<Texture> velocity = makeTexture(colour, GL_RGBA16F);
    const std::unique_ptr<Texture> predicate = makeTexture(colour, GL_RGBA16F);
    for (int mode : {Pass::Smaa1X, Pass::SmaaS2X, Pass::SmaaT2X, Pass::Smaa4X}) {
        for (bool isPredicated : {false, true}) {
            origin = QStringLiteral("SMAARenderPass, mode %1%2")
                         .arg(mode)
                         .arg(isPredicated ? QStringLiteral(", predicated") : QString());
            const std::unique_ptr<Texture> frame = mode == Pass::SmaaS2X || mode == Pass::Smaa4X
                ? makeMultisampleTexture(colour, GL_RGBA16F, 2)
                : makeTexture(colour, GL_RGBA16F);
            const int before = shaders.size();
            Pass pass;
            pass.setup(nullptr);
            pass.setInput(Pass::Viewport, QRect(QPoint(), size));
            pass.setInput(Pass::SmaaMode, mode);
            pass.setInput(Pass::Frame, give(frame));
            pass.setInput(Pass::Velocity, give(velocity));
            if (isPredicated)
                pass.setInput(Pass::Predicate, give(predicate));
            pass.start(nullptr);
            EXPECT_TRUE(mode > Pass::SmaaT2X || shaders.size() > before) << qPrintable(origin);
        }
    }

    // Variants that hosts of the include file may request and the pass does not.
    const QByteArray preset = "#define SMAA_PRESET_ULTRA 1";
    const QByteArray others[] = {"#define SMAA_PRESET_LOW 1", "#define SMAA_PRESET_MEDIUM 1",
        "#define SMAA_PRESET_HIGH 1", "", preset + "\n#define SMAA_TRANSPARENCY 1",
        preset + "\n#define SMAA_DISABLE_DIAG_DETECTION", preset + "\n#define SMAA_DISABLE_CORNER_DETECTION"};
    QVector<Shader> variants = shaders;
    for (const Shader &shader : shaders) {
        if (!shader.text.contains(preset))
            continue;
        for (const QByteArray &other : others) {
            Shader variant = shader;
            variant.text.replace(preset, other);
            variant.origin += QStringLiteral(", with \"%1\"").arg(QString::fromUtf8(other));
            variants.append(variant);
        }
    }
    EXPECT_GT(variants.size(), 7 * 15);
    expectStrictlyRight(variants);
}

TEST_F(StrictShadersOfImagesTest, theShadersOfFastApproximateAntiAliasing)
{
    using Pass = FastApproximateAntiAliasingRenderPass;
    const std::unique_ptr<Texture> frame = makeTexture(colour, GL_RGBA16F);
    Pass pass;
    pass.setInput(Pass::Viewport, QRect(QPoint(), size));
    pass.setInput(Pass::Frame, give(frame));
    pass.start(nullptr);

    // The pass uses one setting of the two switches; its texts contain the others too.
    const QByteArray preset = "#define FXAA_QUALITY_PRESET ", green = "#define FXAA_GREEN_AS_LUMA ";
    QVector<QByteArray> texts;
    QStringList presets;
    for (const Shader &shader : qAsConst(shaders)) {
        if (shader.text.contains(preset + "12\n") && shader.text.contains(green + "1\n"))
            texts.append(shader.text);
        static const QRegularExpression branch(QStringLiteral("\\bFXAA_QUALITY_PRESET == (\\d+)"));
        auto it = branch.globalMatch(QString::fromUtf8(shader.text));
        while (it.hasNext())
            presets.append(it.next().captured(1));
    }
    EXPECT_EQ(texts.size(), 2) << "the pass's own and the algorithm's";
    EXPECT_EQ(presets.size(), 17);
    shaders.clear();
    for (const QString &name : qAsConst(presets)) {
        for (const char *luma : {"0", "1"}) {
            for (QByteArray text : qAsConst(texts)) {
                text.replace(preset + "12\n", preset + name.toUtf8() + '\n')
                    .replace(green + "1\n", green + luma + '\n');
                shaders.append({GL_FRAGMENT_SHADER, text,
                    QStringLiteral("FXAA, preset %1, green as luma %2").arg(name, QString::fromUtf8(luma))});
            }
        }
    }
    expectStrictlyRight(shaders);
}

TEST_F(StrictShadersOfImagesTest, theShadersOfPositionsFromMultisampledDepth)
{
    using Pass = CameraSpaceZBufferRenderPass;
    origin = QStringLiteral("CameraSpaceZBufferRenderPass of a multisampled depth image");
    const std::unique_ptr<Texture> depths = makeMultisampleTexture(depth, depth, GL_DEPTH_COMPONENT32F, 4);
    Pass pass;
    pass.setInput(Pass::Viewport, QRect(QPoint(), size));
    pass.setInput(Pass::Depth, give(depths));
    pass.setInput(Pass::NumberMultisamples, 4);
    pass.start(nullptr);
    EXPECT_GE(shaders.size(), 2);
    expectStrictlyRight(shaders);
}

} // namespace Velmora::Kvz
