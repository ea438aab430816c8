// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/Meshes.h"
#include "support/PassTest.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/GroundShadowRenderPass.h>
#include <RenderPasses/ShadowMapRenderPass.h>
#include <Scene/GPUModelBuilder.h>
#include <Scene/ShadowMapManager.h>

#include <QtGui/QVector2D>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

using Light = ShadowMapManager::Light;

const QSize size(80, 80);
const double pi = std::acos(-1.0);

/// From straight above, 5 units to each side.
QMatrix4x4 above()
{
    QMatrix4x4 camera;
    camera.lookAt(QVector3D(0, 8, 0), QVector3D(), QVector3D(0, 0, -1));
    return camera;
}

QMatrix4x4 parallel()
{
    QMatrix4x4 projection;
    projection.ortho(-5, 5, -5, 5, 0.5f, 40);
    return projection;
}

/// The place of the ground at y = 0 that a pixel of that view shows.
QVector3D groundAt(int x, int y)
{
    return {10 * (float(x) + 0.5f) / 80 - 5, 0, 5 - 10 * (float(y) + 0.5f) / 80};
}

/// The share of the sky over a place that a plate covers, from its middle to the sides by half of its width and depth.
double platesShare(double x, double z, double height, double halfWidth, double halfDepth)
{
    const auto corner = [height](double a, double b) {
        const double p = std::hypot(height, a);
        const double q = std::hypot(height, b);
        return (a / p * std::atan(b / p) + b / q * std::atan(a / q)) / (2 * pi);
    };
    const double left = -halfWidth - x;
    const double right = halfWidth - x;
    const double front = -halfDepth - z;
    const double back = halfDepth - z;
    return corner(right, back) - corner(left, back) - corner(right, front) + corner(left, front);
}

class GroundShadowRenderPassTest : public PassTest<GroundShadowRenderPass>
{
protected:
    void SetUp() override
    {
        PassTest::SetUp();
        setViewport(size);
        pass->setInput(Port::ProjectionMatrix, parallel());
        pass->setInput(Port::CameraMatrix, above());
        // A circle of radius 8: what the view shows of it has not begun to fade before 4.
        pass->setInput(Port::SceneBoundsMin, QVector3D(-1.5f, 0, -2));
        pass->setInput(Port::SceneBoundsMax, QVector3D(1.5f, 1.5f, 2));
        pass->setInput(Port::GroundExtent, 2.0f);
        pass->setInput(Port::DisplayValues, false);
    }
    /// Shows a plate, thin and seen from both sides, at a height over the ground.
    void setPlate(float height, float halfWidth = 1, float halfDepth = 1, quint64 flags = GPUModel::DoubleSided)
    {
        QMatrix4x4 matrix;
        matrix.translate(0, height, 0);
        matrix.scale(halfWidth, 1, halfDepth);
        GPUModelBuilder builder;
        builder.addItem(builder.addMesh(groundMesh()), builder.addMaterial({}), matrix, flags);
        model = builder.build();
        setModel(model);
    }
    /// A lamp from this direction, with the shadow maps of the model.
    void setLamp(const QVector3D &direction, Light::Type type = Light::Directional)
    {
        lamp.type = type;
        lamp.direction = direction;
        lamp.position = -7 * direction.normalized();
        lamp.range = 100;
        lamp.coneAngle = 70;
        lamp.cascades = 1;
        lamp.intensity = 1;
        const QVariantList list = {QVariant::fromValue(&lamp)};
        maps = std::make_unique<ShadowMapRenderPass>();
        maps->setInput(ShadowMapRenderPass::Geometry, QVariant::fromValue(model.data()));
        maps->setInput(ShadowMapRenderPass::Lights, list);
        // They fit what casts shadows; the ground lies beyond their far ends.
        maps->setInput(ShadowMapRenderPass::SceneBoundsMin, model->sceneBounds().first - QVector3D(0.1f, 0.1f, 0.1f));
        maps->setInput(ShadowMapRenderPass::SceneBoundsMax, model->sceneBounds().second + QVector3D(0.1f, 0.1f, 0.1f));
        maps->start(nullptr);
        pass->setInput(Port::Lights, list);
        pass->setInput(Port::ShadowMapData, maps->output(ShadowMapRenderPass::ShadowMapData));
    }
    Image draw()
    {
        pass->setNumOutputUsers(Port::Ground, 1);
        pass->start(nullptr);
        if (!texture(Port::Ground)) {
            ADD_FAILURE() << "there is no layer";
            return {};
        }
        const Image layer = image(Port::Ground);
        TextureManager::Instance()->releaseTempTextureRef(texture(Port::Ground), 1);
        return layer;
    }
    static float alphaAt(const Image &layer, int x, int y) { return layer.at(x, y)[3]; }
    static int darkerThan(const Image &layer, float alpha)
    {
        int count = 0;
        for (int i = 3; i < layer.data.size(); i += 4)
            count += layer.data[i] > alpha;
        return count;
    }

