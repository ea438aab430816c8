// SPDX-License-Identifier: MIT
#version 150

uniform sampler2D u_Frame;      // What lamps give, with opacity in alpha.
uniform sampler2D u_Indirect;   // What the surroundings give.
uniform sampler2D u_Layers;     // In alpha what comes through them; opaque black without any.
uniform sampler2D u_Background;
uniform float u_Exposure;

out vec4 o_Frame;

void main()
{
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    vec4 frame = texelFetch(u_Frame, pixel, 0);
    vec3 light = frame.rgb + texelFetch(u_Indirect, pixel, 0).rgb + (1.0 - frame.a) * texelFetch(u_Background, pixel, 0).rgb;
    vec4 layers = texelFetch(u_Layers, pixel, 0);
    bool hasLayers = textureSize(u_Layers, 0).x > 1;
    if (hasLayers)
        light = layers.rgb + layers.a * light;
    vec3 shown = clamp(u_Exposure * light, 0.0, 1.0);
    o_Frame = vec4(mix(12.92 * shown, 1.055 * pow(shown, vec3(1.0 / 2.4)) - 0.055, greaterThan(shown, vec3(0.0031308))), 1.0);
}
