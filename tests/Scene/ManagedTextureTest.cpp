// SPDX-License-Identifier: MIT
#include "SceneFixtures.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FixedTextureUnits.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/TextureManager.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/InstanceDataRegistry.h>

#include <QtGui/QImage>

#include <epoxy/gl.h>

#include <cmath>
#include <vector>

namespace Velmora::Kvz {

namespace {

const QString mapColor = QStringLiteral("managedTexture(getMap_Kd(), vo_TexCoord)");

QImage filled(int width, int height, const QColor &color)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(color);
    return image;
}

class ManagedTextureTest : public GLTest
{
protected:
    /// A square of `size` pixels for each material, side by side.
    QSharedPointer<GPUModel> rowOfSquares(const QVector<MaterialData> &materials, float size)
    {
        GPUModelBuilder builder;
        builder.addMesh(unitSquare());
        for (int i = 0; i < materials.size(); ++i)
            builder.addItem(0, builder.addMaterial(materials[i]), placed(float(i) * size, 0, 0, size));
        return builder.build();
    }

    Image draw(GPUModel &model, const QString &color, int width, int height, TextureManager *manager)
    {
        const auto program = makeItemProgram(color);
        RenderTarget target(width, height, GL_RGBA32F);
        AutoBinder binder(program.get());
        program->setUniform(QStringLiteral("u_ProjectionMatrix"), pixelProjection(width, height));
        program->setUniform(QStringLiteral("u_CameraMatrix"), QMatrix4x4());
        model.draw(program.get(), manager, 0, 0);
        return target.read();
    }
};

TEST_F(ManagedTextureTest, imagesOfSeveralSizesAndNone)
{
    QVector<MaterialData> materials(8);
    const QSize sizes[] = {{16, 16}, {32, 8}, {8, 8}, {16, 16}, {64, 64}, {2, 2}, {1, 1}};
    for (int i = 0; i < 7; ++i) {
        materials[i].mapKd = filled(sizes[i].width(), sizes[i].height(), QColor::fromRgb(10 * i, 255 - i, i * i, 51));
        materials[i].mapKs = filled(8, 8, QColor::fromRgb(0, 0, i));
    }
    const QSharedPointer<GPUModel> model = rowOfSquares(materials, 4);
    EXPECT_TRUE(log.takeWarnings().isEmpty()); // Six sizes fit.
    Image image = draw(*model, mapColor, 32, 4, TextureManager::Instance());
    for (int i = 0; i < 7; ++i) {
        const QVector4D expected = QVector4D(10 * i, 255 - i, i * i, 51) / 255;
        EXPECT_LT((image.pixel(i * 4 + 2, 2) - expected).length(), 1e-5f) << i;
    }
    EXPECT_EQ(image.pixel(30, 2), QVector4D(1, 1, 1, 1)); // Handle 0.
    image = draw(*model, QStringLiteral("managedTexture(getMap_Ks(), vo_TexCoord)"), 32, 4, TextureManager::Instance());
    EXPECT_NEAR(image.pixel(6 * 4 + 2, 2).z(), 6.0f / 255, 1e-5f);
}

TEST_F(ManagedTextureTest, eightSizesLoseNothing)
{
    // Each image has a fine pattern and is drawn at one texel per pixel, so that a lost texel shows.
    const QSize sizes[] = {{16, 16}, {32, 8}, {8, 8}, {7, 9}, {64, 64}, {2, 2}, {1, 1}, {20, 12}};
    for (const QSize &size : sizes) {
        QVector<MaterialData> materials(8);
        for (int i = 0; i < 8; ++i)
            materials[i].mapKd = filled(sizes[i].width(), sizes[i].height(), Qt::red);
        const int number = int(&size - sizes);
        QImage pattern(size, QImage::Format_RGB32);
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x)
                pattern.setPixelColor(x, y, (x / 2 + y / 2) % 2 ? QColor(250, 200, 10) : QColor(20, 60, 240));
        }
        materials[number].mapKd = pattern;
        GPUModelBuilder builder;
        builder.addMesh(unitSquare());
        QMatrix4x4 matrix;
        const int zoom = size.width() == 1 ? 4 : 1; // derivatives need neighbours
        matrix.scale(float(zoom * size.width()), float(zoom * size.height()));
        for (int i = 0; i < 8; ++i)
            builder.addMaterial(materials[i]);
        // The others are outside the picture.
        for (int i = 0; i < 8; ++i)
            builder.addItem(0, i, i == number ? matrix : placed(1000, 0, 0, 4));
        const QSharedPointer<GPUModel> model = builder.build();
        const Image image =
            draw(*model, mapColor, zoom * size.width(), zoom * size.height(), TextureManager::Instance());
        float largest = 0;
        for (int y = 0; y < zoom * size.height(); ++y) {
            for (int x = 0; x < zoom * size.width(); ++x) {
                const QRgb texel = pattern.pixel(x / zoom, size.height() - 1 - y / zoom);
                const QVector4D expected = QVector4D(qRed(texel), qGreen(texel), qBlue(texel), 255) / 255;
                largest = qMax(largest, (image.pixel(x, y) - expected).length());
            }
        }
        // Linear magnification only softens the edges of squares of two texels.
        EXPECT_LT(largest, 0.45f) << size.width() << " by " << size.height();
    }
    EXPECT_TRUE(log.takeWarnings().isEmpty());
}

