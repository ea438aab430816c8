// SPDX-License-Identifier: MIT
#pragma once

#include "TargetFramebuffer.h"

#include <QtCore/QList>
#include <QtCore/QStringList>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

// The colour targets of a geometry buffer, from a pass's own list of records { outputName, internalFormat }. Record i
// stands at GL_COLOR_ATTACHMENT0 + i.

/// The fragment outputs in the order of their attachments.
template <typename Config> QStringList outputNames(const QList<Config> &configs)
{
    QStringList names;
    for (const Config &config : configs)
        names.append(config.outputName);
    return names;
}

/// Replaces each colour target by one of this size, in texels; the framebuffer must be bound.
template <typename Config>
void remakeColorTargets(TargetFramebuffer &framebuffer, const QList<Config> &configs, const QSize &size)
{
    unsigned int attachment = GL_COLOR_ATTACHMENT0;
    for (const Config &config : configs)
        framebuffer.remakeTarget(attachment++, config.internalFormat, size, GL_BGRA, GL_FLOAT);
}

} // namespace Velmora::Kvz
