// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtGui/QVector3D>

namespace Velmora::Kvz {

/// A light as people write it, in chain files and on the command line.
///
/// A light that casts shadows is placed around a scene or at a point, and points at the scene's centre or at a point.
/// The headlight and the ambient light have only an intensity: they light what the lit passes draw.
struct KVZ_HOST_EXPORT LightDescription
{
    enum class Kind {
        ShadowCaster, ///< Of the `type` below. It casts shadows and does not light.
        Headlight, ///< A lamp at the eye.
        Ambient, ///< Light from everywhere alike.
        None ///< Neither headlight nor ambient light: the one fixed light of the basic passes takes their place.
    };

    Kind kind = Kind::ShadowCaster;
    ShadowMapManager::Light::Type type = ShadowMapManager::Light::Directional;

    float azimuth = 45; ///< Degrees around the Y axis, seen from the target: 0 stands towards +Z, 90 towards +X.
    float elevation = 45; ///< Degrees above the horizon, -90 to 90.
    float distance = 2; ///< From the target, in radii of the sphere around the scene, above 0.

    bool hasPosition = false; ///< Stands at `position` instead of where the three above say.
    QVector3D position; ///< World space.
    bool hasTarget = false;
    QVector3D target; ///< World space; the centre of the scene without hasTarget. Point lights have none.

    float coneAngle = 40; ///< Of spots: full angle, degrees, above 0 and below 180.
    float range = 0; ///< Of spots and points: world units; 0: twice the way to the far side of the scene.
    int cascades = 3; ///< Of directional lights: 1 to 16.
    float intensity = 1; ///< 0 or more; of shadow casters, beside other lights.
    float depthBias = 0.0005f; ///< In normalised device units, 0 or more.

    /// The intensity of a light of this kind if none is given: those of headlight and ambient light add up to 1.
    static float usualIntensity(Kind kind);

    /// Reads `headlight` or `ambient`, optionally followed by `:intensity=NUMBER`; `none`; or a type, `directional`,
    /// `spot` or `point`, followed by parts, each with ":" in front:
    /// - `AZIMUTH,ELEVATION` or `AZIMUTH,ELEVATION,DISTANCE`,
    /// - `position=X,Y,Z`, `target=X,Y,Z`, `cone=DEGREES`, `range=LENGTH`, `cascades=NUMBER`, `intensity=NUMBER`,
    ///   `bias=NUMBER`,
    ///
    /// such as "directional:30,60", "spot:-60,40,1.5:cone=30" and "point:position=0,2,1:intensity=0.5". False, with `light`
    /// untouched and one line in `error`, for text that is none of these, values out of range, and parts that the type does
    /// not have.
    static bool fromString(const QString &text, LightDescription *light, QString *error);
    /// The text that fromString() reads as this light, without parts that have their default.
    QString toString() const;

    /// Sets `light` to this one, which casts shadows, for a scene with these bounds (minimum, then maximum corner,
    /// world space). Bounds without extent count as a scene one unit across.
    void place(const QPair<QVector3D, QVector3D> &bounds, ShadowMapManager::Light *light) const;

    bool operator==(const LightDescription &other) const { return toString() == other.toString(); }
    bool operator!=(const LightDescription &other) const { return !(*this == other); }
};

} // namespace Velmora::Kvz
