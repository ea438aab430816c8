// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/VisibilityBufferRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

const QString flagOptions[] = {QStringLiteral("drawFlagsValue"), QStringLiteral("drawFlagsMask")};

/// Reads feature flags: decimal, or hexadecimal with "0x".
unsigned long long flagsOf(const QVariant &text, bool *isNumber = nullptr)
{
    return text.toString().toULongLong(isNumber, 0);
}

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    return std::make_unique<VisibilityBufferRenderPass>(
        flagsOf(options[flagOptions[0]]), flagsOf(options[flagOptions[1]]));
}

/// Reports flags that are not numbers, and combinations that no item can match.
void checkFlags(const PassOptions &options, QVector<OptionProblem> *problems)
{
    unsigned long long flags[2] = {};
    for (int i = 0; i < 2; ++i) {
        bool isNumber = false;
        flags[i] = flagsOf(options[flagOptions[i]], &isNumber);
        if (!isNumber) {
            problems->append({flagOptions[i], QStringLiteral("a number of 64 bits as text, such as \"0x1\""),
                describeValue(options[flagOptions[i]]), QString()});
            return;
        }
    }
    if (flags[0] & ~flags[1]) {
        problems->append({flagOptions[0], QStringLiteral("no bit outside of drawFlagsMask"),
            describeValue(options[flagOptions[0]]), QStringLiteral("set its bits in drawFlagsMask too")});
    }
}

} // namespace

PassInfo PassEntries::visibilityBufferRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("VisibilityBufferRenderPass");
    pass.summary = QStringLiteral("Records which triangles of a model cover each pixel, and at what depth.");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "empty lists"),
    };
    pass.outputs = listOutputs("One pointer per pixel, 0 for none.",
        "Nodes: next pointer, triangle + 1, bits of the depth, draw. GL_RGBA32I where each pixel has one.");
    // Not declared as depth, so that no pass takes by name what is never written.
    pass.outputs.append(
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::NodeList, GL_DEPTH_COMPONENT32F, "Never written."));
    pass.options = {
        option("drawFlagsValue", ValueType::String, QStringLiteral("0"),
            "Records items whose feature flags, masked with drawFlagsMask, equal this; a number as text."),
        option("drawFlagsMask", ValueType::String, QStringLiteral("0"),
            "The feature flags that count; \"1\" is the one of imported transparent items."),
    };
    pass.driverNeeds = {
        floatBitsNeed(),
        listNeed("each pixel has only its nearest fragment, and only models of one item are shaded correctly"),
    };
    pass.fragmentRoom = 4096LL * 4096;
    pass.create = create;
    pass.checkOptions = checkFlags;
    return pass;
}

} // namespace Velmora::Kvz
