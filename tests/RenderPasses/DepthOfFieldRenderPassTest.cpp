// SPDX-License-Identifier: MIT
#include "DepthOfFieldReference.h"
#include "support/Cameras.h"
#include "support/ChangedShaders.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/MultisampleTextures.h"
#include "support/PooledTextures.h"

#include <GL/AutoBinder.h>
#include <GL/GLStatistics.h>
#include <Host/Camera.h>
#include <Import/ModelImporter.h>
#include <RenderPasses/DepthOfFieldRenderPass.h>
#include <RenderPasses/ModelDeferredPass.h>
#include <RenderPasses/ModelRenderPass.h>

#include <QtCore/QPointer>
#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

namespace Velmora::Kvz {

namespace {

class DepthOfFieldRenderPassTest : public GLTest
{
protected:
    using Port = DepthOfFieldRenderPass;

    std::unique_ptr<DepthOfFieldRenderPass> pass = std::make_unique<DepthOfFieldRenderPass>();

    void setLens(const Lens &lens)
    {
        pass->setInput(Port::FocalDepth, float(lens.focalDepth));
        pass->setInput(Port::FocalLength, float(lens.focalLength));
        pass->setInput(Port::FStop, float(lens.fStop));
    }
    void setImages(Texture *frame, Texture *depth)
    {
        pass->setInput(Port::FrameIn, QVariant::fromValue(frame));
        pass->setInput(Port::Depth, QVariant::fromValue(depth));
    }
    Image draw(const Image &frame, const Image &depth)
    {
        const auto frameTexture = makeTexture(frame, GL_RGBA32F);
        const auto depthTexture = makeTexture(depth, GL_DEPTH_COMPONENT32F);
        setImages(frameTexture.get(), depthTexture.get());
        pass->setInput(Port::Viewport, QRect(0, 0, frame.width, frame.height));
        pass->start(nullptr);
        const Image result = readTexture(output());
        setImages(nullptr, nullptr);
        return result;
    }
    Texture *output() const { return pass->output(Port::Frame).value<Texture *>(); }

    /// Exact to the last bit, as it must be where pixel centres are exact: in sizes that are powers of two.
    static bool isExactCopy(const Image &result, const Image &frame, int x, int y)
    {
        return std::equal(result.at(x, y), result.at(x, y) + 3, frame.at(x, y));
    }
    /// In other sizes the linear filter mixes in about 1e-5 of a neighbour, by the rounding of the centres.
    static bool isCopy(const Image &result, const Image &frame, int x, int y)
    {
        return std::equal(result.at(x, y), result.at(x, y) + 3, frame.at(x, y),
            [](float a, float b) { return std::abs(a - b) <= 1e-4f; });
    }
    static bool isFinite(const Image &result)
    {
        for (int i = 0; i < result.data.size(); ++i) {
            if (i % 4 < 3 && !std::isfinite(result.data[i]))
                return false;
        }
        return true;
    }
};

/// Fine detail, some of it brighter than 1.
Image pattern(int width, int height)
{
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const float s = float((x * 7 + y * 13) % 11) / 10;
            const float t = float((x * 5 + y * 3) % 17) / 16;
            image.setPixel(x, y, QVector4D(1.4f * s, t, 1 - s * t, 1));
        }
    }
    return image;
}

/// A depth image whose distances run from `first` at the left to `last` at the right, evenly in their inverses.
Image depthRamp(int width, int height, double first, double last)
{
    Image image(width, height, 1);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double share = width > 1 ? double(x) / (width - 1) : 0;
            *image.at(x, y) = float(windowDepth(1 / (1 / first + share * (1 / last - 1 / first))));
        }
    }
    return image;
}

Image flatDepth(int width, int height, double distance)
{
    return depthRamp(width, height, distance, distance);
}

/// A frame of the still life and its depth.
struct Scene
{
    Image frame;
    Image depth;
    Camera camera;

