// SPDX-License-Identifier: MIT
// What files say about surfaces, through every ready chain that lights them: each case beside another way to express
// the same, which must give the same picture.
#include "Import/GltfDocument.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <Chain/ChainLibrary.h>
#include <Import/ModelImporter.h>
#include <Scene/GPUModelBuilder.h>

#include <QtGui/QColor>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace Velmora::Kvz {

namespace {

const QSize size(96, 72);

/// The ready chains that light a model, without those of basic passes.
std::vector<std::string> litChains()
{
    std::vector<std::string> names;
    for (const QString &name : readyChainNames()) {
        const bool isOther = name == QLatin1String("blend-gallery") || name == QLatin1String("primitives")
            || name == QLatin1String("picking");
        if (!isOther && !name.endsWith(QLatin1String("-basic")))
            names.push_back(name.toStdString());
    }
    return names;
}

/// A square from -1 to 1 at this z, facing +z; it is divided by `scale` so that a matrix can scale it back.
MeshData square(const QVector3D &scale = {1, 1, 1})
{
    MeshData mesh;
    for (const QVector2D &corner : {QVector2D(-1, -1), QVector2D(1, -1), QVector2D(1, 1), QVector2D(-1, 1)}) {
        mesh.positions.append(QVector3D(corner, 0) / scale);
        mesh.normals.append((QVector3D(0.3f * corner.x(), 0.3f * corner.y(), 1) * scale).normalized());
        mesh.texCoords.append((corner + QVector2D(1, 1)) / 2);
    }
    // Counter-clockwise once the matrix is applied, which mirrors where the scale does.
    mesh.indices = {0, 1, 2, 0, 2, 3};
    return mesh;
}

/// Two by two texels of flat colours, at a size that filters do not blur.
QImage quarters(int side = 64)
{
    QImage image(side, side, QImage::Format_ARGB32);
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            const int number = (x >= side / 2 ? 1 : 0) + (y >= side / 2 ? 2 : 0);
            const QRgb colours[] = {qRgb(200, 40, 40), qRgb(40, 180, 60), qRgb(50, 70, 210), qRgb(220, 200, 60)};
            image.setPixel(x, y, colours[number]);
        }
    }
    return image;
}

/// Reverses each triangle and keeps their order.
void reverseWinding(MeshData *mesh)
{
    for (int i = 0; i + 2 < mesh->indices.size(); i += 3)
        std::swap(mesh->indices[i + 1], mesh->indices[i + 2]);
}

/// Squares of one texel, light and of a colour by turns.
QImage checks(const QSize &imageSize, const QColor &colour)
{
    QImage image(imageSize, QImage::Format_ARGB32);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            image.setPixelColor(x, y, (x + y) % 2 == 0 ? colour : QColor(230, 230, 230));
    }
    return image;
}

QImage flat(const QColor &colour)
{
    QImage image(8, 8, QImage::Format_ARGB32);
    image.fill(colour);
    return image;
}

QSharedPointer<GPUModel> modelOf(
    const MeshData &mesh, const MaterialData &material, const QMatrix4x4 &matrix = QMatrix4x4())
{
    // Behind it is something that holes and glass reveal.
    GPUModelBuilder builder;
    MaterialData behind;
    behind.kd = {0.1f, 0.5f, 0.7f};
    QMatrix4x4 further;
    further.translate(0.6f, 0.4f, -1);
    builder.addItem(builder.addMesh(square()), builder.addMaterial(behind), further);
    builder.addItem(builder.addMesh(mesh), builder.addMaterial(material), matrix, GPUModel::DoubleSided,
        GPUModelBuilder::ClassifyTransparency);
    return builder.build();
}

MaterialData matte(const QVector3D &kd = {0.8f, 0.7f, 0.6f})
{
    MaterialData material;
    material.kd = kd;
    return material;
}

using Doc = GltfDocument;

/// Of the coordinates of a texture, as KHR_texture_transform has it.
struct TextureTransform
{
    double offset[2];
    double rotation;
    double scale[2];
};

