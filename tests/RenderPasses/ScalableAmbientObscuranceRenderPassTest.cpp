// SPDX-License-Identifier: MIT
#include "ObscuranceReference.h"
#include "support/Cameras.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/MultisampleTextures.h"
#include "support/PooledTextures.h"

#include <GL/GLSLMacroProcessor.h>
#include <GL/GLStatistics.h>
#include <GL/ShaderProgram.h>
#include <RenderPasses/CameraSpaceZBufferRenderPass.h>
#include <RenderPasses/ScalableAmbientObscuranceRenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Pass = ScalableAmbientObscuranceRenderPass;
using Positions = ObscuranceReference::Positions;
using Normals = ObscuranceReference::Normals;

/// The length of the shader's text during static initialisation.
const int lengthAtStartUp = gSaoFragmentShaderSource.size();

const QSize usualSize(64, 48);

class ScalableAmbientObscuranceRenderPassTest : public GLTest
{
protected:
    using Port = Pass;

    std::unique_ptr<Pass> pass = std::make_unique<Pass>();
    PooledTextures textures;
    // The pass's input images.
    std::unique_ptr<Texture> depth;
    std::unique_ptr<Texture> positions;
    std::unique_ptr<Texture> normals;

    void set(int port, const QVariant &value) { pass->setInput(port, value); }
    void setTexture(int port, Texture *texture) { pass->setInput(port, QVariant::fromValue(texture)); }
    Texture *frame() const { return pass->output(Port::Frame).value<Texture *>(); }

    /// A reference of the scene with the usual settings.
    ObscuranceReference usual(const QSize &size = usualSize, const QMatrix4x4 &projection = QMatrix4x4()) const
    {
        ObscuranceReference reference;
        reference.size = reference.viewport = size;
        reference.projection = projection.isIdentity() ? perspective(size, 1, 20) : projection;
        reference.camera = lookAt(QVector3D(3, 1, 2), QVector3D(0, 0.5f, 0));
        const ObscuranceScene scene(size, reference.projection);
        reference.depth = scene.depth;
        reference.positions = scene.positions;
        reference.normals = scene.normals;
        return reference;
    }

    /// Sets the inputs that are numbers from a reference.
    void feedNumbers(const ObscuranceReference &reference)
    {
        set(Port::Viewport, QRect(QPoint(), reference.viewport));
        set(Port::ProjectionMatrix, reference.projection);
        set(Port::CameraMatrix, reference.camera);
        set(Port::NearPlane, reference.nearPlane);
        set(Port::FarPlane, reference.farPlane);
        set(Port::SaoRadius, reference.radius);
        set(Port::SaoBias, reference.bias);
        set(Port::SaoIntensity, reference.intensity);
        set(Port::SaoNumSamples, float(reference.taps));
        set(Port::SaoNumSpiralTurns, float(reference.turns));
        pass->setNumOutputUsers(Port::Frame, 1);
    }

    /// Sets all inputs from a reference. Samples beyond the first hold something else.
    void feed(const ObscuranceReference &reference, bool multisampledDepth = false)
    {
        feedNumbers(reference);
        const auto others = [](const Image &image) {
            Image other = image;
            for (float &value : other.data)
                value = 0.3f - 0.2f * value;
            return other;
        };
        depth = multisampledDepth
            ? makeMultisampleTexture(reference.depth, others(reference.depth), GL_DEPTH_COMPONENT32F, 4)
            : makeTexture(reference.depth, GL_DEPTH_COMPONENT32F);
        set(Port::NumberMultisamples, multisampledDepth ? QVariant(4) : QVariant());
        positions.reset();
        if (reference.positionsFrom == Positions::Sampled)
            positions = makeTexture(reference.positions, GL_RGBA32F);
        else if (reference.positionsFrom == Positions::Fetched)
            positions = makeMultisampleTexture(reference.positions, others(reference.positions), GL_RGBA32F, 4);
        normals.reset();
        if (reference.normalsFrom == Normals::WorldFetched)
            normals = makeMultisampleTexture(reference.normals, others(reference.normals), GL_RGBA32F, 4);
        else if (reference.normalsFrom != Normals::FromPositions)
            normals = makeTexture(reference.normals, GL_RGBA32F);
        setTexture(Port::Depth, depth.get());
        setTexture(Port::CameraSpacePosition, positions.get());
        setTexture(Port::Normal, normals.get());
    }

    /// Runs the pass and reads its image, which goes back to the pool.
    Image run()
    {
        pass->start(nullptr);
        return take();
    }
    Image take()
    {
        Texture *const texture = frame();
        if (!texture)
            return Image();
        const Image image =
            texture->target() == GL_TEXTURE_2D_MULTISAMPLE ? readSample(texture, 0) : readTexture(texture);
        TextureManager::Instance()->releaseTempTextureRef(texture, 1);
        return image;
    }
};

double mean(const Image &image)
{
    double sum = 0;
    for (int i = 0; i < image.data.size(); i += image.channels)
        sum += double(image.data[i]);
    return sum / (double(image.width) * image.height);
}

