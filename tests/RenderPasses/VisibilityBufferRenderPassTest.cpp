// SPDX-License-Identifier: MIT
#include "VisibilityFixture.h"

#include "support/GLCallRecorder.h"

#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>

#include <QtCore/QPointer>
#include <QtCore/QRegularExpression>

#include <algorithm>
#include <cmath>
#include <set>

namespace Velmora::Kvz {

namespace {

/// Single precision adds less than 1e-6 to depths from 0 to 1; drivers that interpolate from vertices that they moved
/// get a little more room.
constexpr double depthTolerance = 3e-6;

const QSize sceneSize(128, 96);

class VisibilityBufferRenderPassTest : public VisibilityFixture
{
protected:
    void setScene(const RayCastScene &newScene)
    {
        scene = newScene;
        setModel(scene.build());
        setViewport(sceneSize);
        setCamera(lookAt(QVector3D(0.8f, 1.0f, 4.2f), QVector3D(0, 0.2f, 0)), perspective(sceneSize, 0.5f, 30));
    }
    RayCaster caster() const { return RayCaster(scene.items(), projection, camera, size); }

    RayCastScene scene;
};

class VisibilityBufferListsTest : public VisibilityBufferRenderPassTest
{ };

class VisibilityBufferSingleNodeTest : public VisibilityBufferRenderPassTest
{ };

/// Balls, boxes and sheets inside and in front of one another, placed, turned, stretched and mirrored, over a ground
/// that reaches behind the camera.
RayCastScene layeredScene(bool isIndexed)
{
    RayCastScene scene;
    const auto add = [&](const MeshData &mesh, const QMatrix4x4 &matrix) {
        scene.add(isIndexed ? mesh : withoutIndices(mesh), MaterialData(), matrix);
    };
    QMatrix4x4 matrix;
    matrix.translate(-0.6f, 0.2f, 0.4f);
    add(sphereMesh(5), matrix);
    matrix.setToIdentity();
    matrix.translate(0.5f, 0.1f, 0.2f);
    matrix.rotate(40, 0.3f, 1, 0.2f);
    matrix.scale(-0.8f, 0.9f, 0.5f);
    add(boxMesh(2), matrix);
    for (int i = 0; i < 3; ++i) {
        matrix.setToIdentity();
        matrix.rotate(60 * float(i) + 15, 0, 1, 0);
        add(wallMesh(), matrix);
    }
    matrix.setToIdentity();
    matrix.translate(0, -1, 0);
    matrix.scale(20);
    add(groundMesh(), matrix);
    return scene;
}

} // namespace

TEST_F(VisibilityBufferListsTest, recordsAllThatRaysMeet)
{
    for (const bool isIndexed : {true, false}) {
        setScene(layeredScene(isIndexed));
        runBuffer();
        const VisibilityLists lists(*buffer);
        double depthError = 0;
        int wrongLists = 0;
        int longest = 0;
        caster().compareClearLists(0.95, 7800, [&](int x, int y, const QVector<RayHit> &hits) {
            // Compared as sets: each pair of draw and triangle occurs once.
            std::map<std::pair<int, int>, double> expected;
            for (const RayHit &hit : hits)
                expected[{hit.item, hit.triangle}] = hit.depth;
            const QVector<ListNode> list = lists.at(x, y);
            bool isRight = list.size() == hits.size();
            for (const ListNode &node : list) {
                const auto found = expected.find({int(node.draw), int(node.primitive) - 1});
                isRight = isRight && found != expected.end();
                if (found == expected.end())
                    continue;
                depthError = std::max(depthError, std::abs(found->second - double(node.depth())));
                expected.erase(found);
            }
            wrongLists += isRight && expected.empty() ? 0 : 1;
            longest = std::max(longest, list.size());
        });
        EXPECT_EQ(wrongLists, 0);
        EXPECT_LE(depthError, depthTolerance);
        EXPECT_GE(longest, 7) << "the scene has too few layers to tell";
    }
}

TEST_F(VisibilityBufferListsTest, putsTheLatestFragmentFirst)
{
    // This holds on this driver, which runs the fragments of a pixel in draw order. The two atomic operations do not
    // guarantee it: on a GPU, fragments of one pixel may overtake each other, even between the operations. The only
    // thing that depends on it is which 50 fragments of a longer list are sorted.
    setScene(layeredScene(true));
    runBuffer();
    const VisibilityLists lists(*buffer);
    int wrongOrders = 0;
    caster().compareClearLists(0.95, 7800, [&](int x, int y, const QVector<RayHit> &hits) {
        const QVector<ListNode> list = lists.at(x, y);
        bool isReversed = list.size() == hits.size();
        for (int i = 0; isReversed && i < list.size(); ++i) {
            const RayHit &hit = hits[hits.size() - 1 - i];
            isReversed = int(list[i].draw) == hit.item && int(list[i].primitive) == hit.triangle + 1;
        }
        wrongOrders += isReversed ? 0 : 1;
    });
    EXPECT_EQ(wrongOrders, 0);
}

TEST_F(VisibilityBufferListsTest, givesEachFragmentItsOwnNode)
{
    setScene(layeredScene(true));
    runBuffer();
    const VisibilityLists lists(*buffer);
    const auto placesOf = [this](const VisibilityLists &all) {
        std::set<quint32> places;
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                for (const ListNode &node : all.at(x, y))
                    places.insert(node.place);
            }
        }
        return places;
    };
    const int nodes = lists.nodeCount();
    const std::set<quint32> places = placesOf(lists);
    EXPECT_GT(nodes, 21000);
    EXPECT_EQ(int(places.size()), nodes);
    // Nodes are numbered without gaps.
    EXPECT_EQ(*places.begin(), 1u);
    EXPECT_EQ(int(*places.rbegin()), nodes);

    // The counter starts at 0 in each frame.
    runBuffer();
    const VisibilityLists second(*buffer);
    const std::set<quint32> secondPlaces = placesOf(second);
    EXPECT_EQ(second.nodeCount(), nodes);
    EXPECT_EQ(int(secondPlaces.size()), nodes);
    EXPECT_EQ(*secondPlaces.begin(), 1u);
    EXPECT_EQ(int(*secondPlaces.rbegin()), nodes);
    EXPECT_EQ(second.at(64, 48).size(), lists.at(64, 48).size());
}