TEST_F(ManagedTextureTest, nearestImagesKeepTheirSquaresInALargerArray)
{
    QVector<MaterialData> materials(7);
    const QSize sizes[] = {{16, 16}, {256, 2}, {64, 64}, {2, 256}, {128, 128}, {96, 48}, {5, 3}};
    for (int i = 0; i < 7; ++i)
        materials[i].mapKd = filled(sizes[i].width(), sizes[i].height(), Qt::red);
    QImage squares(5, 3, QImage::Format_RGB32);
    for (int i = 0; i < 15; ++i)
        squares.setPixelColor(i % 5, i / 5, i % 2 ? Qt::white : Qt::black);
    materials[6].mapKd = squares;
    materials[6].mapKdSampling.magnification = ImageSampling::Nearest;
    const QSharedPointer<GPUModel> model = rowOfSquares(materials, 32);
    model->setModelMatrix(0, placed(1000, 0, 0, 1));
    model->setModelMatrix(6, placed(0, 0, 0, 30));
    // Sampled at the centres of a finer grid: colours never mix, whatever filter the array has.
    const Image image = draw(*model,
        QStringLiteral("managedTexture(getMap_Kd(), (floor(vo_TexCoord * vec2(10.0, 6.0)) + 0.5) / vec2(10.0, 6.0))"),
        30, 30, TextureManager::Instance());
    for (int y = 1; y < 30; y += 5) {
        for (int x = 1; x < 30; x += 3) {
            const float expected = ((x / 6) + 5 * (2 - y / 10)) % 2 ? 1 : 0;
            EXPECT_NEAR(image.pixel(x, y).x(), expected, 1e-5f) << x << ", " << y;
        }
    }
}

TEST_F(ManagedTextureTest, overItsBudgetTheLargestImageShrinksAndOneLineNamesIt)
{
    QVector<MaterialData> materials(2);
    materials[0].mapKd = filled(64, 64, Qt::red);
    materials[0].mapKdSampling.imageName = QStringLiteral("brick.png");
    materials[1].mapKd = filled(16, 16, Qt::green);
    GPUModelBuilder builder;
    builder.addMesh(unitSquare());
    for (int i = 0; i < 2; ++i)
        builder.addItem(0, builder.addMaterial(materials[i]), placed(float(i) * 4, 0, 0, 4));
    builder.setImageBudget(8192);
    QSharedPointer<GPUModel> model = builder.build();
    const QStringList lines = log.takeWarnings();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].contains(QLatin1String("take more than 0.0078125 MiB; scaled down: \"brick.png\" from 64 by "
                                                "64 to 32 by 32"))
        && !lines[0].contains(QLatin1String("16 by 16")))
        << qPrintable(lines[0]);
    const Image image = draw(*model, mapColor, 8, 4, TextureManager::Instance());
    EXPECT_LT((image.pixel(2, 2) - QVector4D(1, 0, 0, 1)).length(), 1e-5f);
    EXPECT_LT((image.pixel(6, 2) - QVector4D(0, 1, 0, 1)).length(), 1e-5f);
    builder.setImageBudget(65536);
    model = builder.build();
    EXPECT_TRUE(log.takeWarnings().isEmpty());
}