/// Attributes of a square of side 0.8 with its coordinates transformed.
QJsonObject plainSquare(Doc *document, const TextureTransform &transform)
{
    QByteArray texCoords;
    for (const QVector2D &corner : {QVector2D(0, 1), QVector2D(1, 1), QVector2D(1, 0), QVector2D(0, 0)}) {
        const double u = transform.scale[0] * double(corner.x()), v = transform.scale[1] * double(corner.y());
        const double cosine = std::cos(transform.rotation), sine = std::sin(transform.rotation);
        texCoords += Doc::bytesOf<float>(
            {float(transform.offset[0] + cosine * u + sine * v), float(transform.offset[1] - sine * u + cosine * v)});
    }
    const QByteArray positions = Doc::bytesOf<float>({-0.4f, -0.4f, 0, 0.4f, -0.4f, 0, 0.4f, 0.4f, 0, -0.4f, 0.4f, 0});
    const QByteArray normals = Doc::bytesOf<float>({0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1});
    return {{"POSITION", document->addAccessor(positions, Doc::Float, 4, "VEC3")},
        {"NORMAL", document->addAccessor(normals, Doc::Float, 4, "VEC3")},
        {"TEXCOORD_0", document->addAccessor(texCoords, Doc::Float, 4, "VEC2")}};
}

constexpr double quantum = 0.0004;

/// The same in shorts, 2500 to a unit, and bytes, without a transform.
QJsonObject quantizedSquare(Doc *document)
{
    const QByteArray positions =
        Doc::bytesOf<qint16>({-1000, -1000, 0, 0, 1000, -1000, 0, 0, 1000, 1000, 0, 0, -1000, 1000, 0, 0});
    const QByteArray normals = Doc::bytesOf<qint8>({0, 0, 127, 0, 0, 0, 127, 0, 0, 0, 127, 0, 0, 0, 127, 0});
    const QByteArray texCoords = Doc::bytesOf<quint8>({0, 255, 0, 0, 255, 255, 0, 0, 255, 0, 0, 0, 0, 0, 0, 0});
    return {{"POSITION", document->addAccessor(positions, Doc::Short, 4, "VEC3", false, 8)},
        {"NORMAL", document->addAccessor(normals, Doc::Byte, 4, "VEC3", true, 4)},
        {"TEXCOORD_0", document->addAccessor(texCoords, Doc::UnsignedByte, 4, "VEC2", true, 4)}};
}

QJsonObject textureWith(const TextureTransform &transform)
{
    return {{"index", 0},
        {"extensions",
            QJsonObject{{"KHR_texture_transform",
                QJsonObject{{"offset", QJsonArray{transform.offset[0], transform.offset[1]}},
                    {"rotation", transform.rotation},
                    {"scale", QJsonArray{transform.scale[0], transform.scale[1]}}}}}}};
}

