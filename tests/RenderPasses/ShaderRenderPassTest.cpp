// SPDX-License-Identifier: MIT
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/PooledTextures.h"

#include <GL/GLExtensions.h>
#include <GL/GLStatistics.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <GL/TextureManager.h>
#include <RenderPasses/ShaderRenderPass.h>

#include <QtCore/QRect>
#include <QtGui/QColor>
#include <QtGui/QMatrix4x4>

#include <epoxy/gl.h>

#include <cmath>
#include <random>

namespace Velmora::Kvz {

namespace {

const QString textureIn = QStringLiteral("Kvz_KvzTexture*_%1");
const QString samplingSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Foo;
in vec2 vo_TexCoord;
out vec4 o_Out;
void main() { o_Out = texture(u_Foo, vo_TexCoord) + vec4(0.25, 0.0, 0.0, 0.25); }
)");

QString constantSource(const QString &color)
{
    return QStringLiteral("#version 150\nout vec4 o_Out;\nvoid main() { o_Out = %1; }\n").arg(color);
}

class ShaderRenderPassTest : public GLTest
{
protected:
    std::unique_ptr<ShaderRenderPass> pass = std::make_unique<ShaderRenderPass>();
    PooledTextures textures;

    void TearDown() override
    {
        pass.reset();
        GLTest::TearDown();
    }

    void setViewport(int width, int height) { pass->setInput(0, QRect(0, 0, width, height)); }
    /// Adds a texture input and connects it; null leaves it open.
    int addTexture(const QString &name, Texture *texture)
    {
        pass->addInput(textureIn.arg(name), QVariant());
        const int index = pass->numInputs() - 1;
        if (texture)
            pass->setInput(index, QVariant::fromValue(texture));
        return index;
    }
    void addOutput(const QString &name = QStringLiteral("Out")) { pass->addOutput(textureIn.arg(name)); }
    Texture *output(int index = 0) const { return pass->output(index).value<Texture *>(); }
    /// Runs a frame and reads an output, whose texture then goes back to the pool.
    Image run(int index = 0)
    {
        pass->start(nullptr);
        return output(index) ? readTexture(output(index)) : Image();
    }
    QVector4D pixelOf(const Image &image) const { return image.pixel(image.width / 2, image.height / 2); }
};

Image randomImage(int width, int height)
{
    std::mt19937 random(3);
    Image image(width, height);
    for (float &value : image.data)
        value = float(random() % 256) / 255;
    return image;
}

double distance(const QVector4D &a, const QVector4D &b)
{
    double largest = 0;
    for (int i = 0; i < 4; ++i)
        largest = std::max(largest, std::abs(double(a[i]) - double(b[i])));
    return largest;
}

/// Points as a drawable, `va_Vertex` in clip space.
std::unique_ptr<DrawBuffers> makePoints(const QVector<QVector3D> &positions)
{
    const QSharedPointer<OpenGLDeviceContext> device = OpenGLDeviceContext::current();
    const QSharedPointer<BufferObject> buffer = device->createBufferObject();
    buffer->setTarget(GL_ARRAY_BUFFER);
    buffer->upload(reinterpret_cast<const float *>(positions.constData()), 3 * positions.size(), GL_STATIC_DRAW);
    const QSharedPointer<VertexArrayObject> vao = device->createVertexArrayObject();
    vao->upload(QStringLiteral("va_Vertex"), buffer, 3, GL_FLOAT);
    auto points = std::make_unique<DrawBuffers>(nullptr);
    points->setVAO(vao);
    points->setPrimitiveType(GL_POINTS);
    points->setVertexCount(unsigned(positions.size()));
    return points;
}

/// Half a step of 8 bits.
constexpr double step = 0.5 / 255 + 1e-6;

} // namespace

TEST_F(ShaderRenderPassTest, declaresOneInput)
{
    ASSERT_EQ(pass->numInputs(), 1);
    EXPECT_EQ(pass->inputName(0), QStringLiteral("Kvz_QRect_Viewport"));
    EXPECT_FALSE(pass->defaultValue(0).isValid());
    EXPECT_EQ(pass->numOutputs(), 0);
}

TEST_F(ShaderRenderPassTest, copiesItsInputByDefault)
{
    const Image content = randomImage(21, 13);
    const std::unique_ptr<Texture> texture = makeTexture(content, GL_RGBA8);
    addTexture(QStringLiteral("Input"), texture.get());
    addOutput(QStringLiteral("AnyName"));
    // At its own size the linear filter hits texel centres.
    EXPECT_LE(maximumDifference(run(), content), 1.01 / 255);
    EXPECT_EQ(output()->internalFormat(0), GL_RGBA8);
}

TEST_F(ShaderRenderPassTest, drawsOnePixelWithoutASize)
{
    addTexture(QStringLiteral("Foo"), nullptr);
    addOutput();
    pass->setFragmentShaderSource(constantSource(QStringLiteral("vec4(0.0, 1.0, 0.0, 1.0)")));
    for (const QVariant &viewport : {QVariant(), QVariant(QRect()), QVariant(QStringLiteral("no rectangle"))}) {
        pass->setInput(0, viewport);
        const Image image = run();
        ASSERT_EQ(image.width, 1);
        ASSERT_EQ(image.height, 1);
        EXPECT_EQ(image.pixel(0, 0), QVector4D(0, 1, 0, 1));
    }
    pass->setInput(0, QRect(0, 0, 5, 0));
    const Image image = run();
    EXPECT_EQ(image.width, 5);
    EXPECT_EQ(image.height, 1);
}

