// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class ShaderProgram;
class ShadowMapLight;
class TargetFramebuffer;
class Texture;

/// Prepares the light of surroundings for PhysicalForwardRenderPass and its kin, from a latitude-longitude image.
///
/// | Input | Name                                       | Type         | Default  | Null means                      |
/// |-------|--------------------------------------------|--------------|----------|---------------------------------|
/// | 0     | Kvz_QRect_Viewport                         | QRect        | invalid  | no background                   |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix            | QMatrix4x4   | invalid  | the identity                    |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix                | QMatrix4x4   | invalid  | the identity                    |
/// | 3     | Kvz_QString_Environment                    | QString      | studio   | no surroundings                 |
/// | 4     | Kvz_float_EnvironmentRotation              | float        | 0.0      | 0; as does one that is not finite |
/// | 5     | Kvz_QList_KvzShadowMapManagerLight*_Lights | QVariantList | invalid  | the environment's own key light |
/// | 6     | Kvz_bool_ShowsEnvironment                  | bool         | false    | false                           |
///
/// | Output | Name                                       | Value                                                        |
/// |--------|--------------------------------------------|--------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Environment                | GL_RGBA16F array of two layers: filtered surroundings, table. |
/// | 1      | Kvz_QVariant_Irradiance                    | A list of nine QVector3D.                                    |
/// | 2      | Kvz_QList_KvzShadowMapManagerLight*_Lights | The lights given, else the key light in a list.              |
/// | 3      | Kvz_float_EnvironmentRotation              | Degrees, as given.                                           |
/// | 4      | Kvz_KvzTexture*_Background                 | GL_RGBA16F of the viewport's size; null unless it is shown.  |
///
/// The environment is the name of one that is built in, or the path of a Radiance, OpenEXR or other image, whose colours are then
/// sRGB. Its middle column lies towards -z, its upper edge towards +y. The rotation turns it about +y, in degrees, against the clock as
/// seen from above. What cannot be read is said in one line of the log, and there are no surroundings then.
///
/// **Filtering.** Level 0 of the first layer shows the surroundings as they are, and the others the mean that surfaces of rising
/// roughness mirror (B. Karis, "Real Shading in Unreal Engine 4", 2013), by samples that are read from texels of fitting size
/// (J. Křivánek and M. Colbert, "Real-time Shading with Filtered Importance Sampling", EGSR 2008). The second layer has what a surface
/// reflects of light from everywhere alike. The irradiance is that of real spherical harmonics up to the second band, divided by pi
/// (R. Ramamoorthi and P. Hanrahan, "An Efficient Representation for Irradiance Environment Maps", 2001). All this is done once for an
/// image and kept in the folder kvz/environments of the user's caches.
///
/// **Key light.** The strongest bright spot of the image, if it sends a tenth of all light or more from less than half a steradian,
/// becomes a directional light and is missing from the filtered levels and the irradiance, though not from level 0 and the
/// background. So it can cast shadows, and all that a surface gets adds up to what the image sends. Lights of the host take its place.
///
/// The textures are the pass's own. The background is opaque; it is drawn without a depth test, which stays off.
class KVZ_EXTRAPASSES_EXPORT EnvironmentLightRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Environment, EnvironmentRotation, Lights, ShowsEnvironment };
    enum Output { EnvironmentTexture, Irradiance, LightsOut, EnvironmentRotationOut, Background };

    EnvironmentLightRenderPass();
    ~EnvironmentLightRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

    /// The names of the environments that are built in.
    static QStringList builtInNames();
    /// What keeps an environment from being used, in one line; empty for one that can. Needs no context. What it works out is kept
    /// for start() in the user's cache folder.
    static QString problemWith(const QString &nameOrFile);

private:
    void load(const QString &nameOrFile);
    void drawBackground(const QSize &size);

    struct Loaded;
    std::unique_ptr<Loaded> m_loaded;
    std::unique_ptr<Texture> m_texture;
    std::unique_ptr<Texture> m_image; ///< What is shown as the background; null: level 0 of the texture.
    std::unique_ptr<ShadowMapLight> m_keyLight;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    std::unique_ptr<ShaderProgram> m_program;
    QSharedPointer<DrawBuffers> m_screenQuad;
    QSize m_size;
};

} // namespace Velmora::Kvz
