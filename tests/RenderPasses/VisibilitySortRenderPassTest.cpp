// SPDX-License-Identifier: MIT
#include "VisibilityFixture.h"

#include "support/GLCallRecorder.h"
#include "support/PooledTextures.h"

#include <GL/GLStatistics.h>
#include <GL/ShaderProgram.h>

#include <QtCore/QPointer>

#include <random>

namespace Velmora::Kvz {

namespace {

class VisibilitySortRenderPassTest : public VisibilityFixture
{
protected:
    /// Makes lists with these depths for each pixel, their nodes scattered over a small node texture.
    void makeLists(const QSize &viewport, const QVector<QVector<float>> &depths)
    {
        std::mt19937 random(7);
        QVector<QVector<ListNode>> lists;
        for (const QVector<float> &list : depths) {
            lists.append(QVector<ListNode>());
            for (const float depth : list)
                lists.last().append(listNode(random(), depth, random()));
        }
        uploaded = uploadLists(viewport, lists);
        setViewport(viewport);
        uploaded.feed(*sort, Sort::HeadPointersIn);
    }
    VisibilityLists lists() const { return uploaded.read(); }

    UploadedLists uploaded;
};

class VisibilitySortListsTest : public VisibilitySortRenderPassTest
{ };

class VisibilitySortSingleNodeTest : public VisibilitySortRenderPassTest
{ };

/// Checks sorted lists against the lists before: the chain of nodes stays, and the first 50 hold what the same steps
/// give on the CPU.
void compareSorted(const VisibilityLists &before, const VisibilityLists &after)
{
    int moved = 0;
    for (int y = 0; y < before.height(); ++y) {
        for (int x = 0; x < before.width(); ++x) {
            ASSERT_EQ(after.head(x, y), before.head(x, y));
            const QVector<ListNode> from = before.at(x, y);
            const QVector<ListNode> to = after.at(x, y);
            ASSERT_EQ(to.size(), from.size()) << x << ' ' << y;
            QVector<float> depths;
            for (int i = 0; i < std::min(from.size(), 50); ++i)
                depths.append(from[i].depth());
            const QVector<int> order = quickSorted(depths);
            for (int i = 0; i < to.size(); ++i) {
                ASSERT_EQ(to[i].place, from[i].place);
                ASSERT_EQ(to[i].next, from[i].next);
                const int source = i < order.size() ? order[i] : i;
                ASSERT_TRUE(to[i].hasPayloadOf(from[source])) << "pixel " << x << ' ' << y << ", node " << i;
                moved += source != i;
                if (i > 0 && i < order.size()) {
                    ASSERT_GE(to[i].depth(), to[i - 1].depth());
                }
            }
        }
    }
    EXPECT_GT(moved, 0) << "nothing was out of order";
}

} // namespace

TEST_F(VisibilitySortListsTest, sortsWithTheStepsOfItsQuicksort)
{
    // All lengths around 50, with depths from few values, so that ties are frequent.
    std::mt19937 random(3);
    QVector<QVector<float>> depths;
    const QSize viewport(70, 12);
    for (int y = 0; y < viewport.height(); ++y) {
        for (int x = 0; x < viewport.width(); ++x) {
            QVector<float> list;
            const unsigned int values = y % 3 == 0 ? 3 : y % 3 == 1 ? 20 : 1000000;
            for (int i = 0; i < x; ++i)
                list.append(float(random() % values) / float(values));
            if (y == 6)
                std::sort(list.begin(), list.end());
            if (y == 7)
                std::sort(list.rbegin(), list.rend());
            depths.append(list);
        }
    }
    makeLists(viewport, depths);
    const VisibilityLists before = lists();
    sort->start(nullptr);
    compareSorted(before, lists());
}

TEST_F(VisibilitySortListsTest, sortsWhatTheBufferRecords)
{
    RayCastScene scene;
    for (int i = 0; i < 9; ++i) {
        QMatrix4x4 matrix;
        matrix.rotate(40 * float(i) + 10, 0.2f, 1, 0.1f);
        scene.add(i % 3 == 0 ? sphereMesh(4) : wallMesh(), MaterialData(), matrix);
    }
    setModel(scene.build());
    const QSize viewport(96, 72);
    setViewport(viewport);
    setCamera(lookAt(QVector3D(0.5f, 0.6f, 3), QVector3D()), perspective(viewport, 0.5f, 30));
    runBuffer();
    const VisibilityLists before(*buffer);
    runSort();
    compareSorted(before, VisibilityLists(*sort));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(sort->output(i), buffer->output(i));
}

TEST_F(VisibilitySortListsTest, leavesTheTailOfALongListAsItWasWritten)
{
    RayCastScene scene;
    std::mt19937 random(11);
    for (int i = 0; i < 60; ++i) {
        QMatrix4x4 matrix;
        matrix.translate(0, 0, float(random() % 1000) / 600 - 0.8f);
        scene.add(wallMesh(), MaterialData(), matrix);
    }
    setModel(scene.build());
    setViewport(QSize(6, 5));
    runBuffer();
    const VisibilityLists before(*buffer);
    ASSERT_EQ(before.at(2, 2).size(), 60);
    runSort();
    const VisibilityLists after(*sort);
    compareSorted(before, after);
    const QVector<ListNode> list = after.at(2, 2);
    ASSERT_EQ(list.size(), 60);
    EXPECT_EQ(list[49].next, list[50].place);
    for (int i = 50; i < 60; ++i) {
        // The items that were drawn first.
        EXPECT_EQ(int(list[i].draw), 59 - i);
    }
    EXPECT_FALSE(std::is_sorted(list.begin() + 49, list.end(), [](const ListNode &a, const ListNode &b) {
        return a.depth() < b.depth();
    })) << "the tail happens to be sorted";
}

TEST_F(VisibilitySortListsTest, rewritesAListOfOneUnchanged)
{
    makeLists(QSize(3, 1), {{0.25f}, {}, {0.75f}});
    const VisibilityLists before = lists();
    GLuint query = 0;
    glGenQueries(1, &query);
    glBeginQuery(GL_SAMPLES_PASSED, query);
    sort->start(nullptr);
    glEndQuery(GL_SAMPLES_PASSED);
    GLuint samples = 0;
    glGetQueryObjectuiv(query, GL_QUERY_RESULT, &samples);
    glDeleteQueries(1, &query);
    EXPECT_EQ(samples, 2u) << "a pixel without a list is discarded";
    const VisibilityLists after = lists();
    for (const int x : {0, 2}) {
        ASSERT_EQ(after.at(x, 0).size(), 1);
        EXPECT_EQ(after.at(x, 0)[0].place, before.at(x, 0)[0].place);
        EXPECT_TRUE(after.at(x, 0)[0].hasPayloadOf(before.at(x, 0)[0]));
    }
    EXPECT_EQ(after.head(1, 0), 0u);
}

TEST_F(VisibilitySortRenderPassTest, copiesItsInputsWhateverTheyAre)
{
    setViewport(QSize(4, 4));
    // The invalid value comes last: an output left untouched would still hold another.
    for (const QVariant &value : {QVariant(3), QVariant(QStringLiteral("text")), QVariant()}) {
        for (int i = 0; i < 3; ++i)
            sort->setInput(Sort::HeadPointersIn + i, value);
        sort->start(nullptr);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(sort->output(i), value);
            EXPECT_EQ(sort->outputName(i), sort->inputName(Sort::HeadPointersIn + i));
        }
    }
}