    Light lamp;
    QSharedPointer<GPUModel> model;
    std::unique_ptr<ShadowMapRenderPass> maps;
    PooledTextures textures;
};

} // namespace

TEST_F(GroundShadowRenderPassTest, theContactIsTheShareOfTheSkyThatThePlateCovers)
{
    pass->setInput(Port::AmbientLight, 1.0f);
    pass->setInput(Port::ContactStrength, 1.0f);
    for (const float height : {0.15f, 0.5f, 1.2f}) {
        SCOPED_TRACE(height);
        setPlate(height, 1.2f, 0.8f);
        const Image layer = draw();
        double sum = 0;
        double most = 0;
        int count = 0;
        for (int y = 0; y < size.height(); y += 2) {
            for (int x = 0; x < size.width(); x += 2) {
                const QVector3D place = groundAt(x, y);
                if (place.length() > 3.9f)
                    continue;
                const double expected = platesShare(double(place.x()), double(place.z()), double(height), 1.2, 0.8);
                const double error = std::abs(expected - double(alphaAt(layer, x, y)));
                sum += error;
                most = std::max(most, error);
                ++count;
                EXPECT_EQ(layer.at(x, y)[0], 0);
            }
        }
        EXPECT_LT(sum / count, 0.012);
        // At the rim of a low plate the share jumps within a texel.
        EXPECT_LT(most, height < 0.3f ? 0.3 : 0.08);
        EXPECT_GT(alphaAt(layer, 40, 40), 0.3f);
        if (height == 0.5f)
            saveForViewing(layer, QStringLiteral("ground-contact"));
    }
}

TEST_F(GroundShadowRenderPassTest, aHardShadowLiesWhereTheLightIsCut)
{
    pass->setInput(Port::AmbientLight, 0.25f);
    pass->setInput(Port::ContactStrength, 0.0f);
    pass->setInput(Port::LightSize, 0.0f);
    const float height = 1.2f;
    setPlate(height);
    const QVector3D direction(0.6f, -1, 0.3f);
    for (const auto type : {Light::Directional, Light::Spot, Light::Point}) {
        SCOPED_TRACE(testing::Message() << "type " << int(type));
        setLamp(direction, type);
        const Image layer = draw();
        int inside = 0;
        int outside = 0;
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const QVector3D place = groundAt(x, y);
                if (place.length() > 3.9f)
                    continue;
                // Back along the light to the plate's height.
                const QVector3D towards =
                    type == Light::Directional ? -direction : (lamp.position - place) / lamp.position.y();
                const QVector3D crossing = place + height / towards.y() * towards;
                const double over = 1 - std::max(std::abs(double(crossing.x())), std::abs(double(crossing.z())));
                if (std::abs(over) < 0.3)
                    continue;
                (over > 0 ? inside : outside) += 1;
                EXPECT_NEAR(double(alphaAt(layer, x, y)), over > 0 ? 0.75 : 0, 0.05) << x << ", " << y;
            }
        }
        EXPECT_GT(inside, 100);
        EXPECT_GT(outside, 1000);
    }
}

TEST_F(GroundShadowRenderPassTest, shadowsGetSofterWithHeight)
{
    pass->setInput(Port::AmbientLight, 0.0f);
    pass->setInput(Port::ContactStrength, 0.0f);
    const auto softness = [this](float height, float lightSize) {
        setPlate(height);
        setLamp(QVector3D(0.01f, -1, 0));
        pass->setInput(Port::LightSize, lightSize);
        const Image layer = draw();
        int soft = 0;
        // Along the middle, where only two edges are crossed.
        for (int x = 0; x < size.width(); ++x) {
            for (int y = 38; y < 42; ++y)
                soft += alphaAt(layer, x, y) > 0.1f && alphaAt(layer, x, y) < 0.9f;
        }
        EXPECT_GT(alphaAt(layer, 40, 40), 0.9f);
        EXPECT_LT(alphaAt(layer, 5, 40), 0.01f);
        return double(soft) / 4 / 2 * 10 / 80; // Width of an edge in units.
    };
    for (const float height : {0.6f, 1.2f}) {
        const double hard = softness(height, 0);
        EXPECT_LT(hard, 0.25);
        // Of a disc of light the middle 80 % of the half-shadow are 1.37 radii wide.
        EXPECT_NEAR(softness(height, 0.4f), 1.37 * 0.4 * double(height), 0.2 * double(height) + 0.1) << height;
    }
    EXPECT_GT(softness(1.2f, 0.4f), 1.5 * softness(0.6f, 0.4f));
}