Image whole(int width, int height, float value)
{
    Image image(width, height, 1);
    image.data.fill(value);
    return image;
}

} // namespace

TEST_F(ScalableAmbientObscuranceRenderPassTest, normalProcessingHasFixedNumbers)
{
    EXPECT_EQ(int(Pass::NormalTransposeInvert), 0);
    EXPECT_EQ(int(Pass::NormalScreenSpace), 1);
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, theShadersTextIsThereFromTheStart)
{
    EXPECT_TRUE(gSaoFragmentShaderSource.startsWith(QStringLiteral("#version 150\n")));
    EXPECT_EQ(lengthAtStartUp, gSaoFragmentShaderSource.size());
    for (const char *part : {"#extension GL_EXT_gpu_shader4 : enable", "#extension GL_ARB_gpu_shader5 : enable",
             "#define gl_FragColor out_FragColor", "#error Not know Normal processing", "uniform vec4 projInfo;"})
        EXPECT_TRUE(gSaoFragmentShaderSource.contains(QString::fromUtf8(part))) << part;
}

// Every source of positions with every source of normals.
TEST_F(ScalableAmbientObscuranceRenderPassTest, matchesTheFormulasInEveryCombination)
{
    for (const Positions from : {Positions::FromDepth, Positions::Sampled, Positions::Fetched}) {
        for (const bool multisampledDepth : {false, true}) {
            for (const Normals normalsFrom :
                {Normals::FromPositions, Normals::World, Normals::WorldFetched, Normals::Camera}) {
                SCOPED_TRACE(::testing::Message() << "positions " << int(from) << ", multisampled depth "
                                                  << multisampledDepth << ", normals " << int(normalsFrom));
                ObscuranceReference reference = usual();
                reference.positionsFrom = from;
                reference.normalsFrom = normalsFrom;
                if (normalsFrom == Normals::World || normalsFrom == Normals::WorldFetched) {
                    reference.normals = ObscuranceScene(usualSize, reference.projection).worldNormals(reference.camera);
                    // A camera that scales: normals change their length and are used like that.
                    reference.camera.scale(0.8f);
                }
                pass = std::make_unique<Pass>();
                if (normalsFrom == Normals::Camera) {
                    pass->setNormalProcessing(Pass::NormalScreenSpace);
                    // Some point away from the camera, and none is of unit length.
                    for (int i = 0; i < usualSize.width() * usualSize.height(); i += 3) {
                        const QPoint at(i % usualSize.width(), i / usualSize.width());
                        reference.normals.setPixel(at.x(), at.y(), reference.normals.pixel(at.x(), at.y()) * -2);
                    }
                }
                feed(reference, multisampledDepth);
                const Image image = run();
                saveForViewing(image,
                    QStringLiteral("obscurance-%1-%2-%3").arg(int(from)).arg(multisampledDepth).arg(int(normalsFrom)));
                expectTelling(compareWithFormula(image, reference));
                if (HasFailure())
                    return;
            }
        }
    }
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, matchesTheFormulasForOtherNumbers)
{
    for (int change = 0; change < 7; ++change) {
        SCOPED_TRACE(change);
        ObscuranceReference reference = usual();
        switch (change) {
        case 0:
            reference.taps = 11;
            reference.turns = 5;
            break;
        case 1:
            reference.radius = 1.1f;
            break;
        case 2:
            reference.bias = 0.1f;
            break;
        case 3:
            reference.intensity = 7;
            break;
        case 4:
            reference.bias = -0.02f;
            reference.intensity = 0.5f;
            break;
        case 5:
            reference = usual(QSize(51, 37));
            break;
        case 6: {
            QMatrix4x4 offAxis;
            offAxis.frustum(-0.7f, 0.5f, -0.3f, 0.6f, 1, 20);
            reference = usual(usualSize, offAxis);
            break;
        }
        }
        feed(reference);
        const ObscuranceCoverage coverage = compareWithFormula(run(), reference);
        EXPECT_GT(coverage.compared - coverage.white - coverage.black, 200);
        if (HasFailure())
            return;
    }
}