/// Four squares with textures that are moved, turned, scaled, and all of that, the last of them twice. The odd way has bytes and
/// shorts for floats, transforms in place of texture coordinates, instances, and names that are escaped.
QSharedPointer<GPUModel> gltfModel(bool isOdd)
{
    const TextureTransform transforms[] = {
        {{0.25, 0.5}, 0, {1, 1}}, {{0, 0}, 0.6, {1, 1}}, {{0, 0}, 0, {2, 0.5}}, {{0.25, 0.5}, 0.6, {2, 0.5}}};
    const TemporaryFolder folder;
    folder.write(QStringLiteral("an image.png"), pngBytes(quarters()));
    Doc document;
    const int indices = document.squareIndices();
    QJsonArray meshes, materials, nodes;
    for (int i = 0; i < 4; ++i) {
        const QJsonObject attributes = isOdd ? quantizedSquare(&document) : plainSquare(&document, transforms[i]);
        meshes.append(QJsonObject{{"primitives",
            QJsonArray{QJsonObject{{"attributes", attributes}, {"indices", indices}, {"material", i}}}}});
        const QJsonObject texture = isOdd ? textureWith(transforms[i]) : QJsonObject{{"index", 0}};
        materials.append(
            QJsonObject{{"pbrMetallicRoughness", QJsonObject{{"metallicFactor", 0}, {"baseColorTexture", texture}}}});
        QJsonObject node{{"mesh", i}, {"translation", QJsonArray{i % 2 - 0.5, i / 2 - 0.5, 0}}};
        if (isOdd)
            node["scale"] = QJsonArray{quantum, quantum, quantum};
        nodes.append(node);
    }
    QJsonObject last = nodes[3].toObject();
    if (isOdd) {
        const auto behind = float(-1 / quantum), aside = float(-0.5 / quantum);
        const int places =
            document.addAccessor(Doc::bytesOf<float>({0, 0, 0, aside, aside, behind}), Doc::Float, 2, "VEC3");
        last["extensions"] =
            QJsonObject{{"EXT_mesh_gpu_instancing", QJsonObject{{"attributes", QJsonObject{{"TRANSLATION", places}}}}}};
        nodes[3] = last;
        document.root["extensionsRequired"] =
            QJsonArray{"KHR_mesh_quantization", "KHR_texture_transform", "EXT_mesh_gpu_instancing"};
    } else {
        last["translation"] = QJsonArray{0, 0, -1};
        nodes.append(last);
    }
    document.root["images"] = QJsonArray{QJsonObject{{"uri", "an%20image.png"}}};
    document.root["textures"] = QJsonArray{QJsonObject{{"source", 0}}};
    document.root["meshes"] = meshes;
    document.root["materials"] = materials;
    document.setNodes(nodes, isOdd ? QJsonArray{0, 1, 2, 3} : QJsonArray{0, 1, 2, 3, 4});
    folder.write(QStringLiteral("a buffer.bin"), document.buffer());
    const QByteArray text = document.bytes(isOdd ? QStringLiteral("a%20buffer.bin") : QString());
    ImportedScene scene;
    QString error;
    EXPECT_TRUE(importModel(folder.write(QStringLiteral("a.gltf"), text), &scene, &error)) << qPrintable(error);
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_EQ(scene.items.size(), 5);
    return scene.build();
}

QSharedPointer<GPUModel> objModel(const QByteArray &text)
{
    const TemporaryFolder folder;
    folder.write(QStringLiteral("a.mtl"), "newmtl m\nKd 0.8 0.5 0.2\n");
    ImportedScene scene;
    QString error;
    EXPECT_TRUE(importModel(folder.write(QStringLiteral("a.obj"), text), &scene, &error)) << qPrintable(error);
    EXPECT_EQ(scene.warnings, QStringList());
    return scene.build();
}

} // namespace

class SurfaceCasesTest : public GLTest, public testing::WithParamInterface<std::string>
{
protected:
    /// The picture of a model once histories have forgotten the previous one.
    Image picture(const QSharedPointer<GPUModel> &model)
    {
        if (!chain) {
            ChainDescription description;
            QString error;
            EXPECT_TRUE(loadChain(chainName, &description, &error)) << qPrintable(error);
            for (ChainPass &pass : description.passes) {
                if (pass.className == QLatin1String("TemporalAARenderPass"))
                    pass.values[QStringLiteral("Kvz_bool_ResetTemporal")] = true;
                if (pass.className.startsWith(QLatin1String("ShadowMap")))
                    pass.values[QStringLiteral("Kvz_QSize_MapSize")] = QSize(128, 128); // Fast to draw.
            }
            // Random sample positions would make every picture different.
            if (chainName == QLatin1String("temporal") || chainName == QLatin1String("full"))
                description.passes.removeAt(description.findPass(QStringLiteral("jitter")));
            chain = std::make_unique<ModelChain>(description, model, size);
        }
        models.append(model);
        chain->chain.setModel(model.data());
        CameraView view;
        view.hasEye = true;
        view.eye = {0.5f, 0.4f, 4};
        view.hasTarget = true;
        chain->camera = frameScene({{-2, -2, -2}, {2, 2, 2}}, view, size);
        chain->chain.setCamera(chain->camera.cameraMatrix, chain->camera.projectionMatrix);
        chain->chain.setFrameValue(FrameValues::nearPlane, chain->camera.nearPlane);
        chain->chain.setFrameValue(FrameValues::farPlane, chain->camera.farPlane);
        chain->chain.setFrameValue(FrameValues::sceneBoundsMin, QVector3D(-2, -2, -2));
        chain->chain.setFrameValue(FrameValues::sceneBoundsMax, QVector3D(2, 2, 2));
        const bool hasPast = chainName == QLatin1String("exposure") || chainName.startsWith(QLatin1String("smaa"));
        for (int i = 0; i < (hasPast ? 4 : 1); ++i)
            chain->render();
        return chain->picture();
    }