TEST_F(VisibilityBufferListsTest, recordsLayersThatFillTheImage)
{
    // Large triangles in front of one another, which cover whole tiles of a rasteriser.
    for (const bool isNearestLast : {false, true}) {
        RayCastScene stack;
        for (int i = 0; i < 5; ++i) {
            QMatrix4x4 matrix;
            matrix.translate(0, 0, (isNearestLast ? -0.1f : 0.1f) * float(i));
            stack.add(wallMesh(), MaterialData(), matrix);
        }
        setModel(stack.build());
        setViewport(QSize(320, 256));
        runBuffer();
        const VisibilityLists lists(*buffer);
        int shortLists = 0;
        for (int y = 0; y < 256; ++y) {
            for (int x = 0; x < 320; ++x)
                shortLists += lists.at(x, y).size() < 5;
        }
        EXPECT_EQ(shortLists, 0);
    }
    glColorMask(GL_TRUE, GL_FALSE, GL_TRUE, GL_TRUE);
    runBuffer();
    GLboolean mask[4];
    glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    EXPECT_TRUE(mask[0] && !mask[1] && mask[2] && mask[3]) << "the mask does not come back";
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
}

TEST_F(VisibilityBufferSingleNodeTest, recordsTheNearestThatRaysMeet)
{
    for (const bool isIndexed : {true, false}) {
        setScene(layeredScene(isIndexed));
        // State of an earlier pass; finding the nearest fragment needs the test.
        glDisable(GL_DEPTH_TEST);
        runBuffer();
        const VisibilityLists lists(*buffer);
        double depthError = 0;
        int wrongNodes = 0;
        caster().compareClearPixels(0.95, 7800, [&](int x, int y, const RayHit &hit) {
            if (!hit.isGeometry()) {
                wrongNodes += lists.head(x, y) == 0 ? 0 : 1;
                return;
            }
            const QVector<ListNode> list = lists.at(x, y);
            const bool isRight = list.size() == 1 && int(list[0].place) == x + y * size.width() + 1 && list[0].next == 0
                && int(list[0].primitive) == hit.triangle + 1 && list[0].draw == 0;
            wrongNodes += isRight ? 0 : 1;
            if (isRight)
                depthError = std::max(depthError, std::abs(hit.depth - double(list[0].depth())));
        });
        EXPECT_EQ(wrongNodes, 0);
        EXPECT_LE(depthError, depthTolerance);
    }
}