TEST_F(ManagedTextureTest, aModelHasTheSameArraysWhateverOtherModelsThereAre)
{
    const auto handlesOf = [](const GPUModel &model) {
        const InstanceDataPlan &plan = InstanceDataRegistry::Instance().getPlan(QStringLiteral("OBJMaterial"));
        QVector<float> handles;
        for (int i = 0; i < model.itemCount(); ++i)
            handles.append(model.materialRows()[i * plan.stride() * 4 + plan.offset(QStringLiteral("getMap_Kd"))]);
        return handles;
    };
    QVector<MaterialData> materials(3);
    materials[0].mapKd = filled(32, 32, Qt::red);
    materials[1].mapKd = filled(16, 16, Qt::green);
    materials[2].mapKd = filled(32, 32, Qt::blue);
    const QVector<float> alone = handlesOf(*rowOfSquares(materials, 4));
    QVector<MaterialData> others(8);
    for (int i = 0; i < 8; ++i)
        others[i].mapKd = filled(3 + i, 11 - i, Qt::yellow);
    const QSharedPointer<GPUModel> other = rowOfSquares(others, 4);
    const int own = TextureManager::Instance()->addManagedTexture(filled(100, 3, Qt::magenta));
    ASSERT_GT(own, 0);
    const QSharedPointer<GPUModel> model = rowOfSquares(materials, 4);
    EXPECT_EQ(handlesOf(*model), alone);
    EXPECT_TRUE(log.takeWarnings().isEmpty());
    const QVector4D expected[] = {{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 1}};
    const Image image = draw(*model, mapColor, 12, 4, TextureManager::Instance());
    for (int i = 0; i < 3; ++i)
        EXPECT_LT((image.pixel(4 * i + 2, 2) - expected[i]).length(), 1e-5f) << i;
    EXPECT_LT(
        (draw(*other, mapColor, 4, 4, TextureManager::Instance()).pixel(2, 2) - QVector4D(1, 1, 0, 1)).length(), 1e-5f);
    TextureManager::Instance()->releaseManagedTexture(own);
}

TEST_F(ManagedTextureTest, rowsOfAHostSampleImagesThatItAddsToTheModel)
{
    QVector<MaterialData> materials(1);
    materials[0].mapKd = filled(8, 8, Qt::red);
    const QSharedPointer<GPUModel> model = rowOfSquares(materials, 4);
    const QImage added = filled(16, 4, Qt::green);
    const int handle = model->addImage(added);
    ASSERT_GT(handle, 0);
    EXPECT_EQ(model->addImage(added), handle);
    EXPECT_EQ(model->addImage(QImage()), 0);
    InstanceDataCollection rows(QStringLiteral("OBJMaterial"));
    rows.setRowCount(1);
    ASSERT_TRUE(rows.setValue(0, QStringLiteral("getMap_Kd"), handle));
    rows.bind(nullptr, nullptr);
    EXPECT_LT(
        (draw(*model, mapColor, 4, 4, TextureManager::Instance()).pixel(2, 2) - QVector4D(0, 1, 0, 1)).length(), 1e-5f);
    rows.unbind(nullptr, nullptr);
    EXPECT_LT(
        (draw(*model, mapColor, 4, 4, TextureManager::Instance()).pixel(2, 2) - QVector4D(1, 0, 0, 1)).length(), 1e-5f);
}

TEST_F(ManagedTextureTest, boundRowsSayWhoseImagesAreBound)
{
    const unsigned int unit = unsigned(FixedTextureUnits::unitOf(QStringLiteral("kvz_ManagedTextures0")));
    const auto boundWidth = [&] {
        TextureManager::Instance()->bindTextures(nullptr);
        glActiveTexture(GL_TEXTURE0 + unit);
        GLint width = 0;
        glGetTexLevelParameteriv(GL_TEXTURE_2D_ARRAY, 0, GL_TEXTURE_WIDTH, &width);
        glActiveTexture(GL_TEXTURE0);
        TextureManager::Instance()->unbindTextures(nullptr);
        return width;
    };
    QVector<MaterialData> materials(1);
    materials[0].mapKd = filled(8, 8, Qt::red);
    const QSharedPointer<GPUModel> first = rowOfSquares(materials, 4);
    materials[0].mapKd = filled(4, 4, Qt::red);
    QSharedPointer<GPUModel> second = rowOfSquares(materials, 4);
    EXPECT_EQ(boundWidth(), 1) << "white stands in";
    AutoBinder outer(first->materialData(0));
    EXPECT_EQ(boundWidth(), 8);
    {
        AutoBinder inner(second->surfaceData());
        EXPECT_EQ(boundWidth(), 4);
    }
    {
        AutoBinder inner(second->materialImages());
        EXPECT_EQ(boundWidth(), 4);
    }
    EXPECT_EQ(boundWidth(), 8);
    second->materialData(0)->bind();
    second.clear();
    EXPECT_EQ(boundWidth(), 8) << "a model that is gone leaves nothing behind";
}