    explicit Scene(const QSize &size)
    {
        ImportedScene scene;
        QString error;
        EXPECT_TRUE(importModel(QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj"), &scene, &error))
            << qPrintable(error);
        const QSharedPointer<GPUModel> model = scene.build();
        CameraView view;
        view.distance = 0.85f;
        camera = frameScene(model->sceneBounds(), view, size);
        const QRect viewport(QPoint(), size);
        ModelRenderPass geometry;
        geometry.setInput(ModelRenderPass::Viewport, viewport);
        geometry.setInput(ModelRenderPass::ProjectionMatrix, camera.projectionMatrix);
        geometry.setInput(ModelRenderPass::CameraMatrix, camera.cameraMatrix);
        geometry.setInput(ModelRenderPass::Geometry, QVariant::fromValue(model.data()));
        glViewport(0, 0, size.width(), size.height());
        geometry.start(nullptr);
        ModelDeferredPass shading;
        shading.setInput(ModelDeferredPass::Viewport, viewport);
        shading.setInput(ModelDeferredPass::Diffuse, geometry.output(ModelRenderPass::Diffuse));
        shading.setInput(ModelDeferredPass::Specular, geometry.output(ModelRenderPass::Specular));
        shading.setInput(ModelDeferredPass::Normal, geometry.output(ModelRenderPass::Normal));
        shading.start(nullptr);
        frame = readTexture(shading.output(ModelDeferredPass::Frame).value<Texture *>());
        depth = readTexture(geometry.output(ModelRenderPass::Depth).value<Texture *>());
        // Brighter than a picture of 8 bits, so that highlights have something to gain.
        for (float &value : frame.data)
            value *= 1.5f;
    }
};

/// Single precision: near the far plane, where distances lose most, a sample moves by about 1e-4 of a texel.
constexpr double tolerance = 2e-4;
constexpr double meanTolerance = 3e-6;

} // namespace

TEST_F(DepthOfFieldRenderPassTest, matchesTheFormulasOnARealFrame)
{
    const QSize size(320, 240);
    const Scene scene(size);
    const Image hash = hashOf(size);
    double middle = linearize(double(*scene.depth.at(160, 110)));
    for (const Lens &lens : {Lens{middle, 5, 2}, Lens{middle * 2, 3, 0.7}, Lens{100, 6, 1.4}, Lens{0.12, 2, 4}}) {
        SCOPED_TRACE(testing::Message() << lens.focalDepth << ' ' << lens.focalLength << ' ' << lens.fStop);
        setLens(lens);
        const Image result = draw(scene.frame, scene.depth);
        saveForViewing(result, QStringLiteral("depth-of-field-%1").arg(lens.fStop));
        double largest = 0;
        double sum = 0;
        int sharp = 0;
        int soft = 0;
        int full = 0;
        int atThreshold = 0;
        int changed = 0;
        std::array<int, 3> seen = {}; // pixels that would differ without fringe, gain or bias
        const Effects without[] = {{0, 2, 0.5}, {0.7, 0, 0.5}, {0.7, 2, 0}};
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const double blur = blurOf(linearize(double(*scene.depth.at(x, y))), lens);
                if (std::abs(blur - 0.05) < 1e-4) {
                    ++atThreshold;
                    continue;
                }
                (blur < 0.05 ? sharp : blur < 1 ? soft : full) += 1;
                if (blur < 0.05) {
                    changed += isCopy(result, scene.frame, x, y) ? 0 : 1;
                    continue;
                }
                const std::array<double, 2> noise = {double(hash.at(x, y)[0]), double(hash.at(x, y)[1])};
                const Rgb expected = lensReference(scene.frame, x, y, blur, noise);
                for (size_t k = 0; k < 3; ++k) {
                    const double error = std::abs(double(result.at(x, y)[k]) - expected[k]);
                    largest = std::max(largest, error);
                    sum += error / 3;
                }
                for (size_t e = 0; e < seen.size() && (x + y) % 7 == 0; ++e) {
                    const Rgb other = lensReference(scene.frame, x, y, blur, noise, without[e]);
                    double difference = 0;
                    for (size_t k = 0; k < 3; ++k)
                        difference = std::max(difference, std::abs(other[k] - expected[k]));
                    seen[e] += difference > 2 * tolerance ? 1 : 0;
                }
            }
        }
        std::printf("[ COMPARED ] %d sharp, %d soft, %d full; largest error %.6f, mean %.7f\n", sharp, soft, full,
            largest, sum / (soft + full));
        EXPECT_LE(largest, tolerance);
        EXPECT_LE(sum / (soft + full), meanTolerance);
        EXPECT_EQ(changed, 0) << "pixels that are sharp are copies";
        EXPECT_LT(atThreshold, 500);
        EXPECT_GT(soft + full, 20000);
        for (const int pixels : seen)
            EXPECT_GT(pixels, 100) << "fringe, gain and bias must show";
    }
}

TEST_F(DepthOfFieldRenderPassTest, theHashIsSpreadAndNearTheFormula)
{
    // Texture coordinates are exact here, and the angles with them.
    const Image hash = hashOf(QSize(256, 256));
    int near = 0;
    double sum = 0;
    for (int y = 0; y < 256; ++y) {
        for (int x = 0; x < 256; ++x) {
            const float angle = (float(x) + 0.5f) / 256 * 12.9898f + (float(y) + 0.5f) / 256 * 78.233f;
            near += std::abs(hash.at(x, y)[0] - hashed(angle)) < 0.5f ? 1 : 0;
            near += std::abs(hash.at(x, y)[1] - hashed(2 * angle)) < 0.5f ? 1 : 0;
            sum += double(hash.at(x, y)[0]) + double(hash.at(x, y)[1]);
        }
    }
    EXPECT_GT(near, 2 * 256 * 256 * 8 / 10);
    EXPECT_NEAR(sum / (2 * 256 * 256), 0, 0.02);
}

