// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QLatin1String>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// Names of the values that a host gives for a frame as a whole. Each reaches every input of that port name that no
/// connection, value or earlier pass feeds. A host may set values under other port names as well.
namespace FrameValues {

inline const QLatin1String viewport{"Kvz_QRect_Viewport"}; ///< QRect in pixels.
inline const QLatin1String projectionMatrix{"Kvz_QMatrix4x4_ProjectionMatrix"}; ///< QMatrix4x4 without jitter.
inline const QLatin1String cameraMatrix{"Kvz_QMatrix4x4_CameraMatrix"}; ///< QMatrix4x4, world to camera.
inline const QLatin1String nearPlane{"Kvz_float_NearPlane"}; ///< float, distance above 0.
inline const QLatin1String farPlane{"Kvz_float_FarPlane"}; ///< float, distance beyond the near plane.
inline const QLatin1String model{"Kvz_KvzGPUModel*_Geometry"}; ///< GPUModel *.
inline const QLatin1String sceneBoundsMin{"Kvz_QVector3D_SceneBoundsMin"}; ///< QVector3D, world space.
inline const QLatin1String sceneBoundsMax{"Kvz_QVector3D_SceneBoundsMax"}; ///< QVector3D, world space.
inline const QLatin1String lights{"Kvz_QList_KvzShadowMapManagerLight*_Lights"}; ///< QVariantList.
inline const QLatin1String headlightIntensity{"Kvz_float_HeadlightIntensity"}; ///< float, of the headlight.
inline const QLatin1String ambientIntensity{"Kvz_float_AmbientIntensity"}; ///< float, of the ambient light.
inline const QLatin1String fixedLight{"Kvz_bool_FixedLight"}; ///< bool: the basic passes' light in place of these two.
inline const QLatin1String instanceData{"Kvz_QList_InstanceData"}; ///< QVariantList.
inline const QLatin1String framebuffer{"Kvz_KvzFramebuffer*_FramebufferOut"}; ///< FramebufferObject *.

/// All names above.
KVZ_HOST_EXPORT QStringList standardNames();

} // namespace FrameValues

} // namespace Velmora::Kvz