TEST_F(ShaderRenderPassTest, takesItsSizeFromTheViewportBeforeTextures)
{
    const std::unique_ptr<Texture> texture =
        makeTexture(filled(1024, 1024, QVector4D(0.2f, 0.4f, 0.6f, 0.8f)), GL_RGBA8);
    addTexture(QStringLiteral("Input"), texture.get());
    addOutput();
    setViewport(640, 480);
    const Image image = run();
    EXPECT_EQ(image.width, 640);
    EXPECT_EQ(image.height, 480);
    EXPECT_LE(maximumDifference(image, filled(640, 480, QVector4D(0.2f, 0.4f, 0.6f, 0.8f))), step);
}

TEST_F(ShaderRenderPassTest, takesBothSidesFromTheFirstConnectedTextureForAViewportWithoutWidth)
{
    const std::unique_ptr<Texture> first = makeTexture(Image(30, 20), GL_RGBA8);
    const std::unique_ptr<Texture> second = makeTexture(Image(50, 40), GL_RGBA8);
    addTexture(QStringLiteral("Open"), nullptr);
    const int firstInput = addTexture(QStringLiteral("First"), first.get());
    addTexture(QStringLiteral("Second"), second.get());
    addOutput();
    pass->setInput(0, QRect(0, 0, 0, 480));
    Image image = run();
    EXPECT_EQ(image.width, 30);
    EXPECT_EQ(image.height, 20);
    pass->setInput(firstInput, QVariant());
    image = run();
    EXPECT_EQ(image.width, 50);
    EXPECT_EQ(image.height, 40);
}

TEST_F(ShaderRenderPassTest, clearsEachFrameUnlessToldNotTo)
{
    // Draws the right half and discards the left.
    addOutput();
    pass->setFragmentShaderSource(
        QStringLiteral("#version 150\nin vec2 vo_TexCoord;\nout vec4 o_Out;\n"
                       "void main() { if (vo_TexCoord.x < 0.5) discard; o_Out = vec4(1.0); }\n"));
    setViewport(8, 4);
    const QVector4D red(1, 0, 0, 1);
    const QVector4D green(0, 1, 0, 1);
    glClearColor(1, 0, 0, 1);
    EXPECT_EQ(run().pixel(1, 1), red);
    EXPECT_EQ(readTexture(output()).pixel(6, 1), QVector4D(1, 1, 1, 1));
    glClearColor(0, 1, 0, 1);
    EXPECT_EQ(run().pixel(1, 1), green);

    // The output has no user, so the pool hands out the same texture again, with its old content.
    pass->setClear(false);
    glClearColor(1, 0, 0, 1);
    GLCallRecorder<&epoxy_glClear> clears;
    EXPECT_EQ(run().pixel(1, 1), green);
    EXPECT_TRUE(clears.calls.empty());
    setViewport(9, 4);
    EXPECT_EQ(run().pixel(1, 1), red) << "a new size clears in any case";
    ASSERT_EQ(clears.calls.size(), 1u);
    EXPECT_EQ(std::get<0>(clears.calls[0]), GLbitfield(GL_COLOR_BUFFER_BIT));
    glClearColor(0, 1, 0, 1);
    EXPECT_EQ(run().pixel(1, 1), red) << "and once only";
    pass->setClear(true);
    EXPECT_EQ(run().pixel(1, 1), green);
}

TEST_F(ShaderRenderPassTest, feedsTransparentBlackToOpenTextureInputs)
{
    const std::unique_ptr<Texture> texture = makeTexture(filled(4, 4, QVector4D(0.5f, 0.5f, 0.5f, 0.5f)), GL_RGBA8);
    const int input = addTexture(QStringLiteral("Foo"), texture.get());
    addOutput();
    setViewport(4, 4);
    pass->setFragmentShaderSource(samplingSource);
    EXPECT_LE(distance(pixelOf(run()), QVector4D(0.75f, 0.5f, 0.5f, 0.75f)), step + 1.0 / 255);
    for (const QVariant &open : {QVariant(), QVariant::fromValue<Texture *>(nullptr), QVariant(7)}) {
        pass->setInput(input, open);
        // The substitute survives being referenced and released in each frame.
        for (int i = 0; i < 3; ++i)
            EXPECT_LE(distance(pixelOf(run()), QVector4D(0.25f, 0, 0, 0.25f)), step);
    }
}

