// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

// The program that draws a model into the images of its materials, for buildModelProgram().

extern const QString materialImagesVertexSource;

/// With `discardOnDiffuseAlpha` fragments are discarded where the alpha of the diffuse image is next to nothing. Where
/// opaqueOnlyMacro is defined, materials with an opacity below 1 are discarded.
QString materialImagesFragmentSource(bool discardOnDiffuseAlpha);

extern const QString opaqueOnlyMacro;

} // namespace Velmora::Kvz
