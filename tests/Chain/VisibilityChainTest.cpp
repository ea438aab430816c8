// SPDX-License-Identifier: MIT
// Transparency by lists in chains. Tests of suites with "Lists" in their names need a driver that has lists, those with
// "SingleNode" one that has none, as tests/Chain/CMakeLists.txt provides; all others hold on both.
#include "support/Cameras.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"
#include "support/PooledTextures.h"
#include "support/VisibilityLists.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/PassInfo.h>
#include <Chain/RenderChain.h>
#include <ExtraPasses/VisibilityOcclusionRenderPass.h>
#include <GL/FramebufferObject.h>
#include <GL/GLStatistics.h>
#include <Host/TextureCapture.h>
#include <Import/ModelImporter.h>
#include <RenderPasses/VisibilityBufferRenderPass.h>

#include <QtGui/QColor>

#include <epoxy/gl.h>

#include <cmath>
#include <random>

namespace Velmora::Kvz {

namespace {

const QSize viewSize(160, 120);
const QString heads = QStringLiteral("Kvz_KvzTexture*_HeadPointers");
const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");

class VisibilityChainTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        target = makeTexture(filled(viewSize.width(), viewSize.height(), QVector4D()), GL_RGBA8);
        const std::string suite = ::testing::UnitTest::GetInstance()->current_test_info()->test_suite_name();
        if (suite.find("Lists") != std::string::npos) {
            ASSERT_TRUE(hasVisibilityLists()) << "this driver has no lists";
        }
        if (suite.find("SingleNode") != std::string::npos) {
            ASSERT_FALSE(hasVisibilityLists()) << "hide an extension from the test: MESA_EXTENSION_OVERRIDE";
        }
    }

    void load(RenderChain *chain)
    {
        ChainDescription description;
        QString error;
        ASSERT_TRUE(loadChain(QStringLiteral("transparency-lists-basic"), &description, &error)) << qPrintable(error);
        ASSERT_TRUE(chain->setDescription(description)) << qPrintable(chain->errorString());
        prepare(chain);
    }
    void prepare(RenderChain *chain)
    {
        screen.bind();
        screen.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
        screen.setDrawBuffers();
        screen.unbind();
        chain->setViewport(QRect(QPoint(), viewSize));
        chain->setCamera(lookAt(QVector3D(0, 0, 4), QVector3D()), perspective(viewSize, 0.5f, 30));
        chain->setFramebuffer(&screen);
        chain->setModel(model.data());
    }

    /// A wall of half size at this place, with the flag that the importer sets.
    void addWall(GPUModelBuilder *builder, const QVector3D &place, const QVector3D &kd, float d)
    {
        MaterialData material;
        material.kd = kd;
        material.d = d;
        QMatrix4x4 matrix;
        matrix.translate(place);
        matrix.scale(0.5f, 0.5f, 1);
        builder->addItem(builder->addMesh(wallMesh()), builder->addMaterial(material), matrix,
            d < 1 ? quint64(ImportedScene::Transparent) : 0);
    }

    Image render(RenderChain *chain, const char *pass)
    {
        return renderOutputs(chain, {{QString::fromLatin1(pass), frame}})[0];
    }

    /// The pixel that shows a point in world space.
    static QPoint pixelOf(const QVector3D &point)
    {
        const QVector3D device = (perspective(viewSize, 0.5f, 30) * lookAt(QVector3D(0, 0, 4), QVector3D())).map(point);
        return QPoint(int((device.x() + 1) / 2 * viewSize.width()), int((device.y() + 1) / 2 * viewSize.height()));
    }
    static QVector4D at(const Image &image, const QVector3D &point)
    {
        const QPoint pixel = pixelOf(point);
        return image.pixel(pixel.x(), pixel.y());
    }

    std::unique_ptr<Texture> target;
    FramebufferObject screen;
    QSharedPointer<GPUModel> model;
};

class VisibilityChainListsTest : public VisibilityChainTest
{ };

class VisibilityChainSingleNodeTest : public VisibilityChainTest
{ };