TEST_F(VisibilityBufferRenderPassTest, leavesUncoveredPixelsWithoutAList)
{
    // The first frame covers everything, so that stale heads would show.
    RayCastScene wall;
    wall.add(wallMesh(), MaterialData());
    setModel(wall.build());
    setViewport(QSize(8, 6));
    runBuffer();
    ASSERT_EQ(VisibilityLists(*buffer).nodeCount(), 8 * 6);

    RayCastScene half;
    QMatrix4x4 matrix;
    matrix.translate(-0.5f, 0);
    matrix.scale(0.5f, 1, 1);
    half.add(wallMesh(), MaterialData(), matrix);
    setModel(half.build());
    glClearColor(1, 1, 1, 1); // The pass sets its own clear colour.
    runBuffer();
    const VisibilityLists lists(*buffer);
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ(lists.at(x, y).size(), x < 4 ? 1 : 0) << x << ' ' << y;
    }
    EXPECT_EQ(lists.at(1, 1)[0].primitive, 1u);
    EXPECT_EQ(lists.at(1, 1)[0].depth(), 0.5f);
}

TEST_F(VisibilityBufferRenderPassTest, recordsTheSelectedItems)
{
    GPUModelBuilder builder;
    const int wall = builder.addMesh(wallMesh());
    const int material = builder.addMaterial(MaterialData());
    for (const quint64 flags : {0x1ull, 0x8000000000000003ull, 0x2ull})
        builder.addItem(wall, material, QMatrix4x4(), flags);
    setModel(builder.build());

    struct Selection
    {
        unsigned long long value, mask;
        QVector<quint32> draws;
    };
    for (const Selection &selection : {Selection{0, 0, {2, 1, 0}}, Selection{1, 1, {1, 0}}, Selection{0, 1, {2}},
             Selection{0x8000000000000000ull, 0x8000000000000000ull, {1}}, Selection{4, 4, {}}}) {
        buffer = std::make_unique<Buffer>(selection.value, selection.mask);
        setModel(model);
        setViewport(QSize(4, 4));
        runBuffer();
        const QVector<ListNode> list = VisibilityLists(*buffer).at(1, 2);
        if (!hasVisibilityLists()) {
            EXPECT_EQ(list.size(), selection.draws.isEmpty() ? 0 : 1);
            continue;
        }
        QVector<quint32> draws;
        for (const ListNode &node : list)
            draws.append(node.draw);
        EXPECT_EQ(draws, selection.draws);
    }
}

TEST_F(VisibilityBufferRenderPassTest, leavesOutWhatIsCulled)
{
    RayCastScene wall;
    wall.add(wallMesh(), MaterialData());
    setModel(wall.build());
    setViewport(QSize(4, 4));
    QMatrix4x4 elsewhere;
    elsewhere.translate(10, 0);
    model->frustumCull(elsewhere);
    runBuffer();
    EXPECT_EQ(VisibilityLists(*buffer).head(2, 2), 0u);
    model->resetCulling();
    runBuffer();
    EXPECT_NE(VisibilityLists(*buffer).head(2, 2), 0u);
}

TEST_F(VisibilityBufferRenderPassTest, publishesEmptyListsWithoutAModel)
{
    RayCastScene wall;
    wall.add(wallMesh(), MaterialData());
    const QSharedPointer<GPUModel> walled = wall.build();
    setViewport(QSize(5, 4));
    for (const QVariant &nothing : {QVariant(), QVariant::fromValue<GPUModel *>(nullptr), QVariant(3)}) {
        setModel(walled);
        runBuffer();
        EXPECT_NE(VisibilityLists(*buffer).head(2, 2), 0u);
        buffer->setInput(Buffer::Geometry, nothing);
        glDisable(GL_DEPTH_TEST);
        runBuffer();
        EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
        EXPECT_EQ(VisibilityLists(*buffer).nodeCount(), 0);
        EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0);
    }
}

TEST_F(VisibilityBufferRenderPassTest, makesTexturesOfItsFormats)
{
    setViewport(QSize(7, 5));
    runBuffer();
    auto *const heads = buffer->output(Buffer::HeadPointers).value<Texture *>();
    auto *const nodes = buffer->output(Buffer::NodeBuffer).value<Texture *>();
    const bool hasLists = hasVisibilityLists();
    EXPECT_EQ(heads->internalFormat(0), GL_R32UI);
    EXPECT_EQ(QSize(heads->width(0), heads->height(0)), QSize(7, 5));
    EXPECT_EQ(nodes->internalFormat(0), hasLists ? GL_RGBA32UI : GL_RGBA32I);
    EXPECT_EQ(QSize(nodes->width(0), nodes->height(0)), hasLists ? QSize(4096, 4096) : QSize(7, 5));
    EXPECT_EQ(buffer->output(Buffer::NodeBufferWidth), QVariant(hasLists ? 4096 : 7));
    EXPECT_FALSE(buffer->output(Buffer::Depth).isValid());
    for (Texture *texture : {heads, nodes}) {
        EXPECT_EQ(texture->target(), unsigned(GL_TEXTURE_2D));
        texture->bind();
        GLint actual = 0;
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &actual);
        EXPECT_EQ(actual, texture->internalFormat(0));
        for (const GLenum parameter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
            GLint filter = 0;
            glGetTexParameteriv(GL_TEXTURE_2D, parameter, &filter);
            EXPECT_EQ(filter, GL_NEAREST);
        }
        texture->unbind();
    }
}

