// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/DoubleMatrix.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/ImageFiles.h"
#include "support/PoolEntries.h"
#include "support/PooledTextures.h"

#include <GL/AutoBinder.h>
#include <GL/GLStatistics.h>
#include <RenderPasses/CubemapLoaderRenderPass.h>
#include <RenderPasses/SkyboxRenderPass.h>
#include <RenderPasses/TextureLoaderRenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

using Port = SkyboxRenderPass;

/// Half floats keep 11 significant bits of colours up to 1, GL_RGBA8 steps of 1/255.
constexpr float halfFloat = 1.0f / 1024;
constexpr float eightBits = 1.0f / 255;

/// Six views of 90 degrees, each at the middle of a face of the cube, and their up vectors.
struct AxisView
{
    QVector3D forward;
    QVector3D up; ///< Where a face's top row lies.
};
const AxisView axisViews[] = {
    {{1, 0, 0}, {0, 1, 0}},
    {{-1, 0, 0}, {0, 1, 0}},
    {{0, 1, 0}, {0, 0, -1}},
    {{0, -1, 0}, {0, 0, 1}},
    {{0, 0, 1}, {0, 1, 0}},
    {{0, 0, -1}, {0, 1, 0}},
};

QMatrix4x4 quarterView()
{
    QMatrix4x4 projection;
    projection.perspective(90, 1, 0.1f, 100);
    return projection;
}

QMatrix4x4 viewFrom(const QVector3D &eye, const QVector3D &forward, const QVector3D &up)
{
    QMatrix4x4 camera;
    camera.lookAt(eye, eye + forward, up);
    return camera;
}

/// The rays through the pixels of an image, computed in doubles without the formulas of the pass, from two points in
/// world space on the near and on the far plane.
class Rays
{
public:
    Rays(const QMatrix4x4 &projection, const QMatrix4x4 &camera, const QSize &size)
        : m_inverse((DoubleMatrix(projection) * DoubleMatrix(camera)).inverted()),
          m_size(size)
    { }

    Vector3d through(int x, int y) const
    {
        const double u = 2 * (x + 0.5) / m_size.width() - 1;
        const double v = 2 * (y + 0.5) / m_size.height() - 1;
        return normalized(point(u, v, 1) - point(u, v, -1));
    }

private:
    Vector3d point(double x, double y, double z) const
    {
        const Vector4d p = m_inverse * Vector4d{x, y, z, 1};
        return xyz(p) * (1 / p[3]);
    }

    DoubleMatrix m_inverse;
    QSize m_size;
};

/// Where a direction meets a cube map, by the table of the OpenGL specification: the face and the position on it from 0
/// to 1, t from the first row on.
struct CubePlace
{
    int face;
    double s;
    double t;
};

CubePlace cubePlace(const Vector3d &d)
{
    const double x = std::abs(d[0]), y = std::abs(d[1]), z = std::abs(d[2]);
    int face;
    double sc, tc, ma;
    if (x >= y && x >= z) {
        face = d[0] > 0 ? 0 : 1;
        sc = d[0] > 0 ? -d[2] : d[2];
        tc = -d[1];
        ma = x;
    } else if (y >= z) {
        face = d[1] > 0 ? 2 : 3;
        sc = d[0];
        tc = d[1] > 0 ? d[2] : -d[2];
        ma = y;
    } else {
        face = d[2] > 0 ? 4 : 5;
        sc = d[2] > 0 ? d[0] : -d[0];
        tc = -d[1];
        ma = z;
    }
    return {face, (sc / ma + 1) / 2, (tc / ma + 1) / 2};
}

/// A face in a colour of its own with a dark arrow that points to the top row, and a white mark on the right of the
/// file.
QImage arrowFace(int face, int side)
{
    const QRgb colors[] = {qRgb(220, 40, 40), qRgb(40, 200, 200), qRgb(60, 200, 60), qRgb(200, 60, 200),
        qRgb(60, 60, 230), qRgb(220, 210, 60)};
    QImage image(side, side, QImage::Format_RGB32);
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            const int across = std::abs(2 * x + 1 - side);
            const bool isHead = y >= side / 8 && y < side / 2 && across < (y - side / 8) * 2;
            const bool isShaft = y >= side / 2 && y < 7 * side / 8 && across < side / 4;
            const bool isMark = x >= 3 * side / 4 && x < 7 * side / 8 && y >= 5 * side / 8 && y < 7 * side / 8;
            image.setPixel(x, y, isHead || isShaft ? qRgb(20, 20, 20) : isMark ? qRgb(250, 250, 250) : colors[face]);
        }
    }
    return image;
}

