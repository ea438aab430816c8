// SPDX-License-Identifier: MIT
#version 150

uniform sampler2D u_Shading; // Colour multiplied by the opacity in alpha; all 0 where there is no model.
uniform sampler2D u_Normal;  // In camera space; 0 where there is no model.
uniform float u_Tones;       // Steps from dark to bright.
uniform vec4 u_Ink;

out vec4 o_Frame;

const vec3 luminanceWeights = vec3(0.2126, 0.7152, 0.0722);
const float crease = 0.8; // Cosine of the angle from which two faces get an edge between them.

// Whether the surface turns, or ends, between this pixel and the next one in a direction.
bool edgeTowards(ivec2 pixel, ivec2 direction)
{
    ivec2 last = textureSize(u_Normal, 0) - ivec2(1);
    vec3 here = texelFetch(u_Normal, pixel, 0).xyz;
    vec3 there = texelFetch(u_Normal, clamp(pixel + direction, ivec2(0), last), 0).xyz;
    return dot(here, there) < crease && here != there;
}

void main()
{
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    vec4 shading = texelFetch(u_Shading, pixel, 0);

    // The hue stays, the luminance goes up to the next tone: within a pixel, at once where the steps of eight bits show.
    float luminance = dot(shading.rgb, luminanceWeights);
    float place = luminance * u_Tones;
    float width = max(fwidth(place) - 2.0 / 255.0 * u_Tones, 0.001);
    float tone = (floor(place) + clamp(fract(place) / width, 0.0, 1.0)) / u_Tones;
    vec4 colour = vec4(shading.rgb * (tone / max(luminance, 0.001)), shading.a);

    bool isEdge = edgeTowards(pixel, ivec2(1, 0)) || edgeTowards(pixel, ivec2(-1, 0))
        || edgeTowards(pixel, ivec2(0, 1)) || edgeTowards(pixel, ivec2(0, -1));
    o_Frame = isEdge ? mix(colour, vec4(u_Ink.rgb, 1.0), u_Ink.a) : colour;
}