TEST_F(ShaderRenderPassTest, takesFortyTextureInputsWithThreeConnected)
{
    const QVector<int> connected = {5, 17, 39};
    QVector<QVector4D> colors = {QVector4D(1, 0, 0, 0), QVector4D(0, 0.4f, 0, 0), QVector4D(0, 0, 0.6f, 0.2f)};
    std::vector<std::unique_ptr<Texture>> owned;
    QString source = QStringLiteral("#version 150\nin vec2 vo_TexCoord;\nout vec4 o_Out;\n");
    for (int i = 0; i < 40; ++i) {
        const int which = connected.indexOf(i);
        if (which >= 0)
            owned.push_back(makeTexture(filled(3, 3, colors[which]), GL_RGBA8));
        addTexture(QStringLiteral("T%1").arg(i), which >= 0 ? owned.back().get() : nullptr);
        source += QStringLiteral("uniform sampler2D u_T%1;\n").arg(i);
    }
    // As many samplers as every driver must have units, open inputs among them.
    source += QStringLiteral("void main() { o_Out = ");
    for (const int i : {5, 17, 39, 0, 1, 6, 16, 20, 30, 38})
        source += QStringLiteral("texture(u_T%1, vo_TexCoord) + ").arg(i);
    source += QStringLiteral("vec4(0.0); }\n");
    pass->setFragmentShaderSource(source);
    addOutput();
    setViewport(6, 6);
    GLCallRecorder<&epoxy_glActiveTexture> units;
    for (int frame = 0; frame < 2; ++frame) {
        EXPECT_LE(maximumDifference(run(), filled(6, 6, QVector4D(1, 0.4f, 0.6f, 0.2f))), step + 1e-3);
    }
    GLenum highest = 0;
    for (const auto &[unit] : units.calls)
        highest = std::max(highest, unit);
    EXPECT_LE(highest, GLenum(GL_TEXTURE4)) << "all the open ones share a unit";
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
}

TEST_F(ShaderRenderPassTest, takesMoreInputsThanItsScratchArrayHolds)
{
    const std::unique_ptr<Texture> texture = makeTexture(filled(2, 2, QVector4D(0.25f, 0.5f, 0.75f, 1)), GL_RGBA8);
    for (int i = 0; i < 299; ++i)
        addTexture(QStringLiteral("Unused%1").arg(i), i == 200 ? texture.get() : nullptr);
    addTexture(QStringLiteral("Input"), texture.get());
    addOutput();
    EXPECT_LE(maximumDifference(run(), filled(2, 2, QVector4D(0.25f, 0.5f, 0.75f, 1))), 1.0 / 255);
}

TEST_F(ShaderRenderPassTest, attachesOutputsInTheOrderOfTheirPorts)
{
    addOutput(QStringLiteral("A"));
    pass->addOutput(QStringLiteral("Kvz_int_Count"));
    addOutput(QStringLiteral("B"));
    addOutput(QStringLiteral("C"));
    pass->setFragmentShaderSource(
        QStringLiteral("#version 150\nout vec4 o_C;\nout vec4 o_A;\nout vec4 o_B;\nvoid main() {\n"
                       "o_C = vec4(0.0, 0.0, 1.0, 1.0);\no_B = vec4(0.0, 1.0, 0.0, 1.0);\n"
                       "o_A = vec4(1.0, 0.0, 0.0, 1.0);\n}\n"));
    setViewport(5, 3);
    for (int i = 0; i < 4; ++i)
        pass->setNumOutputUsers(i, i + 1);
    QVector<unsigned int> points;
    GLCallRecorder<&epoxy_glFramebufferTexture2D> attachments;
    pass->start(nullptr);
    for (const auto &call : attachments.calls)
        points.append(std::get<1>(call));
    EXPECT_EQ(
        points.mid(0, 3), (QVector<unsigned int>{GL_COLOR_ATTACHMENT0, GL_COLOR_ATTACHMENT1, GL_COLOR_ATTACHMENT2}));
    EXPECT_EQ(readTexture(output(0)).pixel(2, 1), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(readTexture(output(2)).pixel(2, 1), QVector4D(0, 1, 0, 1));
    EXPECT_EQ(readTexture(output(3)).pixel(2, 1), QVector4D(0, 0, 1, 1));
    EXPECT_FALSE(pass->output(1).isValid()) << "no texture, and so not the pass's to write";
    for (const int i : {0, 2, 3}) {
        EXPECT_EQ(PooledTextures::references(output(i)), i + 1);
        TextureManager::Instance()->releaseTempTextureRef(output(i), i + 1);
    }
}

TEST_F(ShaderRenderPassTest, drawsNowhereWithoutTextureOutputs)
{
    pass->addOutput(QStringLiteral("Kvz_int_Count"));
    pass->setFragmentShaderSource(constantSource(QStringLiteral("vec4(1.0)")));
    setViewport(4, 4);
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(0).isValid());
    // There is nothing to clear.
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION});
    EXPECT_EQ(PooledTextures::allReferences(), 0);
}

TEST_F(ShaderRenderPassTest, writesEightBitsWhateverItReads)
{
    const std::unique_ptr<Texture> texture = makeTexture(filled(4, 4, QVector4D(3, -2, 0.5f, 1)), GL_RGBA32F);
    addTexture(QStringLiteral("Input"), texture.get());
    addOutput();
    EXPECT_LE(distance(pixelOf(run()), QVector4D(1, 0, 0.5f, 1)), step);
    EXPECT_EQ(output()->internalFormat(0), GL_RGBA8);
}

