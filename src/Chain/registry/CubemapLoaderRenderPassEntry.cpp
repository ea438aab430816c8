// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/CubemapLoaderRenderPass.h>

#include <epoxy/gl.h>

#include <algorithm>

namespace Velmora::Kvz {

PassInfo PassEntries::cubemapLoaderRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("CubemapLoaderRenderPass");
    pass.summary = QStringLiteral("Builds a cube map from six image files.");
    const char *const whenNull = "a transparent black texel, with which the cube map is not complete";
    pass.inputs = {
        imageFileInput(
            "Kvz_QString_CubemapPathPosX", ImageFileUse::CubemapFace, "File of the face towards +x.", whenNull),
        imageFileInput(
            "Kvz_QString_CubemapPathNegX", ImageFileUse::CubemapFace, "File of the face towards -x.", whenNull),
        imageFileInput(
            "Kvz_QString_CubemapPathPosY", ImageFileUse::CubemapFace, "File of the face towards +y.", whenNull),
        imageFileInput(
            "Kvz_QString_CubemapPathNegY", ImageFileUse::CubemapFace, "File of the face towards -y.", whenNull),
        imageFileInput(
            "Kvz_QString_CubemapPathPosZ", ImageFileUse::CubemapFace, "File of the face towards +z.", whenNull),
        imageFileInput(
            "Kvz_QString_CubemapPathNegZ", ImageFileUse::CubemapFace, "File of the face towards -z.", whenNull),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Cubemap", TextureKind::Environment, GL_RGBA, "The cube map."),
    };
    const QStringList names = pass.inputNames();
    pass.rules = {
        {names.first(), QStringLiteral("an image file for each of the six faces"),
            QStringLiteral("fewer: the cube map is black"), QStringLiteral("set all six paths"),
            [names](const PassUse &use) {
                return std::any_of(names.begin(), names.end(), [&](const QString &name) { return !use.isFed(name); });
            }},
    };
    pass.create = construct<CubemapLoaderRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
