// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

namespace Velmora::Kvz {

class Texture;
struct FilteredEnvironment;

/// The array texture that EnvironmentLight.glslc reads: filtered surroundings in layer 0, the table of reflected shares in layer 1.
std::unique_ptr<Texture> makeEnvironmentTexture(const FilteredEnvironment &environment);

/// The same without surroundings: a table alone, for passes that are given no environment.
std::unique_ptr<Texture> makeReflectanceTexture();

} // namespace Velmora::Kvz