TEST_F(ShaderRenderPassTest, setsUniformsOfEachType)
{
    struct Case
    {
        const char *declaration;
        QVariant value;
        const char *check; ///< Of x; true for the value alone.
        QVariant other;
    };
    QMatrix4x4 matrix;
    matrix(0, 3) = 7;
    matrix(2, 1) = -3;
    const QVector<Case> cases = {
        {"bool", true, "x", false},
        {"int", 42, "x == 42", 41},
        {"float", 2.5, "x == 2.5", 2.25},
        {"float", 0.75f, "x == 0.75", 0.5f},
        {"vec4", QRect(3, 4, 50, 60), "x == vec4(3.0, 4.0, 50.0, 60.0)", QRect(3, 4, 50, 61)},
        {"ivec4", QRect(3, 4, 50, 60), "x == ivec4(3, 4, 50, 60)", QRect(4, 4, 50, 60)},
        {"vec2", QSize(640, 480), "x == vec2(640.0, 480.0)", QSize(640, 1)},
        {"ivec2", QSize(640, 480), "x == ivec2(640, 480)", QSize(1, 480)},
        {"vec4", QColor(255, 0, 51, 0), "distance(x, vec4(1.0, 0.0, 0.2, 0.0)) < 1e-5", QColor(255, 0, 51, 255)},
        {"mat4", matrix, "x[3][0] == 7.0 && x[1][2] == -3.0 && x[0][0] == 1.0 && x[0][3] == 0.0", QMatrix4x4()},
        {"vec2", QVector2D(0.5f, -1), "x == vec2(0.5, -1.0)", QVector2D(-1, 0.5f)},
        {"vec3", QVector3D(1, 2, 3), "x == vec3(1.0, 2.0, 3.0)", QVector3D(1, 2, 4)},
        {"vec4", QVector4D(1, 2, 3, 4), "x == vec4(1.0, 2.0, 3.0, 4.0)", QVector4D(0, 2, 3, 4)},
    };
    for (const Case &each : cases) {
        // Plain names and names of the port grammar alike: the uniform is named exactly like the port.
        for (const QString &name : {QStringLiteral("u_Value"), QStringLiteral("Kvz_anything_Value")}) {
            ShaderRenderPass own;
            own.addInput(name, QVariant());
            own.addOutput(QStringLiteral("Kvz_KvzTexture*_Out"));
            own.setFragmentShaderSource(
                QStringLiteral("#version 150\nuniform %1 %2;\nout vec4 o_Out;\nbool isRight(%1 x) { return %3; }\n"
                               "void main() { o_Out = isRight(%2) ? vec4(1.0) : vec4(0.0); }\n")
                    .arg(QLatin1String(each.declaration), name, QLatin1String(each.check)));
            for (const bool isRight : {false, true, false}) {
                own.setInput(1, isRight ? each.value : each.other);
                own.start(nullptr);
                EXPECT_EQ(readTexture(own.output(0).value<Texture *>()).pixel(0, 0).x(), isRight ? 1.0f : 0.0f)
                    << each.declaration << ' ' << each.value.typeName();
            }
        }
    }
}

TEST_F(ShaderRenderPassTest, skipsValuesOfOtherTypesAndNamesThatAreNotUniforms)
{
    pass->addInput(QStringLiteral("u_Value"), QVariant());
    pass->addInput(QStringLiteral("u_Missing"), 3);
    addOutput();
    pass->setFragmentShaderSource(QStringLiteral("#version 150\nuniform float u_Value;\nout vec4 o_Out;\n"
                                                 "void main() { o_Out = vec4(u_Value); }\n"));
    for (const QVariant &other : {QVariant(), QVariant(QStringLiteral("1")), QVariant(1u), QVariant(qlonglong(1)),
             QVariant(QPoint(1, 1)), QVariant(QVariantList{1.0}), QVariant(QByteArray("1"))}) {
        pass->setInput(1, other);
        EXPECT_EQ(run().pixel(0, 0).x(), 0.0f) << other.typeName();
    }
    pass->setInput(1, 1.0f);
    EXPECT_EQ(run().pixel(0, 0).x(), 1.0f);
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(ShaderRenderPassTest, letsASubclassSetUniforms)
{
    class Extended : public ShaderRenderPass
    {
    public:
        int calls = 0;
        void setUniforms() override
        {
            ++calls;
            ASSERT_NE(program(), nullptr);
            EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), int(program()->programID()));
            GLint unit = 0;
            glGetUniformiv(program()->programID(), glGetUniformLocation(program()->programID(), "u_Foo"), &unit);
            EXPECT_GT(unit, 0) << "samplers are set before";
            ShaderRenderPass::setUniforms();
            program()->setUniform(QStringLiteral("u_Further"), 0.5f);
        }
        const ShaderProgram *built() const { return program(); }
    };
    const std::unique_ptr<Texture> texture = makeTexture(filled(2, 2, QVector4D(0, 0, 0, 1)), GL_RGBA8);
    Extended extended;
    extended.addInput(QStringLiteral("u_Own"), 0.25f);
    extended.addInput(textureIn.arg(QStringLiteral("Foo")), QVariant::fromValue(texture.get()));
    extended.addOutput(textureIn.arg(QStringLiteral("Out")));
    extended.setFragmentShaderSource(QStringLiteral(
        "#version 150\nuniform float u_Own;\nuniform float u_Further;\nuniform sampler2D u_Foo;\n"
        "out vec4 o_Out;\nvoid main() { o_Out = texture(u_Foo, vec2(0.5)) + vec4(u_Own, u_Further, 0.0, 0.0); }\n"));
    EXPECT_EQ(extended.built(), nullptr);
    extended.start(nullptr);
    EXPECT_EQ(extended.calls, 1);
    EXPECT_LE(
        distance(readTexture(extended.output(0).value<Texture *>()).pixel(0, 0), QVector4D(0.25f, 0.5f, 0, 1)), step);

    // Before the first frame there are no uniforms to set.
    ShaderRenderPass().setUniforms();
}