/// Lists and a depth image for VisibilityOcclusionRenderPass alone.
class VisibilityOcclusionRenderPassTest : public VisibilityChainTest
{
protected:
    using Pass = VisibilityOcclusionRenderPass;

    void record(const RayCastScene &scene, const QMatrix4x4 &camera)
    {
        model = scene.build();
        glViewport(0, 0, viewSize.width(), viewSize.height());
        buffer.setInput(VisibilityBufferRenderPass::Viewport, QRect(QPoint(), viewSize));
        buffer.setInput(VisibilityBufferRenderPass::CameraMatrix, camera);
        buffer.setInput(VisibilityBufferRenderPass::ProjectionMatrix, perspective(viewSize, 0.5f, 30));
        buffer.setInput(VisibilityBufferRenderPass::Geometry, QVariant::fromValue(model.data()));
        buffer.start(nullptr);
        pass.setInput(Pass::Viewport, QRect(QPoint(), viewSize));
        for (int i = 0; i < 3; ++i)
            pass.setInput(Pass::HeadPointersIn + i, buffer.output(i));
    }

    VisibilityBufferRenderPass buffer{0, 0};
    Pass pass;
};

RayCastScene manySheets()
{
    RayCastScene scene;
    for (int i = 0; i < 12; ++i) {
        QMatrix4x4 matrix;
        matrix.rotate(30 * float(i) + 10, 0.2f, 1, 0.1f);
        matrix.translate(0, 0, i % 2 ? 0.3f : -0.1f);
        scene.add(wallMesh(), MaterialData(), matrix);
    }
    return scene;
}

/// A depth image with a different depth in each pixel, some of them 0 and 1.
Image randomDepth()
{
    Image depth(viewSize.width(), viewSize.height(), 1);
    std::mt19937 random(9);
    for (float &value : depth.data) {
        const unsigned int kind = random() % 8;
        value = kind == 0 ? 0.0f : kind == 1 ? 1.0f : 0.85f + 0.1f * float(random() % 1000) / 1000;
    }
    return depth;
}

const QString listPass = QStringLiteral("VisibilityBufferRenderPass");

/// The standard passes with lists that have room for this many fragments.
PassRegistry registryWithRoom(qint64 fragments)
{
    PassRegistry registry = PassRegistry::standard();
    PassInfo lists = *registry.find(listPass);
    lists.fragmentRoom = fragments;
    registry.add(lists);
    return registry;
}

/// A chain with only the pass that fills the lists.
ChainDescription listsAlone()
{
    ChainPass pass;
    pass.name = pass.className = listPass;
    ChainDescription description;
    description.passes = {pass};
    return description;
}

} // namespace

TEST_F(VisibilityOcclusionRenderPassTest, takesOutWhatIsHiddenAndKeepsTheOrder)
{
    record(manySheets(), lookAt(QVector3D(0.3f, 0.4f, 3.2f), QVector3D()));
    const VisibilityLists before(buffer);
    Image depth = randomDepth();
    // Items at exactly the depth are hidden.
    for (int x = 0; x < viewSize.width(); ++x) {
        const QVector<ListNode> list = before.at(x, 60);
        if (!list.isEmpty())
            *depth.at(x, 60) = list.last().depth();
    }
    const std::unique_ptr<Texture> depthTexture = makeTexture(depth, GL_DEPTH_COMPONENT32F);
    pass.setInput(Pass::Depth, QVariant::fromValue(depthTexture.get()));
    pass.start(nullptr);
    const VisibilityLists after(pass);
    int shortened = 0;
    int emptied = 0;
    int relinked = 0;
    for (int y = 0; y < viewSize.height(); ++y) {
        for (int x = 0; x < viewSize.width(); ++x) {
            QVector<ListNode> expected;
            const QVector<ListNode> all = before.at(x, y);
            for (const ListNode &node : all) {
                if (node.depth() < *depth.at(x, y))
                    expected.append(node);
            }
            const QVector<ListNode> found = after.at(x, y);
            ASSERT_EQ(found.size(), expected.size()) << x << ' ' << y;
            for (int i = 0; i < found.size(); ++i) {
                ASSERT_EQ(found[i].place, expected[i].place);
                ASSERT_TRUE(found[i].hasPayloadOf(expected[i]));
                relinked += found[i].next != expected[i].next;
            }
            shortened += !found.isEmpty() && found.size() < all.size();
            emptied += found.isEmpty() && !all.isEmpty();
        }
    }
    EXPECT_GT(emptied, 500);
    if (hasVisibilityLists()) {
        EXPECT_GT(shortened, 1000);
        EXPECT_GT(relinked, 1000);
    }
    // The pass does not change the heads that it was given.
    EXPECT_NE(pass.output(Pass::HeadPointers), buffer.output(0));
    EXPECT_EQ(pass.output(Pass::NodeBuffer), buffer.output(1));
    EXPECT_EQ(pass.output(Pass::NodeBufferWidth), buffer.output(2));
    EXPECT_EQ(VisibilityLists(buffer).head(80, 60), before.head(80, 60));
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(PooledTextures::allReferences(), 0);
}