TEST_F(GroundShadowRenderPassTest, anEvenEnvironmentDarkensNothing)
{
    setPlate(0.2f);
    EXPECT_EQ(maximumDifference(draw(), Image(size.width(), size.height())), 0) << "no lights";
    setLamp(QVector3D(0, -1, 0));
    EXPECT_GT(darkerThan(draw(), 0.5f), 100);
    lamp.intensity = 0;
    EXPECT_EQ(maximumDifference(draw(), Image(size.width(), size.height())), 0) << "a lamp that is out";
}

TEST_F(GroundShadowRenderPassTest, lightsWeighByWhatTheyGive)
{
    pass->setInput(Port::AmbientLight, 0.0f);
    pass->setInput(Port::ContactStrength, 0.0f);
    pass->setInput(Port::LightSize, 0.0f);
    setPlate(0.5f);
    setLamp(QVector3D(0, -1, 0));
    Light other; // From below the horizon it gives the ground nothing, from above it has no shadow maps.
    other.type = Light::Directional;
    other.direction = QVector3D(0, 1, 0);
    other.intensity = 3;
    pass->setInput(Port::Lights, QVariantList{QVariant::fromValue(&lamp), QVariant::fromValue(&other)});
    EXPECT_NEAR(double(alphaAt(draw(), 40, 40)), 1, 0.01);
    other.direction = QVector3D(0, -1, 0);
    EXPECT_NEAR(double(alphaAt(draw(), 40, 40)), 0.25, 0.01);
}

TEST_F(GroundShadowRenderPassTest, theGroundFadesToItsRim)
{
    pass->setInput(Port::AmbientLight, 1.0f);
    pass->setInput(Port::ContactStrength, 1.0f);
    setPlate(0.02f, 60, 60);
    // (1.5 + 2.5) * 0.9
    pass->setInput(Port::GroundExtent, 0.9f);
    const Image layer = draw();
    for (int x = 0; x < size.width(); ++x) {
        const double part = double(groundAt(x, 40).length()) / 3.6;
        const double way = std::clamp(2 * part - 1, 0.0, 1.0);
        const double fade = 1 - way * way * (3 - 2 * way);
        // Beyond the rim no plate is known, so that the rim's own contact is half of what it would be.
        if (part < 0.75) {
            EXPECT_NEAR(double(alphaAt(layer, x, 40)), fade, 0.06) << x;
        }
        if (part > 1) {
            EXPECT_EQ(alphaAt(layer, x, 40), 0) << x;
        }
    }
    EXPECT_GT(darkerThan(layer, 0.9f), 300);
    pass->setInput(Port::GroundExtent, 0.0f);
    pass->start(nullptr);
    EXPECT_FALSE(texture(Port::Ground));
}

TEST_F(GroundShadowRenderPassTest, displayValuesLoseWhatLightLoses)
{
    setPlate(0.4f);
    setLamp(QVector3D(0.4f, -1, 0));
    const Image linear = draw();
    pass->setInput(Port::DisplayValues, true);
    const Image display = draw();
    EXPECT_GT(darkerThan(linear, 0.4f), 100);
    for (int i = 3; i < linear.data.size(); i += 4)
        ASSERT_NEAR(double(display.data[i]), 1 - std::pow(1 - double(linear.data[i]), 1 / 2.2), 2e-3);
}