/// Samples an image between its four nearest texels; rows count from the top and columns repeat.
Vector4d samplePanorama(const QImage &image, double u, double v)
{
    const double x = u * image.width() - 0.5;
    const double y = (1 - v) * image.height() - 0.5;
    const int left = int(std::floor(x));
    const int top = int(std::floor(y));
    Vector4d sum = {};
    for (int dy = 0; dy < 2; ++dy) {
        for (int dx = 0; dx < 2; ++dx) {
            const double weight = (dx ? x - left : 1 - (x - left)) * (dy ? y - top : 1 - (y - top));
            const int column = ((left + dx) % image.width() + image.width()) % image.width();
            const QVector4D texel = colorAt(image, column, qBound(0, top + dy, image.height() - 1));
            for (int k = 0; k < 4; ++k)
                sum[size_t(k)] += weight * double(texel[k]);
        }
    }
    return sum;
}

class SkyboxRenderPassTest : public GLTest
{
protected:
    TemporaryFolder folder;
    PooledTextures pool;
    std::unique_ptr<SkyboxRenderPass> pass = std::make_unique<SkyboxRenderPass>();
    TextureLoaderRenderPass panoramaLoader;
    CubemapLoaderRenderPass cubemapLoader;
    QVector<QImage> faces;

    void SetUp() override
    {
        GLTest::SetUp();
        pass->setup(nullptr);
    }

    void setSize(int width, int height) { pass->setInput(Port::Viewport, QRect(0, 0, width, height)); }
    void setTexture(int port, Texture *texture) { pass->setInput(port, QVariant::fromValue(texture)); }
    void setView(const QMatrix4x4 &projection, const QMatrix4x4 &camera)
    {
        pass->setInput(Port::ProjectionMatrix, projection);
        pass->setInput(Port::CameraMatrix, camera);
    }
    Texture *frame() const { return pass->output(Port::Frame).value<Texture *>(); }
    Image run()
    {
        pass->start(nullptr);
        return readTexture(frame());
    }

    Texture *loadPanorama(const QImage &image)
    {
        panoramaLoader.setInput(0, writeImage(folder, QStringLiteral("panorama.png"), image));
        panoramaLoader.start(nullptr);
        return panoramaLoader.output(0).value<Texture *>();
    }
    Texture *loadArrows(int side)
    {
        faces.clear();
        for (int face = 0; face < 6; ++face) {
            faces.append(arrowFace(face, side));
            cubemapLoader.setInput(face, writeImage(folder, QStringLiteral("%1.png").arg(face), faces.last()));
        }
        cubemapLoader.start(nullptr);
        return cubemapLoader.output(0).value<Texture *>();
    }
    /// A depth image with a stencil, both given by functions of the pixel.
    Texture *makeDepthStencil(int width, int height, int references, const std::function<int(int, int)> &stencil)
    {
        Texture *const texture = pool.take(TextureFormat::DepthStencil, width, height, references);
        QVector<quint32> texels;
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                texels.append(0x80000000u | quint32(stencil(x, y)));
        }
        AutoBinder binder(texture);
        glTexSubImage2D(
            GL_TEXTURE_2D, 0, 0, 0, width, height, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, texels.constData());
        return texture;
    }
};

/// Premultiplied colours, all different, with alpha from 0 to 1.
Image frameContent(int width, int height)
{
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const float alpha = float((x + 3 * y) % 5) / 4.0f;
            image.setPixel(x, y, QVector4D(0.25f + 0.0625f * float(x), 0.5f, 0.0625f * float(y), 1.0f) * alpha);
        }
    }
    return image;
}

const QVector4D skyColor(0.25f, 0.5f, 0.75f, 0.5f);

} // namespace

TEST_F(SkyboxRenderPassTest, aViewAlongEachAxisShowsTheFaceUprightAndFromInside)
{
    constexpr int side = 64;
    setSize(side, side);
    setTexture(Port::Cubemap, loadArrows(side));
    for (int face = 0; face < 6; ++face) {
        setView(quarterView(), viewFrom(QVector3D(3, -2, 5), axisViews[face].forward, axisViews[face].up));
        const Image image = run();
        saveForViewing(image, QStringLiteral("skybox-face-%1").arg(face));
        // Each pixel shows one texel, with rows from the top of the file and columns from its right.
        int wrong = 0;
        for (int y = 0; y < side; ++y) {
            for (int x = 0; x < side; ++x) {
                const QVector4D texel = colorAt(faces[face], side - 1 - x, side - 1 - y);
                wrong += (image.pixel(x, y) - texel).length() > 4 * eightBits;
            }
        }
        EXPECT_EQ(wrong, 0) << "face " << face;
    }
}