// With the filter and wrap of a fresh pooled texture, as the two passes meet in a chain.
TEST_F(ScalableAmbientObscuranceRenderPassTest, readsThePositionsOfTheOtherPass)
{
    const QSize whole(80, 60);
    for (const float divider : {1.0f, 2.0f}) {
        ObscuranceReference reference = usual(whole);
        reference.positionsFrom = Positions::Sampled;
        reference.normalsFrom = Normals::Camera;
        reference.isLinear = true;
        reference.size = whole / int(divider);
        reference.normals = ObscuranceScene(reference.size, reference.projection).normals;
        feed(reference);
        set(Port::ResolutionDivider, divider);
        pass->setNormalProcessing(Pass::NormalScreenSpace);

        TextureManager::Instance()->deleteUnusedTempTextures();
        CameraSpaceZBufferRenderPass unprojection;
        unprojection.setInput(CameraSpaceZBufferRenderPass::Viewport, QRect(QPoint(), whole));
        unprojection.setInput(CameraSpaceZBufferRenderPass::Depth, QVariant::fromValue(depth.get()));
        unprojection.setInput(CameraSpaceZBufferRenderPass::ProjectionMatrix, reference.projection);
        unprojection.setNumOutputUsers(0, 2);
        unprojection.start(nullptr);
        auto *const made = unprojection.output(0).value<Texture *>();
        reference.positions = readTexture(made);
        set(Port::CameraSpacePosition, unprojection.output(0));
        pass->start(nullptr);
        EXPECT_EQ(PooledTextures::references(made), 1);
        const ObscuranceCoverage coverage = compareWithFormula(take(), reference);
        EXPECT_GT(coverage.compared - coverage.white - coverage.black, 160 / int(divider));
        TextureManager::Instance()->releaseTempTextureRef(made, 1);
        pass = std::make_unique<Pass>();
    }
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, dividesTheResolution)
{
    const QSize full(96, 72);
    for (const Positions from : {Positions::Sampled, Positions::Fetched}) {
        for (const Normals normalsFrom : {Normals::World, Normals::WorldFetched}) {
            ObscuranceReference reference = usual(full);
            reference.positionsFrom = from;
            reference.normalsFrom = normalsFrom;
            reference.normals = ObscuranceScene(full, reference.projection).worldNormals(reference.camera);
            reference.size = full / 3; // An odd divisor: pixel centres fall on texel centres.
            pass = std::make_unique<Pass>();
            feed(reference);
            set(Port::ResolutionDivider, 3.0f);
            expectTelling(compareWithFormula(run(), reference));
        }
    }
    // From depth, a pixel reads the texel with its own coordinates, that is from the lower left part, on purpose.
    ObscuranceReference reference = usual(full);
    reference.size = full / 3;
    pass = std::make_unique<Pass>();
    feed(reference);
    set(Port::ResolutionDivider, 3.0f);
    compareWithFormula(run(), reference);

    // Dividers are truncated, and values below 1 act as 1.
    const ObscuranceReference small = usual(QSize(50, 35));
    feed(small);
    for (const auto &[divider, size] :
        {std::pair{QVariant(3.0f), QSize(16, 11)}, {QVariant(1.5f), QSize(33, 23)}, {QVariant(1.0f), QSize(50, 35)},
            {QVariant(0.25f), QSize(50, 35)}, {QVariant(-4.0f), QSize(50, 35)}, {QVariant(), QSize(50, 35)}}) {
        set(Port::ResolutionDivider, divider);
        const Image image = run();
        EXPECT_EQ(QSize(image.width, image.height), size) << divider.toFloat();
    }
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, clearsThePoolWhenTheDividerChanges)
{
    TextureManager *const manager = TextureManager::Instance();
    feed(usual(QSize(16, 12)));
    const auto freeAfter = [&](const QVariant &divider) {
        manager->releaseTempTextureRef(manager->tempTexture(TextureFormat::HighDynamicRange, 5, 5, 1, 1), 1);
        set(Port::ResolutionDivider, divider);
        run();
        int others = 0;
        for (const TextureManager::PooledTexture &texture : manager->pooledTextures())
            others += texture.width == 5 ? 1 : 0;
        return others;
    };
    EXPECT_EQ(freeAfter(1.0f), 1) << "1 is what it begins with";
    EXPECT_EQ(freeAfter(0.5f), 1) << "it acts as 1";
    EXPECT_EQ(freeAfter(2.0f), 0);
    EXPECT_EQ(freeAfter(2.0f), 1);
    EXPECT_EQ(freeAfter(1.0f), 0);
}

