// SPDX-License-Identifier: MIT
#include <RenderPasses/CameraJitterRenderPass.h>

#include "steps/InputRead.h"
#include "steps/MatrixChange.h"

#include <Core/Log.h>

#include <cstdlib>

namespace Velmora::Kvz {

CameraJitterPass::CameraJitterPass()
    : m_offsets{QVector2D(0.25f, -0.25f), QVector2D(-0.25f, 0.25f)}
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_bool_ResetTemporal"), true);
    addInput(QStringLiteral("Kvz_int_JitterMode"), 0);
    addOutput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"));
    addOutput(QStringLiteral("Kvz_int_JitterIndex"));
    addOutput(QStringLiteral("Kvz_Vector2D_JitterAmount"));
}

CameraJitterPass::~CameraJitterPass() = default;

void CameraJitterPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    const bool resets = inputValue<bool>(m_inputs[ResetTemporal]);
    auto mode = JitterMode(inputValue<int>(m_inputs[Mode]));

    if (resets || hasChanged(camera, projection, size)) {
        m_previousProjection = projection;
        m_previousCamera = camera;
        m_previousSize = size;
        m_stillFrames = 0;
    } else if (m_stillFrames > 33 && mode == JitterRandom) {
        // Never happens, since the counter stops at 4, on purpose.
        mode = JitterOff;
    }

    m_jitterIndex = (m_jitterIndex + 1) % 2;
    const QVector2D pixels = getJitter(mode);
    const float tx = 2.0f * pixels.x() / float(size.width());
    const float ty = 2.0f * pixels.y() / float(size.height());
    QMatrix4x4 shift;
    shift.translate(tx, ty, 0);

    m_outputs[ProjectionMatrixOut].value = shift * projection;
    m_outputs[JitterIndex].value = m_jitterIndex;
    m_outputs[JitterAmount].value = QVector2D(tx, ty);
}

QVector2D CameraJitterPass::getJitter(JitterMode mode)
{
    switch (mode) {
    case JitterOff:
        return {0, 0};
    case JitterRandom: {
        if (m_stillFrames <= 3) {
            ++m_stillFrames;
            return {0, 0};
        }
        // The first number is y.
        const double y = drand48() - 0.5;
        const double x = drand48() - 0.5;
        return {float(x), float(y)};
    }
    case JitterAntiDiagonal:
        return m_jitterIndex == 0 ? QVector2D(0.25f, -0.25f) : QVector2D(-0.25f, 0.25f);
    case JitterDiagonal:
        return m_jitterIndex == 0 ? QVector2D(0.75f, 0.75f) : QVector2D(0.25f, 0.25f);
    }
    KVZ_ASSERT(false, "CameraJitterPass: the returned jitter for mode %d will probably be incorrect", int(mode));
    return {0, 0};
}

bool CameraJitterPass::hasChanged(const QMatrix4x4 &camera, const QMatrix4x4 &projection, const QSize &size) const
{
    return size != m_previousSize || differs(camera, m_previousCamera) || differs(projection, m_previousProjection);
}

} // namespace Velmora::Kvz