TEST_F(GroundShadowRenderPassTest, isSeenFromAboveAndWhereNothingIsNearer)
{
    setPlate(0.4f);
    setLamp(QVector3D(0.4f, -1, 0));
    const Image open = draw();
    // The left half shows something above the ground, the right half something below it.
    Image depthImage(size.width(), size.height(), 1);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            *depthImage.at(x, y) = x < 40 ? 0.1f : 0.9f;
    }
    const auto depth = makeTexture(depthImage, GL_DEPTH_COMPONENT32F);
    setTexture(Port::Depth, depth.get());
    const Image hidden = draw();
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            ASSERT_EQ(alphaAt(hidden, x, y), x < 38 ? 0 : alphaAt(open, x, y)) << x << ", " << y;
    }
    setTexture(Port::Depth, nullptr);
    QMatrix4x4 below;
    below.lookAt(QVector3D(0, -8, 0), QVector3D(), QVector3D(0, 0, -1));
    pass->setInput(Port::CameraMatrix, below);
    EXPECT_EQ(darkerThan(draw(), 0), 0);
    // A far plane that fits the model alone.
    QMatrix4x4 tight;
    tight.ortho(-5, 5, -5, 5, 0.5f, 7.8f);
    pass->setInput(Port::ProjectionMatrix, tight);
    pass->setInput(Port::CameraMatrix, above());
    EXPECT_LE(maximumDifference(draw(), open), 1e-3);
    // In perspective the plate's shadow lies under it too, and nothing is above the horizon.
    pass->setInput(Port::ProjectionMatrix, perspective(size, 0.5f, 40));
    pass->setInput(Port::CameraMatrix, lookAt(QVector3D(0, 2, 7), QVector3D(0, 1.5f, 0)));
    const Image view = draw();
    EXPECT_GT(darkerThan(view, 0.2f), 30);
    for (int x = 0; x < size.width(); ++x)
        EXPECT_EQ(alphaAt(view, x, 60), 0);
}

TEST_F(GroundShadowRenderPassTest, theContactFollowsTheModel)
{
    pass->setInput(Port::AmbientLight, 1.0f);
    pass->setInput(Port::ContactStrength, 1.0f);
    setPlate(0.3f);
    const Image before = draw();
    EXPECT_EQ(maximumDifference(draw(), before), 0);
    QMatrix4x4 moved = model->modelMatrix(0);
    moved.translate(1.5f, 0, 0);
    model->setModelMatrix(0, moved);
    const Image after = draw();
    EXPECT_GT(pixelsBeyond(after, before, 0.3), 100);
    setPlate(0.3f, 1, 1, GPUModel::DoubleSided | GPUModel::NoShadowA);
    EXPECT_EQ(darkerThan(draw(), 0), 0) << "what casts no shadow has no contact";
    pass->setInput(Port::Geometry, QVariant());
    EXPECT_EQ(darkerThan(draw(), 0), 0);
}

TEST_F(GroundShadowRenderPassTest, thePatternFollowsTheWholePictureAndTurnsFromFrameToFrame)
{
    setPlate(1.2f);
    setLamp(QVector3D(0.2f, -1, 0));
    pass->setInput(Port::LightSize, 0.4f);
    const Image first = draw();
    EXPECT_EQ(maximumDifference(draw(), first), 0);
    for (const bool isTurned : {true, false}) {
        pass->setInput(Port::JitterIndex, isTurned ? QVariant(1) : QVariant());
        pass->setInput(Port::PatternOrigin, isTurned ? QVariant() : QVariant(QVector2D(3, 5)));
        const Image other = draw();
        EXPECT_GT(pixelsBeyond(other, first, 0.004), 50);
        EXPECT_LT(maximumDifference(other, first), 0.2) << "grain, and not another shadow";
    }
    // The lower left corner of a tile in the middle.
    QMatrix4x4 tile;
    tile.ortho(-5 + 10 * 16.0f / 80, 5, -5 + 10 * 24.0f / 80, 5, 0.5f, 40);
    setViewport(QSize(64, 56));
    pass->setInput(Port::ProjectionMatrix, tile);
    pass->setInput(Port::PatternOrigin, QVector2D(16, 24));
    const Image part = draw();
    int differing = 0;
    for (int y = 0; y < part.height; ++y) {
        for (int x = 0; x < part.width; ++x)
            differing += std::abs(alphaAt(part, x, y) - alphaAt(first, x + 16, y + 24)) > 1.0f / 255;
    }
    EXPECT_LE(differing, 4) << "where rounding decides for another texel";
}

