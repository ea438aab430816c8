// SPDX-License-Identifier: MIT
#include <Chain/ChainLibrary.h>
#include <Chain/PassInfo.h>
#include <Chain/RenderChain.h>
#include <Chain/ResolvedChain.h>
#include <Chain/TiledPicture.h>

#include <QtGui/QColor>
#include <QtGui/QVector2D>

#include <gtest/gtest.h>

#include <map>

namespace Velmora::Kvz {

namespace {

ChainDescription ready(const QString &name)
{
    ChainDescription chain;
    QString error;
    EXPECT_TRUE(loadChain(name, &chain, &error)) << qPrintable(error);
    return chain;
}

/// A perspective camera 5 before the origin.
Camera straightCamera(const QSize &size)
{
    Camera camera;
    camera.cameraMatrix.translate(0, 0, -5);
    camera.nearPlane = 4;
    camera.farPlane = 6;
    camera.projectionMatrix.perspective(40, float(size.width()) / float(size.height()), 4, 6);
    return camera;
}

/// A pass that hands its own values to rules.
class FixedUse : public PassUse
{
public:
    explicit FixedUse(const QVariantMap &values)
        : m_values(values)
    { }
    bool isFed(const QString &input) const override { return m_values.contains(input); }
    QVariant value(const QString &input) const override { return m_values.value(input); }
    QVariant option(const QString &) const override { return {}; }
    QStringList sourceClasses(const QString &) const override { return {}; }
    int samples(const QString &) const override { return 1; }

private:
    QVariantMap m_values;
};

} // namespace

TEST(TiledPictureTest, tilesCoverThePictureOnce)
{
    const QSize size(250, 131);
    const ResolvedChain chain(ready("deferred"));
    const QVector<PictureTile> tiles = TiledPicture(chain, size).tiles(100, {straightCamera(size)}, 2);
    ASSERT_EQ(tiles.size(), 6);
    // Rows from the top, each from the left; y counts upwards.
    EXPECT_EQ(tiles[0].shown, QRect(0, 100, 100, 31));
    EXPECT_EQ(tiles[2].shown, QRect(200, 100, 50, 31));
    EXPECT_EQ(tiles[3].shown, QRect(0, 0, 100, 100));
    qint64 pixels = 0;
    for (const PictureTile &tile : tiles) {
        pixels += qint64(tile.shown.width()) * tile.shown.height();
        EXPECT_EQ(tile.drawn, tile.shown) << "nothing in this chain reads around a pixel";
    }
    EXPECT_EQ(pixels, 250 * 131);
}

TEST(TiledPictureTest, whatFiltersReadIsDrawnAround)
{
    const QSize size(1000, 600);
    const ResolvedChain chain(ready("smaa-1x"));
    const QVector<PictureTile> tiles = TiledPicture(chain, size).tiles(201, {straightCamera(size)}, 2);
    ASSERT_EQ(tiles.size(), 15);
    const PictureTile middle = tiles[6];
    EXPECT_EQ(middle.shown, QRect(201, 201, 201, 201));
    // The longest search goes 64 pixels along an edge.
    EXPECT_LE(middle.drawn.left(), 201 - 66);
    EXPECT_LE(middle.drawn.top(), 201 - 66);
    EXPECT_GE(middle.drawn.right(), 401 + 66);
    EXPECT_GE(middle.drawn.bottom(), 401 + 66);
    EXPECT_EQ(middle.drawn.left() % 2, 0) << "squares of derivatives are those of the whole";
    EXPECT_EQ(tiles[10].drawn.topLeft(), QPoint(0, 0)) << "not beyond the picture, at whose edge filters see it end";
}

TEST(TiledPictureTest, obscuranceReachesAsFarAsItsRadiusIsProjected)
{
    const QSize size(2000, 2000);
    ChainDescription description;
    for (const char *className : {"SurfaceRenderPass", "AmbientVisibilityRenderPass"}) {
        ChainPass pass;
        pass.className = className;
        pass.name = className;
        description.passes.append(pass);
    }
    description.passes[1].values["Kvz_float_RelativeRadius"] = 0.05;
    const ResolvedChain chain(description);
    const QVector<PictureTile> tiles = TiledPicture(chain, size).tiles(200, {straightCamera(size)}, 3);
    // 0.15 units, 4 away, of 2 * 4 * tan 20 degrees = 2.912 that 2000 pixels show there: 103 pixels.
    const PictureTile middle = tiles[55];
    EXPECT_GE(middle.shown.left() - middle.drawn.left(), 104);
    EXPECT_LE(middle.shown.left() - middle.drawn.left(), 130);
}

TEST(TiledPictureTest, aPixelLiesWhereItLiesInTheWhole)
{
    const QSize size(1000, 600);
    const ResolvedChain chain(ready("fxaa"));
    const TiledPicture picture(chain, size);
    Camera parallel = straightCamera(size);
    parallel.projectionMatrix.setToIdentity();
    parallel.projectionMatrix.ortho(-2, 2, -1.2f, 1.2f, 4, 6);
    const auto pixelOf = [](const Camera &camera, const QVector3D &point, const QSize &pixels) {
        const QVector3D place = (camera.projectionMatrix * camera.cameraMatrix).map(point);
        return QVector3D(
            (place.x() + 1) / 2 * float(pixels.width()), (place.y() + 1) / 2 * float(pixels.height()), place.z());
    };
    for (const Camera &camera : {straightCamera(size), parallel}) {
        for (const PictureTile &tile : picture.tiles(170, {camera}, 2)) {
            const Camera part = picture.cameraOf(camera, tile);
            for (const QVector3D &point : {QVector3D(0.3f, -0.4f, 0.8f), QVector3D(-1.1f, 0.2f, -0.5f)}) {
                const QVector3D whole = pixelOf(camera, point, size);
                const QVector3D here = pixelOf(part, point, tile.drawn.size());
                EXPECT_NEAR(here.x() + float(tile.drawn.left()), whole.x(), 2e-3f);
                EXPECT_NEAR(here.y() + float(tile.drawn.top()), whole.y(), 2e-3f);
                EXPECT_NEAR(here.z(), whole.z(), 1e-6f) << "clipping planes stay";
            }
        }
    }
}

TEST(TiledPictureTest, chainsThatNeedTheWholePictureNameThePass)
{
    // All others of the ready chains can be drawn in tiles.
    const std::map<QString, const char *> expected{
        {"ambient-obscurance", "ScalableAmbientObscuranceRenderPass"},
        {"backdrop", "BackgroundImageRenderPass"},
        {"blend-gallery", "ModelRenderPass"},
        {"depth-of-field", "DepthOfFieldRenderPass"},
        {"exposure", "ShaderRenderPass"},
        {"full", "ScalableAmbientObscuranceRenderPass"},
        {"full-basic", "ScalableAmbientObscuranceRenderPass"},
        {"wireframe-overlay", "WireframeRenderPass"},
    };
    for (const QString &name : readyChainNames()) {
        const ResolvedChain chain(ready(name));
        const QString problem = TiledPicture(chain, QSize(512, 512)).problem();
        const auto known = expected.find(name);
        if (known == expected.end())
            EXPECT_EQ(problem, QString()) << qPrintable(name);
        else
            EXPECT_TRUE(problem.contains(QStringLiteral("(%1) cannot draw a part of a picture: ").arg(known->second)))
                << qPrintable(name) << ": " << qPrintable(problem);
    }
}

TEST(TiledPictureTest, configurationsThatNeedTheWholePictureAreTold)
{
    const auto obstacle = [](const char *className, const QVariantMap &values) {
        return PassRegistry::standard().find(className)->reach(FixedUse(values)).obstacle;
    };
    EXPECT_EQ(obstacle("ToneMapRenderPass", {}), QString());
    EXPECT_EQ(obstacle("ToneMapRenderPass", {{"Kvz_bool_AutoExposure", false}}), QString());
    EXPECT_TRUE(obstacle("ToneMapRenderPass", {{"Kvz_bool_AutoExposure", true}}).contains("automatic exposure"));
    EXPECT_EQ(obstacle("GaussianBlurRenderPass", {{"Kvz_float_ResolutionDivider", 2.0f}}), QString());
    EXPECT_TRUE(obstacle("GaussianBlurRenderPass", {{"Kvz_float_ResolutionDivider", 1.5f}}).contains("whole number"));
    EXPECT_TRUE(
        obstacle("TextureToScreenRenderPass", {{"Kvz_QRect_ViewportOut", QRect(0, 0, 4, 4)}}).contains("place"));
    EXPECT_TRUE(obstacle("SkyboxRenderPass", {{"Kvz_KvzTexture*_Background", 1}}).contains("stretches"));
    EXPECT_EQ(obstacle("SkyboxRenderPass", {{"Kvz_KvzTexture*_LatLongMap", 1}}), QString());

    ChainDescription fixed = ready("deferred");
    fixed.passes[0].values["Kvz_QRect_Viewport"] = QVariantList{0, 0, 64, 64};
    const ResolvedChain chain(fixed);
    EXPECT_TRUE(TiledPicture(chain, QSize(512, 512)).problem().endsWith("it has a size of its own"));
}

TEST(TiledPictureTest, aChainIsToldOfItsTile)
{
    const QSize size(300, 200);
    const ResolvedChain resolved(ready("shadows-layered"));
    const TiledPicture picture(resolved, size);
    const Camera camera = straightCamera(size);
    const PictureTile tile = picture.tiles(100, {camera}, 2)[1];
    ASSERT_EQ(tile.drawn, QRect(100, 100, 100, 100));
    RenderChain chain;
    ASSERT_TRUE(chain.setDescription(resolved.description())) << qPrintable(chain.errorString());
    picture.begin(&chain, tile);
    picture.setWholeCamera(&chain, camera);
    const Camera part = picture.cameraOf(camera, tile);
    chain.setCamera(part.cameraMatrix, part.projectionMatrix);

    EXPECT_EQ(chain.frameValue(FrameValues::viewport).toRect(), QRect(0, 0, 100, 100));
    EXPECT_EQ(chain.frameValue("Kvz_Vector2D_PatternOrigin").value<QVector2D>(), QVector2D(100, 100));
    using Kind = RenderChain::InputSource::Kind;
    const QString projection = FrameValues::projectionMatrix;
    int shadowMaps = 0;
    for (const ChainPass &pass : chain.description().passes) {
        const int input = PassRegistry::standard().find(pass.className)->findInput(projection);
        const bool drawsMaps = pass.className == QLatin1String("ShadowMapRenderPass2");
        shadowMaps += drawsMaps ? 1 : 0;
        if (drawsMaps) {
            EXPECT_EQ(pass.values[projection].value<QMatrix4x4>(), camera.projectionMatrix) << "cascades fit the whole";
            EXPECT_EQ(chain.inputSource(pass.name, projection).kind, Kind::Value);
        } else if (input >= 0) {
            EXPECT_EQ(chain.inputSource(pass.name, projection).kind, Kind::FrameValue) << qPrintable(pass.name);
        }
    }
    EXPECT_EQ(shadowMaps, 1);
    // The upper half of the chain's gradient.
    const ChainPass &gradient = chain.description().passes[chain.description().findPass("background")];
    const ChainPass &before = resolved.description().passes[resolved.description().findPass("background")];
    EXPECT_NE(gradient.values["Kvz_QColor_ColorBottom"], before.values["Kvz_QColor_ColorBottom"]);
}

TEST(TiledPictureTest, aGradientGoesOnFromTileToTile)
{
    const PassInfo &gradient = *PassRegistry::standard().find("GradientRenderPass");
    const QString top = "Kvz_QColor_ColorTop";
    const QString bottom = "Kvz_QColor_ColorBottom";
    const FixedUse use({{top, QColor(200, 100, 0)}, {bottom, QColor(0, 100, 50)}});
    const QVariantMap part = gradient.valuesOfPart(use, QRectF(0.3, 0.25, 0.1, 0.5));
    EXPECT_NEAR(part[bottom].value<QColor>().redF(), 0.25 * 200 / 255, 1e-4);
    EXPECT_NEAR(part[top].value<QColor>().redF(), 0.75 * 200 / 255, 1e-4);
    EXPECT_NEAR(part[top].value<QColor>().blueF(), 0.25 * 50 / 255, 1e-4);
    EXPECT_NEAR(part[top].value<QColor>().greenF(), 100.0 / 255, 1e-4);
    EXPECT_TRUE(
        gradient.valuesOfPart(FixedUse({{top, QColor(1, 2, 3)}, {bottom, QColor(1, 2, 3)}}), {0, 0, 1, 1}).isEmpty());
}

} // namespace Velmora::Kvz