TEST_F(SkyboxRenderPassTest, theCubeMapIsWhatTheRaysMeet)
{
    constexpr int side = 64;
    const QSize size(160, 90);
    setSize(size.width(), size.height());
    setTexture(Port::Cubemap, loadArrows(side));
    for (const QVector3D &forward : {QVector3D(1, 1, -1), QVector3D(-1, 0.3f, 0.8f), QVector3D(0.1f, -1, 0.2f),
             QVector3D(-0.4f, 2, 0.1f), QVector3D(-1, -0.2f, -1), QVector3D(0.7f, 0.7f, 0.7f)}) {
        const QMatrix4x4 projection = perspective(size, 0.1f, 100);
        const QMatrix4x4 camera = viewFrom(QVector3D(-7, 3, 2), forward, QVector3D(0.3f, 1, 0));
        setView(projection, camera);
        const Image image = run();
        const Rays rays(projection, camera, size);
        int compared = 0;
        int wrong = 0;
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const CubePlace place = cubePlace(rays.through(x, y));
                const QImage &face = faces[place.face];
                const int column = int(place.s * side);
                const int row = int(place.t * side);
                // Compares only where neighbouring texels are alike, so that filtering has no effect.
                bool isPlain = column > 1 && column < side - 2 && row > 1 && row < side - 2;
                for (int k = 0; isPlain && k < 25; ++k)
                    isPlain = face.pixel(column + k % 5 - 2, row + k / 5 - 2) == face.pixel(column, row);
                if (!isPlain)
                    continue;
                ++compared;
                wrong += (image.pixel(x, y) - colorAt(face, column, row)).length() > 2 * eightBits;
            }
        }
        EXPECT_EQ(wrong, 0);
        EXPECT_GT(compared, size.width() * size.height() / 2);
    }
}

TEST_F(SkyboxRenderPassTest, thePanoramaIsWhatTheRaysMeetOverTheWholeSphere)
{
    // Every texel has a different colour. The reference samples the same position to about 1e-5 texels, and images are
    // filtered with weights of 8 bits.
    const QImage panorama = distinctImage(48, 24, QImage::Format_ARGB32);
    constexpr float tolerance = 4 * eightBits;
    setTexture(Port::LatLongMap, loadPanorama(panorama));
    const QSize size(96, 96);
    setSize(96, 96);
    QVector<QMatrix4x4> cameras;
    for (const AxisView &view : axisViews)
        cameras.append(viewFrom(QVector3D(1, 2, 3), view.forward, view.up));
    cameras.append(viewFrom(QVector3D(0, 0, 0), QVector3D(0.2f, 0.9f, 0.4f), QVector3D(1, 0, 0)));
    cameras.append(viewFrom(QVector3D(0, 0, 0), QVector3D(-0.01f, -0.6f, 1), QVector3D(0, 1, 0.1f)));
    double nearestPole = 1;
    double nearestSeam = 1;
    for (const QMatrix4x4 &camera : qAsConst(cameras)) {
        setView(quarterView(), camera);
        const Image image = run();
        const Rays rays(quarterView(), camera, size);
        float worst = 0;
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const Vector3d d = rays.through(x, y);
                // The centre of the image lies at -z, and +x to the right of it.
                const double u = 0.5 + std::atan2(d[0], -d[2]) / (2 * M_PI);
                const double v = 0.5 + std::asin(d[1]) / M_PI;
                nearestPole = std::min({nearestPole, v, 1 - v});
                nearestSeam = std::min({nearestSeam, u, 1 - u});
                const Vector4d expected = samplePanorama(panorama, u, v);
                for (int k = 0; k < 4; ++k)
                    worst = std::max(worst, std::abs(image.pixel(x, y)[k] - float(expected[size_t(k)])));
            }
        }
        EXPECT_LT(worst, tolerance);
    }
    EXPECT_LT(nearestPole, 0.01) << "the poles were looked at";
    EXPECT_LT(nearestSeam, 0.001);
}

TEST_F(SkyboxRenderPassTest, matricesThatDoNotConvertAreTheIdentity)
{
    const QImage panorama = distinctImage(48, 24);
    setTexture(Port::LatLongMap, loadPanorama(panorama));
    setSize(8, 8);
    const Image image = run();
    // The vertices have z = 0, so the directions lie in the plane z = 0, around the centre of the picture.
    const double u = 0.5 + std::atan2(0.125, 0.0) / (2 * M_PI);
    const double v = 0.5 + std::atan2(0.375, 0.125) / M_PI;
    const Vector4d expected = samplePanorama(panorama, u, v);
    for (int k = 0; k < 4; ++k)
        EXPECT_NEAR(image.pixel(4, 5)[k], expected[size_t(k)], 4 * eightBits);
    pass->setInput(Port::ProjectionMatrix, 5);
    pass->setInput(Port::CameraMatrix, QStringLiteral("none"));
    EXPECT_EQ(maximumDifference(run(), image), 0);
}

