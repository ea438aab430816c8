// SPDX-License-Identifier: MIT
#pragma once

#include <Core/NamedValue.h>

#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

#include <functional>
#include <map>
#include <memory>

namespace Velmora::Kvz {

class GLSLMacroProcessor;
class GPUModel;
class ShaderProgram;

// What the passes share that draw a model with all that its materials say of surfaces.

/// `vec3 directionToEye(vec3 position)`: the unit direction from a point of camera space to the eye; along the axis where
/// the projection is parallel. The uniform `u_ProjectionMatrix` is the projection.
// Inline, as the texts below, so that a source built from it at load time finds it filled in.
inline const QString directionToEyeSource = QStringLiteral(R"(
uniform mat4 u_ProjectionMatrix;

vec3 directionToEye(vec3 position)
{
    bool isPerspective = u_ProjectionMatrix[2][3] != 0.0;
    return isPerspective ? normalize(-position) : vec3(0.0, 0.0, 1.0);
}
)");

/// `vec3 unit(vec3 direction)`: the direction with a length of 1, whatever length it had; zeros stay zeros.
inline const QString unitDirectionSource = QStringLiteral(R"(
vec3 unit(vec3 direction)
{
    vec3 size = abs(direction);
    float largest = max(size.x, max(size.y, size.z));
    return largest > 0.0 ? normalize(direction / largest) : vec3(0.0);
}
)");

/// The vertex stage. It writes what surfaceInputSource reads.
// Normals are of unit length before they are interpolated: by the length that a scale leaves them, corners would weigh
// differently. The place in clip space is formed as in the other passes that draw models, so that depths are equal.
inline const QString surfaceVertexSource = QStringLiteral(R"(#version 150
#instancedata "InstanceInfo"
uniform mat4 u_CameraMatrix;
uniform mat4 u_ProjectionMatrix;
uniform mat4 u_NormalMatrix;
in vec3 va_Vertex;
in vec3 va_Normal;
in vec2 va_TexCoord;
in vec4 va_Color;
in vec2 va_TexCoord1;
#ifdef KVZ_PHYSICAL
in vec4 va_Tangent;
out vec4 vo_Tangent;
#endif
out vec3 vo_Position;
out vec3 vo_Normal;
out vec4 vo_Colour;
out vec2 vo_TexCoord;
out vec2 vo_TexCoord1;
flat out uint vo_DrawNumber;
int kvzDrawIndex();
)") + unitDirectionSource
    + QStringLiteral(R"(
void main()
{
    gl_Position = u_ProjectionMatrix * u_CameraMatrix * getModelMatrix() * vec4(va_Vertex, 1.0);
    vo_Position = (u_CameraMatrix * getModelMatrix() * vec4(va_Vertex, 1.0)).xyz;
    vo_Normal = unit(mat3(u_NormalMatrix) * (mat3(getModelNormalMatrix()) * va_Normal));
    vo_Colour = va_Color;
    vo_TexCoord = va_TexCoord;
    vo_TexCoord1 = va_TexCoord1;
#ifdef KVZ_PHYSICAL
    vo_Tangent = vec4(unit(mat3(u_CameraMatrix) * (mat3(getModelMatrix()) * va_Tangent.xyz)), va_Tangent.w);
#endif
    vo_DrawNumber = uint(kvzDrawIndex());
}
)");

/// Follows the version line of a fragment stage and its includes, Surface.glslh among them: the interpolated inputs, and
/// `SurfacePlace surfacePlace()`, to be called where all pixels of a quad get to.
inline const QString surfaceInputSource = QStringLiteral(R"(
in vec3 vo_Position;
in vec3 vo_Normal;
in vec4 vo_Colour;
in vec2 vo_TexCoord;
in vec2 vo_TexCoord1;
#ifdef KVZ_PHYSICAL
in vec4 vo_Tangent;
#endif

SurfacePlace surfacePlace()
{
    SurfacePlace place;
#ifdef KVZ_NO_VERTEX_COLOURS
    place.colour = vec4(1.0);
#else
    place.colour = vo_Colour;
#endif
    place.texCoords[0] = vo_TexCoord;
    place.texCoords[1] = vo_TexCoord1;
    for (int i = 0; i < 2; ++i) {
        place.texCoordsX[i] = dFdx(place.texCoords[i]);
        place.texCoordsY[i] = dFdy(place.texCoords[i]);
    }
#ifdef KVZ_PHYSICAL
    place.tangent = vo_Tangent;
    place.positionX = dFdx(vo_Position);
    place.positionY = dFdy(vo_Position);
#endif
    return place;
}
)");

/// Has a program of the passes here hand the number of the item on from its vertex stage: drivers pay for each item by which a
/// fragment stage reads another uniform. Where the driver can, the number comes from an array, and GPUModel draws many items by
/// one call. The vertex stage must write `flat out uint vo_DrawNumber`; fragment stages without KvzUtilities.glslc read it as
/// `flat in`.
void addDrawNumberMacros(GLSLMacroProcessor &macros);

/// The unit that lights, for programs whose fragment stage calls shadeSurface().
inline const QString surfaceShadingFile = QStringLiteral("PlainShading.glslc");

/// The same with physically based light, for programs with physicalMacro: all units that it needs.
inline const QStringList physicalShadingFiles{QStringLiteral("PhysicalShading.glslc"),
    QStringLiteral("EnvironmentLight.glslc"), QStringLiteral("ShadowedLights.glslc")};

/// Makes a program's surfaces those of the plan "PhysicalMaterial".
inline const QString physicalMacro = QStringLiteral("KVZ_PHYSICAL");

enum class SurfaceKind { Plain, Physical };

/// The plan of instance data, and the units, that define surfaceAt().
QString surfacePlanOf(SurfaceKind kind);
QStringList surfaceFilesOf(SurfaceKind kind);

/// Builds a program that draws surfaces: surfaceVertexSource, the fragment source, all units that surfaceAt() needs, and
/// `fragmentFiles`. `outputs` names the fragment outputs in the order of the colour attachments. Whether it compiled and
/// linked is not checked.
std::unique_ptr<ShaderProgram> buildSurfaceProgram(GLSLMacroProcessor &macros, const QStringList &outputs,
    const QString &fragmentSource, const QStringList &fragmentFiles = {}, SurfaceKind kind = SurfaceKind::Plain);

/// The variants of one program that reads surfaces: each has what models ask for and nothing else.
class SurfaceProgramVariants
{
public:
    using Build = std::function<std::unique_ptr<ShaderProgram>(GLSLMacroProcessor &macros)>;