TEST_F(VisibilityOcclusionRenderPassTest, handsOnWhatItCannotWorkOn)
{
    record(manySheets(), lookAt(QVector3D(0, 0, 3), QVector3D()));
    const std::unique_ptr<Texture> depth = makeTexture(randomDepth(), GL_DEPTH_COMPONENT32F);
    const GLObjectCounts before = glObjectCounts();
    for (const int missing :
        {Pass::Depth, Pass::HeadPointersIn, Pass::NodeBufferIn, Pass::NodeBufferWidthIn, Pass::Viewport}) {
        for (int i = 0; i < 3; ++i)
            pass.setInput(Pass::HeadPointersIn + i, buffer.output(i));
        pass.setInput(Pass::Viewport, QRect(QPoint(), viewSize));
        pass.setInput(Pass::Depth, QVariant::fromValue(depth.get()));
        pass.setInput(missing, QVariant());
        pass.start(nullptr);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(pass.output(i), missing == Pass::HeadPointersIn + i ? QVariant() : buffer.output(i));
        EXPECT_TRUE(glObjectCounts() == before);
    }
}

TEST_F(VisibilityOcclusionRenderPassTest, takesItsObjectsAlong)
{
    record(manySheets(), lookAt(QVector3D(0, 0, 3), QVector3D()));
    const std::unique_ptr<Texture> depth = makeTexture(randomDepth(), GL_DEPTH_COMPONENT32F);
    pass.setInput(Pass::Depth, QVariant::fromValue(depth.get()));
    pass.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    {
        Pass other;
        for (int i = 0; i < 3; ++i)
            other.setInput(Pass::HeadPointersIn + i, buffer.output(i));
        other.setInput(Pass::Depth, QVariant::fromValue(depth.get()));
        for (const QSize &size : {viewSize, viewSize / 2, viewSize}) {
            other.setInput(Pass::Viewport, QRect(QPoint(), size));
            other.start(nullptr);
            EXPECT_EQ(other.output(Pass::HeadPointers).value<Texture *>()->width(0), size.width());
            EXPECT_EQ(glObjectCounts().textures, before.textures + 1);
        }
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(VisibilityChainTest, composesLayersOverTheOpaqueFrame)
{
    GPUModelBuilder builder;
    addWall(&builder, {-0.8f, 0, 0}, {0.6f, 0.2f, 0.1f}, 1);
    addWall(&builder, {0.2f, 0, 0.5f}, {0.2f, 0.3f, 0.5f}, 0.4f);
    model = builder.build();
    RenderChain chain;
    load(&chain);
    const QVector<Image> images = renderOutputs(&chain,
        {{QStringLiteral("opaque"), frame}, {QStringLiteral("layers"), frame}, {QStringLiteral("composed"), frame}});
    saveForViewing(images[2], QStringLiteral("chain-transparency-lists"));
    int layered = 0;
    for (int y = 0; y < viewSize.height(); ++y) {
        for (int x = 0; x < viewSize.width(); ++x) {
            const QVector4D opaque = images[0].pixel(x, y);
            const QVector4D layers = images[1].pixel(x, y);
            const QVector4D composed = images[2].pixel(x, y);
            layered += layers.w() < 1;
            for (int k = 0; k < 3; ++k)
                ASSERT_NEAR(composed[k], layers[k] + layers.w() * opaque[k], 2e-3f) << x << ' ' << y;
        }
    }
    EXPECT_GT(layered, 1000);
    // Where there is no layer, the frame is unchanged; where there is one, its colour counts twice.
    const QVector4D background = at(images[2], {0, 1.2f, 0});
    EXPECT_LE((background - at(images[0], {0, 1.2f, 0})).toVector3D().length(), 2e-3f);
    EXPECT_GT(background.x(), 0.2f);
    if (hasVisibilityLists()) {
        const QVector4D glass = at(images[1], {0.4f, 0, 0.5f});
        EXPECT_NEAR(double(glass.w()), 0.6, 0.003);
        EXPECT_NEAR(double(glass.z()), 2 * 0.4 * 0.5 / std::sqrt(3.0), 0.01);
    }
    // The screen shows the same.
    EXPECT_LE(
        std::abs(at(readTexture(target.get()), {0.4f, 0, 0.5f}).z() - at(images[2], {0.4f, 0, 0.5f}).z()), 0.003f);
}

TEST_F(VisibilityChainListsTest, showsNoTransparentItemBehindAnOpaqueOne)
{
    const auto picture = [this](bool isHiddenThere) {
        GPUModelBuilder builder;
        addWall(&builder, {0, 0, 0}, {0.3f, 0.2f, 0.1f}, 1);
        addWall(&builder, {0.3f, 0, 0.5f}, {0.1f, 0.3f, 0.1f}, 0.3f);
        if (isHiddenThere) {
            addWall(&builder, {-0.3f, 0, -0.5f}, {0.1f, 0.1f, 0.6f}, 0.6f);
            addWall(&builder, {0.1f, 0.1f, -1}, {0.6f, 0.1f, 0.6f}, 0.6f);
        }
        model = builder.build();
        RenderChain chain;
        load(&chain);
        return render(&chain, "composed");
    };
    const Image without = picture(false);
    const Image with = picture(true);
    const Image opaque = [this] {
        GPUModelBuilder builder;
        addWall(&builder, {0, 0, 0}, {0.3f, 0.2f, 0.1f}, 1);
        model = builder.build();
        RenderChain chain;
        load(&chain);
        return render(&chain, "composed");
    }();
    int hidden = 0;
    int tinted = 0;
    for (int y = 0; y < viewSize.height(); ++y) {
        for (int x = 0; x < viewSize.width(); ++x) {
            const bool isBehind = QRect(pixelOf({-0.45f, -0.45f, 0}), pixelOf({0.45f, 0.45f, 0})).contains(x, y);
            if (!isBehind)
                continue;
            ASSERT_EQ(with.pixel(x, y), without.pixel(x, y)) << x << ' ' << y;
            ++hidden;
            tinted += (without.pixel(x, y) - opaque.pixel(x, y)).length() > 0.05f;
        }
    }
    EXPECT_GT(hidden, 800);
    EXPECT_GT(tinted, 200) << "glass before an opaque item shows";
    // Beside the opaque item the layers show.
    EXPECT_GT((at(with, {-0.7f, 0, -0.5f}) - at(without, {-0.7f, 0, -0.5f})).length(), 0.05f);
}

TEST_F(VisibilityChainTest, drawsOpaqueItemsAlone)
{
    GPUModelBuilder builder;
    addWall(&builder, {-0.8f, 0, 0}, {0.6f, 0.2f, 0.1f}, 1);
    addWall(&builder, {0.8f, 0, 0}, {0.2f, 0.3f, 0.5f}, 0.999f);
    model = builder.build();
    for (const bool isOpaqueOnly : {true, false}) {
        ChainDescription description;
        ChainPass pass;
        pass.name = pass.className = QStringLiteral("ModelRenderPass");
        pass.options.insert(QStringLiteral("opaqueOnly"), isOpaqueOnly);
        description.passes = {pass};
        RenderChain chain;
        ASSERT_TRUE(chain.setDescription(description));
        prepare(&chain);
        const QVector<Image> images = renderOutputs(&chain,
            {{pass.name, QStringLiteral("Kvz_KvzTexture*_Diffuse")},
                {pass.name, QStringLiteral("Kvz_KvzTexture*_Depth")}});
        const QPoint transparent = pixelOf({0.8f, 0, 0});
        EXPECT_EQ(*images[1].at(transparent.x(), transparent.y()) == 1.0f, isOpaqueOnly);
        EXPECT_LE((at(images[0], {-0.8f, 0, 0}) - QVector4D(0.6f, 0.2f, 0.1f, 1)).length(), 1e-5f);
    }
}

TEST_F(VisibilityChainListsTest, saysOnceThatFragmentsFoundNoRoom)
{
    GPUModelBuilder builder;
    addWall(&builder, {0, 0, 0}, {0.3f, 0.2f, 0.1f}, 0.5f);
    addWall(&builder, {0, 0, 0.5f}, {0.1f, 0.3f, 0.1f}, 0.3f);
    model = builder.build();
    const PassRegistry registry = registryWithRoom(1000);
    ChainDescription description;
    QString error;
    ASSERT_TRUE(loadChain(QStringLiteral("transparency-lists-basic"), &description, &error)) << qPrintable(error);
    {
        RenderChain chain(registry);
        ASSERT_TRUE(chain.setDescription(description));
        prepare(&chain);
        // Query results arrive frames later, or when the chain ends.
        for (int i = 0; i < 6; ++i) {
            ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
            glFinish();
        }
        const QStringList lines = log.takeWarnings();
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(lines[0].contains(QStringLiteral("pass \"lists\" lost fragments: a frame had ")))
            << qPrintable(lines[0]);
        EXPECT_TRUE(lines[0].contains(QStringLiteral("room for 1000"))) << qPrintable(lines[0]);

        // Once the fragments fit, the warning can come again.
        chain.setViewport(QRect(0, 0, 16, 12));
        for (int i = 0; i < 6; ++i) {
            ASSERT_TRUE(chain.renderFrame());
            glFinish();
        }
        EXPECT_TRUE(log.takeWarnings().isEmpty());
        chain.setViewport(QRect(QPoint(), viewSize));
        ASSERT_TRUE(chain.renderFrame());
        EXPECT_TRUE(log.takeWarnings().isEmpty());
    }
    EXPECT_EQ(log.takeWarnings().size(), 1) << "the end of the chain tells what was under way";

    // The pass's real limit is far above this frame.
    RenderChain chain;
    ASSERT_TRUE(chain.setDescription(description));
    prepare(&chain);
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(chain.renderFrame());
    chain.releaseContext();
    EXPECT_TRUE(log.takeWarnings().isEmpty());
}

TEST_F(VisibilityChainListsTest, countsTheFragmentsOfTheLists)
{
    // The warning gives the number of nodes; a query of the host takes precedence.
    GPUModelBuilder builder;
    addWall(&builder, {0, 0, 0}, {0.3f, 0.2f, 0.1f}, 0.5f);
    addWall(&builder, {0.2f, 0, 0.5f}, {0.1f, 0.3f, 0.1f}, 0.3f);
    model = builder.build();
    const PassRegistry registry = registryWithRoom(1);
    const ChainDescription description = listsAlone();
    RenderChain chain(registry);
    ASSERT_TRUE(chain.setDescription(description));
    prepare(&chain);
    GLuint query = 0;
    glGenQueries(1, &query);
    glBeginQuery(GL_SAMPLES_PASSED, query);
    ASSERT_TRUE(chain.renderFrame());
    glEndQuery(GL_SAMPLES_PASSED);
    glDeleteQueries(1, &query);
    const int nodes = VisibilityLists(*chain.pass(listPass)).nodeCount();
    EXPECT_GT(nodes, 1000);
    ASSERT_TRUE(chain.renderFrame());
    EXPECT_TRUE(log.takeWarnings().isEmpty());
    chain.releaseContext();
    const QStringList lines = log.takeWarnings();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].contains(QStringLiteral("a frame had %1, ").arg(nodes))) << qPrintable(lines[0]);
}