TEST_F(DepthOfFieldRenderPassTest, copiesExactlyWhereTheBlurIsUnderTheThreshold)
{
    const int width = 256;
    const Image frame = pattern(width, 8);
    const Image depth = depthRamp(width, 8, 0.8, 3);
    const Lens lens{1.5, 10, 2.8};
    setLens(lens);
    const Image result = draw(frame, depth);
    int copies = 0;
    int others = 0;
    for (int x = 0; x < width; ++x) {
        const double blur = blurOf(linearize(double(*depth.at(x, 0))), lens);
        if (std::abs(blur - 0.05) < 1e-4)
            continue;
        for (int y = 0; y < 8; ++y) {
            EXPECT_EQ(isExactCopy(result, frame, x, y), blur < 0.05) << x << ' ' << y << " blur " << blur;
            (blur < 0.05 ? copies : others) += 1;
        }
    }
    EXPECT_GT(copies, 80);
    EXPECT_GT(others, 80);
}

TEST_F(DepthOfFieldRenderPassTest, spreadsAPointOverThreeRingsWithColouredFringes)
{
    const int side = 33;
    const int centre = 16;
    Image frame = filled(side, side, QVector4D(0, 0, 0, 1));
    frame.setPixel(centre, centre, QVector4D(8, 8, 8, 1));
    setLens({100, 100, 0.1});
    const Image result = draw(frame, flatDepth(side, side, 1));
    // Everything is fully blurred: 3 pixels by the rings, 0.7 by the fringe, one by the filter and the noise.
    double centroid[3][2] = {};
    double weight[3] = {};
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            for (int k = 0; k < 3; ++k) {
                const double value = double(result.at(x, y)[k]);
                EXPECT_TRUE(value == 0 || std::hypot(x - centre, y - centre) < 4.9 + 0.5) << x << ' ' << y;
                weight[k] += value;
                centroid[k][0] += value * (x - centre);
                centroid[k][1] += value * (y - centre);
            }
        }
    }
    // A sample offset to one side sees the point displaced to the other.
    const double expected[3][2] = {{0, -0.7}, {0.866 * 0.7, 0.5 * 0.7}, {-0.866 * 0.7, 0.5 * 0.7}};
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(centroid[k][0] / weight[k], expected[k][0], 0.2) << k;
        EXPECT_NEAR(centroid[k][1] / weight[k], expected[k][1], 0.2) << k;
    }
}

TEST_F(DepthOfFieldRenderPassTest, gainsLightWhereItIsBrighterThanTheThreshold)
{
    // In a plain frame rings and fringes change nothing; only the gain is left.
    setLens({100, 100, 0.1});
    const double outer = 3 * (2.0 / 3) + 6 * (5.0 / 6) + 9;
    for (const float value : {0.25f, 0.5f, 0.75f, 1.5f}) {
        const Image result = draw(filled(9, 9, QVector4D(value, value, value, 1)), flatDepth(9, 9, 1));
        const double v = double(value);
        const double gained = v + v * std::max((v - 0.5) * 2, 0.0);
        const double expected = (v + outer * gained) / (1 + outer);
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(double(result.at(4, 4)[k]), expected, 1e-5 * expected) << value;
    }
}