TEST_F(VisibilityBufferRenderPassTest, remakesWhatHasTheViewportsSize)
{
    RayCastScene wall;
    wall.add(wallMesh(), MaterialData());
    setModel(wall.build());
    setViewport(QSize(16, 8));
    runBuffer();
    const GLObjectCounts before = glObjectCounts();
    QPointer<Texture> heads = buffer->output(Buffer::HeadPointers).value<Texture *>();
    QPointer<Texture> nodes = buffer->output(Buffer::NodeBuffer).value<Texture *>();
    runBuffer();
    EXPECT_EQ(buffer->output(Buffer::HeadPointers).value<Texture *>(), heads);
    EXPECT_EQ(buffer->output(Buffer::NodeBuffer).value<Texture *>(), nodes);

    // The width changes alone, then the height, and each grows once: a target of the old size would cut off the new
    // part.
    const bool hasLists = hasVisibilityLists();
    for (const QSize &other : {QSize(15, 8), QSize(15, 9), QSize(17, 9), QSize(17, 7)}) {
        SCOPED_TRACE(::testing::Message() << other.width() << " by " << other.height());
        QVector<GLuint> deleted;
        GLCallRecorder<&epoxy_glDeleteTextures> deletions;
        deletions.onCall = [&](GLsizei count, const GLuint *names) {
            for (GLsizei i = 0; i < count; ++i)
                deleted.append(names[i]);
        };
        const GLuint oldHeads = heads->textureID();
        const GLuint oldNodes = nodes->textureID();
        setViewport(other);
        runBuffer();
        EXPECT_TRUE(heads.isNull());
        EXPECT_TRUE(deleted.contains(oldHeads));
        EXPECT_EQ(nodes.isNull(), !hasLists);
        EXPECT_EQ(deleted.contains(oldNodes), !hasLists);
        TextureManager::Instance()->deleteUnusedTempTextures();
        heads = buffer->output(Buffer::HeadPointers).value<Texture *>();
        nodes = buffer->output(Buffer::NodeBuffer).value<Texture *>();
        EXPECT_EQ(QSize(heads->width(0), heads->height(0)), other);
        EXPECT_EQ(QSize(nodes->width(0), nodes->height(0)), hasLists ? QSize(4096, 4096) : other);
        EXPECT_EQ(buffer->output(Buffer::NodeBufferWidth).toInt(), hasLists ? 4096 : other.width());
        EXPECT_EQ(VisibilityLists(*buffer).nodeCount(), other.width() * other.height());
    }
    setViewport(QSize(16, 8));
    runBuffer();
    TextureManager::Instance()->deleteUnusedTempTextures();
    EXPECT_LE(glObjectCounts().textures, before.textures);
}

TEST_F(VisibilityBufferRenderPassTest, publishesTexturesOfNoSizeWithoutAViewport)
{
    runBuffer();
    for (const int output : {Buffer::HeadPointers, Buffer::NodeBuffer})
        ASSERT_NE(buffer->output(output).value<Texture *>(), nullptr);
    EXPECT_EQ(buffer->output(Buffer::HeadPointers).value<Texture *>()->width(0), 0);
    EXPECT_EQ(buffer->output(Buffer::NodeBufferWidth).toInt(), hasVisibilityLists() ? 4096 : 0);
    if (!hasVisibilityLists()) {
        EXPECT_EQ(buffer->output(Buffer::NodeBuffer).value<Texture *>()->width(0), 0);
    }
    // A framebuffer without texels cannot be cleared.
    EXPECT_FALSE(takeGLErrors().isEmpty());

    setViewport(QSize(3, 3));
    runBuffer();
    EXPECT_EQ(buffer->output(Buffer::HeadPointers).value<Texture *>()->width(0), 3);
}