TEST_F(VisibilityChainSingleNodeTest, hasRoomForAllFragments)
{
    GPUModelBuilder builder;
    addWall(&builder, {0, 0, 0}, {0.3f, 0.2f, 0.1f}, 0.5f);
    model = builder.build();
    const PassRegistry registry = registryWithRoom(1);
    const ChainDescription description = listsAlone();
    {
        RenderChain chain(registry);
        ASSERT_TRUE(chain.setDescription(description));
        prepare(&chain);
        ASSERT_TRUE(chain.renderFrame());
    }
    EXPECT_TRUE(log.takeWarnings().isEmpty());
    const QVector<ChainFinding> findings = validateChainOnDriver(description);
    ASSERT_EQ(findings.size(), 1);
    EXPECT_EQ(findings[0].severity, ChainFinding::Severity::Warning);
    EXPECT_EQ(findings[0].code, ChainFinding::Code::MissingDriverFeature);
}

TEST_F(VisibilityChainListsTest, capturesListLengthsAsAPicture)
{
    GPUModelBuilder builder;
    for (int i = 0; i < 60; ++i)
        addWall(&builder, {i < 52 ? 0.8f : i < 59 ? 0 : -0.8f, 0, -0.01f * float(i)}, {0.3f, 0.2f, 0.1f}, 0.5f);
    model = builder.build();
    RenderChain chain;
    load(&chain);
    ASSERT_TRUE(chain.requestCapture({QStringLiteral("lists"), heads})) << qPrintable(chain.errorString());
    ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
    const QVector<RenderChain::Capture> captures = chain.takeCaptures();
    ASSERT_EQ(captures.size(), 1);
    const QImage image = captures[0].image;
    ASSERT_EQ(image.size(), viewSize);
    const auto colorAt = [&](const QVector3D &point) {
        const QPoint pixel = pixelOf(point);
        return image.pixelColor(pixel.x(), viewSize.height() - 1 - pixel.y()).name();
    };
    EXPECT_EQ(colorAt({0, 1, 0}), QStringLiteral("#000000"));
    EXPECT_EQ(colorAt({-0.8f, 0, 0}), QStringLiteral("#1a2a8c")); // 1
    EXPECT_EQ(colorAt({0, 0, 0}), QStringLiteral("#23b8a0")); // 7
    EXPECT_EQ(colorAt({0.8f, 0, 0}), QStringLiteral("#ffffff")); // 52
    EXPECT_EQ(PooledTextures::allReferences(), 0);

    // A node outside its texture is ignored.
    auto *const headTexture = chain.pass(QStringLiteral("lists"))->output(0).value<Texture *>();
    auto *const nodes = chain.pass(QStringLiteral("lists"))->output(1).value<Texture *>();
    headTexture->bind();
    const GLuint beyond = 4096u * 4096u + 7;
    glTexSubImage2D(GL_TEXTURE_2D, 0, 3, 2, 1, 1, GL_RED_INTEGER, GL_UNSIGNED_INT, &beyond);
    headTexture->unbind();
    const QImage lost = captureListLengths(headTexture, nodes, 4096);
    EXPECT_EQ(lost.pixelColor(3, viewSize.height() - 3).name(), QStringLiteral("#ff00ff"));
    EXPECT_EQ(lost.pixelColor(4, viewSize.height() - 3).name(), QStringLiteral("#000000"));
    EXPECT_TRUE(captureListLengths(nullptr, nodes, 4096).isNull());
    EXPECT_TRUE(captureListLengths(headTexture, nullptr, 4096).isNull());
    EXPECT_TRUE(captureListLengths(headTexture, nodes, 0).isNull());
    EXPECT_TRUE(captureTexture(headTexture, TextureDisplay::ListLength).isNull());
}