// Constants of the shader switch these off; they must work when turned on.
TEST_F(DepthOfFieldRenderPassTest, whatTheShadersConstantsSwitchOffWorks)
{
    const int width = 64;
    const int height = 32;
    const Image frame = pattern(width, height);
    // Distances differ from row to row as well: too near at the left, too far at the right.
    Image depth(width, height, 1);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            *depth.at(x, y) = float(windowDepth(1.2 + 0.1 * ((x * 5 + y * 7) % 13) + (x > 40 ? 2 : x < 12 ? -0.9 : 0)));
    }
    const Lens lens{1.8, 10, 2.8};
    const auto drawWith = [&](const QByteArray &from, const QByteArray &to) {
        ChangedShaders shaders(from, to);
        pass = std::make_unique<DepthOfFieldRenderPass>();
        setLens(lens);
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        draws.onCall = [](GLenum, GLint, GLsizei) {
            GLint isLinked = GL_FALSE;
            glGetProgramiv(GLuint(glInteger(GL_CURRENT_PROGRAM)), GL_LINK_STATUS, &isLinked);
            EXPECT_TRUE(isLinked);
        };
        const Image result = draw(frame, depth);
        EXPECT_EQ(draws.calls.size(), 1u);
        EXPECT_EQ(shaders.changed, 1) << from.constData();
        return result;
    };
    const Image hash = hashOf(QSize(width, height));
    const auto noiseAt = [&](int x, int y) {
        return std::array<double, 2>{double(hash.at(x, y)[0]), double(hash.at(x, y)[1])};
    };
    const auto distanceAt = [&](int x, int y) { return linearize(double(*depth.at(x, y))); };
    // The reference for the unchanged shader.
    const auto plainAt = [&](int x, int y) {
        return lensReference(frame, x, y, blurOf(distanceAt(x, y), lens), noiseAt(x, y));
    };
    const auto compare = [&](const char *name, const Image &result, const std::function<Rgb(int, int)> &expected,
                             const std::function<double(int, int)> &blur) {
        SCOPED_TRACE(name);
        saveForViewing(result, QStringLiteral("depth-of-field-%1").arg(QLatin1String(name)));
        double largest = 0;
        int compared = 0;
        int changed = 0;
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                if (std::abs(blur(x, y) - 0.05) < 1e-4)
                    continue;
                const Rgb wanted = expected(x, y);
                const Rgb plain = plainAt(x, y);
                double difference = 0;
                for (size_t k = 0; k < 3; ++k) {
                    largest = std::max(largest, std::abs(double(result.at(x, y)[k]) - wanted[k]));
                    difference = std::max(difference, std::abs(double(result.at(x, y)[k]) - plain[k]));
                }
                ++compared;
                changed += difference > 2 * tolerance ? 1 : 0;
            }
        }
        std::printf("[ COMPARED ] %s: %d pixels, %d changed, largest error %.6f\n", name, compared, changed, largest);
        EXPECT_LE(largest, tolerance);
        EXPECT_GT(compared, width * height * 9 / 10);
        EXPECT_GT(changed, width * height / 10) << "it must show";
    };
    const auto lensBlur = [&](int x, int y) { return blurOf(distanceAt(x, y), lens); };

    Effects pentagon;
    pentagon.isPentagon = true;
    compare(
        "pentagon", drawWith("const bool pentagon = false;", "const bool pentagon = true;"),
        [&](int x, int y) { return lensReference(frame, x, y, lensBlur(x, y), noiseAt(x, y), pentagon); }, lensBlur);

    compare(
        "vignetting", drawWith("const bool vignetting = false;", "const bool vignetting = true;"),
        [&](int x, int y) {
            const double fromMiddle = std::hypot((x + 0.5) / width - 0.5, (y + 0.5) / height - 0.5);
            Rgb color = plainAt(x, y);
            for (double &channel : color)
                channel *= smoothStep(1.3 + lens.fStop / 22, lens.fStop / 22, fromMiddle);
            return color;
        },
        lensBlur);

    compare(
        "showFocus", drawWith("uniform bool showFocus = false;", "uniform bool showFocus = true;"),
        [&](int x, int y) {
            const double edge = 0.002 * distanceAt(x, y);
            const double m = smoothStep(0, edge, lensBlur(x, y));
            const double e = smoothStep(1 - edge, 1, lensBlur(x, y));
            const Rgb sharp{1, 0.5, 0};
            const Rgb soft{0, 0.5, 1};
            Rgb color = plainAt(x, y);
            for (size_t k = 0; k < 3; ++k) {
                color[k] += (sharp[k] - color[k]) * (1 - m) * 0.6;
                color[k] += (soft[k] - color[k]) * (m - e) * 0.2;
            }
            return color;
        },
        lensBlur);

    const auto manualBlur = [&](int x, int y) {
        const double behind = distanceAt(x, y) - lens.focalDepth;
        return std::clamp(behind > 0 ? (behind - 1) / 3 : (-behind - 1) / 2, 0.0, 1.0);
    };
    compare(
        "manualdof", drawWith("const bool manualdof = false;", "const bool manualdof = true;"),
        [&](int x, int y) { return lensReference(frame, x, y, manualBlur(x, y), noiseAt(x, y)); }, manualBlur);

    // Both coordinates of offset 2 are wh.x - wh.y, on purpose: here one texel to the left and one down.
    const double dx = 1.25 / width;
    const double dy = 1.25 / height;
    const double offsets[9][2] = {
        {-dx, -dy}, {0, -dy}, {dx - dy, dx - dy}, {-dx, 0}, {0, 0}, {dx, 0}, {-dx, dy}, {0, dy}, {dx, dy}};
    const auto blurredDepthBlur = [&](int x, int y) {
        const double weights[9] = {1, 2, 1, 2, 4, 2, 1, 2, 1};
        double sum = 0;
        for (int i = 0; i < 9; ++i) {
            const int column = int(std::floor(x + 0.5 + offsets[i][0] * width));
            const int row = int(std::floor(y + 0.5 + offsets[i][1] * height));
            sum += weights[i] / 16 * double(*depth.at(qBound(0, column, width - 1), qBound(0, row, height - 1)));
        }
        return blurOf(linearize(sum), lens);
    };
    compare(
        "depthblur", drawWith("const bool depthblur = false;", "const bool depthblur = true;"),
        [&](int x, int y) { return lensReference(frame, x, y, blurredDepthBlur(x, y), noiseAt(x, y)); },
        blurredDepthBlur);

    const auto fraction = [](double value) { return value - std::floor(value); };
    compare(
        "pattern", drawWith("const bool noise = true;", "const bool noise = false;"),
        [&](int x, int y) {
            const double s = fraction(1 - (x + 0.5) / 2);
            const double t = fraction((y + 0.5) / 2);
            const std::array<double, 2> noise = {(s * 0.25 + t * 0.75) * 2 - 1, (s * 0.75 + t * 0.25) * 2 - 1};
            return lensReference(frame, x, y, lensBlur(x, y), noise);
        },
        lensBlur);

    // The shader text really has this slip.
    ChangedShaders shaders("vec2( wh.x -wh.y)", "vec2( wh.x -wh.y)");
    pass = std::make_unique<DepthOfFieldRenderPass>();
    draw(frame, depth);
    EXPECT_EQ(shaders.changed, 1);
}

