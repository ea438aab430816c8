// SPDX-License-Identifier: MIT
#include "SceneFixtures.h"

#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>
#include <GL/DrawBuffers.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <GL/VertexArrayObject.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/InstanceDataRegistry.h>
#include <Scene/SurfaceFeature.h>

#include <epoxy/gl.h>

#include <cmath>
#include <cstring>

namespace Velmora::Kvz {

namespace {

const float nan = std::nanf("");

QImage filled(int width, int height, const QColor &color)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(color);
    return image;
}

class SurfaceDataTest : public GLTest
{
protected:
    void expectOneLine(const char *part)
    {
        const QStringList lines = log.takeWarnings();
        ASSERT_EQ(lines.size(), 1) << qPrintable(lines.join(QLatin1Char('\n')));
        EXPECT_TRUE(lines[0].contains(QLatin1String(part))) << qPrintable(lines[0]);
    }

    /// The values of GLSL expressions of type vec4 for each item's row, read by a fragment stage.
    Image valuesOf(GPUModel &model, const QStringList &expressions)
    {
        QString choice;
        for (int i = 0; i < expressions.size(); ++i)
            choice += QStringLiteral("if (place == %1) out_FragColor = %2;\n").arg(i).arg(expressions[i]);
        const InstanceDataRegistry &registry = InstanceDataRegistry::Instance();
        const QString fragment = QStringLiteral(R"(#version 150
#instancedata "SurfaceMaterial"
out vec4 out_FragColor;
void main()
{
    int place = int(gl_FragCoord.x);
    %1
}
)")
                                     .arg(choice);
        const auto program = makeProgram({
            {GL_VERTEX_SHADER, itemVertexSource(QStringLiteral("InstanceInfo"))},
            {GL_VERTEX_SHADER, registry.getPlan(QStringLiteral("InstanceInfo")).glslc()},
            {GL_VERTEX_SHADER, QStringLiteral("@KvzUtilities.glslc")},
            {GL_FRAGMENT_SHADER, fragment},
            {GL_FRAGMENT_SHADER, registry.getPlan(QStringLiteral("SurfaceMaterial")).glslc()},
            {GL_FRAGMENT_SHADER, QStringLiteral("@KvzUtilities.glslc")},
        });
        const int height = model.itemCount();
        RenderTarget target(expressions.size(), height, GL_RGBA32F);
        AutoBinder binder(program.get());
        program->setUniform(QStringLiteral("u_ProjectionMatrix"), pixelProjection(expressions.size(), height));
        program->setUniform(QStringLiteral("u_CameraMatrix"), QMatrix4x4());
        model.draw(program.get(), 0, 0, WindingCounterClockwise, false);
        return target.read();
    }

    /// One item per material, each covering one row of pixels.
    QSharedPointer<GPUModel> columnOf(const QVector<MaterialData> &materials, int width)
    {
        GPUModelBuilder builder;
        builder.addMesh(unitSquare());
        for (int i = 0; i < materials.size(); ++i) {
            QMatrix4x4 matrix;
            matrix.translate(0, float(i));
            matrix.scale(float(width), 1);
            builder.addItem(0, builder.addMaterial(materials[i]), matrix);
        }
        return builder.build();
    }
};

/// The texels of a model's vertex extras as 16-bit numbers.
QVector<quint16> extrasOf(const GPUModel &model)
{
    BufferObject *const buffer = model.vertexExtras().buffer.data();
    QVector<quint16> parts(int(buffer->size() / 2));
    const void *const mapped = buffer->map(GL_READ_ONLY);
    std::memcpy(parts.data(), mapped, size_t(buffer->size()));
    buffer->unmap();
    return parts;
}

} // namespace