    /// Compares two ways to express one thing. The pictures may differ by `bound` / 255, except in this share of values, on
    /// edges.
    void expectSame(const QString &what, const QSharedPointer<GPUModel> &a, const QSharedPointer<GPUModel> &b,
        float bound = 2, float exceptions = 1.0f / 150)
    {
        SCOPED_TRACE(qPrintable(what));
        const Image first = picture(a);
        const Image second = picture(b);
        saveForViewing(first, QStringLiteral("case-%1-%2").arg(what, chainName));
        saveForViewing(second, QStringLiteral("case-%1-%2-as").arg(what, chainName));
        int differing = 0;
        float largest = 0;
        for (int i = 0; i < first.data.size(); ++i) {
            const float difference = std::abs(first.data[i] - second.data[i]) * 255;
            largest = std::max(largest, difference);
            differing += difference > bound + 0.01f;
        }
        EXPECT_LE(differing, int(exceptions * float(first.data.size()))) << qPrintable(chainName) << ": " << largest;
        EXPECT_GT(spread(first), 0.05f) << qPrintable(chainName) << ": an even picture shows nothing";
    }

    static float spread(const Image &image)
    {
        const auto range = std::minmax_element(image.data.begin(), image.data.end());
        return *range.second - *range.first;
    }

    // The cases.
    void scalesOfNodesDoNotShow();
    void backsAreLitLikeFrontsWhereBothSidesAre();
    void masksCutHoles();
    void alphaOfImagesAndOfVerticesIsOpacity();
    void vertexColoursMultiplyTheBaseColour();
    void texturesAreTransformedAndTakeTheirSet();
    void imagesWrapAsTheirSamplerSays();
    void emissionAndUnlitColoursAreSeenAsTheyAre();
    void eightSizesOfImagesKeepTheirDetail();
    void filesMaySayTheSameInSeveralWays();

    std::unique_ptr<ModelChain> chain;
    const QString chainName = QString::fromStdString(GetParam());
    QVector<QSharedPointer<GPUModel>> models; ///< Kept while the chain may point to them.
};

void SurfaceCasesTest::scalesOfNodesDoNotShow()
{
    MaterialData glossy = matte();
    glossy.ks = {0.4f, 0.4f, 0.4f};
    const auto plain = modelOf(square(), glossy);
    // No pixel may differ by more than 2 / 255, except for two on outlines that lamps see, where a texel of a shadow map falls to
    // either side by the last bits of a corner or by the order of corners, which mirroring reverses. By a power of two the same
    // numbers come out, and so do the same pixels.
    const bool hasShadowMaps = chainName.startsWith(QLatin1String("shadows")) || chainName == QLatin1String("full");
    const bool hasThresholds = chainName == QLatin1String("toon") || chainName == QLatin1String("fxaa")
        || chainName.startsWith(QLatin1String("smaa"));
    const MeshData ball = sphereMesh(8);
    const auto round = modelOf(ball, glossy);
    const float power = 1.0f / 1024;
    for (const QVector3D &scale :
        {QVector3D(0.001f, 0.001f, 0.001f), QVector3D(1000, 1000, 1000), QVector3D(power, power, power),
            QVector3D(1024, 1024, 1024), QVector3D(4, 0.25f, 2), QVector3D(-1, 1, 1), QVector3D(-3, 0.5f, -7)}) {
        QMatrix4x4 matrix;
        matrix.scale(scale);
        MeshData mesh = square(scale);
        if (scale.x() * scale.y() * scale.z() < 0)
            reverseWinding(&mesh);
        const bool isExact = scale.x() == power || scale.x() == 1024;
        const float exceptions = hasShadowMaps && !isExact ? 8.5f / float(4 * size.width() * size.height()) : 0;
        expectSame(QStringLiteral("scale-%1").arg(double(scale.x())), modelOf(mesh, glossy, matrix), plain,
            isExact ? 0 : 2, exceptions);

        // On a ball every shade and every slope of an outline is met, so that a threshold lies somewhere between two last bits:
        // at a tone, or where an edge is one for a filter.
        MeshData scaledBall = ball;
        for (QVector3D &position : scaledBall.positions)
            position = position / scale;
        for (QVector3D &normal : scaledBall.normals)
            normal = (normal * scale).normalized();
        if (scale.x() * scale.y() * scale.z() < 0)
            reverseWinding(&scaledBall);
        expectSame(QStringLiteral("ball-%1").arg(double(scale.x())), modelOf(scaledBall, glossy, matrix), round,
            isExact ? 0 : 2,
            isExact                              ? 0
                : hasThresholds || hasShadowMaps ? 1.0f / 500
                                                 : 0);
    }
}

