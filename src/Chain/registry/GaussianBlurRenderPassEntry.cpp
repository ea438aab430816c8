// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/GaussianBlurRenderPass.h>

#include <epoxy/gl.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    return std::make_unique<GaussianBlurRenderPass>(options[QStringLiteral("stencilMask")].toFloat());
}

} // namespace

PassInfo PassEntries::gaussianBlurRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("GaussianBlurRenderPass");
    pass.summary = QStringLiteral("Blurs an image by a Gaussian, all of it or the pixels of one material.");

    InputInfo stencil = textureInput("Kvz_KvzTexture*_Stencil", TextureKind::Depth,
        "Depth image whose stencil holds material numbers plus 1.", "the whole image is blurred");
    stencil.needsStencil = true;
    pass.inputs = {
        viewportInput(),
        textureInput("Kvz_KvzTexture*_Input", TextureKind::Colour, "Image to blur.", "a black result"),
        blurRadiusInput("Standard deviation in pixels of the result; up to 1 the image is handed on as it is."),
        input("Kvz_float_ResolutionDivider", ValueType::Float, 1.0f, "Divides the size of the result.",
            "0.01, which makes the result 100 times as wide and high"),
        stencil,
        input("Kvz_int_StencilMaterial", ValueType::Int, -1,
            "Number of the material to blur, the rest is black; below 0 the whole image.", "0"),
    };
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Output", TextureKind::Colour, GL_RGBA16F, "The blurred image."),
    };
    pass.options = {
        option("stencilMask", ValueType::Float, 0.0f,
            "Any number but 0 leaves pixels whose alpha is 0 or less as they are."),
    };
    pass.rules = {
        warnWhenOpen("Kvz_KvzTexture*_Input", "an image to blur", "none: the result is black",
            "connect the output of an earlier pass"),
        {QStringLiteral("Kvz_int_StencilMaterial"), QStringLiteral("a material from 0 up to go with the stencil"),
            QStringLiteral("a number below 0: the stencil is ignored"),
            QStringLiteral("set the material's number, or connect \"none\" to Kvz_KvzTexture*_Stencil"),
            [](const PassUse &use) {
                const QVariant material = use.value(QStringLiteral("Kvz_int_StencilMaterial"));
                return use.isFed(QStringLiteral("Kvz_KvzTexture*_Stencil")) && material.isValid()
                    && material.toInt() < 0;
            }},
    };
    pass.reach = [](const PassUse &use) {
        PassReach reach = blurReach(use);
        const float divider = use.value(QStringLiteral("Kvz_float_ResolutionDivider")).toFloat();
        const int whole = int(divider);
        if (whole < 1 || whole > 64 || float(whole) != divider)
            reach.obstacle = QStringLiteral("a resolution divider that is no whole number fits no tiles");
        reach.pixels *= std::max(whole, 1);
        reach.grid = std::max(whole, 1);
        return reach;
    };
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