TEST_F(SkyboxRenderPassTest, theFlatImageIsTurnedOverAndMadeLinear)
{
    Image image(4, 4);
    for (int i = 0; i < 16; ++i)
        image.setPixel(i % 4, i / 4, QVector4D(float(i) / 16.0f, 0.5f, 1.0f - float(i) / 32.0f, float(i % 3) / 2.0f));
    const auto texture = makeTexture(image, GL_RGBA32F);
    setTexture(Port::Background, texture.get());
    setSize(4, 4);
    const Image result = run();
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 4; ++x) {
            const QVector4D texel = image.pixel(x, 3 - y);
            for (int k = 0; k < 3; ++k)
                EXPECT_NEAR(result.pixel(x, y)[k], std::pow(texel[k], 2.2f), halfFloat) << x << ", " << y;
            EXPECT_EQ(result.pixel(x, y).w(), texel.w());
        }
    }
}

TEST_F(SkyboxRenderPassTest, theStencilSaysWhereInAFrameThatCameIn)
{
    const auto isCovered = [](int x, int y) { return (x + y) % 3 == 0 ? 0 : x % 2 == 0 ? 1 : 128; };
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    const Image content = frameContent(8, 6);
    setSize(8, 6);
    setTexture(Port::LatLongMap, sky.get());
    Texture *const depth = makeDepthStencil(8, 6, 2, isCovered);
    setTexture(Port::Depth, depth);
    Texture *const source = pool.take(TextureFormat::HighDynamicRange, content, 2);
    setTexture(Port::SourceFrame, source);
    pass->setNumOutputUsers(0, 1);
    const Image result = run();
    EXPECT_EQ(frame(), source);
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 8; ++x) {
            const QVector4D expected = isCovered(x, y) ? content.pixel(x, y) : skyColor;
            EXPECT_LT((result.pixel(x, y) - expected).length(), halfFloat) << x << ", " << y;
        }
    }
    // Nothing else was touched.
    const QVector<int> stencil = readStencil(depth);
    for (int i = 0; i < 48; ++i)
        EXPECT_EQ(stencil[i], isCovered(i % 8, i / 8));
    EXPECT_NEAR(readTexture(depth).at(0, 0)[0], 0.5, 1e-6);
}

TEST_F(SkyboxRenderPassTest, aStencilOfZerosShowsTheSkyEverywhere)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    setSize(4, 4);
    setTexture(Port::LatLongMap, sky.get());
    setTexture(Port::Depth, makeDepthStencil(4, 4, 2, [](int, int) { return 0; }));
    setTexture(Port::SourceFrame, pool.take(TextureFormat::HighDynamicRange, frameContent(4, 4), 2));
    pass->setNumOutputUsers(0, 1);
    EXPECT_LT(maximumDifference(run(), filled(4, 4, skyColor)), halfFloat);
}

TEST_F(SkyboxRenderPassTest, withoutDepthTheSkyGoesUnderTheFrame)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    const Image content = frameContent(8, 6);
    setSize(8, 6);
    setTexture(Port::LatLongMap, sky.get());
    setTexture(Port::SourceFrame, pool.take(TextureFormat::HighDynamicRange, content, 2));
    pass->setNumOutputUsers(0, 1);
    const Image result = run();
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 8; ++x) {
            const QVector4D under = content.pixel(x, y);
            QVector4D expected = under + skyColor * (1 - under.w());
            expected.setW(std::max(under.w(), skyColor.w()));
            EXPECT_LT((result.pixel(x, y) - expected).length(), 2 * halfFloat) << x << ", " << y;
        }
    }
}

TEST_F(SkyboxRenderPassTest, aNewFrameWithDepthIsBlackBehindTheStencil)
{
    const auto isCovered = [](int x, int) { return x < 2; };
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    setSize(4, 4);
    setTexture(Port::LatLongMap, sky.get());
    setTexture(Port::Depth, makeDepthStencil(4, 4, 2, isCovered));
    pass->setNumOutputUsers(0, 1);
    const Image result = run();
    EXPECT_EQ(result.pixel(0, 3), QVector4D(0, 0, 0, 1));
    EXPECT_EQ(result.pixel(1, 0), QVector4D(0, 0, 0, 1));
    EXPECT_LT((result.pixel(2, 0) - skyColor).length(), halfFloat);
    pool.take(TextureFormat::HighDynamicRange, 1, 1, 1);
    TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
}

