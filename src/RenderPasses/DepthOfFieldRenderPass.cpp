// SPDX-License-Identifier: MIT
#include <RenderPasses/DepthOfFieldRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/Sampling.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"
#include "steps/Uniforms.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtGui/QVector2D>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

// The reads keep the name texture2D, which strict compilers do not know in this version; hence the macro.
const QString fragmentSource = QStringLiteral(R"(#version 150
#define PI  3.14159265
#define texture2D texture

uniform sampler2D bgl_RenderedTexture;
uniform sampler2D bgl_DepthTexture;
uniform int bgl_RenderedTextureWidth;
uniform int bgl_RenderedTextureHeight;
uniform float focalDepth;             // metres, or the scene's own unit
uniform float focalLength = 1.0;      // millimetres
uniform float fstop;
uniform bool autofocus;
uniform vec2 focus = vec2(0.5, 0.5);  // (0, 0) is the lower left corner, (1, 1) the upper right one
uniform bool showFocus = false;

in vec2 vo_TexCoord;
out vec4 out_FragColor;

float width = float(bgl_RenderedTextureWidth);
float height = float(bgl_RenderedTextureHeight);
vec2 texel = vec2(1.0 / width, 1.0 / height);

const float znear = 0.1;         // the camera's near plane, which no port feeds
const float zfar = 100.0;        // its far plane

const int samples = 3;           // on the first ring
const int rings = 3;

const bool manualdof = false;    // four distances instead of the lens
const float ndofstart = 1.0;     // where the near blur starts
const float ndofdist = 2.0;      // how far it takes to its full strength
const float fdofstart = 1.0;     // the same of the far blur
const float fdofdist = 3.0;

const float CoC = 0.03;          // circle of confusion in millimetres

const bool vignetting = false;
const float vignout = 1.3;       // outer border
const float vignin = 0.0;        // inner border
const float vignfade = 22.0;     // stops until it fades

const float maxblur = 1.0;       // scale of the largest blur
const float threshold = 0.5;     // of highlights
const float gain = 2.0;          // of highlights
const float bias = 0.5;          // to the edge of a blurred point
const float fringe = 0.7;        // how far the colours stand apart
const bool noise = true;         // hashed noise instead of a pattern
const float namount = 0.0001;    // strength of the noise

const bool depthblur = false;    // blur the depth before its use
const float dbsize = 1.25;       // in texels

const bool pentagon = false;     // shape of a blurred point
const float feather = 0.4;       // of the pentagon's edge

float linearize(float depth)
{
    return -zfar * znear / (depth * (zfar - znear) - zfar);
}

float bdepth(vec2 coords)
{
    float kernel[9] = float[9](
        1.0 / 16.0, 2.0 / 16.0, 1.0 / 16.0,
        2.0 / 16.0, 4.0 / 16.0, 2.0 / 16.0,
        1.0 / 16.0, 2.0 / 16.0, 1.0 / 16.0);
    vec2 wh = texel * dbsize;
    // Both components of offset 2 are wh.x - wh.y, on purpose.
    vec2 offset[9] = vec2[9](
        vec2(-wh.x, -wh.y), vec2(0.0, -wh.y), vec2( wh.x -wh.y),
        vec2(-wh.x,  0.0),  vec2(0.0,  0.0),  vec2( wh.x, 0.0),
        vec2(-wh.x,  wh.y), vec2(0.0,  wh.y), vec2( wh.x, wh.y));
    float d = 0.0;
    for (int i = 0; i < 9; ++i)
        d += texture2D(bgl_DepthTexture, coords + offset[i]).r * kernel[i];
    return d;
}

vec3 color(vec2 coords, float blur)
{
    vec3 col;
    col.r = texture2D(bgl_RenderedTexture, coords + vec2(0.0, 1.0) * texel * fringe * blur).r;
    col.g = texture2D(bgl_RenderedTexture, coords + vec2(-0.866, -0.5) * texel * fringe * blur).g;
    col.b = texture2D(bgl_RenderedTexture, coords + vec2(0.866, -0.5) * texel * fringe * blur).b;
    float lum = dot(col, vec3(0.299, 0.587, 0.114));
    float thresh = max((lum - threshold) * gain, 0.0);
    return col + mix(vec3(0.0), col, thresh * blur);
}

vec2 rand(vec2 coord)
{
    float noiseX = ((fract(1.0 - coord.s * (width / 2.0)) * 0.25) + (fract(coord.t * (height / 2.0)) * 0.75)) * 2.0 - 1.0;
    float noiseY = ((fract(1.0 - coord.s * (width / 2.0)) * 0.75) + (fract(coord.t * (height / 2.0)) * 0.25)) * 2.0 - 1.0;
    if (noise) {
        noiseX = clamp(fract(sin(dot(coord, vec2(12.9898, 78.233))) * 43758.5453), 0.0, 1.0) * 2.0 - 1.0;
        noiseY = clamp(fract(sin(dot(coord, vec2(12.9898, 78.233) * 2.0)) * 43758.5453), 0.0, 1.0) * 2.0 - 1.0;
    }
    return vec2(noiseX, noiseY);
}

float penta(vec2 coords)
{
    float scale = float(rings) - 1.3;
    vec4 HS0 = vec4( 1.0,          0.0,         0.0, 1.0);
    vec4 HS1 = vec4( 0.309016994,  0.951056516, 0.0, 1.0);
    vec4 HS2 = vec4(-0.809016994,  0.587785252, 0.0, 1.0);
    vec4 HS3 = vec4(-0.809016994, -0.587785252, 0.0, 1.0);
    vec4 HS4 = vec4( 0.309016994, -0.951056516, 0.0, 1.0);
    vec4 HS5 = vec4( 0.0,          0.0,         1.0, 1.0);
    vec4 P = vec4(coords, vec2(scale, scale));
    float inorout = -4.0;
    inorout += smoothstep(-feather, feather, dot(P, HS0));
    inorout += smoothstep(-feather, feather, dot(P, HS1));
    inorout += smoothstep(-feather, feather, dot(P, HS2));
    inorout += smoothstep(-feather, feather, dot(P, HS3));
    vec4 dist = vec4(0.0);
    dist.x = dot(P, HS4);
    dist.y = HS5.w - abs(P.z);
    inorout += smoothstep(-feather, feather, dist.x);
    return clamp(inorout, 0.0, 1.0);
}

vec3 debugFocus(vec3 col, float blur, float depth)
{
    float edge = 0.002 * depth;
    float m = clamp(smoothstep(0.0, edge, blur), 0.0, 1.0);
    float e = clamp(smoothstep(1.0 - edge, 1.0, blur), 0.0, 1.0);
    col = mix(col, vec3(1.0, 0.5, 0.0), (1.0 - m) * 0.6);
    col = mix(col, vec3(0.0, 0.5, 1.0), ((1.0 - e) - (1.0 - m)) * 0.2);
    return col;
}

float vignette()
{
    float dist = distance(vo_TexCoord, vec2(0.5, 0.5));
    dist = smoothstep(vignout + (fstop / vignfade), vignin + (fstop / vignfade), dist);
    return clamp(dist, 0.0, 1.0);
}

void main()
{
    float depth = linearize(texture2D(bgl_DepthTexture, vo_TexCoord).r);
    if (depthblur)
        depth = linearize(bdepth(vo_TexCoord));

    float fDepth = focalDepth;
    if (autofocus)
        fDepth = linearize(texture2D(bgl_DepthTexture, focus).r);

    // Intentional: divisions by zero go on to the clamp.
    float blur = 0.0;
    if (manualdof) {
        float a = depth - fDepth;
        float b = (a - fdofstart) / fdofdist;
        float c = (-a - ndofstart) / ndofdist;
        blur = (a > 0.0) ? b : c;
    } else {
        float f = focalLength;
        float d = fDepth * 1000.0;
        float o = depth * 1000.0;
        float a = (o * f) / (o - f);
        float b = (d * f) / (d - f);
        float c = (d - f) / (d * fstop * CoC);
        blur = abs(a - b) * c;
    }
    blur = clamp(blur, 0.0, 1.0);

    vec2 noiseVector = rand(vo_TexCoord) * namount * blur;
    float w = (1.0 / width) * blur * maxblur + noiseVector.x;
    float h = (1.0 / height) * blur * maxblur + noiseVector.y;

    vec3 col = texture2D(bgl_RenderedTexture, vo_TexCoord).rgb;
    if (!(blur < 0.05)) {
        float s = 1.0;
        for (int i = 1; i <= rings; ++i) {
            int ringsamples = i * samples;
            for (int j = 0; j < ringsamples; ++j) {
                float step = PI * 2.0 / float(ringsamples);
                float pw = cos(float(j) * step) * float(i);
                float ph = sin(float(j) * step) * float(i);
                float p = 1.0;
                if (pentagon)
                    p = penta(vec2(pw, ph));
                float weight = mix(1.0, float(i) / float(rings), bias) * p;
                col += color(vo_TexCoord + vec2(pw * w, ph * h), blur) * weight;
                s += weight;
            }
        }
        col /= s;
    }

    if (showFocus)
        col = debugFocus(col, blur, depth);
    if (vignetting)
        col *= vignette();

    out_FragColor.rgb = col;
    // Intentional: alpha is not written.
    //out_FragColor.a = 1.0;
}
)");

} // namespace