TEST_F(DepthOfFieldRenderPassTest, autofocusMakesTheDepthUnderItsPointSharp)
{
    const QSize size(160, 120);
    const Scene scene(size);
    for (const QPoint &point : {QPoint(80, 55), QPoint(20, 20), QPoint(110, 80), QPoint(5, 115)}) {
        const double focused = linearize(double(*scene.depth.at(point.x(), point.y())));
        setLens({focused, 5, 2});
        pass->setInput(Port::AutoFocus, false);
        const Image manual = draw(scene.frame, scene.depth);
        // Autofocus ignores this distance.
        setLens({focused * 3 + 1, 5, 2});
        pass->setInput(Port::AutoFocus, true);
        pass->setInput(Port::Focus,
            QVector2D(
                (float(point.x()) + 0.5f) / float(size.width()), (float(point.y()) + 0.5f) / float(size.height())));
        const Image automatic = draw(scene.frame, scene.depth);
        EXPECT_TRUE(isCopy(automatic, scene.frame, point.x(), point.y()));
        int differing = 0;
        int blurred = 0;
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                double difference = 0;
                for (int k = 0; k < 3; ++k)
                    difference =
                        std::max(difference, std::abs(double(automatic.at(x, y)[k]) - double(manual.at(x, y)[k])));
                differing += difference > tolerance ? 1 : 0;
                blurred += isCopy(automatic, scene.frame, x, y) ? 0 : 1;
            }
        }
        EXPECT_LT(differing, 20) << "pixels at the threshold may be sharp in one and not in the other";
        EXPECT_GT(blurred, 2000);
    }
}

TEST_F(DepthOfFieldRenderPassTest, focusesOnTheLowerLeftCornerWithoutAPoint)
{
    const Image frame = pattern(64, 16);
    const Image depth = depthRamp(64, 16, 0.5, 20);
    setLens({0, 10, 1});
    pass->setInput(Port::AutoFocus, true);
    const Image result = draw(frame, depth);
    EXPECT_TRUE(isCopy(result, frame, 0, 0));
    EXPECT_TRUE(isCopy(result, frame, 0, 15));
    EXPECT_FALSE(isCopy(result, frame, 40, 8));
    // A QPointF does not convert to a vector and gives the corner as well.
    pass->setInput(Port::Focus, QPointF(1, 1));
    EXPECT_TRUE(isCopy(draw(frame, depth), frame, 0, 0));
    pass->setInput(Port::Focus, QVector2D(1, 1));
    const Image other = draw(frame, depth);
    EXPECT_FALSE(isCopy(other, frame, 0, 0));
    EXPECT_TRUE(isCopy(other, frame, 63, 8));
}