TEST_F(ManagedTextureTest, lowerLeftOfTheImageIsTheOrigin)
{
    QImage quarters(2, 2, QImage::Format_RGB32);
    quarters.setPixelColor(0, 0, Qt::red); // Upper left.
    quarters.setPixelColor(1, 0, Qt::green);
    quarters.setPixelColor(0, 1, Qt::blue);
    quarters.setPixelColor(1, 1, Qt::white);
    MaterialData material;
    material.mapKd = quarters;
    const QSharedPointer<GPUModel> model = rowOfSquares({material}, 4);
    const Image image =
        draw(*model, QStringLiteral("managedTexture(getMap_Kd(), (floor(vo_TexCoord * 2.0) + 0.5) / 2.0)"), 4, 4,
            TextureManager::Instance());
    EXPECT_EQ(image.pixel(0, 3), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(image.pixel(3, 3), QVector4D(0, 1, 0, 1));
    EXPECT_EQ(image.pixel(0, 0), QVector4D(0, 0, 1, 1));
    EXPECT_EQ(image.pixel(3, 0), QVector4D(1, 1, 1, 1));
}

TEST_F(ManagedTextureTest, gradientsChooseTheMipLevel)
{
    // A fine chequerboard: near, single texels show; far away, their mean.
    QImage chequer(64, 64, QImage::Format_RGB32);
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 64; ++x)
            chequer.setPixelColor(x, y, (x + y) % 2 ? Qt::white : Qt::black);
    }
    MaterialData material;
    material.mapKd = chequer;
    const QSharedPointer<GPUModel> model = rowOfSquares({material}, 64);
    const Image near = draw(*model, mapColor, 64, 64, TextureManager::Instance());
    EXPECT_LT(near.pixel(20, 21).x() + near.pixel(21, 21).x(), 1.01f);
    EXPECT_GT(std::abs(near.pixel(20, 21).x() - near.pixel(21, 21).x()), 0.98f);
    model->setModelMatrix(0, placed(0, 0, 0, 16));
    const Image far = draw(*model, mapColor, 16, 16, TextureManager::Instance());
    for (int x = 2; x < 14; ++x)
        EXPECT_NEAR(far.pixel(x, 8).x(), 0.5f, 0.01f);
}

TEST_F(ManagedTextureTest, drawBindsTheTexturesOfItsManager)
{
    class Manager : public TextureManager
    {
    public:
        void bindTextures(ShaderProgram *) override { calls += QLatin1Char('b'); }
        void unbindTextures(ShaderProgram *) override { calls += QLatin1Char('u'); }
        QString calls;
    };
    Manager manager;
    const QSharedPointer<GPUModel> model = rowOfSquares({MaterialData()}, 4);
    draw(*model, mapColor, 4, 4, &manager);
    EXPECT_EQ(manager.calls, QStringLiteral("bu"));
}

TEST_F(ManagedTextureTest, withoutManagerNoMaterialTextureIsBound)
{
    MaterialData material;
    material.kd = {0.25f, 0.5f, 0.75f};
    material.mapKd = filled(8, 8, Qt::red);
    const QSharedPointer<GPUModel> model = rowOfSquares({material}, 4);
    Image image = draw(*model, QStringLiteral("vec4(getKd(), getD())"), 4, 4, nullptr);
    EXPECT_EQ(image.pixel(2, 2), QVector4D(0.25f, 0.5f, 0.75f, 1));
    image = draw(*model, mapColor, 4, 4, nullptr);
    EXPECT_EQ(image.pixel(2, 2).x(), 0.0f);
    log.takeCategory(QStringLiteral("kvz.gl")); // Drivers may comment on the empty units.
}

TEST_F(ManagedTextureTest, modelsShareImagesAndGiveThemBack)
{
    MaterialData material;
    material.mapKd = filled(128, 4, Qt::cyan);
    QSharedPointer<GPUModel> first = rowOfSquares({material}, 4);
    QSharedPointer<GPUModel> second = rowOfSquares({material, material}, 4);
    first.clear();
    EXPECT_LT((draw(*second, mapColor, 8, 4, TextureManager::Instance()).pixel(6, 2) - QVector4D(0, 1, 1, 1)).length(),
        1e-5f);
    second.clear();
    // All six arrays are free again: six sizes fit without resampling.
    QVector<MaterialData> materials(6);
    for (int i = 0; i < 6; ++i)
        materials[i].mapKd = filled(3 + i, 5, Qt::red);
    const QSharedPointer<GPUModel> third = rowOfSquares(materials, 4);
    EXPECT_TRUE(log.takeWarnings().isEmpty());
}