TEST_F(SkyboxRenderPassTest, withNeitherTheSkyIsEverywhere)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    setSize(4, 4);
    setTexture(Port::LatLongMap, sky.get());
    pass->setNumOutputUsers(0, 1);
    const int before = PooledTextures::allReferences();
    EXPECT_LT(maximumDifference(run(), filled(4, 4, skyColor)), halfFloat);
    EXPECT_EQ(PooledTextures::references(frame()), 1);
    EXPECT_EQ(PooledTextures::allReferences(), before + 1);
    TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
}

TEST_F(SkyboxRenderPassTest, clearsWhatItTookAndNothingElse)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    const auto clears = [&](bool hasFrame, bool hasDepth) {
        SkyboxRenderPass other;
        other.setup(nullptr);
        other.setInput(Port::Viewport, QRect(0, 0, 4, 4));
        other.setInput(Port::LatLongMap, QVariant::fromValue(sky.get()));
        if (hasFrame) {
            other.setInput(Port::SourceFrame,
                QVariant::fromValue(pool.take(TextureFormat::HighDynamicRange, frameContent(4, 4), 2)));
        }
        if (hasDepth)
            other.setInput(Port::Depth, QVariant::fromValue(makeDepthStencil(4, 4, 2, [](int, int) { return 0; })));
        GLCallRecorder<&epoxy_glClearBufferfv> colors;
        GLCallRecorder<&epoxy_glClearBufferfi> depths;
        GLCallRecorder<&epoxy_glClear> all;
        colors.onCall = [](GLenum buffer, GLint index, const GLfloat *value) {
            EXPECT_EQ(buffer, GLenum(GL_COLOR));
            EXPECT_EQ(index, 0);
            EXPECT_EQ(QVector4D(value[0], value[1], value[2], value[3]), QVector4D(0, 0, 0, 1));
        };
        other.start(nullptr);
        EXPECT_TRUE(all.calls.empty());
        for (const auto &call : depths.calls)
            EXPECT_EQ(call, std::make_tuple(GLenum(GL_DEPTH_STENCIL), 0, 1.0f, 0));
        return std::make_pair(colors.calls.size(), depths.calls.size());
    };
    EXPECT_EQ(clears(false, false), std::make_pair(size_t(1), size_t(1)));
    EXPECT_EQ(clears(true, false), std::make_pair(size_t(0), size_t(1)));
    EXPECT_EQ(clears(false, true), std::make_pair(size_t(1), size_t(0)));
    EXPECT_EQ(clears(true, true), std::make_pair(size_t(0), size_t(0)));
}

TEST_F(SkyboxRenderPassTest, withoutDepthItTakesOneWithAStencil)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    setSize(5, 3);
    setTexture(Port::LatLongMap, sky.get());
    GLCallRecorder<&epoxy_glDrawArrays> draws;
    draws.onCall = [](GLenum, GLint, GLsizei) {
        for (const GLenum attachment : {GL_DEPTH_ATTACHMENT, GL_STENCIL_ATTACHMENT}) {
            const TextureManager::PooledTexture depth = poolEntry(attachedTexture(attachment));
            ASSERT_TRUE(depth.texture);
            EXPECT_EQ(depth.format, TextureFormat::DepthStencil);
            EXPECT_EQ(depth.texture->internalFormat(0), GL_DEPTH24_STENCIL8);
            EXPECT_EQ(depth.texture->target(), GLenum(GL_TEXTURE_2D));
            EXPECT_EQ(QSize(depth.texture->width(0), depth.texture->height(0)), QSize(5, 3));
        }
    };
    pass->start(nullptr);
    EXPECT_EQ(draws.calls.size(), 1u);
}

TEST_F(SkyboxRenderPassTest, choosesTheFormatOfANewFrame)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    setSize(4, 4);
    setTexture(Port::LatLongMap, sky.get());
    const auto formatWith = [this](const QVariant &isHdr) {
        pass->setInput(Port::RenderInHDR, isHdr);
        pass->start(nullptr);
        return frame()->internalFormat(0);
    };
    EXPECT_EQ(formatWith(true), GL_RGBA16F);
    EXPECT_EQ(formatWith(false), GL_RGBA8);
    EXPECT_EQ(formatWith(QVariant()), GL_RGBA8);
    setTexture(Port::SourceFrame, pool.take(TextureFormat::LowDynamicRange, 4, 4, 4));
    EXPECT_EQ(formatWith(true), GL_RGBA8) << "a frame that came in keeps its format";
}

