// SPDX-License-Identifier: MIT
#include <Chain/FrameValues.h>

namespace Velmora::Kvz::FrameValues {

QStringList standardNames()
{
    return {viewport, projectionMatrix, cameraMatrix, nearPlane, farPlane, model, sceneBoundsMin, sceneBoundsMax,
        lights, headlightIntensity, ambientIntensity, fixedLight, instanceData, framebuffer};
}

} // namespace Velmora::Kvz::FrameValues