TEST_F(SurfaceDataTest, rowsHoldWhatMaterialsSay)
{
    MaterialData material;
    material.kd = {0.1f, 0.2f, 0.3f};
    material.ks = {0.4f, 0.5f, 0.6f};
    material.ns = 77;
    material.d = 0.25f;
    material.emission = {7, 8, 9};
    material.alphaCutoff = 0.75f;
    material.alphaMode = MaterialData::Mask;
    material.isUnlit = true;
    material.isLitFromBothSides = false;
    material.mapKd = filled(4, 4, Qt::red);
    material.mapKs = filled(4, 4, Qt::green);
    material.mapEmission = filled(8, 8, Qt::blue);
    material.mapKdSampling.transform = QTransform(2, 3, 4, 5, 6, 7); // u = 2 u + 4 v + 6, v = 3 u + 5 v + 7
    material.mapKsSampling.transform = QTransform(-2, -3, -4, -5, -6, -7);
    material.mapEmissionSampling.transform = QTransform(12, 13, 14, 15, 16, 17);
    material.mapKdSampling.wrapU = ImageSampling::MirroredRepeat;
    material.mapKdSampling.wrapV = ImageSampling::ClampToEdge;
    material.mapKsSampling.wrapU = ImageSampling::ClampToEdge;
    material.mapKsSampling.wrapV = ImageSampling::MirroredRepeat;
    material.mapKsSampling.uvSet = 1;
    material.mapEmissionSampling.magnification = ImageSampling::Nearest;
    material.mapEmissionSampling.minification = ImageSampling::Nearest;
    material.mapEmissionSampling.mipmaps = false;
    const QStringList expressions = {"vec4(getBaseColour(), getOpacity())", "vec4(getSpecularColour(), getShininess())",
        "vec4(getEmission(), getAlphaCutoff())",
        "vec4(getBaseColourMap(), getSpecularMap(), getEmissionMap(), getSurfaceFlags())",
        "vec4(getBaseColourMapU(), getBaseColourMapSampling())", "vec4(getBaseColourMapV(), getSurfaceId())",
        "vec4(getSpecularMapU(), getSpecularMapSampling())", "vec4(getSpecularMapV(), 0.0)",
        "vec4(getEmissionMapU(), getEmissionMapSampling())", "vec4(getEmissionMapV(), 0.0)"};
    const QSharedPointer<GPUModel> model = columnOf({MaterialData(), material}, expressions.size());
    const Image values = valuesOf(*model, expressions);
    constexpr int sRgb = 256;
    // The two images of equal size are layers 0 and 1 of the first array; the other one is in the second array.
    const QVector4D own[] = {{0.1f, 0.2f, 0.3f, 0.25f}, {0.4f, 0.5f, 0.6f, 77}, {7, 8, 9, 0.75f}, {1, 7, 2, 2 + 4},
        {2, 4, 6, 1 + 8 + sRgb}, {3, 5, 7, 1}, {-2, -4, -6, 2 + 4 + 128 + sRgb}, {-3, -5, -7, 0},
        {12, 14, 16, 16 + 32 + 64 + sRgb}, {13, 15, 17, 0}};
    const QVector4D standard[] = {{0.8f, 0.8f, 0.8f, 1}, {0, 0, 0, 32}, {0, 0, 0, 0.5f}, {0, 0, 0, 1 + 8},
        {1, 0, 0, sRgb}, {0, 1, 0, 0}, {1, 0, 0, sRgb}, {0, 1, 0, 0}, {1, 0, 0, sRgb}, {0, 1, 0, 0}};
    for (int i = 0; i < expressions.size(); ++i) {
        EXPECT_EQ(values.pixel(i, 1), own[i]) << qPrintable(expressions[i]);
        EXPECT_EQ(values.pixel(i, 0), standard[i]) << qPrintable(expressions[i]);
    }
}

