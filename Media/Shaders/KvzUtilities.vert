#version 150
// SPDX-License-Identifier: MIT
// A further unit of vertex stages. Its names are its own: programs add it beside KvzUtilities.glslc.

// The xyz of a clip-space position after the division by w: normalised device coordinates. A w of 0 gives the position as it
// is.
vec3 kvzNormalizedDevicePosition(vec4 clipPosition)
{
    return clipPosition.w == 0.0 ? clipPosition.xyz : clipPosition.xyz / clipPosition.w;
}