TEST_F(VisibilityChainTest, followsAModelThatTakesAnothersPlace)
{
    // The shading pass keeps the vertices of the first model that it draws.
    RenderChain chain;
    GPUModelBuilder builder;
    addWall(&builder, {-0.8f, 0, 0}, {0.4f, 0.2f, 0.1f}, 0.5f);
    model = builder.build();
    load(&chain);
    render(&chain, "layers");
    const RenderPass *const first = chain.pass(QStringLiteral("layers"));
    render(&chain, "layers");
    EXPECT_EQ(chain.pass(QStringLiteral("layers")), first);
    for (const bool isGoneBefore : {true, false}) {
        // Turned away from the light, so that its own normals make it black.
        MeshData away = wallMesh();
        for (QVector3D &normal : away.normals)
            normal = isGoneBefore ? -normal : normal;
        GPUModelBuilder other;
        MaterialData material;
        material.d = 0.5f;
        other.addItem(other.addMesh(away), other.addMaterial(material), QMatrix4x4(), ImportedScene::Transparent);
        if (isGoneBefore) {
            chain.setModel(nullptr);
            model.clear();
            ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
        }
        const QSharedPointer<GPUModel> old = model;
        model = other.build();
        chain.setModel(model.data());
        const QVector4D pixel = at(render(&chain, "layers"), {0.3f, 0.3f, 0});
        EXPECT_NEAR(double(pixel.w()), 0.5, 0.003);
        EXPECT_EQ(pixel.x() > 0.1f, !isGoneBefore);
    }
    EXPECT_EQ(chain.passObjectCount(), 11);
}