TEST_F(DepthOfFieldRenderPassTest, divisionsByZeroGoOnToTheClamp)
{
    const int width = 96;
    const int height = 8;
    const Image frame = pattern(width, height);
    const Image depth = depthRamp(width, height, 0.5, 20);
    const auto copies = [&](const Image &result) {
        int count = 0;
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                count += isCopy(result, frame, x, y) ? 1 : 0;
        }
        return count;
    };

    // A stop of 0: the blur is infinite before the clamp, except where the distance is exactly the focal one.
    const double focused = linearize(double(*depth.at(40, 0)));
    setLens({focused, 10, 0});
    Image result = draw(frame, depth);
    EXPECT_TRUE(isFinite(result));
    EXPECT_LE(copies(result), 2 * height);
    const Image hash = hashOf(QSize(width, height));
    for (const int x : {5, 20, 60, 90}) {
        const Rgb expected = lensReference(frame, x, 4, 1, {double(hash.at(x, 4)[0]), double(hash.at(x, 4)[1])});
        for (size_t k = 0; k < 3; ++k)
            EXPECT_NEAR(double(result.at(x, 4)[k]), expected[k], tolerance) << x;
    }

    // A focal depth of 0: c is minus infinity, so the blur is 0.
    setLens({0, 10, 2});
    EXPECT_EQ(copies(draw(frame, depth)), width * height);
    // The same with nothing set but a focal length and a stop.
    pass->setInput(Port::FocalDepth, QVariant());
    EXPECT_EQ(copies(draw(frame, depth)), width * height);

    // A focal length of 0: a and b are 0.
    setLens({1, 0, 2});
    EXPECT_EQ(copies(draw(frame, depth)), width * height);
    pass->setInput(Port::FocalLength, QVariant());
    EXPECT_EQ(copies(draw(frame, depth)), width * height);

    // With the focal depth at the focal length b divides by zero, and for a fragment at that distance a does: infinity
    // times 0 is NaN.
    setLens({0.01, 10, 2});
    EXPECT_TRUE(isFinite(draw(frame, depth)));

    // Nothing is set: 0 / 0. This driver's clamp turns NaN into 0.
    for (const int port : {Port::FocalDepth, Port::FocalLength, Port::FStop})
        pass->setInput(port, QVariant());
    EXPECT_EQ(copies(draw(frame, depth)), width * height);
}

TEST_F(DepthOfFieldRenderPassTest, takesThePlanesToBeAtATenthAndAHundred)
{
    const int side = 16;
    const Image frame = pattern(side, side);
    const auto isSharp = [&](double nearPlane, double farPlane, double distance, double focalDepth) {
        const double depth = (1 / nearPlane - 1 / distance) / (1 / nearPlane - 1 / farPlane);
        Image image(side, side, 1);
        std::fill(image.data.begin(), image.data.end(), float(depth));
        setLens({focalDepth, 50, 1});
        return isCopy(draw(frame, image), frame, 5, 5);
    };
    EXPECT_TRUE(isSharp(0.1, 100, 3, 3));
    EXPECT_FALSE(isSharp(0.1, 100, 3, 4));
    // With other planes, things are sharp where the documented formula puts the distance.
    EXPECT_FALSE(isSharp(1, 10, 3, 3));
    EXPECT_TRUE(isSharp(1, 10, 3, 1 / (10 - 9.99 * (1 / 1.0 - 1 / 3.0) / (1 / 1.0 - 1 / 10.0))));
}

TEST_F(DepthOfFieldRenderPassTest, isNullWithoutAFrameAndMakesNothing)
{
    const auto texture = makeTexture(filled(4, 4, QVector4D(1, 1, 1, 1)), GL_RGBA32F);
    pass->setInput(Port::Viewport, QRect(0, 0, 4, 4));
    const GLObjectCounts before = glObjectCounts();
    glEnable(GL_DEPTH_TEST);
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    setImages(nullptr, texture.get());
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_TRUE(glFlag(GL_DEPTH_TEST));
    glDisable(GL_DEPTH_TEST);

    // The same after a frame.
    draw(pattern(4, 4), flatDepth(4, 4, 1));
    EXPECT_NE(output(), nullptr);
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
}

