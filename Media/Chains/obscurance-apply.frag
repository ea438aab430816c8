// SPDX-License-Identifier: MIT
#version 150

uniform sampler2D u_Shading;    // Opacity in alpha.
uniform sampler2D u_Obscurance; // 1 in the open; alpha 0 where there is no image.
uniform float u_Strength;       // From 0, none, to 1.

in vec2 vo_TexCoord;
out vec4 o_Frame;

void main()
{
    vec4 colour = texture(u_Shading, vo_TexCoord);
    vec4 obscurance = texture(u_Obscurance, vo_TexCoord);
    o_Frame = vec4(colour.rgb * mix(1.0, obscurance.r, u_Strength * obscurance.a), colour.a);
}
