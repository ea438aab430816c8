// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// Measures for each pixel how much of the light from all around arrives there, and how much near surfaces give back to each other:
/// an image to multiply into the indirect light of a frame, and into nothing else.
///
/// | Input | Name                            | Type       | Default | Null means                                                 |
/// |-------|---------------------------------|------------|---------|------------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                              |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity; the one that drew the depth                  |
/// | 2     | Kvz_KvzTexture*_Depth           | Texture*   | invalid | no output                                                  |
/// | 3     | Kvz_KvzTexture*_Normal          | Texture*   | invalid | the normals of the surface that the depth image shows      |
/// | 4     | Kvz_KvzTexture*_Diffuse         | Texture*   | invalid | every surface has the albedo of port 9; linear colours     |
/// | 5     | Kvz_QVector3D_SceneBoundsMin    | QVector3D  | invalid | the model's bounds; world space                            |
/// | 6     | Kvz_QVector3D_SceneBoundsMax    | QVector3D  | invalid | the model's bounds; world space                            |
/// | 7     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | a radius of port 8 units, where no port has bounds         |
/// | 8     | Kvz_float_RelativeRadius        | float      | 0.1     | 0: nothing is hidden; part of the longest side of the bounds |
/// | 9     | Kvz_float_Albedo                | float      | 0.5     | 0: light that arrives is not passed on                     |
/// | 10    | Kvz_int_JitterIndex             | int        | invalid | 0; turns the pattern of directions, for frames that are averaged |
/// | 11    | Kvz_Vector2D_PatternOrigin      | QVector2D  | invalid | (0, 0); in pixels, even numbers                            |
/// | 12    | Kvz_KvzTexture*_Indirect        | Texture*   | invalid | as without port 13; what surfaces send of their surroundings' light, linear |
/// | 13    | Kvz_QVariant_Irradiance         | QVariant   | invalid | every surface has the albedo of port 9; nine vectors       |
/// | 14    | Kvz_float_EnvironmentRotation   | float      | 0.0     | 0; in degrees                                              |
/// | 15    | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity; for ports 13 and 14                          |
///
/// | Output | Name                       | Value                                                                                 |
/// |--------|----------------------------|---------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Visibility | A pooled GL_RGBA8 texture of the viewport's size: the factor in red, green and blue, the visibility alone in alpha. |
///
/// Depth is window depth; normals are in camera space, as SurfaceRenderPass gives them. Perspective and parallel projections, jittered ones
/// too. Pixels at depth 1 have 1.
///
/// **Visibility** is the cosine-weighted part of the hemisphere that no surface within the radius hides: 1 in the open, 1/2 in the corner of two
/// walls. It comes from the highest points of the depth image to both sides in two directions a pixel, which turn from pixel to pixel in blocks of
/// 4 by 4; the integral between the two horizons is exact. Towards the end of the radius, over its outer 40 %, surfaces fade. What is seen
/// is divided by what the same directions show in the open, so an open plane has exactly 1, seen at any angle. It is computed at half the resolution,
/// smoothed over 4 by 4 texels and brought to the frame's along the surfaces: texels that lie off a pixel's tangent plane do not count.
///
/// **Light between surfaces** brightens corners, channel by channel: what a surface does not see of the surroundings it sees of other
/// surfaces, which are taken to be as bright as it is itself. With visibility v and albedo a the factor is v / (1 - a (1 - v)): white
/// corners lose nothing, black ones all that is hidden, red ones become redder. The albedo comes from port 4; or from what the surface
/// sends of its surroundings (port 12), divided by what white would send (port 13, as EnvironmentLightRenderPass makes it); or is that of port 9.
///
/// What the frame does not show hides nothing: neither what lies outside, nor what is behind the nearest surface. Each surface counts as thick.
///
/// Source: J. Jimenez, X. Wu, A. Pesce and A. Jarabo, "Practical Realtime Strategies for Accurate Indirect Occlusion" (SIGGRAPH 2016 course
/// Physically Based Shading; Activision ATVI-TR-16-01); for the light between surfaces A. J. Stewart and M. S. Langer, "Toward Accurate
/// Recovery of Shape from Shading under Diffuse Lighting" (IEEE PAMI 19, 1997), whose model it is.
class KVZ_EXTRAPASSES_EXPORT AmbientVisibilityRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        ProjectionMatrix,
        Depth,
        Normal,
        Diffuse,
        SceneBoundsMin,
        SceneBoundsMax,
        Geometry,
        RelativeRadius,
        Albedo,
        JitterIndex,
        PatternOrigin,
        Indirect,
        Irradiance,
        EnvironmentRotation,
        CameraMatrix
    };
    enum Output { Visibility };

    AmbientVisibilityRenderPass();
    ~AmbientVisibilityRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

private:
    /// What the programs read.
    struct Variant
    {
        bool hasNormals = false;
        bool hasColours = false;
        bool hasSentLight = false;
        bool operator==(const Variant &other) const
        {
            return hasNormals == other.hasNormals && hasColours == other.hasColours
                && hasSentLight == other.hasSentLight;
        }
    };
    Variant variant() const;
    float radius() const;
    void buildPrograms(const Variant &wanted);
    Texture *draw(ShaderProgram &program, Texture *source, const QSize &size, bool isResult);

    std::unique_ptr<ShaderProgram> m_horizonProgram;
    std::unique_ptr<ShaderProgram> m_smoothProgram;
    std::unique_ptr<ShaderProgram> m_enlargeProgram;
    Variant m_variant;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    QSharedPointer<DrawBuffers> m_screenQuad;
};

} // namespace Velmora::Kvz
