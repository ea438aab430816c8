// SPDX-License-Identifier: MIT
// How a chain handles values that are expensive to change, and how it measures times.
#include "RenderChainFixture.h"

#include <chrono>
#include <cmath>
#include <thread>

namespace Velmora::Kvz {

using RenderChainCostTest = RenderChainFixture;

TEST_F(RenderChainCostTest, aPassThatBuildsForEachValueIsKeptForTheLastFewOfAGrid)
{
    QVector<QPair<const FakePass *, float>> runs;
    InputInfo radius = fakeInput("Kvz_float_BlurRadius", ValueType::Float, 2.0f);
    radius.gridStep = 0.5;
    registry.add(fakeClass(
        "Blur", {radius}, {fakeOutput(amount, ValueType::Float)},
        [&](FakePass &pass) {
            const float value = pass.input("Kvz_float_BlurRadius").toFloat();
            runs.append({&pass, value});
            pass.setOutput(amount, value);
        },
        listener()));
    QVector<QVariant> passedOn;
    registry.add(fakeClass("After", {fakeInput(amount, ValueType::Float)}, {},
        [&](FakePass &pass) { passedOn.append(pass.input(amount)); }));
    setChain({described("b", "Blur"), described("a", "After")});

    for (int i = 0; i < 100; ++i) { // As when a slider is dragged.
        chain->setValue(text("b"), text("Kvz_float_BlurRadius"), 1 + 0.05 * i);
        render();
        EXPECT_LE(chain->passObjectCount(), 5);
    }
    ASSERT_EQ(runs.size(), 100);
    for (const auto &run : runs)
        EXPECT_EQ(run.second, std::round(run.second * 2) / 2);
    EXPECT_NEAR(runs.last().second, 6, 1e-6);
    EXPECT_EQ(runs[99].first, runs[98].first);
    EXPECT_EQ(passedOn.last(), QVariant(runs.last().second));
    EXPECT_EQ(calls.count(text("setup")), calls.count(text("construct")));
    EXPECT_EQ(calls.count(text("beginFrame")), 100);
    EXPECT_EQ(calls.count(text("endFrame")), 100);
    EXPECT_EQ(calls.count(text("construct")) - calls.count(text("destroy")), 4);
    EXPECT_EQ(calls.count(text("teardown")), calls.count(text("destroy")));

    // Going back one step finds the previous object.
    const FakePass *recent = runs.last().first;
    calls.clear();
    for (double value : {5.5, 6.0, 5.5, 6.0}) {
        chain->setValue(text("b"), text("Kvz_float_BlurRadius"), value);
        render();
    }
    EXPECT_EQ(runs.last().first, recent);
    EXPECT_EQ(calls.count(text("construct")), 0);
}

TEST_F(RenderChainCostTest, oneObjectServesGridValuesThatAreNotNumbers)
{
    float produced = NAN;
    QVector<QPair<const FakePass *, float>> runs;
    InputInfo radius = fakeInput("Kvz_float_BlurRadius", ValueType::Float, 2.0f);
    radius.gridStep = 0.5;
    registry.add(fakeClass("Source", {}, {fakeOutput("Kvz_float_BlurRadius", ValueType::Float)},
        [&](FakePass &pass) { pass.setOutput("Kvz_float_BlurRadius", produced); }));
    registry.add(fakeClass(
        "Blur", {radius}, {},
        [&](FakePass &pass) {
            runs.append({&pass, pass.input("Kvz_float_BlurRadius").toFloat()});
        },
        listener()));
    setChain({described("s", "Source"), described("b", "Blur")});
    render(10);
    ASSERT_EQ(runs.size(), 10);
    EXPECT_TRUE(std::isnan(runs.last().second));
    EXPECT_EQ(calls.count(text("construct")), 1);
    const FakePass *first = runs.last().first;
    produced = INFINITY;
    render(10);
    EXPECT_EQ(runs.last().second, INFINITY);
    EXPECT_EQ(calls.count(text("construct")), 2);
    produced = NAN;
    render();
    EXPECT_EQ(runs.last().first, first);
    EXPECT_EQ(calls.count(text("construct")), 2);
}

TEST_F(RenderChainCostTest, passesAreTimed)
{
    registry.add(
        fakeClass("Slow", {}, {}, [](FakePass &) { std::this_thread::sleep_for(std::chrono::milliseconds(3)); }));
    registry.add(producer("Source"));
    setChain({described("slow", "Slow"), described("s", "Source")});
    render();
    EXPECT_EQ(chain->timings().value(0).frames, 0);
    chain->setTimingEnabled(true);
    render(10);
    chain->finishTimings();
    const QVector<RenderChain::PassTiming> timings = chain->timings();
    ASSERT_EQ(timings.size(), 2);
    EXPECT_EQ(timings[0].pass, text("slow"));
    EXPECT_EQ(timings[0].frames, 10);
    EXPECT_GE(timings[0].cpuMean, 3.0);
    EXPECT_LT(timings[1].cpuMean, timings[0].cpuMean);
    if (epoxy_gl_version() >= 33) {
        // When the driver is behind, a frame is left out rather than waited for.
        EXPECT_GE(timings[1].gpuFrames, 4);
        EXPECT_LE(timings[1].gpuFrames, 10);
        EXPECT_GT(timings[1].gpuMean, 0.0);
        EXPECT_LT(timings[1].gpuMean, 1000.0);
    }
    chain->resetTimings();
    EXPECT_EQ(chain->timings()[0].frames, 0);
    EXPECT_EQ(chain->timings()[0].pass, text("slow"));
}

TEST_F(RenderChainCostTest, aPassesNameStandsWithTheTexturesItTakes)
{
    registry.add(producer("Source"));
    registry.add(hoarder("Hoarder"));
    setChain({described("my source", "Source"), described("h", "Hoarder")});
    render();
    ASSERT_EQ(TextureManager::Instance()->pooledTextures().size(), 1);
    EXPECT_EQ(TextureManager::Instance()->pooledTextures()[0].holder, text("my source"));
}

} // namespace Velmora::Kvz
