// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

inline QString gltf2Name()
{
    return QStringLiteral("glTF 2");
}

/// The name of a format as assimp describes its importer, without the words that say that it is one.
QString formatNameOf(const char *importer);

} // namespace Velmora::Kvz
