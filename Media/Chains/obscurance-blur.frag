// SPDX-License-Identifier: MIT
#version 150

uniform sampler2D u_Obscurance; // Grey; alpha 0 where there is no image.
uniform sampler2D u_Positions;  // In camera space.
uniform sampler2D u_Normal;     // In camera space; 0 where there is no model.
uniform vec2 u_Step;            // From texel to texel, in pixels.
uniform float u_Edge;           // Distance from the surface's plane beyond which taps do not count, relative to the distance from the camera.

in vec2 vo_TexCoord;
out vec4 o_Obscurance;

const int reach = 4;
const float gauss[reach + 1] = float[reach + 1](0.153170, 0.144893, 0.122649, 0.092902, 0.062970);

// Two draws, along x and along y: a Gaussian over the taps that lie on the same surface. Each tap but the first reads between
// two texels and so averages both, which leaves no pattern of odd and even ones.
void main()
{
    vec3 centre = texture(u_Positions, vo_TexCoord).xyz;
    vec3 normal = texture(u_Normal, vo_TexCoord).xyz;
    vec2 offset = u_Step / vec2(textureSize(u_Positions, 0));
    float margin = max(-u_Edge * centre.z, 1e-6);

    vec4 sum = gauss[0] * texture(u_Obscurance, vo_TexCoord);
    float weights = gauss[0];
    for (int i = -reach; i <= reach; ++i) {
        if (i == 0)
            continue;
        vec2 place = vo_TexCoord + (2.0 * float(i) - 0.5 * sign(float(i))) * offset;
        float height = dot(texture(u_Positions, place).xyz - centre, normal);
        float weight = gauss[abs(i)] * max(0.0, 1.0 - abs(height) / margin);
        sum += weight * texture(u_Obscurance, place);
        weights += weight;
    }
    o_Obscurance = sum / weights;
}
