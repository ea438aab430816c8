// SPDX-License-Identifier: MIT
// Who holds the images of a chain, and how long: references, exports, captures.
#include "RenderChainFixture.h"

namespace Velmora::Kvz {

using RenderChainImagesTest = RenderChainFixture;

TEST_F(RenderChainImagesTest, aTextureIsReusedWhetherOrNotItsConsumersGiveItBack)
{
    registry.add(producer("Source"));
    registry.add(hoarder("Hoarder"));
    registry.add(releaser("Releaser"));
    setChain(
        {described("s", "Source"), described("h", "Hoarder"), described("r", "Releaser"), described("h2", "Hoarder")});
    render(5);
    ASSERT_EQ(seen.size(), 15);
    for (Texture *texture : seen)
        EXPECT_EQ(texture, lastMade);
    EXPECT_EQ(pool().references, referencesBefore);
    EXPECT_EQ(pool().live + pool().free, 1);
}

TEST_F(RenderChainImagesTest, theTextureLivesUntilItsLastConsumerHasRun)
{
    QVector<int> references;
    const auto count = [&](FakePass &pass) {
        references.append(TextureManager::Instance()->tempTextureRefs(pass.texture(frame)));
    };
    registry.add(producer("Source"));
    registry.add(fakeClass("A", {fakeImageInput(frame, TextureKind::Colour)}, {}, count));
    setChain({described("s", "Source"), described("a", "A"), described("b", "A"), described("c", "A")});
    render();
    EXPECT_EQ(references, (QVector<int>{3, 2, 1}));
}

TEST_F(RenderChainImagesTest, onePassMayTakeATextureTwice)
{
    registry.add(producer("Source"));
    InputInfo first = fakeImageInput("Kvz_KvzTexture*_FrameA", TextureKind::Colour);
    InputInfo second = fakeImageInput("Kvz_KvzTexture*_FrameB", TextureKind::Colour);
    registry.add(fakeClass("Once", {first, second}, {}, [this](FakePass &pass) {
        seen.append(pass.texture("Kvz_KvzTexture*_FrameB"));
        TextureManager::Instance()->releaseTempTextureRef(pass.texture("Kvz_KvzTexture*_FrameA"), 1); // Forgets one.
    }));
    ChainPass both = described("o", "Once");
    both.connections = {{text("Kvz_KvzTexture*_FrameA"), ChainSource::output(text("s"), text(frame))},
        {text("Kvz_KvzTexture*_FrameB"), ChainSource::output(text("s"), text(frame))}};
    setChain({described("s", "Source"), both});
    render(3);
    EXPECT_EQ(seen, (QVector<Texture *>{lastMade, lastMade, lastMade}));
    EXPECT_EQ(pool().references, referencesBefore);
}

TEST_F(RenderChainImagesTest, aPassThatHandsItsInputOnLeavesEnoughReferencesForAllItsUsers)
{
    QVector<int> references;
    OutputInfo handedOn = fakeImageOutput(frame, TextureKind::Colour);
    handedOn.passesOn = text(frame);
    registry.add(producer("Source"));
    registry.add(fakeClass("Through", {fakeImageInput(frame, TextureKind::Colour)}, {handedOn},
        [](FakePass &pass) { pass.setOutput(frame, pass.input(frame)); })); // Adds no reference for its users.
    registry.add(fakeClass("A", {fakeImageInput(frame, TextureKind::Colour)}, {}, [&](FakePass &pass) {
        references.append(TextureManager::Instance()->tempTextureRefs(pass.texture(frame)));
        TextureManager::Instance()->releaseTempTextureRef(pass.texture(frame), 1);
    }));
    setChain({described("s", "Source"), described("t", "Through"), described("a", "A"), described("b", "A"),
        described("c", "A")});
    render(2);
    EXPECT_EQ(references, (QVector<int>{3, 2, 1, 3, 2, 1}));
    EXPECT_EQ(pool().references, referencesBefore);
}

TEST_F(RenderChainImagesTest, skippedConsumersGiveTheirTexturesBackToo)
{
    InputInfo needed = fakeImageInput("Kvz_KvzTexture*_Mask", TextureKind::Colour);
    needed.required = true;
    registry.add(producer("Source"));
    registry.add(fakeClass("Silent", {}, {fakeImageOutput("Kvz_KvzTexture*_Mask", TextureKind::Colour)}));
    // FakePass::skip() releases nothing, like that of the base class.
    registry.add(fakeClass("A", {fakeImageInput(frame, TextureKind::Colour), needed}, {}));
    setChain({described("s", "Source"), described("q", "Silent"), described("a", "A")});
    render(3);
    EXPECT_EQ(log.takeWarnings().size(), 1);
    EXPECT_EQ(pool().references, referencesBefore);
    EXPECT_EQ(pool().live + pool().free, 1);
}

TEST_F(RenderChainImagesTest, aPooledTextureOfTheHostStaysTheHosts)
{
    TextureManager *manager = TextureManager::Instance();
    Texture *own = manager->tempTexture(TextureFormat::LowDynamicRange, 3, 3, 1, 1);
    registry.add(releaser("Releaser"));
    registry.add(hoarder("Hoarder"));
    setChain({described("r", "Releaser"), described("h", "Hoarder")});
    EXPECT_TRUE(chain->setValue(text("r"), text(frame), QVariant::fromValue(own)));
    chain->setFrameValue(text(frame), QVariant::fromValue(own));
    render(3);
    EXPECT_EQ(seen.count(own), 6);
    EXPECT_EQ(manager->tempTextureRefs(own), 1);
    chain.reset();
    manager->releaseTempTextureRef(own, 1);
}

TEST_F(RenderChainImagesTest, aNewSizeFreesTheTexturesOfTheOld)
{
    registry.add(producer("Source"));
    registry.add(releaser("Releaser"));
    setChain({described("s", "Source"), described("r", "Releaser")});
    for (int width = 8; width < 40; ++width) {
        chain->setViewport(QRect(0, 0, width, 4));
        render(2);
        EXPECT_EQ(pool().live + pool().free, 1);
    }
}

TEST_F(RenderChainImagesTest, anExportedTextureIsKeptUntilTheNextFrame)
{
    registry.add(producer("Source"));
    registry.add(releaser("Releaser"));
    setChain({described("s", "Source"), described("r", "Releaser")});
    ASSERT_TRUE(chain->addExport(text("picture"), {text("s"), text(frame)}));
    EXPECT_EQ(chain->exportedTexture(text("picture")), nullptr);
    render(3);
    Texture *exported = chain->exportedTexture(text("picture"));
    EXPECT_EQ(exported, lastMade);
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(exported), 1);
    EXPECT_EQ(chain->exportedTexture(text("other")), nullptr);
    chain->releaseExports();
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(exported), 0);
    EXPECT_EQ(chain->exportedTexture(text("picture")), nullptr);
    render();
    EXPECT_TRUE(chain->removeExport(text("picture")));
    render();
    EXPECT_EQ(pool().references, referencesBefore);
}