TEST_F(SurfaceDataTest, aModelTellsWhatItsRowsAskFor)
{
    MaterialData plain;
    EXPECT_EQ(columnOf({plain}, 1)->surfaceFeatures(), 0);

    MaterialData painted;
    painted.mapKd = filled(4, 4, Qt::red);
    EXPECT_EQ(columnOf({plain, painted}, 1)->surfaceFeatures(), SurfaceBaseColourMap | SurfaceFirstImageArray);

    MaterialData glowing;
    glowing.mapEmission = filled(8, 8, Qt::blue);
    glowing.mapEmissionSampling.uvSet = 1;
    glowing.alphaMode = MaterialData::Mask;
    // The sampling of a material without an image adds no feature.
    glowing.mapKdSampling.wrapU = ImageSampling::ClampToEdge;
    EXPECT_EQ(columnOf({painted, glowing}, 1)->surfaceFeatures(),
        SurfaceBaseColourMap | SurfaceEmissionMap | SurfaceSecondTexCoords | SurfaceMask | SurfaceFirstImageArray
            | SurfaceFirstImageArray << 1);

    MaterialData shiningByItself;
    shiningByItself.emission = QVector3D(0, 0.1f, 0);
    EXPECT_EQ(columnOf({plain, shiningByItself}, 1)->surfaceFeatures(), SurfaceEmission);
    MaterialData unlit;
    unlit.isUnlit = true;
    EXPECT_EQ(columnOf({unlit, plain}, 1)->surfaceFeatures(), SurfaceEmission);

    for (void (*choose)(ImageSampling *) : {+[](ImageSampling *s) { s->wrapU = ImageSampling::MirroredRepeat; },
             +[](ImageSampling *s) { s->wrapV = ImageSampling::ClampToEdge; },
             +[](ImageSampling *s) { s->magnification = ImageSampling::Nearest; },
             +[](ImageSampling *s) { s->minification = ImageSampling::Nearest; },
             +[](ImageSampling *s) { s->mipmaps = false; }}) {
        MaterialData shining;
        shining.mapKs = filled(4, 4, Qt::green);
        choose(&shining.mapKsSampling);
        EXPECT_EQ(
            columnOf({shining}, 1)->surfaceFeatures(), SurfaceSpecularMap | SurfaceImageModes | SurfaceFirstImageArray);
    }
}

TEST_F(SurfaceDataTest, rowsOfAHostMayAskForAll)
{
    const QSharedPointer<GPUModel> model = columnOf({MaterialData()}, 1);
    InstanceDataCollection rows(QStringLiteral("SurfaceMaterial"));
    rows.setRowCount(1);
    rows.bind(nullptr, nullptr);
    EXPECT_EQ(model->surfaceFeatures(), AllSurfaceFeatures);
    rows.unbind(nullptr, nullptr);
    EXPECT_EQ(model->surfaceFeatures(), 0);
}

TEST_F(SurfaceDataTest, shadersLeaveOutWhatNoRowAsksFor)
{
    const auto samplersFor = [](int features) {
        GLSLMacroProcessor macros;
        macros.addDefine(QStringLiteral("KVZ_SURFACE_FEATURES"), QString::number(features));
        ShaderProgram program(nullptr);
        program.setMacroProcessor(&macros);
        program.addShader(GL_VERTEX_SHADER, itemVertexSource(QStringLiteral("InstanceInfo")), QString());
        program.addShader(GL_VERTEX_SHADER,
            InstanceDataRegistry::Instance().getPlan(QStringLiteral("InstanceInfo")).glslc(), QString());
        program.addShaderFromFile(GL_VERTEX_SHADER, QStringLiteral("KvzUtilities.glslc"));
        program.addShader(GL_FRAGMENT_SHADER, QStringLiteral(R"(#version 150
#include "Surface.glslh"
uniform vec2 u_Place;
out vec4 out_FragColor;
void main()
{
    SurfacePlace place;
    place.colour = vec4(1.0);
    for (int i = 0; i < 2; ++i) {
        place.texCoords[i] = u_Place;
        place.texCoordsX[i] = u_Place.yx;
        place.texCoordsY[i] = u_Place;
    }
    Surface surface = surfaceAt(place);
    out_FragColor = vec4(surface.baseColour + surface.specular + surface.emission, 1.0);
}
)"),
            QString());
        program.addShader(GL_FRAGMENT_SHADER,
            InstanceDataRegistry::Instance().getPlan(QStringLiteral("SurfaceMaterial")).glslc(), QString());
        for (const char *file : {"Surface.glslc", "SurfaceTextures.glslc", "KvzUtilities.glslc"})
            program.addShaderFromFile(GL_FRAGMENT_SHADER, QString::fromLatin1(file));
        program.compile();
        program.link();
        EXPECT_TRUE(program.isLinked()) << features;
        QString found;
        for (int i = 0; i < 6; ++i) {
            if (program.getUniformLocation(QStringLiteral("kvz_ManagedTextures%1").arg(i)) >= 0)
                found += QString::number(i);
        }
        return found.toStdString();
    };
    EXPECT_EQ(samplersFor(0), "");
    EXPECT_EQ(samplersFor(SurfaceMask), "");
    EXPECT_EQ(samplersFor(SurfaceBaseColourMap | SurfaceFirstImageArray << 2), "2");
    EXPECT_EQ(
        samplersFor(SurfaceSpecularMap | SurfaceImageModes | SurfaceFirstImageArray | SurfaceFirstImageArray << 5),
        "05");
    EXPECT_EQ(samplersFor(SurfaceEmissionMap | SurfaceSecondTexCoords | SurfaceFirstImageArray << 1), "1");
    EXPECT_EQ(samplersFor(AllSurfaceFeatures), "012345");
}