TEST_F(SkyboxRenderPassTest, theFlatImageTakesPrecedenceOverTheCubeMapAndThatOverThePanorama)
{
    Texture *const flat = pool.take(TextureFormat::HighDynamicRange, filled(2, 2, QVector4D(1, 1, 1, 1)), 3);
    Texture *const panorama = pool.take(TextureFormat::HighDynamicRange, filled(2, 2, skyColor), 4);
    setSize(8, 8);
    setView(quarterView(), viewFrom(QVector3D(), axisViews[5].forward, axisViews[5].up));
    setTexture(Port::Background, flat);
    setTexture(Port::Cubemap, loadArrows(8));
    setTexture(Port::LatLongMap, panorama);
    EXPECT_EQ(run().pixel(0, 0), QVector4D(1, 1, 1, 1));
    EXPECT_EQ(PooledTextures::references(flat), 2);
    EXPECT_EQ(PooledTextures::references(panorama), 3) << "what was not drawn is given back too";
    setTexture(Port::Background, nullptr);
    EXPECT_LT((run().pixel(0, 7) - colorAt(faces[5], 7, 0)).length(), 0.1f);
    EXPECT_EQ(PooledTextures::references(panorama), 2);
    setTexture(Port::Cubemap, nullptr);
    EXPECT_LT((run().pixel(0, 0) - skyColor).length(), halfFloat);
    EXPECT_EQ(PooledTextures::references(panorama), 1);
    EXPECT_EQ(PooledTextures::references(flat), 2);
}

TEST_F(SkyboxRenderPassTest, aCubeMapBehindAFlatImageIsGivenBack)
{
    Texture *const flat = pool.take(TextureFormat::HighDynamicRange, filled(2, 2, QVector4D(1, 1, 1, 1)), 3);
    // The pool has no cube maps; a texture that is not drawn may be of any kind.
    Texture *const cubemap = pool.take(TextureFormat::HighDynamicRange, filled(2, 2, skyColor), 3);
    setSize(4, 4);
    setTexture(Port::Background, flat);
    setTexture(Port::Cubemap, cubemap);
    EXPECT_EQ(run().pixel(1, 2), QVector4D(1, 1, 1, 1));
    EXPECT_EQ(PooledTextures::references(cubemap), 2);
    EXPECT_EQ(PooledTextures::references(flat), 2);
}

TEST_F(SkyboxRenderPassTest, withoutSurroundingsTheFrameStaysAsItCame)
{
    const Image content = frameContent(4, 4);
    Texture *const source = pool.take(TextureFormat::HighDynamicRange, content, 2);
    setSize(4, 4);
    setTexture(Port::SourceFrame, source);
    pass->setNumOutputUsers(0, 2);
    GLCallRecorder<&epoxy_glDrawArrays> draws;
    GLCallRecorder<&epoxy_glClearBufferfv> clears;
    EXPECT_LT(maximumDifference(run(), content), halfFloat);
    EXPECT_EQ(frame(), source);
    EXPECT_EQ(PooledTextures::references(source), 3);
    setTexture(Port::SourceFrame, nullptr);
    pass->setNumOutputUsers(0, 0);
    pass->start(nullptr);
    EXPECT_TRUE(frame());
    EXPECT_TRUE(draws.calls.empty());
    EXPECT_TRUE(clears.calls.empty());
}

TEST_F(SkyboxRenderPassTest, withoutSetupNothingIsDrawn)
{
    const Image content = frameContent(4, 4);
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    pass = std::make_unique<SkyboxRenderPass>();
    setSize(4, 4);
    setTexture(Port::LatLongMap, sky.get());
    setTexture(Port::SourceFrame, pool.take(TextureFormat::HighDynamicRange, content, 2));
    EXPECT_LT(maximumDifference(run(), content), halfFloat);
}

TEST_F(SkyboxRenderPassTest, givesBackFrameAndDepth)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    Texture *const source = pool.take(TextureFormat::HighDynamicRange, frameContent(4, 4), 2);
    Texture *const depth = makeDepthStencil(4, 4, 2, [](int, int) { return 0; });
    setSize(4, 4);
    setTexture(Port::LatLongMap, sky.get());
    setTexture(Port::SourceFrame, source);
    setTexture(Port::Depth, depth);
    pass->setNumOutputUsers(0, 3);
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(source), 4);
    EXPECT_EQ(PooledTextures::references(depth), 1);
    const int before = PooledTextures::allReferences();
    pass->skip(nullptr);
    EXPECT_EQ(PooledTextures::allReferences(), before - 2);
    EXPECT_FALSE(pass->output(0).isValid());
}