void SurfaceCasesTest::backsAreLitLikeFrontsWhereBothSidesAre()
{
    MeshData turned = square();
    for (QVector3D &normal : turned.normals)
        normal = -normal;
    reverseWinding(&turned);
    MaterialData oneSided = matte();
    oneSided.isLitFromBothSides = false;
    expectSame(QStringLiteral("back"), modelOf(turned, matte()), modelOf(square(), matte()));
    // A side that is not lit has only the ambient share.
    const Image lit = picture(modelOf(square(), matte()));
    const Image dark = picture(modelOf(turned, oneSided));
    double sum = 0;
    for (int i = 0; i < lit.data.size(); ++i)
        sum += double(lit.data[i] - dark.data[i]);
    EXPECT_GT(sum / lit.data.size(), 0.004) << qPrintable(chainName);
}

void SurfaceCasesTest::masksCutHoles()
{
    QImage holes(64, 64, QImage::Format_ARGB32);
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 64; ++x)
            holes.setPixel(x, y, qRgba(255, 255, 255, x < 32 ? 60 : 250));
    }
    MaterialData masked = matte();
    masked.mapKd = holes;
    masked.alphaMode = MaterialData::Mask;
    MeshData half;
    for (const QVector2D &corner : {QVector2D(0, -1), QVector2D(1, -1), QVector2D(1, 1), QVector2D(0, 1)}) {
        half.positions.append(QVector3D(corner, 0));
        half.normals.append(QVector3D(0.3f * corner.x(), 0.3f * corner.y(), 1).normalized());
    }
    half.indices = {0, 1, 2, 0, 2, 3};
    // Shadow maps ignore masks, and the half square has other triangles: what shows that stays off meanwhile.
    picture(modelOf(half, matte()));
    QStringList differing;
    if (chainName == QLatin1String("wireframe-overlay"))
        differing = QStringList{QStringLiteral("wires")};
    else if (chainName == QLatin1String("studio"))
        differing = QStringList{QStringLiteral("maps"), QStringLiteral("ground")};
    else if (chain->chain.description().findPass(QStringLiteral("mask")) >= 0)
        differing = QStringList{QStringLiteral("mask")};
    for (const QString &pass : qAsConst(differing))
        EXPECT_TRUE(chain->chain.setEnabled(pass, false)) << qPrintable(chain->chain.errorString());
    expectSame(QStringLiteral("mask"), modelOf(square(), masked), modelOf(half, matte()), 6);
    for (const QString &pass : qAsConst(differing))
        EXPECT_TRUE(chain->chain.setEnabled(pass, true)) << qPrintable(chain->chain.errorString());
}

void SurfaceCasesTest::alphaOfImagesAndOfVerticesIsOpacity()
{
    MaterialData byFactor = matte();
    byFactor.d = 0.5f;
    MaterialData byImage = matte();
    byImage.mapKd = flat(QColor(255, 255, 255, 128));
    MeshData coloured = square();
    coloured.colours.fill(QVector4D(1, 1, 1, 0.5f), 4);
    expectSame(QStringLiteral("blend-image"), modelOf(square(), byImage), modelOf(square(), byFactor));
    expectSame(QStringLiteral("blend-vertices"), modelOf(coloured, matte()), modelOf(square(), byFactor));
    const Image opaque = picture(modelOf(square(), matte()));
    const Image clear = picture(modelOf(square(), byFactor));
    EXPECT_GT(maximumDifference(opaque, clear), 0.03) << qPrintable(chainName);
}