TEST_F(GroundShadowRenderPassTest, aBackgroundIsDarkenedItself)
{
    setPlate(0.4f);
    setLamp(QVector3D(0.4f, -1, 0));
    const Image loss = draw();
    EXPECT_GT(darkerThan(loss, 0.4f), 100);
    Image surroundings(size.width(), size.height());
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            surroundings.setPixel(x, y, QVector4D(float(x) / 4, 1, float(y) / 100, 1));
    }
    Texture *const behind = textures.take(TextureFormat::HighDynamicRange, surroundings, 8);
    setTexture(Port::BackgroundIn, behind);
    // Light loses light, whatever the layer is for.
    pass->setInput(Port::DisplayValues, true);
    pass->setNumOutputUsers(Port::Background, 1);
    pass->start(nullptr);
    EXPECT_FALSE(texture(Port::Ground));
    ASSERT_TRUE(texture(Port::Background));
    const Image darkened = image(Port::Background);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const QVector4D expected =
                surroundings.pixel(x, y) * QVector4D(QVector3D(1, 1, 1) * (1 - alphaAt(loss, x, y)), 1);
            ASSERT_LT((darkened.pixel(x, y) - expected).length(), 0.02f) << x << ", " << y;
        }
    }
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Background), 1);
    EXPECT_EQ(PooledTextures::references(behind), 7);
    // Without a ground it is handed on.
    pass->setInput(Port::GroundExtent, 0.0f);
    pass->start(nullptr);
    EXPECT_EQ(texture(Port::Background), behind);
    EXPECT_FALSE(texture(Port::Ground));
    EXPECT_EQ(PooledTextures::references(behind), 7) << "one given back, one handed on";
    pass->setInput(Port::GroundExtent, 2.0f);
    setTexture(Port::BackgroundIn, nullptr);
    EXPECT_GT(maximumDifference(draw(), loss), 0.1) << "for display values again";
}

TEST_F(GroundShadowRenderPassTest, aLightThatIsOutHidesNoOther)
{
    setPlate(0.4f);
    setLamp(QVector3D(0.4f, -1, 0));
    const Image alone = draw();
    EXPECT_GT(darkerThan(alone, 0.4f), 100);
    Light out;
    out.type = Light::Directional;
    out.direction = QVector3D(0, -1, 0.3f);
    out.cascades = 1;
    out.intensity = 0;
    const QVariantList both = {QVariant::fromValue(&out), QVariant::fromValue(&lamp)};
    maps->setInput(ShadowMapRenderPass::Lights, both);
    maps->start(nullptr);
    pass->setInput(Port::Lights, both);
    pass->setInput(Port::ShadowMapData, maps->output(ShadowMapRenderPass::ShadowMapData));
    EXPECT_LE(maximumDifference(draw(), alone), 0.01);
}

TEST_F(GroundShadowRenderPassTest, tooManyLayersAreSaidOnce)
{
    setPlate(0.4f);
    std::vector<std::unique_ptr<Light>> lights;
    QVariantList list;
    for (int i = 0; i < 9; ++i) {
        lights.push_back(std::make_unique<Light>());
        lights.back()->type = Light::Directional;
        lights.back()->direction = QVector3D(0.1f * float(i), -1, 0);
        lights.back()->cascades = 1;
        list.append(QVariant::fromValue(lights.back().get()));
    }
    pass->setInput(Port::Lights, list);
    draw();
    draw();
    EXPECT_EQ(log.takeWarnings().size(), 1);
}

TEST_F(GroundShadowRenderPassTest, countsReferencesAndLeavesItsState)
{
    setPlate(0.4f);
    setLamp(QVector3D(0.4f, -1, 0));
    Texture *const depth = textures.take(TextureFormat::DepthStencil, size.width(), size.height(), 4);
    setTexture(Port::Depth, depth);
    const int others = PooledTextures::allReferences();
    pass->setNumOutputUsers(Port::Ground, 2);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ZERO, GL_ZERO);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_NEVER);
    glDepthMask(GL_FALSE);
    glEnable(GL_CULL_FACE);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    pass->start(nullptr);
    ASSERT_TRUE(texture(Port::Ground));
    EXPECT_EQ(PooledTextures::references(depth), 3);
    EXPECT_EQ(texture(Port::Ground)->internalFormat(0), GL_RGBA16F);
    EXPECT_EQ(PooledTextures::references(texture(Port::Ground)), 2);
    EXPECT_EQ(PooledTextures::allReferences(), others - 1 + 2);
    for (const GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_SCISSOR_TEST, GL_CULL_FACE})
        EXPECT_FALSE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Ground), 2);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Ground).isValid());
    EXPECT_EQ(PooledTextures::references(depth), 2);
    pass->setInput(Port::Geometry, QVariant());
    pass->setInput(Port::SceneBoundsMin, QVariant());
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Ground).isValid());
    EXPECT_EQ(PooledTextures::references(depth), 1);
}

TEST_F(GroundShadowRenderPassTest, takesItsObjectsAlong)
{
    setPlate(0.4f);
    setLamp(QVector3D(0.4f, -1, 0));
    draw();
    pass->teardownContextData(nullptr);
    const GLObjectCounts before = glObjectCounts();
    draw();
    EXPECT_EQ(glObjectCounts().programs, before.programs + 3);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 3);
    EXPECT_EQ(glObjectCounts().textures, before.textures + 2);
    pass.reset();
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    EXPECT_EQ(glObjectCounts().textures, before.textures);
}

} // namespace Velmora::Kvz
