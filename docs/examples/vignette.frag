// SPDX-License-Identifier: MIT
#version 150

uniform sampler2D u_Frame;
uniform float u_Strength;

in vec2 vo_TexCoord;
out vec4 o_Frame;

void main()
{
    vec2 fromCentre = 2.0 * vo_TexCoord - 1.0;
    vec4 colour = texture(u_Frame, vo_TexCoord);
    o_Frame = vec4(colour.rgb * (1.0 - 0.5 * u_Strength * dot(fromCentre, fromCentre)), colour.a);
}