TEST_F(DepthOfFieldRenderPassTest, withoutADepthItCanReadAllLiesOnTheNearPlane)
{
    const Image image = pattern(16, 16);
    setLens({1, 10, 1});
    Image zeros(16, 16, 1);
    zeros.data.fill(0);
    const Image near = draw(image, zeros);
    EXPECT_FALSE(isCopy(near, image, 5, 5));
    const auto differsFromNear = [&](const Image &result) {
        double largest = 0;
        for (int i = 0; i < result.data.size(); ++i) {
            if (i % 4 < 3)
                largest = std::max(largest, std::abs(double(result.data[i]) - double(near.data[i])));
        }
        return largest;
    };
    EXPECT_GT(differsFromNear(draw(image, flatDepth(16, 16, 1))), 0.1) << "at the focal distance all is sharp";

    const auto frame = makeTexture(image, GL_RGBA32F);
    Image far(16, 16, 1);
    far.data.fill(1);
    // A single-sample sampler finds nothing in a multisampled texture.
    const auto sampled = makeMultisampleTexture(far, far, GL_DEPTH_COMPONENT32F, 4);
    for (Texture *const depth : {static_cast<Texture *>(nullptr), sampled.get()}) {
        for (const bool autoFocus : {false, true}) {
            setImages(frame.get(), depth);
            pass->setInput(Port::AutoFocus, autoFocus);
            pass->start(nullptr);
            ASSERT_NE(output(), nullptr);
            const Image result = readTexture(output());
            if (autoFocus)
                EXPECT_TRUE(isExactCopy(result, image, 5, 5)) << "all lies where the focus does";
            else
                EXPECT_EQ(differsFromNear(result), 0);
        }
    }
    // Nor does it read a texture of the host on the unit that the depth had in an earlier frame.
    {
        const auto whole = makeTexture(flatDepth(16, 16, 1), GL_DEPTH_COMPONENT32F);
        pass->setInput(Port::AutoFocus, false);
        setImages(frame.get(), whole.get());
        pass->start(nullptr);
        EXPECT_GT(differsFromNear(readTexture(output())), 0.1);
        const auto other = makeTexture(far, GL_DEPTH_COMPONENT32F);
        AutoBinder first(other.get());
        AutoBinder second(whole.get());
        setImages(frame.get(), nullptr);
        pass->start(nullptr);
        EXPECT_EQ(differsFromNear(readTexture(output())), 0);
    }
    pass->setInput(Port::Depth, 5);
    pass->setInput(Port::AutoFocus, false);
    pass->start(nullptr);
    EXPECT_EQ(differsFromNear(readTexture(output())), 0) << "what is no texture counts as null";
    EXPECT_TRUE(log.messages().isEmpty());
    EXPECT_EQ(pass->errorCode(), 0u);
}

TEST_F(DepthOfFieldRenderPassTest, keepsItsTextureUntilTheSizeChanges)
{
    const auto frame = makeTexture(pattern(12, 10), GL_RGBA32F);
    const auto depth = makeTexture(flatDepth(12, 10, 1), GL_DEPTH_COMPONENT32F);
    setImages(frame.get(), depth.get());
    pass->setInput(Port::Viewport, QRect(3, 4, 12, 10));
    pass->start(nullptr);
    const GLObjectCounts counts = glObjectCounts();
    QPointer<Texture> first = output();
    ASSERT_FALSE(first.isNull());
    EXPECT_EQ(first->width(0), 12);
    EXPECT_EQ(first->height(0), 10);
    EXPECT_EQ(first->internalFormat(0), GL_RGBA32F);
    {
        AutoBinder binder(first);
        for (const GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
            GLint value = 0;
            glGetTexParameteriv(GL_TEXTURE_2D, filter, &value);
            EXPECT_EQ(value, GL_NEAREST);
        }
    }
    pass->setInput(Port::Viewport, QRect(0, 0, 12, 10));
    pass->start(nullptr);
    EXPECT_EQ(output(), first) << "the origin is no part of the size";

    // A viewport of another size than the frame stretches the picture.
    pass->setInput(Port::Viewport, QRect(0, 0, 12, 20));
    pass->start(nullptr);
    EXPECT_TRUE(first.isNull()) << "deleted at once";
    EXPECT_EQ(output()->height(0), 20);
    EXPECT_TRUE(glObjectCounts() == counts);
}

TEST_F(DepthOfFieldRenderPassTest, publishesAnEmptyTextureWithoutAViewport)
{
    const auto frame = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto depth = makeTexture(flatDepth(4, 4, 1), GL_DEPTH_COMPONENT32F);
    setImages(frame.get(), depth.get());
    pass->start(nullptr);
    ASSERT_NE(output(), nullptr);
    EXPECT_EQ(output()->width(0), 0);
    // A framebuffer without texels cannot be cleared.
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION});
}

TEST_F(DepthOfFieldRenderPassTest, readsTheFrameLinearlyAndPutsItsFiltersBack)
{
    const Image image = pattern(8, 8);
    const auto frame = makeTexture(image, GL_RGBA32F);
    const auto depth = makeTexture(flatDepth(8, 8, 1), GL_DEPTH_COMPONENT32F);
    const auto filtersOf = [](Texture *texture) {
        AutoBinder binder(texture);
        std::array<GLint, 2> filters = {};
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &filters[0]);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, &filters[1]);
        return filters;
    };
    {
        AutoBinder binder(frame.get());
        glGenerateMipmap(GL_TEXTURE_2D);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST_MIPMAP_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    }
    const std::array<GLint, 2> depthFilters = filtersOf(depth.get());
    setImages(frame.get(), depth.get());
    setLens({100, 100, 0.1});
    pass->setInput(Port::Viewport, QRect(0, 0, 8, 8));
    pass->start(nullptr);
    EXPECT_EQ(filtersOf(frame.get()), (std::array<GLint, 2>{GL_NEAREST_MIPMAP_LINEAR, GL_NEAREST}));
    EXPECT_EQ(filtersOf(depth.get()), depthFilters);
    // It is filtered linearly all the same, as is a frame with linear filters.
    const Image result = readTexture(output());
    EXPECT_LE(maximumDifference(result, draw(image, flatDepth(8, 8, 1))), 1e-6);
    const Image hash = hashOf(QSize(8, 8));
    const Rgb expected = lensReference(image, 4, 4, 1, {double(hash.at(4, 4)[0]), double(hash.at(4, 4)[1])});
    for (size_t k = 0; k < 3; ++k)
        EXPECT_NEAR(double(result.at(4, 4)[k]), expected[k], tolerance);
}

