// SPDX-License-Identifier: MIT
// The ready chains with environments, on real passes and with the images that come with them.
#include "support/Cameras.h"
#include "support/GLTest.h"
#include "support/ImageFiles.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"

#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/TextureManager.h>
#include <Scene/GPUModelBuilder.h>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const char frame[] = "Kvz_KvzTexture*_Frame";
const QSize size(160, 120);

class EnvironmentChainsTest : public GLTest
{
protected:
    RenderChain chain;
    QSharedPointer<GPUModel> model;
    std::unique_ptr<Texture> target;
    FramebufferObject framebuffer;

    void SetUp() override
    {
        GLTest::SetUp();
        target = makeTexture(Image(size.width(), size.height()), GL_RGBA8);
        AutoBinder binder(&framebuffer);
        framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
        framebuffer.setDrawBuffers();
    }

    void load(const char *name)
    {
        ChainDescription description;
        QString error;
        ASSERT_TRUE(loadChain(QString::fromUtf8(name), &description, &error)) << qPrintable(error);
        ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
        for (const ChainFinding &finding : chain.findings())
            ADD_FAILURE() << qPrintable(finding.toString());
        chain.setViewport(QRect(QPoint(), size));
        chain.setFramebuffer(&framebuffer);
    }
    void lookTowards(const QVector3D &forward, const QVector3D &up = QVector3D(0, 1, 0))
    {
        QMatrix4x4 camera;
        camera.lookAt(QVector3D(), forward, up);
        chain.setCamera(camera, perspective(size, 0.1f, 50));
    }
    Image output(const char *pass, const char *port = frame)
    {
        return renderOutputs(&chain, {{QString::fromUtf8(pass), QString::fromUtf8(port)}})[0];
    }
    /// A square of each material in front of a camera at the origin that looks along -z: a glossy thing and its floor.
    void buildModel()
    {
        GPUModelBuilder builder;
        MaterialData floor;
        floor.kd = QVector3D(0.6f, 0.6f, 0.6f);
        MaterialData thing;
        thing.kd = QVector3D(0.9f, 0.1f, 0.1f);
        QMatrix4x4 below;
        below.translate(0, -1, -6);
        below.scale(4);
        QMatrix4x4 ahead;
        ahead.translate(0, 0.5f, -6);
        ahead.scale(0.5f);
        const int floorMaterial = builder.addMaterial(floor);
        builder.addItem(builder.addMesh(groundMesh()), floorMaterial, below);
        builder.addItem(builder.addMesh(wallMesh()), builder.addMaterial(thing), ahead);
        model = builder.build();
        chain.setModel(model.data());
    }
};

} // namespace

TEST_F(EnvironmentChainsTest, cubeMapAndPanoramaShowTheSameSky)
{
    // Both images come from one function of the direction.
    double total = 0;
    double contrast = 0;
    for (const QVector3D &forward : {QVector3D(0.3f, 0.2f, -1), QVector3D(1, 0, 0.2f), QVector3D(-1, 0.1f, 0.3f),
             QVector3D(0.1f, 0, 1), QVector3D(0.2f, 1, -0.3f), QVector3D(-0.2f, -1, 0.1f)}) {
        load("skybox-panorama");
        lookTowards(forward);
        const Image panorama = output("sky");
        load("skybox-cubemap");
        lookTowards(forward);
        const Image faces = output("sky");
        chain.releaseContext();
        double sum = 0;
        for (int i = 0; i < size.width() * size.height(); ++i) {
            const QVector4D a = panorama.pixel(i % size.width(), i / size.width());
            const QVector4D b = faces.pixel(i % size.width(), i / size.width());
            const QVector4D mirrored = faces.pixel(size.width() - 1 - i % size.width(), i / size.width());
            sum += double((a - b).length());
            contrast += double((a - mirrored).length());
        }
        EXPECT_LT(sum / (size.width() * size.height()), 0.02) << "towards " << forward.x() << ", " << forward.y();
        total += sum;
    }
    EXPECT_GT(contrast, 4 * total) << "mirrored pictures would show";
}

TEST_F(EnvironmentChainsTest, theSunStandsAboveTheHorizonToTheRight)
{
    for (const char *name : {"skybox-panorama", "skybox-cubemap"}) {
        load(name);
        lookTowards(QVector3D(0, 0, -1));
        const Image image = output("sky");
        saveForViewing(image, QString::fromUtf8(name));
        const auto pixelAt = [&](double longitude, double latitude) {
            const QMatrix4x4 projection = perspective(size, 0.1f, 50);
            const QVector3D p = projection
                * QVector3D(float(std::sin(longitude * M_PI / 180) * std::cos(latitude * M_PI / 180)),
                    float(std::sin(latitude * M_PI / 180)),
                    float(-std::cos(longitude * M_PI / 180) * std::cos(latitude * M_PI / 180)));
            return image.pixel(int((p.x() + 1) / 2 * size.width()), int((p.y() + 1) / 2 * size.height()));
        };
        const QVector4D mast = pixelAt(0, 6);
        EXPECT_GT(mast.x(), 2 * mast.y()) << "the red mast ahead";
        EXPECT_GT(pixelAt(20, 20).z(), pixelAt(20, -15).z() + 0.2f) << "blue above, brown below";
        EXPECT_GT(pixelAt(30, 20).x(), pixelAt(-30, 20).x() + 0.1f) << "brighter to the right, where the sun is";
    }
}