TEST_F(ShaderRenderPassTest, drawsPointsOfAGeometryInput)
{
    // Pixel centres of an image of 16 by 8, in clip space.
    const auto at = [](float x, float y) { return QVector3D((x + 0.5f) / 8 - 1, (y + 0.5f) / 4 - 1, 0); };
    const std::unique_ptr<DrawBuffers> points = makePoints({at(2, 2), at(9, 5), at(14, 1)});
    const std::unique_ptr<DrawBuffers> onePoint = makePoints({at(5, 6)});
    pass->addInput(QStringLiteral("Kvz_KvzDrawBuffers*_Geo"), QVariant());
    pass->addInput(QStringLiteral("u_Size"), 3.0f);
    addOutput();
    pass->setVertexShaderSource(
        QStringLiteral("#version 150\nuniform float u_Size;\nin vec3 va_Vertex;\nvoid main() {\n"
                       "gl_Position = vec4(va_Vertex, 1.0);\ngl_PointSize = u_Size;\n}\n"));
    pass->setFragmentShaderSource(constantSource(QStringLiteral("vec4(1.0, 0.5, 0.0, 1.0)")));
    setViewport(16, 8);
    const auto covered = [](const Image &image, const QVector<QPoint> &centers) {
        int wrong = 0;
        for (int y = 0; y < 8; ++y) {
            for (int x = 0; x < 16; ++x) {
                const bool isCovered = std::any_of(centers.begin(), centers.end(), [&](const QPoint &center) {
                    return std::abs(center.x() - x) <= 1 && std::abs(center.y() - y) <= 1;
                });
                wrong += (image.pixel(x, y).x() == 1) == isCovered ? 0 : 1;
            }
        }
        return wrong == 0;
    };
    const GLObjectCounts before = glObjectCounts();
    pass->setInput(1, QVariant::fromValue(points.get()));
    EXPECT_TRUE(covered(run(), {QPoint(2, 2), QPoint(9, 5), QPoint(14, 1)}));
    EXPECT_FALSE(glFlag(GL_PROGRAM_POINT_SIZE)) << "on for the draw alone";
    // Vertex arrays are set up for each frame's geometry, even if it comes as a plain QObject.
    pass->setInput(1, QVariant::fromValue<QObject *>(onePoint.get()));
    EXPECT_TRUE(covered(run(), {QPoint(5, 6)}));
    EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays + 2) << "no quad is made";
    // Without geometry the quad is drawn; then the points again.
    pass->setInput(1, QVariant());
    EXPECT_LE(maximumDifference(run(), filled(16, 8, QVector4D(1, 0.5f, 0, 1))), step);
    pass->setInput(1, QVariant::fromValue(points.get()));
    EXPECT_TRUE(covered(run(), {QPoint(2, 2), QPoint(9, 5), QPoint(14, 1)}));

    // A host that has point sizes enabled finds them enabled afterwards.
    glEnable(GL_PROGRAM_POINT_SIZE);
    pass->start(nullptr);
    EXPECT_TRUE(glFlag(GL_PROGRAM_POINT_SIZE));
    glDisable(GL_PROGRAM_POINT_SIZE);
    const Image picture = readTexture(output());
    saveForViewing(picture, QStringLiteral("shader-points"));

    // A drawable without arrays draws nothing.
    const DrawBuffers empty(nullptr);
    pass->setInput(1, QVariant::fromValue(const_cast<DrawBuffers *>(&empty)));
    EXPECT_EQ(maximumDifference(run(), Image(16, 8)), 0);
}

TEST_F(ShaderRenderPassTest, drawsAMeshWithItsOwnAttributes)
{
    const std::unique_ptr<DrawBuffers> box = makeDrawBuffers(boxMesh());
    pass->addInput(QStringLiteral("Kvz_KvzDrawBuffers*_Mesh"), QVariant::fromValue(box.get()));
    pass->addInput(QStringLiteral("u_Matrix"), QVariant());
    addOutput();
    pass->setVertexShaderSource(
        QStringLiteral("#version 150\nuniform mat4 u_Matrix;\nin vec3 va_Vertex;\nin vec3 va_Normal;\n"
                       "out vec3 normal;\nvoid main() {\nnormal = va_Normal;\n"
                       "gl_Position = u_Matrix * vec4(va_Vertex, 1.0);\n}\n"));
    pass->setFragmentShaderSource(QStringLiteral("#version 150\nin vec3 normal;\nout vec4 o_Out;\n"
                                                 "void main() { o_Out = vec4(normal * 0.5 + 0.5, 1.0); }\n"));
    setViewport(32, 32);
    // There is no depth buffer; culling back faces leaves the face towards the viewer.
    glEnable(GL_CULL_FACE);
    QMatrix4x4 half;
    half.scale(0.5f, 0.5f, -0.5f);
    pass->setInput(2, half);
    const Image image = run();
    saveForViewing(image, QStringLiteral("shader-mesh"));
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 32; ++x) {
            const bool isInside = x >= 8 && x < 24 && y >= 8 && y < 24;
            const QVector4D expected = isInside ? QVector4D(0.5f, 0.5f, 1, 1) : QVector4D();
            ASSERT_LE(distance(image.pixel(x, y), expected), step + 1e-3) << x << ' ' << y;
        }
    }
}