TEST_F(RenderChainImagesTest, exportsAreGivenBackAcrossContextsThatShareTextures)
{
    registry.add(producer("Source"));
    setChain({described("s", "Source")});
    ASSERT_TRUE(chain->addExport(text("picture"), {text("s"), text(frame)}));
    render();
    HeadlessContext::Options options;
    options.shareWith = &context();
    QString error;
    {
        const std::unique_ptr<HeadlessContext> other = HeadlessContext::create(options, &error);
        ASSERT_TRUE(other) << qPrintable(error);
        render(2);
        EXPECT_EQ(pool().references, referencesBefore + 1);
        chain->releaseContext();
        EXPECT_EQ(pool().references, referencesBefore);
    }
    context().makeCurrent();
}

TEST_F(RenderChainImagesTest, plainValuesAreExportedToo)
{
    registry.add(fakeClass(
        "Source", {}, {fakeOutput(amount, ValueType::Float)}, [](FakePass &pass) { pass.setOutput(amount, 7.0f); }));
    setChain({described("s", "Source")});
    ASSERT_TRUE(chain->addExport(text("n"), {text("s"), text(amount)}));
    render();
    EXPECT_EQ(chain->exportedValue(text("n")), QVariant(7.0f));
    chain->setEnabled(text("s"), false);
    render();
    EXPECT_FALSE(chain->exportedValue(text("n")).isValid());
}

TEST_F(RenderChainImagesTest, anOutputIsCapturedRightAfterItsPass)
{
    // The second pass draws into the same pooled texture, which nobody else holds.
    registry.add(producer("Red", Qt::red));
    registry.add(producer("Blue", Qt::blue));
    setChain({described("r", "Red"), described("b", "Blue")});
    ASSERT_TRUE(chain->requestCapture({text("r"), text(frame)}));
    EXPECT_FALSE(chain->requestCapture({text("r"), text("Kvz_KvzTexture*_Depth")}));
    render();
    const QVector<RenderChain::Capture> captures = chain->takeCaptures();
    ASSERT_EQ(captures.size(), 1);
    EXPECT_EQ(captures[0].pass, text("r"));
    ASSERT_EQ(captures[0].image.size(), QSize(8, 4));
    EXPECT_EQ(captures[0].image.pixelColor(3, 2), QColor(Qt::red));
    EXPECT_TRUE(chain->takeCaptures().isEmpty());
    render();
    EXPECT_TRUE(chain->takeCaptures().isEmpty());
    EXPECT_EQ(pool().references, referencesBefore);

    chain->requestAllCaptures();
    render();
    const QVector<RenderChain::Capture> all = chain->takeCaptures();
    ASSERT_EQ(all.size(), 2);
    EXPECT_EQ(all[1].image.pixelColor(0, 0), QColor(Qt::blue));
    render();
    EXPECT_TRUE(chain->takeCaptures().isEmpty());
    EXPECT_EQ(pool().references, referencesBefore);
}

} // namespace Velmora::Kvz