TEST_F(SurfaceDataTest, vertexExtrasArePackedAndAreAttributes)
{
    MeshData plain = unitSquare();
    MeshData coloured = unitSquare();
    coloured.colours = {{0, 1, 0.5f, 1}, {2, -1, 0, 0}, {0.25f, 0.25f, 0.25f, 0.25f}, {1, 1, 1, 1}};
    MeshData mapped = unitSquare();
    mapped.texCoords1 = {{0.5f, -7}, {1, 2}, {3, 4}, {5, 6}};
    mapped.tangents = {{1, 0, 0, -1}, {0, -1, 0, 1}, {0, 0, 0.5f, 1}, {1, 0, 0, 1}};
    GPUModelBuilder builder;
    const int material = builder.addMaterial({});
    for (const MeshData &mesh : {plain, coloured, mapped})
        builder.addItem(builder.addMesh(mesh), material);
    const QSharedPointer<GPUModel> model = builder.build();
    const VertexExtras &extras = model->vertexExtras();
    ASSERT_TRUE(extras.buffer);
    EXPECT_EQ(extras.stride, 3);
    EXPECT_EQ(extras.colour, 0);
    EXPECT_EQ(extras.texCoord1, 1);
    EXPECT_EQ(extras.tangent, 2);
    const QVector<quint16> parts = extrasOf(*model);
    ASSERT_EQ(parts.size(), 12 * 3 * 4);
    const auto texel = [&](int vertex, int place) { return parts.mid((vertex * 3 + place) * 4, 4); };
    const auto pair = [&](int vertex) {
        float values[2];
        std::memcpy(values, texel(vertex, 1).constData(), sizeof(values));
        return QVector2D(values[0], values[1]);
    };
    using Texel = QVector<quint16>;
    EXPECT_EQ(texel(0, 0), (Texel{65535, 65535, 65535, 65535})) << "white where a mesh has no colours";
    EXPECT_EQ(texel(4, 0), (Texel{0, 65535, 32768, 65535}));
    EXPECT_EQ(texel(5, 0), (Texel{65535, 0, 0, 0})) << "from 0 to 1";
    EXPECT_EQ(texel(6, 0), (Texel{16384, 16384, 16384, 16384}));
    EXPECT_EQ(pair(0), QVector2D(0, 0));
    EXPECT_EQ(pair(8), QVector2D(0.5f, -7));
    EXPECT_EQ(pair(11), QVector2D(5, 6));
    EXPECT_EQ(texel(4, 2), (Texel{0, 0, 0, 0})) << "zeros where a mesh has none";
    EXPECT_EQ(texel(8, 2), (Texel{32767, 0, 0, quint16(-32767)}));
    EXPECT_EQ(texel(9, 2), (Texel{0, quint16(-32767), 0, 32767}));

    // The same values as a vertex stage reads them.
    const auto program = makeProgram({
        {GL_VERTEX_SHADER, QStringLiteral(R"(#version 150
in vec4 va_Color;
in vec2 va_TexCoord1;
in vec4 va_Tangent;
uniform int u_Part;
out vec4 vo_Value;
void main()
{
    vo_Value = u_Part == 0 ? va_Color : u_Part == 1 ? vec4(va_TexCoord1, 0.0, 0.0) : va_Tangent;
    gl_Position = vec4((float(gl_VertexID) + 0.5) / 6.0 - 1.0, 0.0, 0.0, 1.0);
}
)")},
        {GL_FRAGMENT_SHADER, QStringLiteral(R"(#version 150
in vec4 vo_Value;
out vec4 out_FragColor;
void main() { out_FragColor = vo_Value; }
)")},
    });
    RenderTarget target(12, 1, GL_RGBA32F);
    AutoBinder binder(program.get());
    AutoBinder vao(model->drawBuffers(0)->VAO());
    const auto drawn = [&](int part) {
        target.clear();
        program->setUniform(QStringLiteral("u_Part"), part);
        glDrawArrays(GL_POINTS, 0, 12);
        return target.read();
    };
    const Image colours = drawn(0);
    EXPECT_EQ(colours.pixel(0, 0), QVector4D(1, 1, 1, 1));
    EXPECT_LT((colours.pixel(4, 0) - QVector4D(0, 1, 0.5f, 1)).length(), 2e-5f);
    const Image texCoords = drawn(1);
    EXPECT_EQ(texCoords.pixel(8, 0), QVector4D(0.5f, -7, 0, 0));
    EXPECT_EQ(texCoords.pixel(3, 0), QVector4D(0, 0, 0, 0));
    const Image tangents = drawn(2);
    EXPECT_LT((tangents.pixel(8, 0) - QVector4D(1, 0, 0, -1)).length(), 4e-5f);
    EXPECT_LT((tangents.pixel(10, 0) - QVector4D(0, 0, 0.5f, 1)).length(), 4e-5f);
}

TEST_F(SurfaceDataTest, extrasTakeNoRoomThatTheyDoNotNeed)
{
    MeshData mesh = unitSquare();
    const auto build = [](const MeshData &data) {
        GPUModelBuilder builder;
        builder.addItem(builder.addMesh(data), builder.addMaterial({}));
        return builder.build();
    };
    const QSharedPointer<GPUModel> bare = build(mesh);
    EXPECT_FALSE(bare->vertexExtras().buffer);
    EXPECT_EQ(bare->vertexExtras().stride, 0);
    EXPECT_EQ(bare->vertexExtras().colour, -1);
    mesh.tangents.fill(QVector4D(1, 0, 0, 1), 4);
    const QSharedPointer<GPUModel> model = build(mesh);
    EXPECT_EQ(model->vertexExtras().stride, 1);
    EXPECT_EQ(model->vertexExtras().tangent, 0);
    EXPECT_EQ(model->vertexExtras().colour, -1);
    EXPECT_EQ(model->vertexExtras().buffer->size(), 4 * 8);
}

TEST_F(SurfaceDataTest, badExtrasAreRefused)
{
    struct Case
    {
        const char *line;
        void (*spoil)(MeshData &);
    };
    const Case cases[] = {
        {"it has 3 colours for 4 positions", [](MeshData &mesh) { mesh.colours.resize(3); }},
        {"it has 5 second texture coordinates for 4 positions", [](MeshData &mesh) { mesh.texCoords1.resize(5); }},
        {"it has 1 tangents for 4 positions", [](MeshData &mesh) { mesh.tangents.resize(1); }},
        {"colour 2 is not finite",
            [](MeshData &mesh) {
                mesh.colours.resize(4);
                mesh.colours[2].setW(nan);
            }},
        {"second texture coordinate 1 is not finite",
            [](MeshData &mesh) {
                mesh.texCoords1.resize(4);
                mesh.texCoords1[1].setY(INFINITY);
            }},
        {"tangent 3 is not finite",
            [](MeshData &mesh) {
                mesh.tangents.resize(4);
                mesh.tangents[3].setX(nan);
            }},
    };
    GPUModelBuilder builder;
    for (const Case &bad : cases) {
        MeshData mesh = unitSquare();
        bad.spoil(mesh);
        EXPECT_LT(builder.addMesh(mesh), 0) << bad.line;
        expectOneLine(bad.line);
    }
    MaterialData material;
    material.emission.setY(nan);
    EXPECT_LT(builder.addMaterial(material), 0);
    expectOneLine("emission is not finite");
    material = MaterialData();
    material.alphaCutoff = INFINITY;
    EXPECT_LT(builder.addMaterial(material), 0);
    expectOneLine("alphaCutoff is not finite");
}

TEST_F(SurfaceDataTest, transparencyIsClassifiedWhenAskedFor)
{
    MaterialData opaque;
    MaterialData glass;
    glass.d = 0.5f;
    MaterialData leaf;
    leaf.mapKd = filled(4, 4, Qt::green);
    leaf.mapKd.setPixelColor(3, 3, QColor(0, 255, 0, 254));
    MaterialData full;
    full.mapKd = filled(4, 4, Qt::green);
    MaterialData mask = leaf;
    mask.alphaMode = MaterialData::Mask;
    MaterialData ignored = glass;
    ignored.alphaMode = MaterialData::Opaque;
    MeshData faded = unitSquare();
    faded.colours.fill(QVector4D(1, 1, 1, 1), 4);
    MeshData solid = faded;
    faded.colours[3].setW(0.99f);

    GPUModelBuilder builder;
    const int plain = builder.addMesh(unitSquare());
    const int seeThrough = builder.addMesh(faded);
    const int white = builder.addMesh(solid);
    const auto add = [&](int mesh, const MaterialData &material, GPUModelBuilder::ItemOption option) {
        return builder.addItem(mesh, builder.addMaterial(material), QMatrix4x4(), 64, option);
    };
    const auto classify = GPUModelBuilder::ClassifyTransparency;
    const int transparent[] = {
        add(plain, glass, classify), add(plain, leaf, classify), add(seeThrough, opaque, classify)};
    const int others[] = {add(plain, opaque, classify), add(plain, full, classify), add(plain, mask, classify),
        add(plain, ignored, classify), add(white, opaque, classify), add(seeThrough, mask, classify),
        add(plain, glass, GPUModelBuilder::AsGiven)};
    const QSharedPointer<GPUModel> model = builder.build();
    for (const int item : transparent)
        EXPECT_EQ(model->itemFeatureFlags(item), 64 | quint64(GPUModel::Transparent)) << item;
    for (const int item : others)
        EXPECT_EQ(model->itemFeatureFlags(item), 64u) << item;
}

TEST_F(SurfaceDataTest, oneTransparentPixelIsFoundInEveryFormat)
{
    for (const QImage::Format format : {QImage::Format_ARGB32, QImage::Format_RGBA8888, QImage::Format_RGBA64,
             QImage::Format_ARGB32_Premultiplied, QImage::Format_Indexed8}) {
        QImage image = filled(5, 5, Qt::red);
        EXPECT_FALSE(isSeeThrough(image.convertToFormat(format))) << int(format);
        image.setPixelColor(4, 4, QColor(255, 0, 0, 100));
        EXPECT_TRUE(isSeeThrough(image.convertToFormat(format))) << int(format);
    }
    EXPECT_FALSE(isSeeThrough(filled(3, 3, Qt::transparent).convertToFormat(QImage::Format_RGB32)));
    EXPECT_FALSE(isSeeThrough(QImage()));
}

} // namespace Velmora::Kvz