TEST_F(ShaderRenderPassTest, runsATessellationPair)
{
    ASSERT_TRUE(hasGLExtension("ARB_tessellation_shader"));
    addOutput();
    pass->setVertexShaderSource(
        QStringLiteral("#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"));
    pass->setTessellationControlShaderSource(QStringLiteral(R"(#version 150
#extension GL_ARB_tessellation_shader : require
uniform float u_Level;
layout(vertices = 3) out;
void main()
{
    gl_out[gl_InvocationID].gl_Position = gl_in[gl_InvocationID].gl_Position;
    gl_TessLevelInner[0] = u_Level;
    for (int i = 0; i < 3; ++i)
        gl_TessLevelOuter[i] = u_Level;
}
)"));
    // 0 at each corner and 1 in the middle: only the added vertices show it.
    pass->setTessellationEvaluationShaderSource(QStringLiteral(R"(#version 150
#extension GL_ARB_tessellation_shader : require
layout(triangles, equal_spacing, ccw) in;
out float hill;
void main()
{
    vec3 c = gl_TessCoord;
    gl_Position = c.x * gl_in[0].gl_Position + c.y * gl_in[1].gl_Position + c.z * gl_in[2].gl_Position;
    hill = 27.0 * c.x * c.y * c.z;
}
)"));
    pass->setFragmentShaderSource(QStringLiteral("#version 150\nin float hill;\nout vec4 o_Out;\n"
                                                 "void main() { o_Out = vec4(hill, 1.0, 0.0, 1.0); }\n"));
    pass->addInput(QStringLiteral("u_Level"), 1.0f);
    setViewport(96, 96);
    EXPECT_EQ(maximumDifference(run(), filled(96, 96, QVector4D(0, 1, 0, 1))), 0) << "two plain triangles";
    pass->setInput(1, 12.0f);
    const Image image = run();
    saveForViewing(image, QStringLiteral("shader-tessellation"));
    // The inner vertices of the quad's two triangles lie at thirds, on one diagonal or the other.
    const float rising = std::min(image.pixel(64, 32).x(), image.pixel(32, 64).x());
    const float falling = std::min(image.pixel(32, 32).x(), image.pixel(64, 64).x());
    EXPECT_GT(std::max(rising, falling), 0.9f);
    EXPECT_LT(image.pixel(0, 0).x() + image.pixel(95, 95).x() + image.pixel(0, 95).x() + image.pixel(95, 0).x(), 0.1f);
    for (int i = 0; i < 96 * 96; ++i)
        ASSERT_EQ(image.pixel(i % 96, i / 96).y(), 1.0f) << "the quad is covered";
}

TEST_F(ShaderRenderPassTest, runsAGeometryStage)
{
    addOutput();
    pass->setGeometryShaderSource(QStringLiteral(R"(#version 150
layout(triangles) in;
layout(triangle_strip, max_vertices = 3) out;
void main()
{
    for (int i = 0; i < 3; ++i) {
        gl_Position = vec4(gl_in[i].gl_Position.xy * 0.5, 0.0, 1.0);
        EmitVertex();
    }
    EndPrimitive();
}
)"));
    pass->setVertexShaderSource(
        QStringLiteral("#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"));
    pass->setFragmentShaderSource(constantSource(QStringLiteral("vec4(1.0)")));
    setViewport(16, 16);
    const Image image = run();
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 16; ++x)
            ASSERT_EQ(image.pixel(x, y).x() == 1, x >= 4 && x < 12 && y >= 4 && y < 12) << x << ' ' << y;
    }
}

TEST_F(ShaderRenderPassTest, blendsAsToldAndTurnsBlendingOff)
{
    addOutput();
    pass->setFragmentShaderSource(constantSource(QStringLiteral("vec4(0.5, 0.25, 1.0, 0.25)")));
    setViewport(4, 4);
    glClearColor(0.25f, 0.5f, 0.125f, 0.75f);
    const QVector4D source(0.5f, 0.25f, 1, 0.25f);
    const QVector4D target(0.25f, 0.5f, 0.125f, 0.75f);
    const QVector4D sum = source + target;
    // The weight of the source falls as its alpha rises.
    const QVector4D mixed = source * 0.75f + target * 0.25f;
    struct Case
    {
        int mode;
        QVector4D expected;
    };
    for (const Case &each : {Case{ShaderRenderPass::BlendNone, source}, Case{ShaderRenderPass::BlendAlpha, mixed},
             Case{ShaderRenderPass::BlendAdditive, QVector4D(sum.x(), sum.y(), 1, 1)}, Case{7, mixed}, Case{-1, mixed},
             Case{ShaderRenderPass::BlendNone, source}}) {
        pass->setBlend(ShaderRenderPass::BlendMode(each.mode));
        glEnable(GL_BLEND);
        glBlendFunc(GL_ZERO, GL_ZERO);
        EXPECT_LE(distance(pixelOf(run()), each.expected), step + 1.0 / 255) << each.mode;
        EXPECT_FALSE(glFlag(GL_BLEND)) << each.mode;
    }
}

TEST_F(ShaderRenderPassTest, rewritesTheSamplerStateOfItsInputsEachFrame)
{
    const std::unique_ptr<Texture> texture = makeTexture(Image(4, 4), GL_RGBA8);
    addTexture(QStringLiteral("Input"), texture.get());
    addOutput();
    const QVector<QPair<GLenum, GLint>> state = {{GL_TEXTURE_MAG_FILTER, GL_LINEAR}, {GL_TEXTURE_MIN_FILTER, GL_LINEAR},
        {GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE}, {GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE}};
    for (int frame = 0; frame < 2; ++frame) {
        texture->bind();
        for (const GLenum filter : {GL_TEXTURE_MAG_FILTER, GL_TEXTURE_MIN_FILTER})
            glTexParameteri(GL_TEXTURE_2D, filter, GL_NEAREST);
        for (const GLenum wrap : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T})
            glTexParameteri(GL_TEXTURE_2D, wrap, GL_REPEAT);
        texture->unbind();
        pass->start(nullptr);
        texture->bind();
        for (const auto &[parameter, expected] : state) {
            GLint value = 0;
            glGetTexParameteriv(GL_TEXTURE_2D, parameter, &value);
            EXPECT_EQ(value, expected);
        }
        texture->unbind();
    }
}

