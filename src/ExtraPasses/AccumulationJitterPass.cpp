// SPDX-License-Identifier: MIT
#include <ExtraPasses/AccumulationJitterPass.h>

#include "SubsampleTable.h"
#include "steps/InputRead.h"
#include "steps/MatrixChange.h"

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

constexpr int usualFrames = 32;

/// Place `index` of the sequence in a pixel; the first one is its centre.
QPointF sequencePosition(int index)
{
    // The root of x^3 = x + 1.
    const double plastic = 1.324717957244746;
    const auto part = [index](double step) { return std::fmod(0.5 + index * step, 1.0); };
    return {part(1 / plastic), part(1 / (plastic * plastic))};
}

} // namespace

AccumulationJitterPass::AccumulationJitterPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_int_AccumulatedFrames"), usualFrames);
    addInput(QStringLiteral("Kvz_bool_Restart"), false);
    addOutput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"));
    addOutput(QStringLiteral("Kvz_int_JitterIndex"));
    addOutput(QStringLiteral("Kvz_Vector2D_JitterAmount"));
}

AccumulationJitterPass::~AccumulationJitterPass() = default;

void AccumulationJitterPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    const int frames = std::max(1, inputValue<int>(m_inputs[AccumulatedFrames], usualFrames));
    if (inputValue<bool>(m_inputs[Restart]) || size != m_size || differs(projection, m_projection)
        || differs(camera, m_camera))
        m_next = 0;
    m_size = size;
    m_projection = projection;
    m_camera = camera;

    const int index = m_next % frames;
    m_next = (index + 1) % frames;
    const QVector2D shift = size.isEmpty() ? QVector2D() : shiftTo(QPointF(0.5, 0.5), sequencePosition(index), size);
    m_outputs[ProjectionMatrixOut].value = shifted(projection, shift);
    m_outputs[JitterIndex].value = index;
    m_outputs[JitterAmount].value = shift;
}

} // namespace Velmora::Kvz