TEST_F(VisibilityChainTest, bothKindsOfListPassesGiveTheSamePicture)
{
    GPUModelBuilder builder;
    addWall(&builder, {0, 0, 0}, {0.3f, 0.2f, 0.1f}, 1);
    addWall(&builder, {0.3f, 0.1f, 0.5f}, {0.1f, 0.3f, 0.7f}, 0.3f);
    addWall(&builder, {0.5f, 0.2f, 0.8f}, {0.6f, 0.6f, 0.1f}, 0.5f);
    addWall(&builder, {-0.4f, 0.3f, -0.5f}, {0.8f, 0.1f, 0.6f}, 0.6f);
    addWall(&builder, {-0.3f, -0.2f, 0.6f}, {0.1f, 0.8f, 0.3f}, 0.4f);
    addWall(&builder, {-0.1f, -0.3f, 0.4f}, {0.9f, 0.8f, 0.7f}, 0.2f);
    model = builder.build();
    ChainDescription own;
    QString error;
    ASSERT_TRUE(loadChain(QStringLiteral("transparency-lists"), &own, &error)) << qPrintable(error);
    ChainDescription basic = own;
    int replaced = 0;
    for (int i = 0; i < basic.passes.size(); ++i) {
        ChainPass &pass = basic.passes[i];
        if (pass.className == QStringLiteral("FragmentListRenderPass")) {
            pass.className = listPass;
            pass.connections.clear();
            pass.options = {{QStringLiteral("drawFlagsValue"), QStringLiteral("1")},
                {QStringLiteral("drawFlagsMask"), QStringLiteral("1")}};
            ChainPass visible;
            visible.name = QStringLiteral("visible");
            visible.className = QStringLiteral("VisibilityOcclusionRenderPass");
            const QString depth = QStringLiteral("Kvz_KvzTexture*_Depth");
            visible.connections.insert(depth, ChainSource::output(QStringLiteral("geometry"), depth));
            basic.passes.insert(i + 1, visible);
            ++replaced;
        } else if (pass.className == QStringLiteral("FragmentSortRenderPass")) {
            pass.className = QStringLiteral("VisibilitySortRenderPass");
            ++replaced;
        }
    }
    ASSERT_EQ(replaced, 2);
    QVector<QVector<Image>> images;
    for (const ChainDescription &description : {own, basic}) {
        RenderChain chain;
        ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
        prepare(&chain);
        images.append(renderOutputs(&chain, {{QStringLiteral("layers"), frame}, {QStringLiteral("over"), frame}}));
        images.last().append(readTexture(target.get()));
        EXPECT_TRUE(chain.findings().isEmpty() || !hasVisibilityLists());
    }
    saveForViewing(images[0][2], QStringLiteral("chain-transparency-lists-own"));
    int layered = 0;
    for (const float through : images[0][0].data)
        layered += through > 0 && through < 1;
    EXPECT_GT(layered, 3000);
    if (hasVisibilityLists()) {
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(images[0][i].data, images[1][i].data) << i;
    } else {
        // The basic pass gives each pixel the first item, and loses its nearest fragment where that is hidden.
        EXPECT_NE(images[0][0].data, images[1][0].data);
    }
}