TEST_F(SkyboxRenderPassTest, aChangeOfSizeRecreatesFramebufferAndQuadAndKeepsThePrograms)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    setTexture(Port::LatLongMap, sky.get());
    setSize(4, 4);
    GLCallRecorder<&epoxy_glGenFramebuffers> framebuffers;
    GLCallRecorder<&epoxy_glGenVertexArrays> vertexArrays;
    GLCallRecorder<&epoxy_glLinkProgram> programs;
    pass->start(nullptr);
    pass->start(nullptr);
    EXPECT_EQ(framebuffers.calls.size(), 1u);
    EXPECT_EQ(vertexArrays.calls.size(), 1u);
    const GLObjectCounts counts = glObjectCounts();
    setSize(4, 6);
    pass->start(nullptr);
    EXPECT_EQ(framebuffers.calls.size(), 2u);
    EXPECT_EQ(vertexArrays.calls.size(), 2u);
    EXPECT_EQ(frame()->height(0), 6);
    EXPECT_EQ(glObjectCounts().framebuffers, counts.framebuffers);
    EXPECT_EQ(glObjectCounts().vertexArrays, counts.vertexArrays);
    pass->setup(nullptr);
    EXPECT_TRUE(programs.calls.empty());
}

TEST_F(SkyboxRenderPassTest, initAgainKeepsOneFramebuffer)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    setTexture(Port::LatLongMap, sky.get());
    setSize(4, 4);
    pass->start(nullptr);
    const GLObjectCounts counts = glObjectCounts();
    pass->init();
    pass->start(nullptr);
    EXPECT_TRUE(glObjectCounts() == counts);
    EXPECT_LT(maximumDifference(readTexture(frame()), filled(4, 4, skyColor)), halfFloat);
}

TEST_F(SkyboxRenderPassTest, drawsIntoTheWholeFrameWhateverTheViewportWas)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    pass->setInput(Port::Viewport, QRect(7, 9, 4, 4));
    setTexture(Port::LatLongMap, sky.get());
    glViewport(2, 2, 1, 1);
    EXPECT_LT(maximumDifference(run(), filled(4, 4, skyColor)), halfFloat);
}

TEST_F(SkyboxRenderPassTest, anUnconnectedViewportDrawsNothing)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    setTexture(Port::LatLongMap, sky.get());
    {
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        draws.onCall = [](GLenum, GLint, GLsizei) {
            GLint viewport[4];
            glGetIntegerv(GL_VIEWPORT, viewport);
            EXPECT_EQ(viewport[2] * viewport[3], 0);
            EXPECT_NE(glCheckFramebufferStatus(GL_DRAW_FRAMEBUFFER), GLenum(GL_FRAMEBUFFER_COMPLETE));
        };
        pass->start(nullptr);
        EXPECT_LE(draws.calls.size(), 1u);
    }
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION}) << "clears and draw";
    ASSERT_TRUE(frame());
    EXPECT_EQ(frame()->width(0), 0);
}

TEST_F(SkyboxRenderPassTest, leavesTheStateThatItSays)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    setSize(4, 4);
    setTexture(Port::LatLongMap, sky.get());
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_STENCIL_TEST);
    glEnable(GL_BLEND);
    setTexture(Port::SourceFrame, pool.take(TextureFormat::HighDynamicRange, 4, 4, 3));
    pass->start(nullptr);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
    EXPECT_FALSE(glFlag(GL_BLEND));
    EXPECT_EQ(glInteger(GL_BLEND_EQUATION_RGB), GL_FUNC_ADD);
    EXPECT_EQ(glInteger(GL_BLEND_EQUATION_ALPHA), GL_MAX);
    EXPECT_EQ(glInteger(GL_BLEND_SRC_RGB), GL_ONE_MINUS_DST_ALPHA);
    EXPECT_EQ(glInteger(GL_BLEND_DST_RGB), GL_ONE);

    glEnable(GL_BLEND);
    setTexture(Port::Depth, makeDepthStencil(4, 4, 2, [](int, int) { return 0; }));
    glStencilMask(0xff);
    glStencilFunc(GL_ALWAYS, 5, 0x0f);
    glStencilOp(GL_REPLACE, GL_INCR, GL_INVERT);
    {
        // GL reports the reference clamped to the bits of the bound stencil buffer, so the call itself is checked.
        GLCallRecorder<&epoxy_glStencilFunc> stencilFunctions;
        pass->start(nullptr);
        ASSERT_EQ(stencilFunctions.calls.size(), 1u);
        EXPECT_EQ(stencilFunctions.calls[0], std::make_tuple(GLenum(GL_EQUAL), 0, 0xffu));
    }
    EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
    EXPECT_FALSE(glFlag(GL_BLEND));
    EXPECT_EQ(glInteger(GL_STENCIL_FUNC), GL_EQUAL);
    EXPECT_EQ(glInteger(GL_STENCIL_REF), 0);
    EXPECT_EQ(glInteger(GL_STENCIL_VALUE_MASK), 0xff);
    EXPECT_EQ(glInteger(GL_STENCIL_WRITEMASK), 0);
    for (const GLenum operation : {GL_STENCIL_FAIL, GL_STENCIL_PASS_DEPTH_FAIL, GL_STENCIL_PASS_DEPTH_PASS})
        EXPECT_EQ(glInteger(operation), GL_KEEP);
    glStencilMask(~0u);
    glStencilFunc(GL_ALWAYS, 0, ~0u);
    glBlendEquation(GL_FUNC_ADD);
    glBlendFunc(GL_ONE, GL_ZERO);
}

