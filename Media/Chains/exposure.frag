// SPDX-License-Identifier: MIT
#version 150

uniform sampler2D u_Scene;
uniform float u_Luminance; // Average of the scene in the previous frame; 0 in the first one.
uniform float u_Key;       // Average that the picture is to have.

out vec4 o_Frame;

const float darkest = 0.02; // Scenes below this stay dark.

void main()
{
    vec4 colour = texelFetch(u_Scene, ivec2(gl_FragCoord.xy), 0);
    float exposure = u_Luminance > 0.0 ? u_Key / max(u_Luminance, darkest) : 1.0;
    o_Frame = vec4(colour.rgb * exposure, colour.a);
}