DepthOfFieldRenderPass::DepthOfFieldRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Frame"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addInput(QStringLiteral("Kvz_float_FocalDepth"), QVariant());
    addInput(QStringLiteral("Kvz_float_FocalLength"), QVariant());
    addInput(QStringLiteral("Kvz_float_FStop"), QVariant());
    addInput(QStringLiteral("Kvz_bool_AutoFocus"), QVariant());
    addInput(QStringLiteral("Kvz_QVector2D_Focus"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

DepthOfFieldRenderPass::~DepthOfFieldRenderPass() = default;

void DepthOfFieldRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    auto *const frame = getInputPointer<Texture>(FrameIn);
    if (!frame) {
        m_outputs[Frame].value = QVariant();
        return;
    }
    auto *const depth = getInputPointer<Texture>(Depth);
    const auto focalDepth = inputValue<float>(m_inputs[FocalDepth]);
    const auto focalLength = inputValue<float>(m_inputs[FocalLength]);
    const auto fStop = inputValue<float>(m_inputs[FStop]);
    const bool autoFocus = inputValue<bool>(m_inputs[AutoFocus]);
    const auto focus = inputValue<QVector2D>(m_inputs[Focus]);

    const bool isFirstFrame = ensureFramebuffer(m_framebuffer);
    if (isFirstFrame || size != m_size)
        resizeTarget(size);
    if (!m_program)
        m_program = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource);
    ensureScreenQuad(m_screenQuad, *m_program);

    {
        AutoBinder framebuffer(m_framebuffer.get());
        m_framebuffer->setDrawBuffers();
        glDisable(GL_DEPTH_TEST);
        glViewport(0, 0, size.width(), size.height());
        glClear(GL_COLOR_BUFFER_BIT);
        AutoBinder program(m_program.get());
        AutoBinder frameBinder(frame);
        AutoBinder depthBinder(depth);
        LinearFilters filters(frame);
        m_program->setUniform(QStringLiteral("bgl_RenderedTexture"), frame->unit());
        setSampler(*m_program, QStringLiteral("bgl_DepthTexture"), depth);
        m_program->setUniform(QStringLiteral("bgl_RenderedTextureWidth"), m_size.width());
        m_program->setUniform(QStringLiteral("bgl_RenderedTextureHeight"), m_size.height());
        m_program->setUniform(QStringLiteral("focalDepth"), focalDepth);
        m_program->setUniform(QStringLiteral("focalLength"), focalLength);
        m_program->setUniform(QStringLiteral("fstop"), fStop);
        m_program->setUniform(QStringLiteral("autofocus"), autoFocus);
        m_program->setUniform(QStringLiteral("focus"), focus);
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }

    publishTarget(m_outputs[Frame], *m_framebuffer, GL_COLOR_ATTACHMENT0);
}

void DepthOfFieldRenderPass::resizeTarget(const QSize &size)
{
    m_size = size;
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA32F, size, GL_BGRA, GL_FLOAT);
}

} // namespace Velmora::Kvz
