// SPDX-License-Identifier: MIT
// Tests of suites with "Lists" in their names need a driver that has lists, those with "SingleNode" one that has none, as
// CMakeLists.txt provides; all others hold on both.
#include "LayerScene.h"

#include "support/PassTest.h"
#include "support/PooledTextures.h"
#include "support/VisibilityLists.h"

#include <ExtraPasses/FragmentListRenderPass.h>
#include <ExtraPasses/FragmentSortRenderPass.h>
#include <RenderPasses/VisibilityBufferRenderPass.h>

#include <algorithm>
#include <random>

namespace Velmora::Kvz {

namespace {

/// Fragments that are sorted while they are read. Windows over longer lists overlap by half.
constexpr int window = 64;

bool isLess(const ListNode &a, const ListNode &b)
{
    return std::tie(a.depthBits, a.draw, a.primitive) < std::tie(b.depthBits, b.draw, b.primitive);
}

class FragmentSortRenderPassTest : public PassTest<FragmentSortRenderPass>
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        const std::string suite = ::testing::UnitTest::GetInstance()->current_test_info()->test_suite_name();
        if (suite.find("Lists") != std::string::npos) {
            ASSERT_TRUE(hasVisibilityLists()) << "this driver has no lists";
        }
        if (suite.find("SingleNode") != std::string::npos) {
            ASSERT_FALSE(hasVisibilityLists()) << "hide an extension from the test: MESA_EXTENSION_OVERRIDE";
        }
    }

    void makeLists(const QSize &size, const QVector<QVector<ListNode>> &content)
    {
        lists = uploadLists(size, content);
        setViewport(size);
        lists.feed(*pass, Port::HeadPointersIn);
    }
    /// Two lists, out of order, and an empty one.
    void makeSmallLists()
    {
        makeLists(QSize(3, 1),
            {{listNode(1, 0.5f, 0), listNode(2, 0.25f, 0)}, {}, {listNode(1, 0.75f, 1), listNode(7, 0.5f, 2)}});
    }

    UploadedLists lists;
};

class FragmentSortListsTest : public FragmentSortRenderPassTest
{ };

class FragmentSortSingleNodeTest : public FragmentSortRenderPassTest
{ };

/// Checks that the nodes of each list stay where they are, linked as they were, and that their contents are in order.
void compareSorted(const VisibilityLists &before, const VisibilityLists &after, int leastMoved)
{
    int moved = 0;
    for (int y = 0; y < before.height(); ++y) {
        for (int x = 0; x < before.width(); ++x) {
            ASSERT_EQ(after.head(x, y), before.head(x, y));
            const QVector<ListNode> from = before.at(x, y);
            const QVector<ListNode> to = after.at(x, y);
            ASSERT_EQ(to.size(), from.size()) << x << ' ' << y;
            QVector<ListNode> expected = from;
            std::sort(expected.begin(), expected.end(), isLess);
            for (int i = 0; i < to.size(); ++i) {
                ASSERT_EQ(to[i].place, from[i].place);
                ASSERT_EQ(to[i].next, from[i].next);
                ASSERT_TRUE(to[i].hasPayloadOf(expected[i]))
                    << "pixel " << x << ' ' << y << ", node " << i << " of " << to.size();
                moved += !to[i].hasPayloadOf(from[i]);
            }
        }
    }
    EXPECT_GE(moved, leastMoved) << "nothing was out of order";
}

} // namespace

TEST_F(FragmentSortListsTest, sortsListsOfAllLengths)
{
    // All lengths from 0 to 200, in five orders, on both sides of the quad's diagonal, where helper invocations read lists too. Some have few depths, so that items and triangles decide.
    enum Order { Mixed, FewDepths, OneDepth, Backwards, NearestLast };
    const QSize viewport(67, 3);
    std::mt19937 random(3);
    for (const Order order : {Mixed, FewDepths, OneDepth, Backwards, NearestLast}) {
        SCOPED_TRACE(order);
        QVector<QVector<ListNode>> content;
        for (int length = 0; length <= 200; ++length) {
            QVector<ListNode> list;
            const unsigned int depths = order == Mixed ? 1000000 : order == OneDepth ? 1 : 4;
            for (int i = 0; i < length; ++i) {
                const quint32 draw = random() % 5;
                list.append(listNode(1 + random() % 90, float(random() % depths) / float(depths), draw));
            }
            if (order == Backwards || order == NearestLast)
                std::sort(list.begin(), list.end(), isLess);
            if (order == Backwards)
                std::reverse(list.begin(), list.end());
            if (order == NearestLast && length > 1)
                std::rotate(list.begin(), list.begin() + 1, list.end());
            content.append(list);
        }
        makeLists(viewport, content);
        const VisibilityLists before = lists.read();
        pass->start(nullptr);
        compareSorted(before, lists.read(), 5000);
        // The second time there is nothing to do.
        const QVector<quint32> sorted = lists.readNodes();
        pass->start(nullptr);
        EXPECT_EQ(lists.readNodes(), sorted);
    }
}