TEST_F(ShaderRenderPassTest, logsAMultisampledInputAndGoesOn)
{
    const std::unique_ptr<Texture> texture =
        makeMultisampleTexture(filled(4, 4, QVector4D(0.2f, 0.4f, 0.6f, 1)), GL_RGBA8, 4);
    addTexture(QStringLiteral("Foo"), texture.get());
    addOutput();
    setViewport(4, 4);
    pass->setFragmentShaderSource(
        QStringLiteral("#version 150\nuniform sampler2DMS u_Foo;\nout vec4 o_Out;\n"
                       "void main() { o_Out = texelFetch(u_Foo, ivec2(gl_FragCoord.xy), 0); }\n"));
    // A target that the pool has just created gets its parameters too.
    TextureManager *const manager = TextureManager::Instance();
    manager->releaseTempTextureRef(manager->tempTexture(TextureFormat::LowDynamicRange, 4, 4, 1, 1), 1);
    for (int frame = 0; frame < 2; ++frame) {
        GLCallRecorder<&epoxy_glTexParameteri> parameters;
        pass->start(nullptr);
        ASSERT_FALSE(log.messages().isEmpty());
        EXPECT_EQ(log.messages()[0].category, QStringLiteral("default"));
        // It sets the parameters all the same. Multisampled textures have no sampler state, so GL refuses.
        EXPECT_EQ(parameters.calls.size(), 4u);
        takeGLErrors();
        EXPECT_EQ(log.takeCriticals(),
            QStringList{QStringLiteral("[ShaderRenderPass:319] [ !! ] Assertion 'texture->target() != "
                                       "GL_TEXTURE_2D_MULTISAMPLE' failed: Modification of sampler state for a texture "
                                       "with target GL_TEXTURE_2D_MULTISAMPLE is not allowed")});
        EXPECT_LE(distance(pixelOf(readTexture(output())), QVector4D(0.2f, 0.4f, 0.6f, 1)), step);
    }
}

TEST_F(ShaderRenderPassTest, handsOnAndGivesBackReferences)
{
    Texture *const first = textures.take(TextureFormat::HighDynamicRange, 6, 6, 4);
    Texture *const twice = textures.take(TextureFormat::LowDynamicRange, 6, 6, 6);
    const std::unique_ptr<Texture> owned = makeTexture(Image(6, 6), GL_RGBA8);
    addTexture(QStringLiteral("First"), first);
    addTexture(QStringLiteral("Twice"), twice);
    addTexture(QStringLiteral("Again"), twice);
    addTexture(QStringLiteral("Owned"), owned.get());
    addTexture(QStringLiteral("Open"), nullptr);
    addOutput(QStringLiteral("A"));
    addOutput(QStringLiteral("B"));
    pass->setNumOutputUsers(0, 3);
    setViewport(7, 7);
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(first), 3);
    EXPECT_EQ(PooledTextures::references(twice), 4);
    EXPECT_EQ(PooledTextures::references(output(0)), 3);
    EXPECT_EQ(PooledTextures::references(output(1)), 0) << "nobody uses it: it is back in the pool";
    EXPECT_NE(output(0), output(1));
    TextureManager::Instance()->releaseTempTextureRef(output(0), 3);

    pass->skip(nullptr);
    EXPECT_EQ(PooledTextures::references(first), 2);
    EXPECT_EQ(PooledTextures::references(twice), 2);
    EXPECT_FALSE(pass->output(0).isValid());
    EXPECT_FALSE(pass->output(1).isValid());

    pass->start(nullptr);
    TextureManager::Instance()->releaseTempTextureRef(output(0), 3);
    EXPECT_EQ(PooledTextures::references(first), 1);
    EXPECT_EQ(PooledTextures::references(twice), 0);
    EXPECT_EQ(PooledTextures::allReferences(), 1);
    EXPECT_EQ(readTexture(owned.get()).width, 6) << "a texture of the host lives on";
}

