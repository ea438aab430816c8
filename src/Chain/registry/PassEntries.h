// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/PassInfo.h>

#include <QtGui/QColor>

namespace Velmora::Kvz::PassEntries {

/// \name Entries of the registry
/// One function for each pass class, in a file named after the class.
/// @{
PassInfo backdropRenderPass();
PassInfo backgroundGradientRenderPass();
PassInfo backgroundImageRenderPass();
PassInfo blendRenderPass();
PassInfo blurAndCombineRenderPass();
PassInfo cameraJitterPass();
PassInfo cameraSpaceZBufferRenderPass();
PassInfo compositeRenderPass();
PassInfo cubemapLoaderRenderPass();
PassInfo cullingRenderPass();
PassInfo deferredRenderPass();
PassInfo depthStencilRenderPass();
PassInfo depthOfFieldRenderPass();
PassInfo environmentLightRenderPass();
PassInfo fastApproximateAntiAliasingRenderPass();
PassInfo forwardRenderPass();
PassInfo fragmentListRenderPass();
PassInfo fragmentSortRenderPass();
PassInfo gaussianBlurRenderPass();
PassInfo gBufferRenderPass();
PassInfo gradientRenderPass();
PassInfo itemIdRenderPass();
PassInfo litDeferredRenderPass();
PassInfo litForwardRenderPass();
PassInfo litListRenderPass();
PassInfo litWeightedRenderPass();
PassInfo luminanceAverageRenderPass();
PassInfo materialIdRenderPass();
PassInfo modelDeferredPass();
PassInfo modelRenderPass();
PassInfo multisampleForwardRenderPass();
PassInfo physicalForwardRenderPass();
PassInfo physicalListRenderPass();
PassInfo physicalWeightedRenderPass();
PassInfo primitiveBuilderRenderPass();
PassInfo scalableAmbientObscuranceRenderPass();
PassInfo shaderRenderPass();
PassInfo skyboxRenderPass();
PassInfo shadowMapRenderPass();
PassInfo shadowMapRenderPass2();
PassInfo smaaRenderPass();
PassInfo shadowMaskRenderPass();
PassInfo stencilBlurAndBlendRenderPass();
PassInfo textureLoaderRenderPass();
PassInfo subsampleJitterPass();
PassInfo surfaceRenderPass();
PassInfo temporalAARenderPass();
PassInfo textureToScreenRenderPass();
PassInfo visibilityBufferRenderPass();
PassInfo visibilityDeferredRenderPass();
PassInfo visibilityOcclusionRenderPass();
PassInfo visibilitySortRenderPass();
PassInfo toneMapRenderPass();
PassInfo cutoutAntiAliasingRenderPass();
PassInfo accumulationRenderPass();
PassInfo accumulationJitterPass();
PassInfo ambientVisibilityRenderPass();
PassInfo groundShadowRenderPass();
PassInfo transparencyRenderPass();
PassInfo velocityRenderPass();
PassInfo wireframeRenderPass();
/// @}

inline constexpr PassInfo (*all[])() = {
    backdropRenderPass,
    backgroundGradientRenderPass,
    backgroundImageRenderPass,
    blendRenderPass,
    blurAndCombineRenderPass,
    cameraJitterPass,
    cameraSpaceZBufferRenderPass,
    compositeRenderPass,
    cubemapLoaderRenderPass,
    cullingRenderPass,
    deferredRenderPass,
    depthStencilRenderPass,
    depthOfFieldRenderPass,
    environmentLightRenderPass,
    fastApproximateAntiAliasingRenderPass,
    forwardRenderPass,
    fragmentListRenderPass,
    fragmentSortRenderPass,
    gaussianBlurRenderPass,
    gBufferRenderPass,
    gradientRenderPass,
    itemIdRenderPass,
    litDeferredRenderPass,
    litForwardRenderPass,
    litListRenderPass,
    litWeightedRenderPass,
    luminanceAverageRenderPass,
    materialIdRenderPass,
    modelDeferredPass,
    modelRenderPass,
    multisampleForwardRenderPass,
    physicalForwardRenderPass,
    physicalListRenderPass,
    physicalWeightedRenderPass,
    primitiveBuilderRenderPass,
    scalableAmbientObscuranceRenderPass,
    shaderRenderPass,
    skyboxRenderPass,
    shadowMapRenderPass,
    shadowMapRenderPass2,
    smaaRenderPass,
    shadowMaskRenderPass,
    stencilBlurAndBlendRenderPass,
    textureLoaderRenderPass,
    subsampleJitterPass,
    surfaceRenderPass,
    temporalAARenderPass,
    textureToScreenRenderPass,
    visibilityBufferRenderPass,
    visibilityDeferredRenderPass,
    visibilityOcclusionRenderPass,
    visibilitySortRenderPass,
    toneMapRenderPass,
    cutoutAntiAliasingRenderPass,
    accumulationRenderPass,
    accumulationJitterPass,
    ambientVisibilityRenderPass,
    groundShadowRenderPass,
    transparencyRenderPass,
    velocityRenderPass,
    wireframeRenderPass,
};

/// \name Helpers to write entries with
/// @{

/// An input of any type with its default.
InputInfo input(
    const char *name, ValueType type, const QVariant &defaultValue, const char *description, const char *whenNull);
/// An image input.
InputInfo textureInput(const char *name, TextureKind kind, const char *description, const char *whenNull);
/// The same, for a pass that must not run without the image.
InputInfo requiredTextureInput(const char *name, TextureKind kind, const char *description);
InputInfo viewportInput();
InputInfo projectionInput();
/// The same for a pass that compares or fits the camera: it takes the frame's projection, not an earlier pass's jittered one.
InputInfo unjitteredProjectionInput();
InputInfo cameraInput();
/// An input that names an image file.
InputInfo imageFileInput(const char *name, ImageFileUse use, const char *description, const char *whenNull);
/// The radius of a blur, whose programs the pass keeps for each new value: the chain rounds it to quarters.
InputInfo blurRadiusInput(const char *description);
/// How far a blur with such an input reads, in texels of its result.
PassReach blurReach(const PassUse &use);

/// \name Ports of the shadow passes
/// @{
InputInfo shadowModelInput();
InputInfo instanceDataInput();
InputInfo lightsInput();
/// The frame's projection, even after a pass that jitters it: cascades fitted to the jittered one would shimmer.
InputInfo shadowProjectionInput();
InputInfo shadowCameraInput();
InputInfo sceneBoundsInput(const char *name, const char *description);
InputInfo mapSizeInput();
OutputInfo shadowMapDataOutput();
OptionInfo instanceDataPlanOption();
/// \name The lists of VisibilityBufferRenderPass, as inputs and as the three outputs of a pass that works on them
/// @{
InputInfo headPointersInput(const char *whenNull);
InputInfo nodeBufferInput(const char *whenNull);
InputInfo nodeBufferWidthInput(const char *whenNull);
QVector<OutputInfo> listOutputs(const char *headsDescription, const char *nodesDescription);
/// The extensions without which each pixel has a single fragment, and what follows from that.
DriverNeed listNeed(const char *without);
/// That shaders can read floats as integers, which OpenGL 3.3 has.
DriverNeed floatBitsNeed();
/// That shaders can read vertices from buffers, which OpenGL 4.0 has.
DriverNeed vertexTexelsNeed();
/// For a pass that shades lists: warns of lists that no sort precedes.
UseRule sortedListsRule();
/// @}

/// The lights of a pass that lights surfaces: its last three inputs.
QVector<InputInfo> lightInputs();
/// The light of a pass with physically based light: its last six inputs.
QVector<InputInfo> physicalLightInputs();
/// The option of a pass that can leave out the items with GPUModel::Transparent.
OptionInfo opaqueOnlyOption();

/// An output that holds no image.
OutputInfo output(const char *name, ValueType type, const char *description);
/// An image that the pass owns.
OutputInfo textureOutput(const char *name, TextureKind kind, unsigned int internalFormat, const char *description);
/// A temporary image from the pool.
OutputInfo pooledOutput(const char *name, TextureKind kind, unsigned int internalFormat, const char *description);

OptionInfo option(const char *name, ValueType type, const QVariant &defaultValue, const char *description);

/// A rule that warns about an input that nothing feeds.
UseRule warnWhenOpen(const char *port, const char *expected, const char *consequence, const char *remedy);

/// A factory for a class whose constructor takes nothing.
template <typename Pass> std::unique_ptr<RenderPass> construct(const PassOptions &)
{
    return std::make_unique<Pass>();
}
/// @}

} // namespace Velmora::Kvz::PassEntries
