// SPDX-License-Identifier: MIT
// What files say about surfaces, through every ready chain that lights them: each case beside another way to express
// the same, which must give the same picture.
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"

#include <Chain/ChainLibrary.h>
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

QImage flat(const QColor &colour, const QSize &imageSize = QSize(8, 8))
{
    QImage image(imageSize, QImage::Format_ARGB32);
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
    const QString differing = chainName == QLatin1String("wireframe-overlay") ? QStringLiteral("wires")
        : chain->chain.description().findPass(QStringLiteral("mask")) >= 0    ? QStringLiteral("mask")
                                                                              : QString();
    if (!differing.isEmpty()) {
        EXPECT_TRUE(chain->chain.setEnabled(differing, false)) << qPrintable(chain->chain.errorString());
    }
    expectSame(QStringLiteral("mask"), modelOf(square(), masked), modelOf(half, matte()), 6);
    if (!differing.isEmpty()) {
        EXPECT_TRUE(chain->chain.setEnabled(differing, true)) << qPrintable(chain->chain.errorString());
    }
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
    // One image of each size in stripes of one texel, so close that every texel shows.
    GPUModelBuilder builder;
    GPUModelBuilder byColour;
    for (int i = 0; i < 8; ++i) {
        const QSize imageSize(4 + 4 * i, 4);
        const QColor colour = QColor::fromHsv(45 * i, 200, 220);
        MaterialData material = matte({1, 1, 1});
        material.mapKd = flat(colour, imageSize);
        MaterialData plain = matte(QVector3D(float(colour.redF()), float(colour.greenF()), float(colour.blueF())));
        QMatrix4x4 matrix;
        matrix.translate(-1.2f + 0.8f * float(i % 4), i < 4 ? 0.5f : -0.5f, 0);
        matrix.scale(0.35f);
        builder.addItem(builder.addMesh(square()), builder.addMaterial(material), matrix);
        byColour.addItem(byColour.addMesh(square()), byColour.addMaterial(plain), matrix);
    }
    expectSame(QStringLiteral("sizes"), builder.build(), byColour.build());
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
}

static std::string caseName(const testing::TestParamInfo<std::string> &chain)
{
    return QString::fromStdString(chain.param).remove(QLatin1Char('-')).toStdString();
}

INSTANTIATE_TEST_SUITE_P(LitChains, SurfaceCasesTest, testing::ValuesIn(litChains()), caseName);

} // namespace Velmora::Kvz