void SurfaceCasesTest::vertexColoursMultiplyTheBaseColour()
{
    MeshData coloured = square();
    coloured.colours.fill(QVector4D(0.5f, 0.25f, 1, 1), 4);
    expectSame(QStringLiteral("colours"), modelOf(coloured, matte({0.8f, 0.8f, 0.4f})),
        modelOf(square(), matte({0.4f, 0.2f, 0.4f})));
}

void SurfaceCasesTest::texturesAreTransformedAndTakeTheirSet()
{
    MaterialData plain = matte({1, 1, 1});
    plain.mapKd = quarters();
    MaterialData transformed = plain;
    transformed.mapKdSampling.transform.translate(0.25, 0.5);
    transformed.mapKdSampling.transform.rotate(90);
    transformed.mapKdSampling.transform.scale(2, 0.5);
    MeshData moved = square();
    for (QVector2D &texCoord : moved.texCoords)
        texCoord = QVector2D(transformed.mapKdSampling.transform.map(texCoord.toPointF()));
    MaterialData second = plain;
    second.mapKdSampling.uvSet = 1;
    MeshData twoSets = square();
    twoSets.texCoords1 = moved.texCoords;
    expectSame(QStringLiteral("transform"), modelOf(square(), transformed), modelOf(moved, plain), 3);
    expectSame(QStringLiteral("second-set"), modelOf(twoSets, second), modelOf(moved, plain), 3);
}

void SurfaceCasesTest::imagesWrapAsTheirSamplerSays()
{
    // Three by three images side by side, arranged as each mode repeats one.
    MeshData wide = square();
    for (QVector2D &texCoord : wide.texCoords)
        texCoord = 3 * texCoord - QVector2D(1, 1);
    const int side = 64;
    for (const auto wrap : {ImageSampling::Repeat, ImageSampling::MirroredRepeat, ImageSampling::ClampToEdge}) {
        MaterialData wrapped = matte({1, 1, 1});
        wrapped.mapKd = quarters(side);
        wrapped.mapKdSampling.wrapU = wrap;
        wrapped.mapKdSampling.wrapV = wrap;
        QImage sheet(3 * side, 3 * side, QImage::Format_ARGB32);
        for (int y = 0; y < 3 * side; ++y) {
            for (int x = 0; x < 3 * side; ++x) {
                const auto place = [&](int i) {
                    const int tile = i / side;
                    const int within = i % side;
                    return wrap == ImageSampling::ClampToEdge                ? std::min(std::max(i - side, 0), side - 1)
                        : wrap == ImageSampling::MirroredRepeat && tile != 1 ? side - 1 - within
                                                                             : within;
                };
                sheet.setPixel(x, y, wrapped.mapKd.pixel(place(x), place(y)));
            }
        }
        MaterialData whole = matte({1, 1, 1});
        whole.mapKd = sheet;
        // Beyond its edges the sheet continues as its outer images do.
        if (wrap != ImageSampling::Repeat)
            whole.mapKdSampling.wrapU = whole.mapKdSampling.wrapV = ImageSampling::ClampToEdge;
        expectSame(QStringLiteral("wrap-%1").arg(int(wrap)), modelOf(wide, wrapped), modelOf(square(), whole), 6);
    }
}

