// SPDX-License-Identifier: MIT
#include <RenderPasses/RenderPassesVersions.h>

namespace Velmora::Kvz {

QString RenderPassesVersions::getVersion()
{
    return QStringLiteral("1.0.0");
}

QString RenderPassesVersions::getGitHash()
{
    return QString();
}

QString RenderPassesVersions::getMd5Sum()
{
    return QStringLiteral("1");
}

} // namespace Velmora::Kvz
