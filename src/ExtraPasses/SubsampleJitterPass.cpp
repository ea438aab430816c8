// SPDX-License-Identifier: MIT
#include <ExtraPasses/SubsampleJitterPass.h>

#include "SubsampleTable.h"
#include "steps/InputRead.h"

namespace Velmora::Kvz {

SubsampleJitterPass::SubsampleJitterPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_int_JitterIndex"), QVariant());
    addOutput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"));
    addOutput(QStringLiteral("Kvz_Vector2D_JitterAmount"));
}

SubsampleJitterPass::~SubsampleJitterPass() = default;

void SubsampleJitterPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const QVariant &index = m_inputs[JitterIndex].value;

    QVector2D jitter;
    if (index.canConvert<int>())
        jitter = shiftTo(QPointF(0.5, 0.5), subsamplePosition(-1, index.toInt()), size);
    m_outputs[ProjectionMatrixOut].value = shifted(projection, jitter);
    m_outputs[JitterAmount].value = jitter;
}

} // namespace Velmora::Kvz
