// SPDX-License-Identifier: MIT
#pragma once

#include "FakePasses.h"
#include "support/GLTest.h"

#include <Chain/RenderChain.h>
#include <GL/FramebufferObject.h>
#include <GL/TextureManager.h>

#include <epoxy/gl.h>

#include <memory>

namespace Velmora::Kvz {

inline const char frame[] = "Kvz_KvzTexture*_Frame";
inline const char amount[] = "Kvz_float_Amount";

inline QString text(const char *string)
{
    return QString::fromUtf8(string);
}

inline ChainPass described(const char *name, const char *className)
{
    ChainPass pass;
    pass.name = text(name);
    pass.className = text(className);
    return pass;
}

inline TextureManager::PoolStatistics pool()
{
    return TextureManager::Instance()->poolStatistics();
}

/// A chain of made-up passes, with a count of the pool's references.
class RenderChainFixture : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        context(); // Before any pass is constructed.
        TextureManager::Instance()->deleteUnusedTempTextures();
        referencesBefore = pool().references;
    }

    void TearDown() override
    {
        chain.reset();
        EXPECT_EQ(pool().references, referencesBefore) << "the chain kept textures";
        GLTest::TearDown();
    }

    /// A producer of a pooled frame of the viewport's size, cleared to a colour.
    PassInfo producer(const char *name, const QColor &color = Qt::red)
    {
        return fakeClass(name, {fakeInput("Kvz_QRect_Viewport", ValueType::Rect)},
            {fakeImageOutput(frame, TextureKind::Colour)}, [this, color](FakePass &pass) {
                const QRect viewport = pass.input("Kvz_QRect_Viewport").toRect();
                Texture *made = pass.handOnNew(frame, viewport.width(), viewport.height());
                FramebufferObject framebuffer;
                framebuffer.bind();
                framebuffer.attach(made, GL_COLOR_ATTACHMENT0, 0);
                framebuffer.setDrawBuffers();
                glClearColor(float(color.redF()), float(color.greenF()), float(color.blueF()), float(color.alphaF()));
                glClear(GL_COLOR_BUFFER_BIT);
                framebuffer.unbind();
                lastMade = made;
            });
    }

    /// A pass that takes a frame and keeps its reference, as many passes do.
    PassInfo hoarder(const char *name)
    {
        return fakeClass(name, {fakeImageInput(frame, TextureKind::Colour)}, {},
            [this](FakePass &pass) { seen.append(pass.texture(frame)); });
    }

    /// A pass that takes a frame and gives it back.
    PassInfo releaser(const char *name)
    {
        return fakeClass(name, {fakeImageInput(frame, TextureKind::Colour)}, {}, [this](FakePass &pass) {
            seen.append(pass.texture(frame));
            TextureManager::Instance()->releaseTempTextureRef(pass.texture(frame), 1);
        });
    }

    void setChain(const QVector<ChainPass> &passes)
    {
        ChainDescription description;
        description.passes = passes;
        chain = std::make_unique<RenderChain>(registry);
        ASSERT_TRUE(chain->setDescription(description)) << qPrintable(chain->errorString());
        chain->setViewport(QRect(0, 0, 8, 4));
    }

    void render(int frames = 1)
    {
        for (int i = 0; i < frames; ++i)
            ASSERT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
    }

    FakePass::Listener listener()
    {
        return [this](const QString &call, FakePass &) { calls.append(call); };
    }

    /// The warnings in the log, without the source locations in front of them.
    QStringList takeWarnings()
    {
        QStringList texts;
        for (const QString &line : log.takeWarnings())
            texts.append(line.section(text("] "), 1));
        return texts;
    }

    PassRegistry registry;
    std::unique_ptr<RenderChain> chain;
    QStringList calls;
    QVector<Texture *> seen;
    Texture *lastMade = nullptr;
    int referencesBefore = 0;
};

} // namespace Velmora::Kvz