// With positions this holds for any wall. From depth only for one that faces the camera: the depth of a tap is that of
// a texel's centre while its position is not, so sloping walls get grain.
TEST_F(ScalableAmbientObscuranceRenderPassTest, aFlatWallIsWhite)
{
    const QSize size(40, 30);
    for (const double tilt : {0.0, 0.7, -2.0}) {
        ObscuranceReference reference = usual(size);
        const DoubleMatrix inverse = DoubleMatrix(reference.projection).inverted();
        const DoubleMatrix forward(reference.projection);
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                // The plane z = tilt x - 6.
                const Vector3d ray =
                    xyz(inverse * Vector4d{2 * (x + 0.5) / size.width() - 1, 2 * (y + 0.5) / size.height() - 1, 0, 1});
                const Vector3d point = ray * (-6 / (ray[2] - tilt * ray[0]));
                const Vector4d clip = forward * withW(point, 1);
                *reference.depth.at(x, y) = float((clip[2] / clip[3] + 1) / 2);
                reference.positions.setPixel(x, y, QVector4D(float(point[0]), float(point[1]), float(point[2]), 1));
            }
        }
        for (const Positions from : {Positions::FromDepth, Positions::Sampled}) {
            if (from == Positions::FromDepth && tilt != 0)
                continue;
            reference.positionsFrom = from;
            pass = std::make_unique<Pass>();
            feed(reference);
            EXPECT_EQ(maximumDifference(run(), filled(40, 30, QVector4D(1, 1, 1, 1))), 0) << tilt << ' ' << int(from);
        }
    }
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, aCornerDarkensWithRadiusAndIntensityAndLessWithBias)
{
    const ObscuranceReference reference = usual();
    const auto brightness = [&](int port, float value) {
        feed(reference);
        set(port, value);
        return mean(run());
    };
    const auto expectFalling = [&](int port, const std::vector<float> &values) {
        double last = 1;
        for (const float value : values) {
            const double now = brightness(port, value);
            EXPECT_LT(now, last - 0.002) << port << ": " << value;
            last = now;
        }
    };
    expectFalling(Port::SaoRadius, {0.1f, 0.3f, 0.6f, 1.0f});
    expectFalling(Port::SaoIntensity, {0.3f, 1, 3, 10});
    expectFalling(Port::SaoBias, {0.2f, 0.1f, 0.03f, 0.001f});

    // The darkness is in the corner: along the wall it grows towards the floor.
    feed(reference);
    const Image image = run();
    const auto rowOf = [&](int from, int to, int y) {
        double sum = 0;
        for (int x = from; x < to; ++x)
            sum += double(image.pixel(x, y).x()) / (to - from);
        return sum;
    };
    // The back wall stands on the floor at y = -1.2, z = -7.5.
    const double below = -1.2 / 7.5 / std::tan(25 * M_PI / 180);
    const int seam = int((below + 1) / 2 * usualSize.height());
    EXPECT_LT(rowOf(23, 28, seam), 0.8);
    EXPECT_GT(rowOf(23, 28, seam + 6), rowOf(23, 28, seam) + 0.1);
    EXPECT_EQ(rowOf(23, 28, seam + 14), 1);
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, whatIsNotThereAndWhatIsTooFarStaysWhite)
{
    // A comb of teeth at two depths, obscured everywhere: first with a hole, then with the far teeth beyond 50 units.
    const QSize size(32, 24);
    const auto comb = [&](double nearTeeth, double farTeeth) {
        ObscuranceReference reference = usual(size);
        reference.projection = perspective(size, 1, 100);
        reference.farPlane = 100;
        reference.radius = 3;
        reference.intensity = 100;
        reference.normalsFrom = Normals::Camera;
        reference.normals = filled(32, 24, QVector4D(0, 0, 1, 0));
        for (int y = 0; y < 24; ++y) {
            for (int x = 0; x < 32; ++x) {
                const double distance = x % 2 ? farTeeth : nearTeeth;
                *reference.depth.at(x, y) = float(100.0 / 99 * (1 - 1 / distance));
            }
        }
        return reference;
    };
    pass->setNormalProcessing(Pass::NormalScreenSpace);
    const auto valueAt = [&](const Image &image, int x, int y) { return image.pixel(x, y).x(); };

    ObscuranceReference reference = comb(20, 21.5);
    *reference.depth.at(11, 9) = 1;
    feed(reference);
    Image image = run();
    EXPECT_EQ(valueAt(image, 11, 9), 1) << "nothing was drawn there";
    EXPECT_LT(valueAt(image, 21, 9), 0.5);
    EXPECT_EQ(valueAt(image, 20, 9), 1) << "the teeth's tips are in the open";
    compareWithFormula(image, reference);
    // A pixel with a tap in the hole is white too.
    const ObscuranceReference filledUp = comb(20, 21.5);
    int whitened = 0;
    for (int y = 0; y < 24; ++y) {
        for (int x = 0; x < 32; ++x) {
            if (reference.at(x, y).low < 1 || filledUp.at(x, y).high > 0.5)
                continue;
            EXPECT_EQ(valueAt(image, x, y), 1) << x << ' ' << y;
            ++whitened;
        }
    }
    EXPECT_GT(whitened, 0);

    reference = comb(48.4, 49.9);
    feed(reference);
    image = run();
    EXPECT_LT(valueAt(image, 15, 9), 0.5);
    reference = comb(48.6, 50.1);
    feed(reference);
    image = run();
    for (int x = 0; x < 32; ++x)
        EXPECT_EQ(valueAt(image, x, 9), 1) << x;

    // With positions only the distance discards, no depth of 1.
    reference = comb(20, 21.5);
    reference.positionsFrom = Positions::Sampled;
    for (int y = 0; y < 24; ++y) {
        for (int x = 0; x < 32; ++x)
            reference.positions.setPixel(x, y, QVector4D(0.8f * float(x), float(y), x % 2 ? -21.5f : -20, 1));
    }
    reference.positions.setPixel(9, 9, QVector4D(7, 9, -50.01f, 1));
    reference.depth = whole(32, 24, 1);
    pass = std::make_unique<Pass>();
    pass->setNormalProcessing(Pass::NormalScreenSpace);
    feed(reference);
    image = run();
    EXPECT_EQ(valueAt(image, 9, 9), 1);
    EXPECT_LT(valueAt(image, 21, 9), 0.5);
    compareWithFormula(image, reference);
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, aBiasOfZeroTurnsItOff)
{
    Texture *const pooledDepth = textures.take(TextureFormat::DepthStencil, 8, 6, 4);
    Texture *const pooledPositions = textures.take(TextureFormat::Position, 8, 6, 4);
    Texture *const pooledNormals = textures.take(TextureFormat::HighDynamicRange, 8, 6, 4);
    feedNumbers(usual(QSize(8, 6)));
    setTexture(Port::Depth, pooledDepth);
    setTexture(Port::CameraSpacePosition, pooledPositions);
    setTexture(Port::Normal, pooledNormals);
    set(Port::ResolutionDivider, 2.0f);
    set(Port::SaoBias, 0.0f);
    const GLObjectCounts before = glObjectCounts();
    {
        GLCallRecorder<&epoxy_glClear> clears;
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        GLCallRecorder<&epoxy_glDrawElements> indexedDraws;
        pass->start(nullptr);
        EXPECT_EQ(clears.calls.size() + draws.calls.size() + indexedDraws.calls.size(), 0u);
    }
    EXPECT_EQ(pass->output(Port::Frame).userType(), int(QMetaType::Int));
    EXPECT_EQ(pass->output(Port::Frame), QVariant(0));
    EXPECT_EQ(frame(), nullptr) << "consumers read it as no image";
    EXPECT_TRUE(glObjectCounts() == before);
    for (Texture *texture : {pooledDepth, pooledPositions, pooledNormals})
        EXPECT_EQ(PooledTextures::references(texture), 3);

    // The same with a bias that is not a number; the smallest positive one draws.
    set(Port::SaoBias, QVariant());
    pass->start(nullptr);
    EXPECT_EQ(pass->output(Port::Frame), QVariant(0));
    set(Port::SaoBias, 1e-30f);
    pass->start(nullptr);
    EXPECT_NE(frame(), nullptr);
    take();
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, countsTapsAndTurnsInWholeNumbers)
{
    const ObscuranceReference reference = usual(QSize(32, 24));
    feed(reference);
    const auto with = [&](float taps, float turns) {
        set(Port::SaoNumSamples, taps);
        set(Port::SaoNumSpiralTurns, turns);
        return run();
    };
    const Image seven = with(7, 3);
    EXPECT_EQ(maximumDifference(seven, with(7.9f, 3.9f)), 0);
    EXPECT_GT(maximumDifference(seven, with(8, 3)), 0.1);
    EXPECT_GT(maximumDifference(seven, with(7, 4)), 0.1);

    // Without mip levels the offset has no effect, in whichever form it is given.
    set(Port::SaoNumLogMaxOffset, 5);
    EXPECT_EQ(maximumDifference(seven, with(7, 3)), 0);
    set(Port::SaoNumLogMaxOffset, QStringLiteral("2"));
    EXPECT_EQ(maximumDifference(seven, with(7, 3)), 0);
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, theOffsetChoosesTheLevelThatTapsRead)
{
    // Each level of the depth image shows the scene nearer than the one before, in its own texels, so that a tap
    // reveals which level it read. The levels are large enough for all taps to the right and above, even the coarsest.
    const auto withLevels = [this](const QSize &size, float radius, int side, int levels) {
        ObscuranceReference reference = usual(size);
        reference.radius = radius;
        const Image scene = reference.depth;
        const auto levelOf = [&](int level) {
            Image image = whole(side >> level, side >> level, 0.6f);
            for (int y = 0; y < std::min(size.height(), image.height); ++y) {
                for (int x = 0; x < std::min(size.width(), image.width); ++x)
                    *image.at(x, y) = *scene.at(x, y) * (1 - 0.01f * float(level));
            }
            return image;
        };
        reference.depth = levelOf(0);
        for (int level = 1; level <= levels; ++level)
            reference.coarserDepths.append(levelOf(level));
        feed(reference);
        AutoBinder binder(depth.get());
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST_MIPMAP_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, levels);
        for (int level = 1; level <= levels; ++level) {
            const Image &image = reference.coarserDepths[level - 1];
            glTexImage2D(GL_TEXTURE_2D, level, GL_DEPTH_COMPONENT32F, image.width, image.height, 0, GL_DEPTH_COMPONENT,
                GL_FLOAT, image.data.constData());
        }
        return reference;
    };
    const auto with = [this](const QVariant &offset) {
        set(Port::SaoNumLogMaxOffset, offset);
        return run();
    };

    // Level 6 exists but must never be read.
    ObscuranceReference reference = withLevels(QSize(32, 24), 0.6f, 1024, 6);
    QVector<Image> images;
    for (const int offset : {3, -5, -6, -7, -8, -20}) {
        SCOPED_TRACE(offset);
        reference.logMaxOffset = offset;
        const Image image = with(float(offset));
        saveForViewing(image, QStringLiteral("obscurance-offset%1").arg(offset));
        const ObscuranceCoverage coverage = compareWithFormula(image, reference);
        EXPECT_GT(coverage.compared - coverage.white - coverage.black, 50);
        for (const Image &other : qAsConst(images))
            EXPECT_GT(maximumDifference(image, other), 0.1);
        images.append(image);
    }
    EXPECT_EQ(maximumDifference(with(20), images[0]), 0) << "level 0";
    EXPECT_EQ(maximumDifference(with(-100), images[5]), 0) << "level 5";
    EXPECT_EQ(maximumDifference(with(-5.6f), images[2]), 0) << "rounded";
    EXPECT_EQ(maximumDifference(with(-5.4f), images[1]), 0) << "rounded";
    EXPECT_EQ(maximumDifference(with(QStringLiteral("-6")), images[2]), 0) << "as QVariant converts it";

    // The image is so narrow that taps reach across several of its widths; otherwise no tap chooses a level above 0
    // here.
    reference = withLevels(QSize(4, 384), 1.2f, 4096, 3);
    reference.logMaxOffset = 2;
    const Image two = with(2.0f);
    compareWithFormula(two, reference);
    reference.logMaxOffset = 3;
    const Image three = with(3.0f);
    compareWithFormula(three, reference);
    EXPECT_GT(maximumDifference(two, three), 0.1);
    EXPECT_EQ(maximumDifference(with(2.6f), three), 0) << "rounded";
    EXPECT_EQ(maximumDifference(with(2.4f), two), 0) << "rounded";
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, drawsNothingWithoutDepth)
{
    const ObscuranceReference reference = [this] {
        ObscuranceReference sampled = usual(QSize(16, 12));
        sampled.positionsFrom = Positions::Sampled;
        return sampled;
    }();
    feed(reference);
    // The texture that the pool hands out next.
    Texture *const kept =
        textures.take(TextureFormat::LowDynamicRange, filled(16, 12, QVector4D(0.2f, 0.4f, 0.6f, 0.8f)), 1);
    TextureManager::Instance()->releaseTempTextureRef(kept, 1);
    for (const bool hasPositions : {true, false}) {
        if (!hasPositions)
            set(Port::CameraSpacePosition, QVariant());
        set(Port::Depth, QVariant());
        {
            GLCallRecorder<&epoxy_glClear> clears;
            GLCallRecorder<&epoxy_glDrawArrays> draws;
            GLCallRecorder<&epoxy_glDrawElements> indexedDraws;
            pass->start(nullptr);
            EXPECT_EQ(clears.calls.size() + draws.calls.size() + indexedDraws.calls.size(), 0u);
        }
        EXPECT_EQ(frame(), kept);
        EXPECT_LT((take().pixel(3, 3) - QVector4D(0.2f, 0.4f, 0.6f, 0.8f)).length(), 0.01f);
        pass = std::make_unique<Pass>();
        feedNumbers(reference);
    }
    EXPECT_EQ(PooledTextures::allReferences(), 0);
    log.takeCategory(QStringLiteral("kvz.gl"));
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, theFirstFrameSettlesWhatIsConnected)
{
    ObscuranceReference reference = usual(QSize(32, 24));
    feed(reference);
    const Image fromDepth = run();
    const int programs = glObjectCounts().programs;
    // Normals that arrive later are ignored.
    reference.normalsFrom = Normals::Camera;
    feed(reference);
    EXPECT_EQ(maximumDifference(fromDepth, run()), 0);
    EXPECT_EQ(glObjectCounts().programs, programs);
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, theNormalProcessingIsSetBeforeTheFirstFrame)
{
    ObscuranceReference reference = usual(QSize(32, 24));
    reference.normalsFrom = Normals::World;
    reference.normals = ObscuranceScene(reference.size, reference.projection).worldNormals(reference.camera);
    pass->setNormalProcessing(Pass::NormalScreenSpace);
    pass->setNormalProcessing(Pass::NormalTransposeInvert);
    EXPECT_TRUE(log.messages().isEmpty());
    feed(reference);
    const Image image = run();
    expectTelling(compareWithFormula(image, reference));
    log.takeCategory(QStringLiteral("kvz.gl"));

    pass->setNormalProcessing(Pass::NormalScreenSpace);
    ASSERT_EQ(log.messages().size(), 1);
    EXPECT_EQ(log.messages()[0].category, QStringLiteral("default"));
    const QString line = log.takeCriticals().value(0);
    EXPECT_TRUE(line.startsWith(QStringLiteral("[ScalableAmbientObscuranceRenderPass:"))) << qPrintable(line);
    EXPECT_TRUE(line.endsWith(QStringLiteral("] [ !! ] Assertion 'NULL == _shaderProgram' failed: "
                                             "Do not set the normal processing once a shader has been created.")))
        << qPrintable(line);
    EXPECT_EQ(maximumDifference(image, run()), 0);
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, combinationsThatDoNotCompileLeaveTheImageWhite)
{
    ObscuranceReference reference = usual(QSize(16, 12));
    const auto expectWhite = [&] {
        const Image image = run();
        EXPECT_EQ(maximumDifference(image, filled(16, 12, QVector4D(1, 1, 1, 1))), 0);
        pass = std::make_unique<Pass>();
    };
    // A value outside the enumeration.
    reference.normalsFrom = Normals::World;
    pass->setNormalProcessing(static_cast<Pass::NormalProcessing>(2));
    feed(reference);
    expectWhite();
    // Multisampled normals in camera space.
    reference.normalsFrom = Normals::WorldFetched;
    pass->setNormalProcessing(Pass::NormalScreenSpace);
    feed(reference);
    expectWhite();
    EXPECT_FALSE(log.takeCategory(QStringLiteral("kvz.gl")).isEmpty()) << "the driver's words";
    // With valid processing the same inputs give obscurance.
    pass->setNormalProcessing(Pass::NormalTransposeInvert);
    feed(reference);
    EXPECT_LT(mean(run()), 0.95);
    log.takeCategory(QStringLiteral("kvz.gl"));
    EXPECT_TRUE(log.messages().isEmpty()) << "the pass says nothing";

    ShaderProgram program;
    GLSLMacroProcessor macros;
    macros.addDefine(QStringLiteral("CS_POS_CALCULATE"), QStringLiteral("1"));
    program.setMacroProcessor(&macros);
    program.addShader(GL_FRAGMENT_SHADER, gSaoFragmentShaderSource, QString());
    EXPECT_FALSE(program.compile());
    EXPECT_TRUE(program.log().contains(QStringLiteral("Not know Normal processing"))) << qPrintable(program.log());
    log.takeCategory(QStringLiteral("kvz.gl"));
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, attachesDepthByItsFormat)
{
    const ObscuranceReference reference = usual(QSize(32, 24));
    feed(reference);
    const Image expected = run();
    // Packed with stencil: 24 bits of depth give the same picture within a step or two.
    const std::unique_ptr<Texture> packed = makeTexture(reference.depth, GL_DEPTH24_STENCIL8);
    setTexture(Port::Depth, packed.get());
    {
        GLCallRecorder<&epoxy_glFramebufferTexture2D> attached;
        ObscuranceReference stored = reference;
        stored.depth = readTexture(packed.get());
        const Image image = run();
        compareWithFormula(image, stored);
        EXPECT_LT(std::abs(mean(image) - mean(expected)), 0.002);
        bool isDepthStencil = false;
        for (const auto &call : attached.calls)
            isDepthStencil |=
                std::get<1>(call) == GL_DEPTH_STENCIL_ATTACHMENT && std::get<3>(call) == packed->textureID();
        EXPECT_TRUE(isDepthStencil);
    }

    // A colour format is reported and attached as depth all the same, and nothing can be drawn.
    const std::unique_ptr<Texture> colour = makeTexture(filled(32, 24, QVector4D(0.5f, 0, 0, 1)), GL_RGBA32F);
    setTexture(Port::Depth, colour.get());
    {
        GLCallRecorder<&epoxy_glFramebufferTexture2D> attached;
        pass->start(nullptr);
        bool isDepth = false;
        for (const auto &call : attached.calls)
            isDepth |= std::get<1>(call) == GL_DEPTH_ATTACHMENT && std::get<3>(call) == colour->textureID();
        EXPECT_TRUE(isDepth);
    }
    const QString line = log.takeCriticals().value(0);
    EXPECT_TRUE(line.endsWith(QStringLiteral("] [ !! ] Assertion 'false' failed: Unhandled depth format")))
        << qPrintable(line);
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION}) << "the clear";
    take();
    // The next frame is unaffected.
    setTexture(Port::Depth, depth.get());
    EXPECT_EQ(maximumDifference(expected, run()), 0);
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, depthAndResultMustHaveTheSameSamples)
{
    const ObscuranceReference reference = usual(QSize(32, 24));
    feed(reference, true);
    set(Port::NumberMultisamples, 0);
    pass->start(nullptr);
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION}) << "the clear";
    take();
    set(Port::NumberMultisamples, 4);
    pass->start(nullptr);
    Texture *const made = frame();
    ASSERT_EQ(made->target(), GLenum(GL_TEXTURE_2D_MULTISAMPLE));
    const Image first = readSample(made, 0);
    compareWithFormula(first, reference);
    for (int sample = 1; sample < 4; ++sample)
        EXPECT_EQ(maximumDifference(first, readSample(made, sample)), 0);
    TextureManager::Instance()->releaseTempTextureRef(made, 1);
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, setsItsStateInOrderAndLeavesIt)
{
    feed(usual(QSize(16, 12)));
    set(Port::Viewport, QRect(30, 40, 16, 12));
    for (const bool tested : {false, true}) {
        tested ? glEnable(GL_DEPTH_TEST) : glDisable(GL_DEPTH_TEST);
        glEnable(GL_STENCIL_TEST);
        glDepthMask(GL_TRUE);
        glStencilMask(0xff);
        glStencilFunc(GL_ALWAYS, 0, 0x0f);
        glStencilOp(GL_REPLACE, GL_INCR, GL_INVERT);
        glClearColor(0.1f, 0.2f, 0.3f, 0.4f);
        {
            GLCallRecorder<&epoxy_glViewport> viewports;
            GLCallRecorder<&epoxy_glClearColor> clearColors;
            GLCallRecorder<&epoxy_glClear> clears;
            GLCallRecorder<&epoxy_glStencilFunc> stencilFunctions;
            GLCallRecorder<&epoxy_glDrawArrays> draws;
            draws.onCall = [](GLenum, GLint, GLsizei) {
                EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
                EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
            };
            pass->start(nullptr);
            EXPECT_EQ(viewports.calls.back(), std::make_tuple(0, 0, 16, 12));
            ASSERT_EQ(clearColors.calls.size(), 2u);
            EXPECT_EQ(clearColors.calls[0], std::make_tuple(1.0f, 1.0f, 1.0f, 1.0f));
            EXPECT_EQ(clearColors.calls[1], std::make_tuple(0.0f, 0.0f, 0.0f, 0.0f));
            ASSERT_EQ(clears.calls.size(), 1u);
            EXPECT_EQ(std::get<0>(clears.calls[0]), GLbitfield(GL_COLOR_BUFFER_BIT));
            EXPECT_EQ(draws.calls.size(), 1u);
            ASSERT_EQ(stencilFunctions.calls.size(), 1u);
            EXPECT_EQ(stencilFunctions.calls[0], std::make_tuple(GLenum(GL_EQUAL), 1, 0xffu));
        }
        EXPECT_EQ(glFlag(GL_DEPTH_TEST), tested) << "as it was";
        EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
        EXPECT_EQ(glInteger(GL_DEPTH_WRITEMASK), GL_FALSE);
        EXPECT_EQ(glInteger(GL_STENCIL_WRITEMASK), 0);
        EXPECT_EQ(glInteger(GL_STENCIL_FUNC), GL_EQUAL);
        EXPECT_EQ(glInteger(GL_STENCIL_VALUE_MASK), 0xff);
        for (GLenum operation : {GL_STENCIL_FAIL, GL_STENCIL_PASS_DEPTH_FAIL, GL_STENCIL_PASS_DEPTH_PASS})
            EXPECT_EQ(glInteger(operation), GL_KEEP);
        EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
        EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
        EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
        EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
        EXPECT_EQ(depth->unit(), 0);
        take();
    }
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, handsOnOneReferenceForEachUser)
{
    Texture *const pooledDepth = textures.take(TextureFormat::DepthStencil, 8, 6, 4);
    Texture *const pooledPositions = textures.take(TextureFormat::Position, 8, 6, 4);
    Texture *const pooledNormals = textures.take(TextureFormat::HighDynamicRange, 8, 6, 4);
    const QVector<Texture *> inputs{pooledDepth, pooledPositions, pooledNormals};
    feedNumbers(usual(QSize(8, 6)));
    setTexture(Port::Depth, pooledDepth);
    setTexture(Port::CameraSpacePosition, pooledPositions);
    setTexture(Port::Normal, pooledNormals);
    pass->setNumOutputUsers(Port::Frame, 3);
    pass->start(nullptr);
    Texture *const first = frame();
    EXPECT_EQ(PooledTextures::references(first), 3);
    for (Texture *texture : inputs)
        EXPECT_EQ(PooledTextures::references(texture), 3);
    TextureManager::Instance()->releaseTempTextureRef(first, 3);

    pass->setNumOutputUsers(Port::Frame, 0);
    pass->start(nullptr);
    EXPECT_EQ(frame(), first);
    EXPECT_EQ(PooledTextures::references(first), 0);
    for (Texture *texture : inputs)
        EXPECT_EQ(PooledTextures::references(texture), 2);

    // Without depth the other inputs are given back all the same.
    set(Port::Depth, QVariant());
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(pooledDepth), 2);
    EXPECT_EQ(PooledTextures::references(pooledPositions), 1);

    setTexture(Port::Depth, pooledDepth);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_EQ(PooledTextures::references(pooledDepth), 1);
    EXPECT_EQ(PooledTextures::references(pooledPositions), 0);
    EXPECT_EQ(PooledTextures::references(pooledNormals), 0);
}

TEST_F(ScalableAmbientObscuranceRenderPassTest, takesItsObjectsAlong)
{
    feed(usual(QSize(8, 6)));
    run();
    const GLObjectCounts before = glObjectCounts();
    {
        Pass other;
        EXPECT_TRUE(glObjectCounts() == before);
        other.setInput(Port::Viewport, QRect(0, 0, 8, 6));
        other.setInput(Port::Depth, QVariant::fromValue(depth.get()));
        GLCallRecorder<&epoxy_glGenVertexArrays> vertexArrays;
        GLCallRecorder<&epoxy_glLinkProgram> links;
        other.start(nullptr);
        other.start(nullptr);
        other.start(nullptr);
        EXPECT_EQ(vertexArrays.calls.size(), 1u) << "the quad is made once";
        EXPECT_EQ(links.calls.size(), 1u);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        EXPECT_EQ(glObjectCounts().textures, before.textures);
        other.teardownContextData(nullptr);
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
