// SPDX-License-Identifier: MIT
#version 150

uniform sampler2D u_Frame;
uniform sampler2D u_Depth;
uniform sampler2D u_Background;

out vec4 o_Frame;

void main()
{
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    vec4 frame = texelFetch(u_Frame, pixel, 0);
    bool isOpaque = texelFetch(u_Depth, pixel, 0).r < 1.0;
    // Over an alpha of 1, as in the clear colour, the frame's alpha is r (2 - r), where r is what its layers let through.
    float r = 1.0 - sqrt(max(0.0, 1.0 - frame.a));
    vec3 behind = isOpaque ? vec3(0.0) : texelFetch(u_Background, pixel, 0).rgb * r;
    o_Frame = vec4(frame.rgb + behind, 1.0);
}
