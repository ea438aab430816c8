// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/ScalableAmbientObscuranceRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

using Pass = ScalableAmbientObscuranceRenderPass;

const QString positionsName = QStringLiteral("Kvz_KvzTexture*_CameraSpacePosition");
const QString dividerName = QStringLiteral("Kvz_float_ResolutionDivider");
const QString tapsName = QStringLiteral("Kvz_float_SaoNumSamples");
const QString samplesName = QStringLiteral("Kvz_int_NumberMultisamples");
const QString processingOption = QStringLiteral("normalProcessing");

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    auto pass = std::make_unique<Pass>();
    pass->setNormalProcessing(Pass::NormalProcessing(options[processingOption].toInt()));
    return pass;
}

/// Only normals in world space may have several samples.
void completePorts(const PassOptions &options, PassInfo *pass, QVector<OptionProblem> *)
{
    if (options[processingOption].toInt() == Pass::NormalScreenSpace)
        pass->inputs[Pass::Normal].multisampling = Multisampling::Refused;
}

InputInfo number(const char *name, float defaultValue, const char *description, const char *whenNull)
{
    return PassEntries::input(name, ValueType::Float, defaultValue, description, whenNull);
}

} // namespace

PassInfo PassEntries::scalableAmbientObscuranceRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("ScalableAmbientObscuranceRenderPass");
    pass.summary = QStringLiteral("Measures how much corners and crevices block ambient light at each pixel.");

    InputInfo depth = requiredTextureInput(
        "Kvz_KvzTexture*_Depth", TextureKind::Depth, "Depth from 0 to 1, with as many samples as the result.");
    depth.multisampling = Multisampling::Taken;
    depth.samplesAs = samplesName;
    InputInfo positions = textureInput("Kvz_KvzTexture*_CameraSpacePosition", TextureKind::Positions,
        "Positions in camera space.", "positions come from the depth");
    positions.multisampling = Multisampling::Taken;
    InputInfo normals = textureInput("Kvz_KvzTexture*_Normal", TextureKind::Normal,
        "Normals, in the space that the option names.", "normals come from the positions");
    normals.multisampling = Multisampling::Taken;
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        number("Kvz_float_NearPlane", 0.1f, "Distance of the near plane.", "0"),
        number("Kvz_float_FarPlane", 100.0f, "Distance of the far plane.", "0"),
        depth,
        number("Kvz_float_SAORadius", 0.09f, "How far to look, in units of the scene.", "0"),
        number("Kvz_float_SAOBias", 0.02f,
            "Heights up to this do not obscure, in units of the scene; 0 turns the pass off.", "0"),
        number("Kvz_float_SAOIntensity", 100.0f, "Factor on the obscurance.", "0"),
        positions,
        normals,
        number("Kvz_float_SaoNumSamples", 7.0f, "Number of taps, truncated.", "0, which leaves the image undefined"),
        number("Kvz_float_SaoNumLogMaxOffset", 3.0f, "Logarithm of the distance from which taps read coarser levels.",
            "0"),
        number("Kvz_float_SaoNumSpiralTurns", 3.0f, "Turns of the spiral of taps, truncated.", "0"),
        number("Kvz_float_ResolutionDivider", 1.0f, "Divides the size of the result.", "1, as for any value below"),
        input("Kvz_int_NumberMultisamples", ValueType::Int, QVariant(),
            "Samples per texel of the result; up to 1 it is not multisampled.", "0"),
    };

    OutputInfo obscurance = pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Obscurance, GL_RGBA8,
        "Grey, 1 in the open and towards 0 in corners; null while the pass is off.");
    obscurance.samplesInput = samplesName;
    pass.outputs = {obscurance};

    OptionInfo processing = option("normalProcessing", ValueType::Enumeration, int(Pass::NormalTransposeInvert),
        "Space of the normals: world space, or camera space as ModelRenderPass gives them.");
    processing.enumerators = QStringList{QStringLiteral("NormalTransposeInvert"), QStringLiteral("NormalScreenSpace")};
    pass.options = {processing};

    pass.traits = PassTrait::Obscures;
    pass.rules = {
        {dividerName, QStringLiteral("positions to go with a divider above 1"),
            QStringLiteral("none: the lower left part of the depth image is stretched over the picture"),
            QStringLiteral("connect the output of a CameraSpaceZBufferRenderPass to %1").arg(positionsName),
            [](const PassUse &use) { return use.value(dividerName).toFloat() > 1.0f && !use.isFed(positionsName); }},
        {tapsName, QStringLiteral("1 tap or more"), QStringLiteral("less, which leaves the image undefined"),
            QStringLiteral("leave it out for 7"),
            [](const PassUse &use) {
                const QVariant taps = use.value(tapsName);
                return taps.isValid() && taps.toFloat() < 1.0f;
            }},
    };
    pass.reach = [](const PassUse &) {
        return PassReach{0, 0, 1, QStringLiteral("its noise counts the pixels of what it draws")};
    };
    pass.completePorts = completePorts;
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
