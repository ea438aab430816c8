// SPDX-License-Identifier: MIT
// Two passes driven by hand: a red gradient to nothing, blended over a white one. Exits with 0 when the picture is right.
#include <GL/TextureManager.h>
#include <Host/HeadlessContext.h>
#include <Host/TextureCapture.h>
#include <RenderPasses/BlendRenderPass.h>
#include <RenderPasses/GradientRenderPass.h>

#include <QtCore/QRect>
#include <QtGui/QColor>

#include <cstdio>

using namespace Velmora::Kvz;

int main()
{
    QString error;
    const std::unique_ptr<HeadlessContext> context = HeadlessContext::create(&error);
    if (!context) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    const QRect viewport(0, 0, 64, 48);

    GradientRenderPass red;
    red.setInput(red.findInput("Kvz_QRect_Viewport"), viewport);
    red.setInput(red.findInput("Kvz_QColor_ColorTop"), QColor(255, 0, 0, 255));
    red.setInput(red.findInput("Kvz_QColor_ColorBottom"), QColor(0, 0, 0, 0));
    red.start(nullptr);

    GradientRenderPass white;
    white.setInput(white.findInput("Kvz_QRect_Viewport"), viewport);
    white.setInput(white.findInput("Kvz_QColor_ColorTop"), QColor(Qt::white));
    white.setInput(white.findInput("Kvz_QColor_ColorBottom"), QVariant());
    white.start(nullptr);

    BlendRenderPass over(BlendRenderPass::SrcOver);
    over.setInput(over.findInput("Kvz_QRect_Viewport"), viewport);
    over.setInput(over.findInput("Kvz_KvzTexture*_FrameA"), red.output(0));
    over.setInput(over.findInput("Kvz_KvzTexture*_FrameB"), white.output(0));
    over.setNumOutputUsers(0, 1); // The line below.
    over.start(nullptr);

    auto *const frame = over.output(0).value<Texture *>();
    const QImage picture = captureTexture(frame, TextureDisplay::Colour);
    TextureManager::Instance()->releaseTempTextureRef(frame, 1);

    const QColor top = picture.pixelColor(32, 0);
    const QColor bottom = picture.pixelColor(32, 47);
    const bool right = picture.size() == viewport.size() && top.red() > 250 && top.green() < 6 && bottom.green() > 248;
    std::printf("%s\n", right ? "two passes: the picture is right" : "two passes: the picture is wrong");
    return right ? 0 : 1;
}
