// SPDX-License-Identifier: MIT
#pragma once

#include "OwnedTarget.h"

#include <QtCore/QList>
#include <QtCore/QStringList>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

// The targets of a geometry buffer, from a pass's own list of records { outputName, internalFormat }. Record i stands at
// GL_COLOR_ATTACHMENT0 + i.

/// The fragment outputs in the order of their attachments.
template <typename Config> QStringList outputNames(const QList<Config> &configs)
{
    QStringList names;
    for (const Config &config : configs)
        names.append(config.outputName);
    return names;
}

/// Makes each colour target anew; the framebuffer must be bound.
template <typename Config>
void remakeColorTargets(FramebufferObject *framebuffer, const QList<Config> &configs, const QSize &size)
{
    unsigned int attachment = GL_COLOR_ATTACHMENT0;
    for (const Config &config : configs)
        remakeTarget(framebuffer, attachment++, config.internalFormat, size, GL_BGRA, GL_FLOAT);
}

/// Deletes the colour targets and the depth target.
template <typename Config> void deleteGeometryTargets(FramebufferObject *framebuffer, const QList<Config> &configs)
{
    for (int i = 0; i < configs.size(); ++i)
        deleteTarget(framebuffer, GL_COLOR_ATTACHMENT0 + unsigned(i));
    deleteTarget(framebuffer, GL_DEPTH_ATTACHMENT);
}

} // namespace Velmora::Kvz
