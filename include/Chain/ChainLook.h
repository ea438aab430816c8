// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/PassRegistry.h>
#include <Host/Export.h>

#include <QtCore/QString>

#include <optional>

namespace Velmora::Kvz {

/// What people choose about the look of a picture, for any chain whose passes know it: where the light comes from, how bright
/// it is shown, and what lies around the model. What is not set stays as the chain has it.
struct KVZ_HOST_EXPORT ChainLook
{
    /// How bright light is fitted into the display's range, as ToneMapRenderPass has it.
    enum class ToneMapping { Neutral, Filmic, None };

    /// The name of a built-in environment, or the path of a latitude-longitude image. A relative path counts from the chain's folder.
    std::optional<QString> environment;
    /// Turns the environment about +y, in degrees.
    std::optional<float> environmentRotation;
    /// In stops, each of which doubles the light; finite.
    std::optional<float> exposure;
    /// Stops that bring what the model shows to middle grey, to which `exposure` is added.
    std::optional<bool> automaticExposure;
    std::optional<ToneMapping> toneMapping;
    /// Whether transparent surfaces are composited in their order, which is exact, or by weight, which costs less where many lie behind
    /// each other. Chains that sort know both.
    std::optional<bool> sortsTransparency;
    /// Whether the model's shadow on the ground is drawn.
    std::optional<bool> ground;
    /// Whether the environment is seen behind the model, in place of the chain's own background.
    std::optional<bool> environmentAsBackground;
    /// The path of an image to show behind the model, which fills the picture and is cut where its proportions are others, in place
    /// of the chain's own background.
    std::optional<QString> backgroundImage;

    /// The first of what is set that no enabled pass of a chain knows, as its member is named here; empty where it knows all.
    QString firstUnknown(const ChainDescription &chain, const PassRegistry &registry = PassRegistry::standard()) const;
    /// Gives all that is set to the chain. False, with the chain untouched and one line in `error`, where it does not know
    /// all of it or loses the alpha that a background needs.
    bool apply(ChainDescription *chain, QString *error, const PassRegistry &registry = PassRegistry::standard()) const;
};

} // namespace Velmora::Kvz