TEST_F(VisibilityBufferRenderPassTest, saysItsModeOnce)
{
    setViewport(QSize(4, 4));
    log.clear();
    runBuffer();
    runBuffer();
    setViewport(QSize(5, 4));
    runBuffer();
    const QVector<LogCapture::Message> messages = log.messages();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages[0].type, QtDebugMsg);
    EXPECT_EQ(messages[0].category, QStringLiteral("default"));
    const QString mode = hasVisibilityLists() ? QStringLiteral("Using GL4 mode") : QStringLiteral("Using non-GL4 mode");
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\[VisibilityBufferRenderPass:\\d+\\] %1$").arg(mode))
                    .match(messages[0].text)
                    .hasMatch())
        << qPrintable(messages[0].text);
}

TEST_F(VisibilityBufferRenderPassTest, leavesItsState)
{
    RayCastScene wall;
    wall.add(wallMesh(), MaterialData());
    setModel(wall.build());
    setViewport(QSize(4, 4));
    glClearColor(1, 1, 1, 1);
    GLCallRecorder<&epoxy_glViewport> viewports;
    GLCallRecorder<&epoxy_glDepthFunc> depthFunctions;
    runBuffer();
    EXPECT_TRUE(viewports.calls.empty());
    EXPECT_TRUE(depthFunctions.calls.empty());
    EXPECT_TRUE(glFlag(GL_DEPTH_TEST));
    GLfloat clearColor[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clearColor);
    for (const float channel : clearColor)
        EXPECT_EQ(channel, 0.0f);
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    for (const unsigned int unit : {0u, 1u})
        EXPECT_LE(boundImage(unit), 0);
}

TEST_F(VisibilityBufferListsTest, clearsAllNodesAndBindsTheImages)
{
    RayCastScene wall;
    wall.add(wallMesh(), MaterialData());
    setModel(wall.build());
    setViewport(QSize(4, 4));
    runBuffer();
    const unsigned int heads = buffer->output(Buffer::HeadPointers).value<Texture *>()->textureID();
    const unsigned int nodes = buffer->output(Buffer::NodeBuffer).value<Texture *>()->textureID();
    GLCallRecorder<&epoxy_glBindImageTexture> images;
    GLCallRecorder<&epoxy_glMemoryBarrier> barriers;
    GLCallRecorder<&epoxy_glClear> clears;
    QVector<int> clearedTextures;
    clears.onCall = [&](GLbitfield) {
        GLint name = 0;
        glGetFramebufferAttachmentParameteriv(
            GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &name);
        clearedTextures.append(name);
    };
    runBuffer();
    EXPECT_EQ(clearedTextures, (QVector<int>{int(heads), int(nodes)}));
    using Call = decltype(images)::Call;
    const std::vector<Call> expected = {
        Call(0, heads, 0, GL_FALSE, 0, GL_WRITE_ONLY, GL_R32UI),
        Call(1, nodes, 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI),
        Call(0, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_R32UI),
        Call(1, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI),
    };
    EXPECT_EQ(images.calls, expected);
    ASSERT_EQ(barriers.calls.size(), 1u);
    EXPECT_EQ(std::get<0>(barriers.calls[0]), GLbitfield(GL_TEXTURE_FETCH_BARRIER_BIT));
}

TEST_F(VisibilityBufferRenderPassTest, countsNoReferencesAndSkipClearsTheOutputs)
{
    setViewport(QSize(4, 4));
    for (int i = 0; i < 2; ++i)
        buffer->setNumOutputUsers(i, 2);
    runBuffer();
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0);
    auto *const heads = buffer->output(Buffer::HeadPointers).value<Texture *>();
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(heads), -1);
    buffer->skip(nullptr);
    for (int i = 0; i < 4; ++i)
        EXPECT_FALSE(buffer->output(i).isValid());
    runBuffer();
    EXPECT_EQ(buffer->output(Buffer::HeadPointers).value<Texture *>(), heads);
}

TEST_F(VisibilityBufferRenderPassTest, takesItsObjectsAlong)
{
    RayCastScene wall;
    wall.add(wallMesh(), MaterialData());
    setModel(wall.build());
    setViewport(QSize(4, 4));
    runBuffer(); // Creates what the model, the device and the pool keep.
    const GLObjectCounts before = glObjectCounts();
    {
        Buffer other(0, 0);
        other.setInput(Buffer::Viewport, QRect(0, 0, 4, 4));
        other.setInput(Buffer::Geometry, QVariant::fromValue(model.data()));
        other.start(nullptr);
        const bool hasLists = hasVisibilityLists();
        EXPECT_EQ(glObjectCounts().textures, before.textures + (hasLists ? 2 : 3));
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + (hasLists ? 3 : 1));
        EXPECT_EQ(glObjectCounts().buffers, before.buffers + (hasLists ? 1 : 0));
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
        other.teardownContextData(nullptr);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1) << "they live as long as the pass";
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
