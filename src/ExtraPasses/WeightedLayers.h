// SPDX-License-Identifier: MIT
#pragma once

#include "SurfaceProgram.h"

#include <Core/NamedValue.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtCore/QVariant>

#include <functional>
#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class TargetFramebuffer;
class Texture;

/// Draws transparent items as LitWeightedRenderPass describes it, with surfaces and light of either kind.
class WeightedLayers
{
public:
    explicit WeightedLayers(SurfaceKind kind);
    ~WeightedLayers();

    /// Writes the layers, a pooled image, to an output with so many users, and gives the depth image back. `prepare` sets what the
    /// bound program has of light, and `finish` undoes what it bound.
    void draw(const SurfaceScene &scene, Texture *depth, NamedValue<QVariant> &output, int users,
        const std::function<void(ShaderProgram &)> &prepare, const std::function<void()> &finish = {});

private:
    void accumulate(const SurfaceScene &scene, Texture *depth, const std::function<void(ShaderProgram &)> &prepare,
        const std::function<void()> &finish);
    void resolve(NamedValue<QVariant> &output, int users);
    Texture *suitableDepth(Texture *depth);

    std::unique_ptr<SurfaceProgramVariants> m_layerPrograms;
    std::unique_ptr<TargetFramebuffer> m_sums; ///< Of weighted colours with T, and of weights.
    std::unique_ptr<FramebufferObject> m_framebuffer;
    std::unique_ptr<ShaderProgram> m_resolveProgram;
    QSharedPointer<DrawBuffers> m_screenQuad;
    QSize m_size;
    bool m_isDepthRefused = false;
};

} // namespace Velmora::Kvz