TEST_F(VisibilityChainTest, restsWithoutTransparentItems)
{
    GPUModelBuilder builder;
    addWall(&builder, {0, 0, 0}, {0.3f, 0.2f, 0.1f}, 1);
    addWall(&builder, {0.4f, 0.2f, -0.5f}, {0.1f, 0.5f, 0.4f}, 1);
    const QSharedPointer<GPUModel> opaque = builder.build();
    addWall(&builder, {-0.5f, 0.2f, 0.5f}, {0.5f, 0.1f, 0.4f}, 0.5f);
    const QSharedPointer<GPUModel> glass = builder.build();
    model = opaque;
    RenderChain chain;
    RenderChain plain;
    ChainDescription description;
    QString error;
    ASSERT_TRUE(loadChain(QStringLiteral("transparency-lists"), &description, &error)) << qPrintable(error);
    ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    ASSERT_TRUE(loadChain(QStringLiteral("deferred"), &description, &error)) << qPrintable(error);
    ASSERT_TRUE(plain.setDescription(description)) << qPrintable(plain.errorString());
    prepare(&plain);
    ASSERT_TRUE(plain.renderFrame()) << qPrintable(plain.errorString());
    const Image expected = readTexture(target.get());
    prepare(&chain);
    for (int turn = 0; turn < 2; ++turn) {
        chain.setModel(opaque.data());
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
        EXPECT_EQ(readTexture(target.get()).data, expected.data);
        for (const char *const pass : {"lists", "sorted"})
            EXPECT_EQ(chain.pass(QString::fromLatin1(pass))->output(0).value<Texture *>(), nullptr) << pass;
        EXPECT_EQ(PooledTextures::allReferences(), 0);
        chain.setModel(glass.data());
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
        EXPECT_GT(pixelsBeyond(readTexture(target.get()), expected, 0.02), 500);
    }
    chain.releaseContext();
    plain.releaseContext();
}

TEST_F(VisibilityChainTest, runsForManyFramesWithoutGrowing)
{
    GPUModelBuilder builder;
    addWall(&builder, {0, 0, 0}, {0.3f, 0.2f, 0.1f}, 1);
    addWall(&builder, {0.3f, 0, 0.5f}, {0.1f, 0.3f, 0.1f}, 0.3f);
    model = builder.build();
    RenderChain chain;
    load(&chain);
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
    const GLObjectCounts before = glObjectCounts();
    for (int i = 0; i < 12; ++i) {
        chain.setViewport(QRect(0, 0, 160 - i % 3, 120));
        chain.setEnabled(QStringLiteral("visible"), i % 4 != 1);
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
    }
    chain.setViewport(QRect(QPoint(), viewSize));
    chain.setEnabled(QStringLiteral("visible"), true);
    ASSERT_TRUE(chain.renderFrame());
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_EQ(PooledTextures::allReferences(), 0);
}

} // namespace Velmora::Kvz
