// SPDX-License-Identifier: MIT
#pragma once

#include "ContextResources.h"

#include <GL/OpenGLDeviceContext.h>
#include <GL/TextureManager.h>

#include <QtCore/QSet>
#include <QtCore/QSharedPointer>

#include <memory>

class QOpenGLContext;

namespace Velmora::Kvz {

/// One OpenGL context, or one group of contexts that share objects. GL objects hold a weak pointer to the one that knows
/// their name: it is gone once the context is.
class ContextIdentity
{ };

/// Contexts that share objects, and what is theirs together.
struct ShareGroup
{
    QSharedPointer<ContextIdentity> identity = QSharedPointer<ContextIdentity>::create();
    std::unique_ptr<TextureManager> textureManager;
    QSet<unsigned int> tessellationPrograms;
    ContextResources resources;

    ~ShareGroup();
};

/// One context.
struct ContextRecord
{
    QSharedPointer<ContextIdentity> identity = QSharedPointer<ContextIdentity>::create();
    QSharedPointer<OpenGLDeviceContext> device;
    QSharedPointer<ShareGroup> group;

    ~ContextRecord();
};

/// All contexts that this library has met.
class ContextRegistry
{
public:
    /// The record of the current context, made when it is met first; null when none is current.
    static QSharedPointer<ContextRecord> current();
    /// The handle of the current context.
    static void *currentHandle();
    /// Forgets the current context: its objects drop their names from now on.
    static void endCurrent();
    /// Makes the current context, which must be new here, a member of another's share group.
    static void shareCurrentWith(void *other);
};

} // namespace Velmora::Kvz