    /// Whether the programs draw items, or shade fragments of any item.
    enum class Use { Items, Fragments };

    /// `build` makes a program with the macros, of which physicalMacro is one for surfaces of that kind.
    explicit SurfaceProgramVariants(Build build, SurfaceKind kind = SurfaceKind::Plain, Use use = Use::Items);
    ~SurfaceProgramVariants();

    /// The program for a model as it is now, built when no model has asked for the like lately. It stays until the next call.
    ShaderProgram &forModel(const GPUModel &model);
    /// Deletes the programs, for a `build` that makes other ones from now on.
    void clear();

private:
    Build m_build;
    SurfaceKind m_kind;
    Use m_use;
    std::map<int, std::unique_ptr<ShaderProgram>> m_programs; ///< By a key of what they have.
};

/// Sets the matrices that surfaceVertexSource and directionToEyeSource read.
void setSurfaceCamera(ShaderProgram &program, const QMatrix4x4 &projection, const QMatrix4x4 &camera);

/// Readies GL for surfaces: sets the viewport and what clears give, zeros and a depth of 1, and turns the depth test on and all else
/// off that would keep fragments out or change them.
void setSurfaceState(const QSize &size);

/// The same, and clears colour and depth of the bound framebuffer, whose colours are not integers.
void clearForSurfaces(const QSize &size);

enum class SurfaceSelection {
    All,
    Opaque, ///< Items without GPUModel::Transparent.
    Transparent ///< Items with it.
};

/// Draws items of a model with a bound program that buildSurfaceProgram() made. Vertices without colours are white. The
/// constant values of va_Color, va_TexCoord1 and va_Tangent are changed.
void drawSurfaces(GPUModel &model, ShaderProgram &program, SurfaceSelection selection);

/// What passes that draw surfaces take by their first four inputs.
struct SurfaceScene
{
    QSize size; ///< Of the viewport, in pixels.
    QMatrix4x4 projection;
    QMatrix4x4 camera;
    GPUModel *model = nullptr;

    /// Reads viewport, projection, camera and model.
    static SurfaceScene read(const QVector<NamedValue<QVariant>> &inputs);
    /// Draws items of the model, if there is one, with the program for it; `prepare` sets what else its program has.
    void draw(SurfaceProgramVariants &programs, SurfaceSelection selection,
        const std::function<void(ShaderProgram &)> &prepare = {}) const;
};

} // namespace Velmora::Kvz