TEST_F(FragmentSortListsTest, sortsVeryLongLists)
{
    std::mt19937 random(5);
    QVector<QVector<ListNode>> content(4);
    for (int i = 0; i < 350; ++i) {
        content[0].append(listNode(1, float(random() % 100000) / 100000, 0));
        content[1].append(listNode(1, float(350 - i) / 350, 0));
        content[2].append(listNode(1, float(i % 7) / 350, quint32(i / 7)));
        content[3].append(listNode(1, i < 349 ? 0.5f : 0.25f, quint32(i)));
    }
    makeLists(QSize(4, 1), content);
    const VisibilityLists before = lists.read();
    pass->start(nullptr);
    compareSorted(before, lists.read(), 1200);
}

TEST_F(FragmentSortListsTest, sortsAllDepthsAsNumbers)
{
    QVector<ListNode> list;
    const float depths[] = {1, 0, 0.5f, 1e-30f, 1e-45f, 0.99999994f, 0.49999997f, 3e-45f, 0.25f};
    for (const float depth : depths)
        list.append(listNode(1, depth, 0));
    makeLists(QSize(1, 1), {list});
    pass->start(nullptr);
    const QVector<ListNode> sorted = lists.read().at(0, 0);
    for (int i = 1; i < sorted.size(); ++i)
        EXPECT_LT(sorted[i - 1].depth(), sorted[i].depth());
}

TEST_F(FragmentSortListsTest, breaksTiesByDrawAndTriangleAsNumbersWithoutSign)
{
    makeLists(QSize(1, 1),
        {{listNode(0xfffffffe, 0.5f, 3), listNode(2, 0.5f, 0x90000000), listNode(2, 0.5f, 3), listNode(9, 0.5f, 0),
            listNode(3, 0.5f, 3)}});
    pass->start(nullptr);
    QVector<QPair<quint32, quint32>> order;
    for (const ListNode &node : lists.read().at(0, 0))
        order.append({node.draw, node.primitive});
    EXPECT_EQ(order, (QVector<QPair<quint32, quint32>>{{0, 9}, {3, 2}, {3, 3}, {3, 0xfffffffe}, {0x90000000, 2}}));
}

TEST_F(FragmentSortListsTest, sortsWhatBothKindsOfPassesRecord)
{
    const QSharedPointer<GPUModel> model = layerScene().build();
    VisibilityBufferRenderPass basic(GPUModel::Transparent, GPUModel::Transparent);
    FragmentListRenderPass own;
    for (RenderPass *const recorder : {static_cast<RenderPass *>(&basic), static_cast<RenderPass *>(&own)}) {
        const QRect viewport(QPoint(), layerSceneSize);
        setViewport(layerSceneSize);
        recorder->setInput(0, viewport);
        recorder->setInput(1, layerSceneProjection);
        recorder->setInput(2, layerSceneCamera);
        recorder->setInput(3, QVariant::fromValue(model.data()));
        recorder->start(nullptr);
        const VisibilityLists before(*recorder);
        for (int i = 0; i < 3; ++i)
            pass->setInput(Port::HeadPointersIn + i, recorder->output(i));
        GLCallRecorder<&epoxy_glMemoryBarrier> barriers;
        pass->start(nullptr);
        compareSorted(before, VisibilityLists(*pass), 1000);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(pass->output(i), recorder->output(i));
        // The basic pass lets only fetches wait for its nodes.
        ASSERT_EQ(barriers.calls.size(), 2u);
        EXPECT_TRUE(std::get<0>(barriers.calls[0]) & GL_SHADER_IMAGE_ACCESS_BARRIER_BIT);
        EXPECT_TRUE(std::get<0>(barriers.calls[1]) & GL_TEXTURE_FETCH_BARRIER_BIT);
        EXPECT_TRUE(std::get<0>(barriers.calls[1]) & GL_SHADER_IMAGE_ACCESS_BARRIER_BIT);
    }
}