TEST_F(SkyboxRenderPassTest, setsHowTheSourceIsSampled)
{
    const auto parameter = [](Texture *texture, GLenum name) {
        AutoBinder binder(texture);
        GLint value = 0;
        glGetTexParameteriv(texture->target(), name, &value);
        return value;
    };
    // Parameters that no source is sampled with.
    const auto setOthers = [](Texture *texture) {
        AutoBinder binder(texture);
        glTexParameteri(texture->target(), GL_TEXTURE_MIN_FILTER, GL_NEAREST_MIPMAP_NEAREST);
        glTexParameteri(texture->target(), GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glTexParameteri(texture->target(), GL_TEXTURE_WRAP_S, GL_MIRRORED_REPEAT);
        glTexParameteri(texture->target(), GL_TEXTURE_WRAP_T, GL_MIRRORED_REPEAT);
    };
    setSize(4, 4);
    Texture *const cube = loadArrows(8);
    setOthers(cube);
    setTexture(Port::Cubemap, cube);
    bool wasSeamless = false;
    {
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        draws.onCall = [&](GLenum, GLint, GLsizei) { wasSeamless = glFlag(GL_TEXTURE_CUBE_MAP_SEAMLESS); };
        pass->start(nullptr);
        EXPECT_EQ(draws.calls.size(), 1u);
    }
    EXPECT_TRUE(wasSeamless);
    EXPECT_FALSE(glFlag(GL_TEXTURE_CUBE_MAP_SEAMLESS));
    EXPECT_EQ(parameter(cube, GL_TEXTURE_MIN_FILTER), GL_LINEAR_MIPMAP_LINEAR);
    EXPECT_EQ(parameter(cube, GL_TEXTURE_MAG_FILTER), GL_LINEAR);
    EXPECT_EQ(parameter(cube, GL_TEXTURE_WRAP_S), GL_CLAMP_TO_EDGE);
    EXPECT_EQ(parameter(cube, GL_TEXTURE_WRAP_T), GL_CLAMP_TO_EDGE);

    setTexture(Port::Cubemap, nullptr);
    Texture *const panorama = loadPanorama(distinctImage(8, 4));
    setOthers(panorama);
    setTexture(Port::LatLongMap, panorama);
    pass->start(nullptr);
    EXPECT_EQ(parameter(panorama, GL_TEXTURE_WRAP_S), GL_REPEAT);
    EXPECT_EQ(parameter(panorama, GL_TEXTURE_WRAP_T), GL_CLAMP_TO_EDGE);
    EXPECT_EQ(parameter(panorama, GL_TEXTURE_MIN_FILTER), GL_LINEAR);
    EXPECT_EQ(parameter(panorama, GL_TEXTURE_MAG_FILTER), GL_NEAREST) << "left as it was";

    const auto flat = makeTexture(filled(2, 2, skyColor), GL_RGBA32F);
    setOthers(flat.get());
    setTexture(Port::Background, flat.get());
    pass->start(nullptr);
    EXPECT_EQ(parameter(flat.get(), GL_TEXTURE_MIN_FILTER), GL_LINEAR);
    EXPECT_EQ(parameter(flat.get(), GL_TEXTURE_MAG_FILTER), GL_NEAREST) << "left as it was";
    EXPECT_EQ(parameter(flat.get(), GL_TEXTURE_WRAP_S), GL_MIRRORED_REPEAT) << "left as it was";
}

TEST_F(SkyboxRenderPassTest, deletesWhatItMade)
{
    const auto sky = makeTexture(filled(1, 1, skyColor), GL_RGBA32F);
    setSize(4, 4);
    setTexture(Port::LatLongMap, sky.get());
    pass->start(nullptr);
    pass->teardown(nullptr);
    pass->teardownContextData(nullptr);
    const GLObjectCounts with = glObjectCounts();
    pass->release();
    pass->release();
    EXPECT_EQ(glObjectCounts().framebuffers, with.framebuffers - 1);
    EXPECT_EQ(glObjectCounts().vertexArrays, with.vertexArrays - 1);
    EXPECT_LT((run().pixel(0, 0) - skyColor).length(), halfFloat) << "made again after release()";
    pass.reset();
    EXPECT_EQ(glObjectCounts().framebuffers, with.framebuffers - 1);
    EXPECT_EQ(glObjectCounts().programs, with.programs - 3);
}

} // namespace Velmora::Kvz