TEST_F(ShaderRenderPassTest, buildsItsProgramOnce)
{
    addOutput();
    setViewport(2, 2);
    pass->setFragmentShaderSource(constantSource(QStringLiteral("vec4(1.0, 0.0, 0.0, 1.0)")));
    EXPECT_EQ(run().pixel(0, 0), QVector4D(1, 0, 0, 1));
    const GLObjectCounts before = glObjectCounts();
    pass->setFragmentShaderSource(constantSource(QStringLiteral("vec4(0.0, 1.0, 0.0, 1.0)")));
    pass->setVertexShaderSource(QStringLiteral("nonsense"));
    pass->setGeometryShaderSource(QStringLiteral("nonsense"));
    pass->setTessellationControlShaderSource(QStringLiteral("nonsense"));
    pass->setTessellationEvaluationShaderSource(QStringLiteral("nonsense"));
    EXPECT_EQ(run().pixel(0, 0), QVector4D(1, 0, 0, 1));
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(ShaderRenderPassTest, drawsNothingWithBrokenSources)
{
    addOutput();
    addTexture(QStringLiteral("Foo"), nullptr);
    setViewport(3, 3);
    pass->setFragmentShaderSource(QStringLiteral("#version 150\nvoid main() { this is no GLSL; }\n"));
    glClearColor(0.2f, 0.4f, 0.6f, 0.8f);
    for (int frame = 0; frame < 2; ++frame)
        EXPECT_LE(maximumDifference(run(), filled(3, 3, QVector4D(0.2f, 0.4f, 0.6f, 0.8f))), step);
    // The driver may log under its own category; the pass says nothing.
    log.takeCategory(QStringLiteral("kvz.gl"));
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(ShaderRenderPassTest, tiesPortsByExactPrefixes)
{
    // None of these is a texture port: case counts, and so does the whole prefix.
    const std::unique_ptr<Texture> texture = makeTexture(filled(2, 2, QVector4D(1, 1, 1, 1)), GL_RGBA8);
    for (const char *name : {"kvz_KvzTexture*_Foo", "Kvz_kvztexture*_Foo", "Kvz_KvzTexture_Foo", "Kvz_KvzTexture*"})
        pass->addInput(QString::fromLatin1(name), QVariant::fromValue(texture.get()));
    pass->addOutput(QStringLiteral("kvz_KvzTexture*_Out"));
    addOutput();
    pass->setFragmentShaderSource(samplingSource);
    setViewport(2, 2);
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(0).isValid());
    // The sampler was not set, so it reads unit 0, where nothing is bound.
    EXPECT_EQ(texture->unit(), 0);
    EXPECT_LE(distance(readTexture(output(1)).pixel(0, 0), QVector4D(0.25f, 0, 0, 1)), step);
}

TEST_F(ShaderRenderPassTest, reflectsAllPortsAgainWhenOneIsAddedLate)
{
    // Adding a port late is not supported: earlier ports count twice from then on.
    Texture *const input = textures.take(TextureFormat::LowDynamicRange, 4, 4, 8);
    addTexture(QStringLiteral("Input"), input);
    addOutput();
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(input), 7);
    pass->addInput(QStringLiteral("u_Late"), QVariant());
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(input), 5);
}

TEST_F(ShaderRenderPassTest, setsItsStateAndPutsBindingsBack)
{
    const std::unique_ptr<Texture> texture = makeTexture(Image(4, 4), GL_RGBA8);
    addTexture(QStringLiteral("Input"), texture.get());
    addTexture(QStringLiteral("Open"), nullptr);
    addTexture(QStringLiteral("Again"), texture.get());
    addOutput();
    pass->setInput(0, QRect(20, 30, 10, 8));
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_CULL_FACE);
    glViewport(1, 2, 3, 4);
    pass->start(nullptr);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_TRUE(glFlag(GL_CULL_FACE));
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    const GLint expected[] = {0, 0, 10, 8};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(viewport[i], expected[i]) << "left and top have no say";
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
    EXPECT_EQ(texture->unit(), 0);
}

TEST_F(ShaderRenderPassTest, takesItsObjectsAlong)
{
    addOutput();
    setViewport(4, 4);
    pass->start(nullptr); // Creates what the device and the pool keep.
    const GLObjectCounts before = glObjectCounts();
    {
        ShaderRenderPass other;
        other.setInput(0, QRect(0, 0, 4, 4));
        other.addInput(textureIn.arg(QStringLiteral("Open")), QVariant());
        other.addOutput(textureIn.arg(QStringLiteral("Out")));
        other.start(nullptr);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        EXPECT_LE(glObjectCounts().textures, before.textures + 1) << "the manager's texture of one colour at most";
        other.teardownContextData(nullptr);
        other.start(nullptr);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1) << "it keeps its objects until it is deleted";
    }
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays);
}

} // namespace Velmora::Kvz