TEST_F(FragmentSortListsTest, endsListsThatLeadOutOfTheImageAndLeavesSortedOnesAlone)
{
    // Lists whose last node, or only one, found no room. One that is in order is not written, so its end stays.
    const auto sortedPart = [](int length) {
        QVector<ListNode> list;
        for (int i = 0; i < length; ++i)
            list.append(listNode(1, 0.001f * float(i + 1), 0));
        return list;
    };
    QVector<QVector<ListNode>> content;
    for (const int length : {1, 2, window - 1, window, window + 1, window + window / 2, 3 * window}) {
        content.append(sortedPart(length));
        content.append(sortedPart(length));
        std::reverse(content.last().begin(), content.last().end());
    }
    content[0].clear(); // The head itself leads out.
    const QSize viewport(content.size(), 1);
    makeLists(viewport, content);
    const VisibilityLists before = lists.read();
    QVector<quint32> nodes = lists.readNodes();
    const quint32 outside = quint32(nodes.size() / 4) + 77;
    for (int x = 0; x < viewport.width(); ++x) {
        const QVector<ListNode> list = before.at(x, 0);
        if (!list.isEmpty())
            nodes[4 * int(list.last().place - 1)] = outside;
    }
    {
        AutoBinder binder(lists.nodes.get());
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, lists.nodeWidth, lists.nodes->height(0), GL_RGBA_INTEGER,
            GL_UNSIGNED_INT, nodes.constData());
    }
    {
        AutoBinder binder(lists.heads.get());
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 1, 1, GL_RED_INTEGER, GL_UNSIGNED_INT, &outside);
    }
    pass->start(nullptr);
    const QVector<quint32> after = lists.readNodes();
    for (int x = 1; x < viewport.width(); ++x) {
        SCOPED_TRACE(x);
        const QVector<ListNode> list = before.at(x, 0);
        QVector<ListNode> expected = list;
        std::sort(expected.begin(), expected.end(), isLess);
        const bool isWritten = x % 2 == 1 && list.size() > 1;
        for (int i = 0; i < list.size(); ++i) {
            const quint32 *const node = after.constData() + 4 * (list[i].place - 1);
            if (i + 1 < list.size()) {
                ASSERT_EQ(node[0], list[i].next);
            } else if (isWritten && list.size() < window) {
                ASSERT_EQ(node[0], 0u);
            } else if (!isWritten) {
                ASSERT_EQ(node[0], outside);
            } else {
                ASSERT_TRUE(node[0] == 0 || node[0] == outside) << node[0];
            }
            ASSERT_EQ(node[1], expected[i].primitive);
            ASSERT_EQ(node[2], expected[i].depthBits);
            ASSERT_EQ(node[3], expected[i].draw);
        }
    }
}

TEST_F(FragmentSortListsTest, sortsNoListsBeyondTheHeadPointersOrTheViewport)
{
    for (const QSize &viewport : {QSize(9, 5), QSize(1, 1)}) {
        makeSmallLists();
        setViewport(viewport);
        pass->start(nullptr);
        const VisibilityLists sorted = lists.read();
        EXPECT_EQ(sorted.at(0, 0)[0].depth(), 0.25f);
        EXPECT_EQ(sorted.at(2, 0)[0].depth(), viewport.width() > 1 ? 0.5f : 0.75f);
    }
}

TEST_F(FragmentSortRenderPassTest, copiesItsInputsWhateverTheyAre)
{
    setViewport(QSize(4, 4));
    // The invalid value comes last: an output left untouched would still hold another.
    for (const QVariant &value :
        {QVariant(3), QVariant(QStringLiteral("text")), QVariant::fromValue<Texture *>(nullptr), QVariant()}) {
        for (int i = 0; i < 3; ++i)
            pass->setInput(Port::HeadPointersIn + i, value);
        pass->start(nullptr);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(pass->output(i), value);
            EXPECT_EQ(pass->outputName(i), pass->inputName(Port::HeadPointersIn + i));
        }
    }
}