TEST_F(VisibilitySortRenderPassTest, doesNothingWithoutLists)
{
    for (const int missing : {Sort::HeadPointersIn, Sort::NodeBufferIn, Sort::NodeBufferWidthIn}) {
        makeLists(QSize(2, 1), {{0.5f, 0.25f}, {0.75f, 0.5f}});
        sort->setInput(missing, QVariant());
        GLCallRecorder<&epoxy_glDrawArrays> arrays;
        GLCallRecorder<&epoxy_glDrawElements> elements;
        GLCallRecorder<&epoxy_glBindFramebuffer> framebuffers;
        sort->start(nullptr);
        EXPECT_TRUE(arrays.calls.empty() && elements.calls.empty() && framebuffers.calls.empty());
        EXPECT_FALSE(sort->output(missing - 1).isValid());
        EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    }
}

TEST_F(VisibilitySortSingleNodeTest, makesNoCall)
{
    RayCastScene scene;
    scene.add(wallMesh(), MaterialData());
    setModel(scene.build());
    setViewport(QSize(4, 4));
    runBuffer();
    const GLObjectCounts before = glObjectCounts();
    GLCallRecorder<&epoxy_glDrawArrays> arrays;
    GLCallRecorder<&epoxy_glDrawElements> elements;
    GLCallRecorder<&epoxy_glBindFramebuffer> framebuffers;
    GLCallRecorder<&epoxy_glBindTexture> textures;
    GLCallRecorder<&epoxy_glBindImageTexture> images;
    GLCallRecorder<&epoxy_glMemoryBarrier> barriers;
    GLCallRecorder<&epoxy_glViewport> viewports;
    GLCallRecorder<&epoxy_glEnable> enables;
    GLCallRecorder<&epoxy_glDisable> disables;
    GLCallRecorder<&epoxy_glUseProgram> programs;
    runSort();
    EXPECT_TRUE(arrays.calls.empty());
    EXPECT_TRUE(elements.calls.empty());
    EXPECT_TRUE(framebuffers.calls.empty());
    EXPECT_TRUE(textures.calls.empty());
    EXPECT_TRUE(images.calls.empty());
    EXPECT_TRUE(barriers.calls.empty());
    EXPECT_TRUE(viewports.calls.empty());
    EXPECT_TRUE(enables.calls.empty());
    EXPECT_TRUE(disables.calls.empty());
    EXPECT_TRUE(programs.calls.empty());
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(sort->output(i), buffer->output(i));
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(VisibilitySortListsTest, leavesItsState)
{
    makeLists(QSize(2, 3), {{0.5f, 0.25f}, {}, {}, {}, {}, {0.75f, 0.5f}});
    glViewport(1, 1, 9, 9);
    GLCallRecorder<&epoxy_glMemoryBarrier> barriers;
    barriers.onCall = [](GLbitfield) {
        EXPECT_NE(glInteger(GL_CURRENT_PROGRAM), 0);
        EXPECT_NE(glInteger(GL_VERTEX_ARRAY_BINDING), 0) << "bindings end with the pass";
    };
    GLCallRecorder<&epoxy_glBindImageTexture> images;
    sort->start(nullptr);
    EXPECT_TRUE(glFlag(GL_DEPTH_TEST));
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QRect(0, 0, 2, 3));
    using Call = decltype(images)::Call;
    const std::vector<Call> expected = {
        Call(1, uploaded.nodes->textureID(), 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI),
        Call(1, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI),
    };
    EXPECT_EQ(images.calls, expected);
    ASSERT_EQ(barriers.calls.size(), 1u);
    EXPECT_EQ(std::get<0>(barriers.calls[0]), GLbitfield(GL_TEXTURE_FETCH_BARRIER_BIT));
    EXPECT_EQ(uploaded.heads->unit(), 0) << "still bound";
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(PooledTextures::allReferences(), 0);
}

