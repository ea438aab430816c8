// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/Export.h>

#include <QtCore/QString>

namespace Velmora::Kvz {

/// Which build of the pass library this is.
class KVZ_RENDERPASSES_EXPORT RenderPassesVersions
{
public:
    /// The release, such as "1.0.0".
    static QString getVersion();
    /// The revision that the build was made from; empty when the build does not record it.
    static QString getGitHash();
    /// A checksum of the build.
    static QString getMd5Sum();
};

} // namespace Velmora::Kvz