TEST_F(FragmentSortRenderPassTest, doesNothingWithoutLists)
{
    const QVector<QPair<int, QVariant>> changes = {{Port::HeadPointersIn, QVariant()},
        {Port::NodeBufferIn, QVariant::fromValue<Texture *>(nullptr)}, {Port::NodeBufferWidthIn, 0},
        {Port::NodeBufferWidthIn, -1}, {Port::Viewport, QVariant()}, {Port::Viewport, QRect(0, 0, 0, 4)}};
    for (const auto &[input, value] : changes) {
        makeSmallLists();
        pass->setInput(input, value);
        const GLObjectCounts before = glObjectCounts();
        GLCallRecorder<&epoxy_glDrawArrays> arrays;
        GLCallRecorder<&epoxy_glBindFramebuffer> framebuffers;
        GLCallRecorder<&epoxy_glDisable> disables;
        pass->start(nullptr);
        EXPECT_TRUE(arrays.calls.empty() && framebuffers.calls.empty() && disables.calls.empty()) << input;
        EXPECT_TRUE(glObjectCounts() == before) << input;
        const QVariant given[] = {
            QVariant::fromValue(lists.heads.get()), QVariant::fromValue(lists.nodes.get()), lists.nodeWidth};
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(pass->output(i), input == Port::HeadPointersIn + i ? value : given[i]);
    }
}

TEST_F(FragmentSortSingleNodeTest, makesNoCall)
{
    makeSmallLists();
    const QVector<quint32> nodes = lists.readNodes();
    const GLObjectCounts before = glObjectCounts();
    {
        GLCallRecorder<&epoxy_glDrawArrays> arrays;
        GLCallRecorder<&epoxy_glBindFramebuffer> framebuffers;
        GLCallRecorder<&epoxy_glBindTexture> textures;
        GLCallRecorder<&epoxy_glUseProgram> programs;
        GLCallRecorder<&epoxy_glDisable> disables;
        GLCallRecorder<&epoxy_glColorMask> masks;
        GLCallRecorder<&epoxy_glViewport> viewports;
        pass->start(nullptr);
        EXPECT_TRUE(arrays.calls.empty() && framebuffers.calls.empty() && textures.calls.empty());
        EXPECT_TRUE(programs.calls.empty() && disables.calls.empty() && masks.calls.empty());
        EXPECT_TRUE(viewports.calls.empty());
    }
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_EQ(lists.readNodes(), nodes);
    EXPECT_EQ(pass->output(Port::HeadPointers), QVariant::fromValue(lists.heads.get()));
}

TEST_F(FragmentSortListsTest, leavesItsState)
{
    makeSmallLists();
    const VisibilityLists before = lists.read();
    glEnable(GL_BLEND);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_NEVER);
    glColorMask(GL_FALSE, GL_FALSE, GL_TRUE, GL_TRUE);
    glViewport(1, 1, 9, 9);
    {
        GLCallRecorder<&epoxy_glBindImageTexture> images;
        pass->start(nullptr);
        using Call = decltype(images)::Call;
        const std::vector<Call> expected = {
            Call(1, lists.nodes->textureID(), 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI),
            Call(1, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_RGBA32UI),
        };
        EXPECT_EQ(images.calls, expected);
    }
    glDepthFunc(GL_LESS);
    compareSorted(before, lists.read(), 4);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_FALSE(glFlag(GL_BLEND));
    GLboolean mask[4];
    glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    EXPECT_TRUE(mask[0] && mask[1] && mask[2] && mask[3]);
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QRect(0, 0, 3, 1));
    for (const GLenum binding :
        {GL_DRAW_FRAMEBUFFER_BINDING, GL_READ_FRAMEBUFFER_BINDING, GL_CURRENT_PROGRAM, GL_VERTEX_ARRAY_BINDING})
        EXPECT_EQ(glInteger(binding), 0) << binding;
    EXPECT_EQ(lists.heads->unit(), 0) << "still bound";
    EXPECT_EQ(PooledTextures::allReferences(), 0);
}

TEST_F(FragmentSortRenderPassTest, takesItsObjectsAlongAndSkipClearsTheOutputs)
{
    makeSmallLists();
    pass->start(nullptr); // Creates what the device and the pool keep.
    EXPECT_TRUE(pass->output(0).isValid());
    const GLObjectCounts before = glObjectCounts();
    {
        FragmentSortRenderPass other;
        lists.feed(other, Port::HeadPointersIn);
        other.setInput(Port::Viewport, QRect(0, 0, 3, 1));
        other.start(nullptr);
        const int made = hasVisibilityLists() ? 1 : 0;
        EXPECT_EQ(glObjectCounts().programs, before.programs + made);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + made);
        EXPECT_EQ(glObjectCounts().textures, before.textures);
        other.teardownContextData(nullptr);
    }
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_TRUE(log.messages().isEmpty());
    pass->skip(nullptr);
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(pass->output(i).isValid());
    context().doneCurrent();
    pass.reset();
    ASSERT_TRUE(context().makeCurrent());
}

} // namespace Velmora::Kvz