TEST_F(ManagedTextureTest, sixteenSamplersMeetInOneFragmentStage)
{
    // Six arrays, three buffer textures of rows and seven textures of a pass: what GL 3.2 has room for.
    const InstanceDataRegistry &registry = InstanceDataRegistry::Instance();
    MaterialData material;
    material.kd = {0.5f, 0.25f, 1};
    material.mapKd = filled(8, 8, QColor::fromRgb(255, 0, 51));
    const QSharedPointer<GPUModel> model = rowOfSquares({MaterialData(), material}, 4);

    const auto program = makeProgram({
        {GL_VERTEX_SHADER, itemVertexSource(QStringLiteral("TavoInstance"))},
        {GL_VERTEX_SHADER, registry.getPlan(QStringLiteral("TavoInstance")).glslc()},
        {GL_VERTEX_SHADER, QStringLiteral("@KvzUtilities.glslc")},
        {GL_FRAGMENT_SHADER, QStringLiteral(R"(#version 150
#include "TextureManager.glslh"
#include "KvzUtilities.glslh"
#instancedata "InstanceInfo"
#instancedata "OBJMaterial"
uniform usamplerBuffer kvz_DrawCommands;
uniform sampler2D u_Texture0;
uniform sampler2D u_Texture1;
uniform sampler2D u_Texture2;
uniform sampler2D u_Texture3;
uniform sampler2D u_Texture4;
uniform sampler2D u_Texture5;
uniform sampler2D u_Texture6;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    vec2 p = vec2(0.5);
    float sum = texture(u_Texture0, p).r + texture(u_Texture1, p).r + texture(u_Texture2, p).r
        + texture(u_Texture3, p).r + texture(u_Texture4, p).r + texture(u_Texture5, p).r + texture(u_Texture6, p).r;
    float firstIndex = float(texelFetch(kvz_DrawCommands, kvzDrawIndex() * 5 + 2).r);
    float count = float(texelFetch(kvz_DrawCommands, kvzDrawIndex() * 5).r);
    vec3 color = getKd() * managedTexture(getMap_Kd(), vo_TexCoord).rgb;
    out_FragColor = vec4(color.r + getModelMatrix()[3].x * 10.0, color.b, sum, firstIndex * 100.0 + count);
}
)")},
        {GL_FRAGMENT_SHADER, registry.getPlan(QStringLiteral("InstanceInfo")).glslc()},
        {GL_FRAGMENT_SHADER, registry.getPlan(QStringLiteral("OBJMaterial")).glslc()},
        {GL_FRAGMENT_SHADER, QStringLiteral("@TextureManager.glslc")},
        {GL_FRAGMENT_SHADER, QStringLiteral("@KvzUtilities.glslc")},
    });
    GLint samplers = 0;
    GLint uniforms = 0;
    glGetProgramiv(program->programID(), GL_ACTIVE_UNIFORMS, &uniforms);
    for (GLint i = 0; i < uniforms; ++i) {
        GLint size = 0;
        GLenum type = 0;
        char name[64];
        glGetActiveUniform(program->programID(), GLuint(i), sizeof(name), nullptr, &size, &type, name);
        samplers += type == GL_SAMPLER_2D || type == GL_SAMPLER_2D_ARRAY || type == GL_SAMPLER_BUFFER
            || type == GL_UNSIGNED_INT_SAMPLER_BUFFER;
    }
    EXPECT_EQ(samplers, 16 + 1); // Plus the rows of the vertex stage.

    RenderTarget target(8, 4, GL_RGBA32F);
    AutoBinder binder(program.get());
    program->setUniform(QStringLiteral("u_ProjectionMatrix"), pixelProjection(8, 4));
    program->setUniform(QStringLiteral("u_CameraMatrix"), QMatrix4x4());
    std::vector<std::unique_ptr<Texture>> textures;
    std::vector<std::unique_ptr<AutoBinder>> binders;
    for (int i = 0; i < 7; ++i) {
        Image texel(1, 1);
        texel.setPixel(0, 0, QVector4D(float(1 << i), 0, 0, 0));
        textures.push_back(makeTexture(texel, GL_RGBA32F));
        binders.push_back(std::make_unique<AutoBinder>(textures.back().get()));
        program->setUniform(QStringLiteral("u_Texture%1").arg(i), textures.back()->unit());
    }
    const auto commands = model->drawBuffers(0)->getDrawElementsIndirectCommandsUniformBufferObject();
    AutoBinder commandBinder(commands);
    model->draw(program.get(), 0, 0, WindingCounterClockwise, false);
    const Image image = target.read();
    EXPECT_LT((image.pixel(2, 2) - QVector4D(0.8f, 0.8f, 127, 6)).length(), 1e-4f);
    EXPECT_LT((image.pixel(6, 2) - QVector4D(0.5f + 40, 0.2f, 127, 6)).length(), 1e-4f);
    while (!binders.empty())
        binders.pop_back();
}

} // namespace

} // namespace Velmora::Kvz
