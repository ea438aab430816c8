// SPDX-License-Identifier: MIT
#include "MaterialImages.h"

namespace Velmora::Kvz {

namespace {

/// Turns code into a comment; removing it brings the code to life.
const QString diffuseAlphaMarker = QStringLiteral("//DODA ");

// Intentional: vo_Vertex is neither written nor read, and out_TexCoord has no target.
const QString fragmentSource = QStringLiteral(R"(#version 150
#instancedata "OBJMaterial"
#include "TextureManager.glslh"
in vec3 vo_Vertex;
in vec3 vo_Normal;
in vec2 vo_TexCoord;
out vec4 out_Kd;
out vec4 out_Ks;
out vec3 out_Normal;
out vec2 out_TexCoord;
out vec4 out_Id;

void main()
{
#ifdef OPAQUE_ONLY
    if(getD() < 1.0) { discard; }
#endif
//DODA if(managedTexture(getMap_Kd(), vo_TexCoord).a <= 0.01) { discard; }
    out_Kd = vec4(getKd() * managedTexture(getMap_Kd(), vo_TexCoord).rgb, getD());
    out_Ks = vec4(getKs() * managedTexture(getMap_Ks(), vo_TexCoord).rgb, getNs());
    out_Normal = normalize(vo_Normal);
    out_TexCoord = vo_TexCoord;
    out_Id = vec4(gl_PrimitiveID + 1.0);
}
)");

} // namespace

// The normal's w of 1 is intentional: it shows with matrices that are not affine.
const QString materialImagesVertexSource = QStringLiteral(R"(#version 150
#instancedata "InstanceInfo"
uniform mat4 u_CameraMatrix;
uniform mat4 u_ProjectionMatrix;
uniform mat4 u_NormalMatrix;
in vec3 va_Vertex;
in vec3 va_Normal;
in vec2 va_TexCoord;
out vec3 vo_Normal;
out vec2 vo_TexCoord;

void main()
{
    gl_Position = u_ProjectionMatrix * u_CameraMatrix * getModelMatrix() * vec4(va_Vertex, 1.0);
    vo_Normal = (u_NormalMatrix * getModelNormalMatrix() * vec4(va_Normal, 1.0)).xyz;
    vo_TexCoord = va_TexCoord;
}
)");

const QString opaqueOnlyMacro = QStringLiteral("OPAQUE_ONLY");

QString materialImagesFragmentSource(bool discardOnDiffuseAlpha)
{
    QString source = fragmentSource;
    if (discardOnDiffuseAlpha)
        source.remove(diffuseAlphaMarker);
    return source;
}

} // namespace Velmora::Kvz