void SurfaceCasesTest::emissionAndUnlitColoursAreSeenAsTheyAre()
{
    MaterialData unlit = matte({0.3f, 0.6f, 0.2f});
    unlit.isUnlit = true;
    unlit.ks = {1, 1, 1};
    MaterialData emissive = matte({0, 0, 0});
    emissive.ns = 1;
    emissive.emission = {0.3f, 0.6f, 0.2f};
    MaterialData byImage = emissive;
    byImage.emission = {1, 1, 1};
    byImage.mapEmission = flat(QColor::fromRgbF(0.3, 0.6, 0.2));
    // In physical light black mirrors its surroundings, and unlit surfaces do not.
    if (chainName != QLatin1String("studio"))
        expectSame(QStringLiteral("unlit"), modelOf(square(), unlit), modelOf(square(), emissive));
    expectSame(QStringLiteral("emission"), modelOf(square(), byImage), modelOf(square(), emissive), 3);
    if (chainName != QLatin1String("deferred"))
        return;
    const Image shown = picture(modelOf(square(), unlit));
    const QVector4D middle = shown.pixel(size.width() / 2 - 4, size.height() / 2 - 4);
    EXPECT_NEAR(middle.x(), 0.3, 1.1 / 255);
    EXPECT_NEAR(middle.y(), 0.6, 1.1 / 255);
    EXPECT_NEAR(middle.z(), 0.2, 1.1 / 255);
}

void SurfaceCasesTest::eightSizesOfImagesKeepTheirDetail()
{
    // Detail of one texel in each, read without a filter, beside the same images enlarged to one size.
    GPUModelBuilder builder;
    GPUModelBuilder enlarged;
    const QSize largest(64, 16);
    for (int i = 0; i < 8; ++i) {
        const QSize imageSize(8 << i % 4, i < 4 ? 8 : 16);
        MaterialData material = matte({1, 1, 1});
        material.mapKdSampling.magnification = ImageSampling::Nearest;
        material.mapKdSampling.minification = ImageSampling::Nearest;
        material.mapKdSampling.mipmaps = false;
        MaterialData same = material;
        material.mapKd = checks(imageSize, QColor::fromHsv(45 * i, 200, 120));
        same.mapKd = material.mapKd.scaled(largest, Qt::IgnoreAspectRatio, Qt::FastTransformation);
        QMatrix4x4 matrix;
        matrix.translate(-1.2f + 0.8f * float(i % 4), i < 4 ? 0.5f : -0.5f, 0);
        matrix.scale(0.35f);
        builder.addItem(builder.addMesh(square()), builder.addMaterial(material), matrix);
        enlarged.addItem(enlarged.addMesh(square()), enlarged.addMaterial(same), matrix);
    }
    expectSame(QStringLiteral("sizes"), builder.build(), enlarged.build());
}

void SurfaceCasesTest::filesMaySayTheSameInSeveralWays()
{
    expectSame(QStringLiteral("gltf"), gltfModel(true), gltfModel(false), 3);
    expectSame(QStringLiteral("obj"),
        objModel("\xef\xbb\xbfmtllib a.mtl\r\n  v\t-1 -.5 0 # a corner\r\nv 1 \\\r\n-.5 0\r\nv 1. +5e-1 .5\r\n"
                 "v -1 .5 .5\r\nusemtl m  \r\nf -4 \\\r\n-3 -2\t-1"),
        objModel("mtllib a.mtl\nv -1 -0.5 0\nv 1 -0.5 0\nv 1 0.5 0.5\nv -1 0.5 0.5\nusemtl m\nf 1 2 3 4\n"), 0, 0);
}

// One test per chain, so that its programs are built once.
TEST_P(SurfaceCasesTest, eachCaseEqualsAnotherWayToSayIt)
{
    scalesOfNodesDoNotShow();
    backsAreLitLikeFrontsWhereBothSidesAre();
    masksCutHoles();
    alphaOfImagesAndOfVerticesIsOpacity();
    vertexColoursMultiplyTheBaseColour();
    texturesAreTransformedAndTakeTheirSet();
    imagesWrapAsTheirSamplerSays();
    emissionAndUnlitColoursAreSeenAsTheyAre();
    eightSizesOfImagesKeepTheirDetail();
    filesMaySayTheSameInSeveralWays();
}

static std::string caseName(const testing::TestParamInfo<std::string> &chain)
{
    return QString::fromStdString(chain.param).remove(QLatin1Char('-')).toStdString();
}

INSTANTIATE_TEST_SUITE_P(LitChains, SurfaceCasesTest, testing::ValuesIn(litChains()), caseName);

} // namespace Velmora::Kvz