TEST_F(EnvironmentChainsTest, theStencilKeepsTheCubeMapOffTheModel)
{
    load("skybox-cubemap-basic");
    lookTowards(QVector3D(0, 0, -1));
    const Image sky = output("sky");
    buildModel();
    const Image image = output("sky");
    const Image shading = output("shading");
    const Image depth = output("cover", "Kvz_KvzTexture*_Depth");
    int covered = 0;
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const bool isCovered = depth.at(x, y)[0] < 1;
            covered += isCovered;
            const QVector4D expected = isCovered ? shading.pixel(x, y) : sky.pixel(x, y);
            ASSERT_LT((image.pixel(x, y) - expected).length(), 2e-3f) << x << ", " << y;
        }
    }
    EXPECT_GT(covered, 1000);
    EXPECT_LT(covered, size.width() * size.height() / 2 + 1000);
}

TEST_F(EnvironmentChainsTest, theBackdropGoesBehindTheModelAndIntoItsFloor)
{
    load("backdrop");
    lookTowards(QVector3D(0, 0, -1));
    buildModel();
    const Image ids = output("geometry", "Kvz_KvzTexture*_Normal");
    const Image shading = output("shading");
    const Image image = output("backdrop");
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            if (int(ids.at(x, y)[3]) == 1) {
                ASSERT_LT((image.pixel(x, y) - shading.pixel(x, y)).length(), 4e-3f) << "no floor before it is named";
            }
        }
    }
    ASSERT_TRUE(chain.setValue("backdrop", "Kvz_int_FloorMaterialId", 0));
    for (const char *share : {"0", "0.35", "1"}) {
        const float floorShare = QByteArray(share).toFloat();
        ASSERT_TRUE(chain.setValue("backdrop", "Kvz_float_FadeRatioFloor", floorShare));
        ASSERT_TRUE(chain.setValue("backdrop", "Kvz_float_FadeRatio", 0.0f));
        ASSERT_TRUE(chain.setValue("backdrop", "Kvz_float_FadeRatio2", 0.0f));
        const Image black = output("backdrop");
        int counts[3] = {};
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const int id = int(ids.at(x, y)[3]);
                ++counts[id];
                const QVector4D expected = id == 0 ? QVector4D()
                    : id == 1                      ? shading.pixel(x, y) * floorShare
                                                   : shading.pixel(x, y);
                ASSERT_LT((black.pixel(x, y) - expected).length(), 4e-3f) << x << ", " << y;
            }
        }
        for (int count : counts)
            EXPECT_GT(count, 100);
    }
    // The images are there: the rail near the top is darker than the wall below it.
    EXPECT_LT(image.pixel(80, 112).z(), image.pixel(80, 100).z());
    EXPECT_GT(image.pixel(20, 80).x(), image.pixel(150, 80).x()) << "the light of the window is on the left";
}

TEST_F(EnvironmentChainsTest, noChainLeaks)
{
    for (const char *name : {"skybox-panorama", "skybox-cubemap", "skybox-cubemap-basic", "backdrop"}) {
        load(name);
        lookTowards(QVector3D(0, 0, -1));
        buildModel();
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
        const auto first = TextureManager::Instance()->poolStatistics();
        for (int i = 0; i < 5; ++i)
            ASSERT_TRUE(chain.renderFrame());
        EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0) << name;
        EXPECT_EQ(TextureManager::Instance()->poolStatistics().bytes, first.bytes) << name;
        chain.releaseContext();
    }
}

TEST_F(EnvironmentChainsTest, aPathSetByTheHostShowsInTheNextFrame)
{
    const TemporaryFolder folder;
    load("skybox-panorama");
    lookTowards(QVector3D(0, 0, -1));
    const Image before = output("sky");
    QImage red(8, 4, QImage::Format_RGB32);
    red.fill(Qt::red);
    ASSERT_TRUE(chain.setValue("panorama", "Kvz_QString_TexturePath", writeImage(folder, "red.png", red)))
        << qPrintable(chain.errorString());
    EXPECT_EQ(output("sky").pixel(80, 60), QVector4D(1, 0, 0, 1));
    ASSERT_TRUE(chain.setValue("panorama", "Kvz_QString_TexturePath", QStringLiteral("../Environments/sky.png")));
    EXPECT_EQ(maximumDifference(output("sky"), before), 0) << "relative to the folder of the chain";
}

} // namespace Velmora::Kvz
