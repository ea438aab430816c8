// SPDX-License-Identifier: MIT
#pragma once

#include "GltfFile.h"

#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// One line for all extensions of a document that change the look of its surfaces and that no pass draws; none where there are none.
QStringList undrawnExtensions(const tinygltf::Model &document);

} // namespace Velmora::Kvz
