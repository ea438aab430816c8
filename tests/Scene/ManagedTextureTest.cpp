// SPDX-License-Identifier: MIT
#include "SceneFixtures.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/TextureManager.h>
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

TEST_F(ManagedTextureTest, furtherSizesAreResampledWithOneLine)
{
    QVector<MaterialData> materials(7);
    for (int i = 0; i < 6; ++i)
        materials[i].mapKd = filled(1 << i, 1 << i, Qt::red);
    materials[6].mapKd = filled(7, 9, Qt::green);
    const QSharedPointer<GPUModel> model = rowOfSquares(materials, 4);
    const QStringList lines = log.takeWarnings();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].contains(QLatin1String("7 by 9 is resampled to 8 by 8"))) << qPrintable(lines[0]);
    const Image image = draw(*model, mapColor, 28, 4, TextureManager::Instance());
    EXPECT_LT((image.pixel(26, 2) - QVector4D(0, 1, 0, 1)).length(), 0.01f);
    EXPECT_LT((image.pixel(22, 2) - QVector4D(1, 0, 0, 1)).length(), 0.01f);
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
    // A fine chequer: near, single texels show; far, their mean.
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
    log.takeCategory(QStringLiteral("kvz.gl")); // Drivers may remark on the empty units.
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
    EXPECT_EQ(samplers, 16 + 1); // With the vertex stage's rows.

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
