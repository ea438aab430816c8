// SPDX-License-Identifier: MIT
#include "BlendReference.h"

#include <RenderPasses/BlendRenderPass.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

double blendReferenceAlpha(int mode, double Sa, double Da)
{
    switch (mode) {
    case BlendRenderPass::Clear:
        return 0;
    case BlendRenderPass::Src:
    case BlendRenderPass::DstAtop:
        return Sa;
    case BlendRenderPass::Dst:
    case BlendRenderPass::SrcAtop:
        return Da;
    case BlendRenderPass::SrcIn:
    case BlendRenderPass::DstIn:
    case BlendRenderPass::MultiplyKeepAlpha:
        return Sa * Da;
    case BlendRenderPass::SrcOut:
        return Sa * (1 - Da);
    case BlendRenderPass::DstOut:
        return Da * (1 - Sa);
    case BlendRenderPass::Xor:
        return Sa + Da - 2 * Sa * Da;
    case BlendRenderPass::Add:
        return Sa + Da;
    default:
        return Sa + Da - Sa * Da;
    }
}

} // namespace

double blendReferenceChannel(int mode, double S, double Sa, double D, double Da)
{
    const double m = D / Da;
    const double outside = S * (1 - Da) + D * (1 - Sa);
    switch (mode) {
    case BlendRenderPass::Src:
        return S;
    case BlendRenderPass::Dst:
        return D;
    case BlendRenderPass::SrcOver:
        return S + D * (1 - Sa);
    case BlendRenderPass::DstOver:
        return D + S * (1 - Da);
    case BlendRenderPass::SrcIn:
        return S * Da;
    case BlendRenderPass::DstIn:
        return D * Sa;
    case BlendRenderPass::SrcOut:
        return S * (1 - Da);
    case BlendRenderPass::DstOut:
        return D * (1 - Sa);
    case BlendRenderPass::SrcAtop:
        return S * Da + D * (1 - Sa);
    case BlendRenderPass::DstAtop:
        return D * Sa + S * (1 - Da);
    case BlendRenderPass::Xor:
        return outside;
    case BlendRenderPass::Add:
        return S + D;
    case BlendRenderPass::Multiply:
        return S * D + outside;
    case BlendRenderPass::Screen:
        return S + D - S * D;
    case BlendRenderPass::Overlay:
        return 2 * D <= 1 ? 2 * S * D + outside : S * (1 + Da) + D * (1 + Sa) - 2 * S * D - Da * Sa;
    case BlendRenderPass::Darken:
        return std::min(S * Da, D * Sa) + outside;
    case BlendRenderPass::Lighten:
        return std::max(S * Da, D * Sa) + outside;
    case BlendRenderPass::ColorDodge:
        if (S == Sa && D == 0)
            return S * (1 - Da);
        if (S == Sa)
            return Sa * Da + outside;
        return Sa * Da * std::min(1.0, m * Sa / (Sa - S)) + outside;
    case BlendRenderPass::ColorBurn:
        if (S == 0 && D == Da)
            return Sa * Da + D * (1 - Sa);
        if (S == 0)
            return D * (1 - Sa);
        return Sa * Da * (1 - std::min(1.0, (1 - m) * Sa / S)) + outside;
    case BlendRenderPass::HardLight:
        return 2 * S <= Sa ? 2 * S * D + outside : S * (1 + Da) + D * (1 + Sa) - Sa * Da - 2 * S * D;
    case BlendRenderPass::SoftLight:
        if (2 * S <= Sa)
            return D * (Sa + (2 * S - Sa) * (1 - m)) + outside;
        if (4 * D <= Da)
            return Da * (2 * S - Sa) * (16 * m * m * m - 12 * m * m - 3 * m) + S - S * Da + D;
        return Da * (2 * S - Sa) * (std::sqrt(m) - m) + S - S * Da + D;
    case BlendRenderPass::Exclusion:
        return S * Da + D * Sa - 2 * S * D + outside;
    case BlendRenderPass::Difference:
        return S + D - 2 * std::min(S * Da, D * Sa);
    case BlendRenderPass::InvertAndAdd:
        return outside + (0.5 - 0.5 * (D - S)) * Sa * Da;
    case BlendRenderPass::MultiplyKeepAlpha:
        return S * D;
    default:
        return 0;
    }
}

std::array<double, 4> blendReference(int mode, const QVector4D &source, const QVector4D &destination)
{
    std::array<double, 4> color;
    for (int i = 0; i < 3; ++i)
        color[size_t(i)] = blendReferenceChannel(mode, source[i], source[3], destination[i], destination[3]);
    color[3] = blendReferenceAlpha(mode, source[3], destination[3]);
    return color;
}

} // namespace Velmora::Kvz