TEST_F(DepthOfFieldRenderPassTest, drawsBlackForAFrameOfSeveralSamples)
{
    // Its sampler finds nothing to read, since a multisampled texture is bound to another target.
    const auto frame = makeMultisampleTexture(pattern(8, 8), GL_RGBA8, 4);
    const auto depth = makeTexture(flatDepth(8, 8, 1), GL_DEPTH_COMPONENT32F);
    setImages(frame.get(), depth.get());
    setLens({100, 100, 0.1});
    pass->setInput(Port::Viewport, QRect(0, 0, 8, 8));
    pass->start(nullptr);
    const Image result = readTexture(output());
    for (int i = 0; i < result.data.size(); ++i)
        EXPECT_TRUE(i % 4 == 3 || result.data[i] == 0);
}

TEST_F(DepthOfFieldRenderPassTest, setsViewportAndDepthTestAndUsesTheClearColourAsItIs)
{
    const auto frame = makeTexture(pattern(6, 5), GL_RGBA32F);
    const auto depth = makeTexture(flatDepth(6, 5, 1), GL_DEPTH_COMPONENT32F);
    setImages(frame.get(), depth.get());
    pass->setInput(Port::Viewport, QRect(20, 30, 6, 5));
    glViewport(1, 1, 2, 2);
    glClearColor(0.25f, 0.5f, 0.75f, 1);
    glEnable(GL_DEPTH_TEST);
    GLCallRecorder<&epoxy_glClear> clears;
    GLCallRecorder<&epoxy_glClearColor> colours;
    pass->start(nullptr);
    ASSERT_EQ(clears.calls.size(), 1u);
    EXPECT_EQ(std::get<0>(clears.calls[0]), GLbitfield(GL_COLOR_BUFFER_BIT));
    EXPECT_TRUE(colours.calls.empty());
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(std::vector<GLint>(viewport, viewport + 4), (std::vector<GLint>{0, 0, 6, 5}));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    // Nothing is blurred without a focal length.
    EXPECT_TRUE(isCopy(readTexture(output()), pattern(6, 5), 5, 4));
}

TEST_F(DepthOfFieldRenderPassTest, countsNoReferencesAndSkipGivesItsInputsBack)
{
    PooledTextures pool;
    Texture *const frame = pool.take(TextureFormat::HighDynamicRange, pattern(4, 4), 3);
    Texture *const depth = pool.take(TextureFormat::DepthStencil, 4, 4, 3);
    setImages(frame, depth);
    pass->setInput(Port::Viewport, QRect(0, 0, 4, 4));
    pass->setNumOutputUsers(Port::Frame, 2);
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(frame), 3);
    EXPECT_EQ(PooledTextures::references(depth), 3);
    EXPECT_EQ(PooledTextures::references(output()), -1) << "it is not the pool's";
    pass->skip(nullptr);
    EXPECT_EQ(PooledTextures::references(frame), 2);
    EXPECT_EQ(PooledTextures::references(depth), 2);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
}

TEST_F(DepthOfFieldRenderPassTest, takesItsObjectsAlong)
{
    const auto frame = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto depth = makeTexture(flatDepth(4, 4, 1), GL_DEPTH_COMPONENT32F);
    const auto startOne = [&](DepthOfFieldRenderPass &one) {
        one.setInput(Port::FrameIn, QVariant::fromValue(frame.get()));
        one.setInput(Port::Depth, QVariant::fromValue(depth.get()));
        one.setInput(Port::Viewport, QRect(0, 0, 4, 4));
        one.start(nullptr);
    };
    startOne(*pass); // Creates what the device keeps.
    const GLObjectCounts before = glObjectCounts();
    {
        DepthOfFieldRenderPass other;
        {
            GLCallRecorder<&epoxy_glGenVertexArrays> vertexArrays;
            GLCallRecorder<&epoxy_glLinkProgram> links;
            for (int i = 0; i < 3; ++i)
                startOne(other);
            EXPECT_EQ(vertexArrays.calls.size(), 1u) << "the quad is made once";
            EXPECT_EQ(links.calls.size(), 1u);
        }
        EXPECT_EQ(glObjectCounts().textures, before.textures + 1);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
        other.teardown(nullptr);
        other.teardownContextData(nullptr);
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