TEST_F(VisibilitySortListsTest, sortsWithAProgramOfTheHostAndOwnsIt)
{
    // Writes the pixel's coordinates into the depth of its first node.
    const auto makeProgram = [] {
        auto *const program = new ShaderProgram(nullptr);
        program->addShader(GL_VERTEX_SHADER,
            QStringLiteral("#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"),
            QString());
        program->addShader(GL_FRAGMENT_SHADER,
            QStringLiteral(
                "#version 150\n#extension GL_ARB_shader_image_load_store : enable\n"
                "#extension GL_ARB_shading_language_420pack : enable\n"
                "layout(rgba32ui) uniform uimage2D u_NodeBufferImage;\nuniform usampler2D u_SamplerHeadPointer;\n"
                "uniform int u_NodeBufferImageWidth;\nvoid main() {\n"
                "int node = int(texelFetch(u_SamplerHeadPointer, ivec2(gl_FragCoord.xy), 0).r) - 1;\n"
                "if (node >= 0) imageStore(u_NodeBufferImage, ivec2(node % u_NodeBufferImageWidth, node / "
                "u_NodeBufferImageWidth), uvec4(0u, 1u, uint(gl_FragCoord.x), 42u)); }\n"),
            QString());
        EXPECT_TRUE(program->compile() && program->link()) << qPrintable(program->log());
        return program;
    };
    const QPointer<ShaderProgram> first = makeProgram();
    makeLists(QSize(3, 1), {{0.5f, 0.25f}, {0.5f}, {0.75f, 0.5f}});
    const GLObjectCounts before = glObjectCounts();
    sort->setShaderProgram(first);
    sort->start(nullptr);
    EXPECT_EQ(glObjectCounts().programs, before.programs) << "the pass's own program is not built";
    for (const int x : {0, 1, 2}) {
        EXPECT_EQ(int(lists().at(x, 0)[0].depthBits), x);
        EXPECT_EQ(lists().at(x, 0)[0].draw, 42u);
    }

    // It is later replaced by another program and survives.
    const QPointer<ShaderProgram> second = makeProgram();
    sort->setShaderProgram(second);
    EXPECT_FALSE(first.isNull());
    makeLists(QSize(3, 1), {{0.5f, 0.25f}, {0.5f}, {0.75f, 0.5f}});
    GLCallRecorder<&epoxy_glEnableVertexAttribArray> arrays;
    sort->start(nullptr);
    EXPECT_TRUE(arrays.calls.empty()) << "the quad's arrays are enabled for the first program alone";
    EXPECT_EQ(lists().at(2, 0)[0].draw, 42u);
    sort = std::make_unique<Sort>();
    EXPECT_TRUE(second.isNull());
    EXPECT_FALSE(first.isNull());
    delete first;
}

TEST_F(VisibilitySortRenderPassTest, takesItsObjectsAlongAndSkipClearsTheOutputs)
{
    makeLists(QSize(3, 1), {{0.5f, 0.25f}, {0.5f}, {0.75f, 0.5f}});
    sort->start(nullptr); // Creates what the device and the pool keep.
    EXPECT_TRUE(sort->output(0).isValid());
    const GLObjectCounts before = glObjectCounts();
    {
        Sort other;
        for (int i = 0; i < 3; ++i)
            other.setInput(Sort::HeadPointersIn + i, sort->output(i));
        other.setInput(Sort::Viewport, QRect(0, 0, 3, 1));
        other.start(nullptr);
        const int made = hasVisibilityLists() ? 1 : 0;
        EXPECT_EQ(glObjectCounts().programs, before.programs + made);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + made);
        EXPECT_EQ(glObjectCounts().textures, before.textures);
        other.teardownContextData(nullptr);
    }
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_TRUE(log.messages().isEmpty());
    sort->skip(nullptr);
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(sort->output(i).isValid());
}

} // namespace Velmora::Kvz
