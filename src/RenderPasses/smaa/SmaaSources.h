// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

// The stages of the programs around SMAA.glslh, whose macros the includer defines. Inline, so that a source built from one at load
// time finds it filled in.

inline const QString smaaVertexHead = QStringLiteral(R"(#version 150
#define SMAA_INCLUDE_VS 1
#define SMAA_INCLUDE_PS 0
#include "SMAA.glslh"
in vec3 va_Vertex;
in vec2 va_TexCoord;
out vec2 vo_TexCoord;
)");

inline const QString smaaFragmentHead = QStringLiteral(R"(#version 150
#define SMAA_INCLUDE_VS 0
#define SMAA_INCLUDE_PS 1
#include "SMAA.glslh"
in vec2 vo_TexCoord;
)");

inline const QString smaaEdgeVertexSource = smaaVertexHead + QStringLiteral(R"(
out vec4 vo_offsets[3];

void main()
{
    gl_Position = vec4(va_Vertex, 1.0);
    vo_TexCoord = va_TexCoord;
    SMAAEdgeDetectionVS(va_TexCoord, vo_offsets);
}
)");

inline const QString smaaWeightVertexSource = smaaVertexHead + QStringLiteral(R"(
out vec2 vo_PixCoord;
out vec4 vo_offsets[3];

void main()
{
    gl_Position = vec4(va_Vertex, 1.0);
    vo_TexCoord = va_TexCoord;
    SMAABlendingWeightCalculationVS(va_TexCoord, vo_PixCoord, vo_offsets);
}
)");

inline const QString smaaWeightFragmentSource = smaaFragmentHead + QStringLiteral(R"(
uniform sampler2D u_EdgeTex;
uniform sampler2D u_AreaTex;
uniform sampler2D u_SearchTex;
uniform vec4 u_SubsampleIndice;
in vec2 vo_PixCoord;
in vec4 vo_offsets[3];
out vec4 out_output;

void main()
{
    out_output = SMAABlendingWeightCalculationPS(
        vo_TexCoord, vo_PixCoord, vo_offsets, u_EdgeTex, u_AreaTex, u_SearchTex, u_SubsampleIndice);
}
)");

inline const QString smaaBlendVertexSource = smaaVertexHead + QStringLiteral(R"(
out vec4 vo_offset;

void main()
{
    gl_Position = vec4(va_Vertex, 1.0);
    vo_TexCoord = va_TexCoord;
    vec4 offset;
    SMAANeighborhoodBlendingVS(va_TexCoord, offset);
    vo_offset = offset;
}
)");

inline const QString smaaBlendFragmentSource = smaaFragmentHead + QStringLiteral(R"(
uniform sampler2D u_ColorTex;
uniform sampler2D u_BlendTex;
#if SMAA_REPROJECTION
uniform sampler2D u_VelocityTex;
#endif
in vec4 vo_offset;
out vec4 out_output;
out vec4 out_velocity;

void main()
{
    out_velocity = vec4(0.0);
#if SMAA_REPROJECTION && SMAA_TRANSPARENCY
    out_output = SMAANeighborhoodBlendingPS(
        vo_TexCoord, vo_offset, u_ColorTex, u_BlendTex, u_VelocityTex, out_velocity);
#elif SMAA_REPROJECTION
    out_output = SMAANeighborhoodBlendingPS(vo_TexCoord, vo_offset, u_ColorTex, u_BlendTex, u_VelocityTex);
#else
    out_output = SMAANeighborhoodBlendingPS(vo_TexCoord, vo_offset, u_ColorTex, u_BlendTex);
#endif
}
)");

/// For the draws that need texture coordinates and nothing else.
inline const QString smaaPlainVertexSource = smaaVertexHead + QStringLiteral(R"(
void main()
{
    gl_Position = vec4(va_Vertex, 1.0);
    vo_TexCoord = va_TexCoord;
}
)");

inline const QString smaaResolveFragmentSource = smaaFragmentHead + QStringLiteral(R"(
uniform sampler2D u_CurrentColorTex;
uniform sampler2D u_PreviousColorTex;
#if SMAA_REPROJECTION
uniform sampler2D u_VelocityTex;
uniform vec2 u_JitterAmount;
uniform vec2 u_TexelDimensions;
#if SMAA_TRANSPARENCY
uniform sampler2D u_PackedVelocityTex;
uniform sampler2D u_PreviousPackedVelocityTex;
#endif
#endif
out vec4 out_output;

void main()
{
#if SMAA_REPROJECTION && SMAA_TRANSPARENCY
    out_output = SMAAResolvePS(vo_TexCoord, u_CurrentColorTex, u_PreviousColorTex, u_VelocityTex, u_JitterAmount,
        u_TexelDimensions, u_PackedVelocityTex, u_PreviousPackedVelocityTex);
#elif SMAA_REPROJECTION
    // Alpha held the speed.
    out_output = vec4(SMAAResolvePS(vo_TexCoord, u_CurrentColorTex, u_PreviousColorTex, u_VelocityTex, u_JitterAmount,
        u_TexelDimensions).rgb, 1.0);
#else
    out_output = SMAAResolvePS(vo_TexCoord, u_CurrentColorTex, u_PreviousColorTex);
#endif
}
)");

inline const QString smaaSeparateFragmentSource = smaaFragmentHead + QStringLiteral(R"(
uniform sampler2DMS u_ColorTexMS;
out vec4 out_target0;
out vec4 out_target1;

void main()
{
    SMAASeparatePS(gl_FragCoord, vo_TexCoord, out_target0, out_target1, u_ColorTexMS);
}
)");

} // namespace Velmora::Kvz
