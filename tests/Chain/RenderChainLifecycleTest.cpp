// SPDX-License-Identifier: MIT
// When a chain constructs its passes and deletes them: contexts, replaced chains, long runs.
#include "RenderChainFixture.h"

#include <GL/GLStatistics.h>

namespace Velmora::Kvz {

using RenderChainLifecycleTest = RenderChainFixture;

TEST_F(RenderChainLifecycleTest, aPassIsMadeAtTheFirstFrameAndDrivenInOrder)
{
    registry.add(fakeClass("A", {}, {}, {}, listener()));
    setChain({described("a", "A")});
    EXPECT_EQ(calls, QStringList());
    render(2);
    EXPECT_EQ(calls,
        (QStringList{text("construct"), text("setup"), text("beginFrame"), text("start"), text("endFrame"),
            text("beginFrame"), text("start"), text("endFrame")}));
    calls.clear();
    chain.reset();
    EXPECT_EQ(calls, (QStringList{text("teardown"), text("destroy")}));
}

TEST_F(RenderChainLifecycleTest, aDisabledPassIsSkipped)
{
    registry.add(fakeClass("A", {}, {}, {}, listener()));
    setChain({described("a", "A")});
    EXPECT_TRUE(chain->setEnabled(text("a"), false));
    render();
    EXPECT_TRUE(calls.contains(text("skip")));
    EXPECT_FALSE(calls.contains(text("start")));
    EXPECT_TRUE(chain->setEnabled(text("a"), true));
    render();
    EXPECT_EQ(calls.count(text("start")), 1);
    EXPECT_EQ(calls.count(text("construct")), 1);
}

TEST_F(RenderChainLifecycleTest, passesThatBothChainsHaveAreKept)
{
    registry.add(fakeClass("A", {}, {}, {}, listener()));
    setChain({described("a", "A"), described("b", "A")});
    render();
    const RenderPass *kept = chain->pass(text("b"));
    calls.clear();
    ChainDescription changed = chain->description();
    changed.passes = {described("b", "A"), described("c", "A")};
    ASSERT_TRUE(chain->setDescription(changed));
    render();
    EXPECT_EQ(chain->pass(text("b")), kept);
    EXPECT_EQ(calls.count(text("construct")), 1);
    EXPECT_EQ(calls.count(text("teardown")), 1);
    EXPECT_EQ(calls.count(text("destroy")), 1);
    EXPECT_EQ(chain->passObjectCount(), 2);
}

TEST_F(RenderChainLifecycleTest, aChangedOptionRecreatesThePass)
{
    QVariant seenOption;
    PassInfo info = fakeClass(
        "A", {}, {}, [&](FakePass &pass) { seenOption = pass.options.value(text("size")); }, listener());
    OptionInfo option;
    option.name = text("size");
    option.type = ValueType::Int;
    option.defaultValue = 5;
    info.options = {option};
    registry.add(info);
    setChain({described("a", "A")});
    render();
    EXPECT_EQ(seenOption, QVariant(5));
    EXPECT_FALSE(chain->setOption(text("a"), text("size"), text("large")));
    EXPECT_TRUE(chain->setOption(text("a"), text("size"), 7));
    render();
    EXPECT_EQ(seenOption, QVariant(7));
    EXPECT_EQ(calls.count(text("construct")), 2);
    EXPECT_EQ(calls.count(text("destroy")), 1);
}

TEST_F(RenderChainLifecycleTest, theEndOfAContextTearsDownAndTheNextFrameRecreates)
{
    QVariant value;
    registry.add(fakeClass(
        "A", {fakeInput(amount, ValueType::Float, 1.0f)}, {}, [&](FakePass &pass) { value = pass.input(amount); },
        listener()));
    setChain({described("a", "A")});
    EXPECT_TRUE(chain->setValue(text("a"), text(amount), 4));
    render();
    calls.clear();
    chain->releaseContext();
    EXPECT_EQ(calls, (QStringList{text("teardown"), text("teardownContextData"), text("destroy")}));
    EXPECT_EQ(chain->pass(text("a")), nullptr);
    value = QVariant();
    render();
    EXPECT_EQ(value, QVariant(4.0f));
    EXPECT_EQ(calls.count(text("construct")), 1);
}

TEST_F(RenderChainLifecycleTest, anotherContextGetsPassesOfItsOwn)
{
    registry.add(fakeClass("A", {}, {}, {}, listener()));
    setChain({described("a", "A")});
    render();
    {
        QString error;
        const std::unique_ptr<HeadlessContext> other = HeadlessContext::create(&error);
        ASSERT_TRUE(other) << qPrintable(error);
        render(2);
        EXPECT_EQ(calls.count(text("construct")), 2);
        EXPECT_EQ(calls.count(text("destroy")), 1);
        calls.removeAll(text("beginFrame"));
    }
    // The chain was told of the context's end while the context was current.
    EXPECT_EQ(
        calls.mid(calls.size() - 3), (QStringList{text("teardown"), text("teardownContextData"), text("destroy")}));
    EXPECT_EQ(chain->passObjectCount(), 0);
    context().makeCurrent();
    render();
    EXPECT_EQ(calls.count(text("construct")), 3);
    EXPECT_EQ(calls.count(text("destroy")), 2);
}

TEST_F(RenderChainLifecycleTest, withoutAContextThereIsNoFrame)
{
    registry.add(fakeClass("A", {}, {}));
    setChain({described("a", "A")});
    context().doneCurrent();
    EXPECT_FALSE(chain->renderFrame());
    EXPECT_EQ(chain->errorString(), text("no current OpenGL context"));
    context().makeCurrent();
    render();
    // A chain may also be deleted when no context is current.
    context().doneCurrent();
    chain.reset();
    context().makeCurrent();
}

TEST_F(RenderChainLifecycleTest, aPassWhosePortsDifferFromItsEntryIsRefused)
{
    PassInfo info = fakeClass("A", {}, {});
    info.inputs.append(fakeInput(amount, ValueType::Float)); // The pass made by create() lacks it.
    registry.add(info);
    setChain({described("a", "A")});
    EXPECT_FALSE(chain->renderFrame());
    EXPECT_TRUE(chain->errorString().contains(text("other ports"))) << qPrintable(chain->errorString());
}

TEST_F(RenderChainLifecycleTest, togglesAndSizesLeaveNothingBehind)
{
    registry.add(producer("Source"));
    registry.add(hoarder("Hoarder"));
    registry.add(releaser("Releaser"));
    setChain(
        {described("s", "Source"), described("t", "Source"), described("h", "Hoarder"), described("r", "Releaser")});
    ASSERT_TRUE(chain->addExport(text("x"), {text("t"), text(frame)}));
    render();
    const GLObjectCounts before = glObjectCounts();
    const qint64 bytes = pool().bytes;
    for (int i = 0; i < 400; ++i) {
        chain->setEnabled(text("t"), i % 3 != 0);
        chain->setEnabled(text("h"), i % 5 != 0);
        chain->setViewport(QRect(0, 0, 8 + i / 10 % 7, 4));
        if (i % 11 == 0)
            chain->requestAllCaptures();
        render();
    }
    chain->setEnabled(text("t"), true);
    chain->setEnabled(text("h"), true);
    chain->setViewport(QRect(0, 0, 8, 4));
    render();
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_EQ(pool().bytes, bytes);
}

} // namespace Velmora::Kvz
