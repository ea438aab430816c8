// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/TransparencyRenderPass.h>

#include <QtCore/QPointer>
#include <QtGui/QColor>

#include <memory>

namespace Velmora::Kvz {

class InstanceDataCollection;

/// TransparencyRenderPass with the two things that it leaves to its host: the background, which it takes from GL's
/// clear colour, and materials whose colours are multiplied by their opacity. Same ports, same outputs.
class KVZ_EXTRAPASSES_EXPORT PreparedTransparencyRenderPass : public TransparencyRenderPass
{
public:
    /// `clearColor` shows where there is nothing; if it is invalid, GL's clear colour does, as it is found.
    /// `premultiply` says whether the pass multiplies kd and ks of materials by their opacity, which the blend formula
    /// expects.
    PreparedTransparencyRenderPass(const QColor &clearColor, bool premultiply);
    ~PreparedTransparencyRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    InstanceDataCollection *materialsOf(const GPUModel &model);

    QColor m_clearColor;
    bool m_premultiply;
    QPointer<DrawBuffers> m_geometry; ///< Of the model whose materials these are.
    std::unique_ptr<InstanceDataCollection> m_materials;
};

} // namespace Velmora::Kvz
