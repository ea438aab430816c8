// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/QVector>
#include <QtCore/QWeakPointer>

namespace Velmora::Kvz {

class ContextIdentity;

/// The tie between an object's GL name and the context that the name belongs to.
///
/// A name is made when it is first needed, and claimed for the context that is current then. It may be deleted only
/// through a context that knows it: an object that dies while none such is current drops its name without a GL call.
class KVZ_GL_EXPORT GLObject
{
public:
    /// Which contexts know a name.
    enum class Sharing {
        ShareGroup, ///< Every context of the share group: textures, buffers, programs.
        OneContext ///< The context that made it: framebuffers, vertex arrays.
    };

    explicit GLObject(Sharing sharing);
    ~GLObject();

    /// Claims the object for the current context.
    void claim();
    /// Whether the current context knows the claimed name. False before claim() and with no current context.
    bool isKnownToCurrentContext() const;
    /// Whether the context or share group that it was claimed for is gone, and the names with it. False before claim().
    bool isLost() const;

    /// What contexts do not share, and an object may have in several of them.
    enum class Kind { VertexArray, Query };
    /// Leaves a name of an object that dies elsewhere to the context that it was claimed for, which deletes it when an object of that kind
    /// is made there next. A context that is gone has deleted it already.
    void leaveName(Kind kind, unsigned int name);
    /// The names that were left to the current context, to be deleted now.
    static QVector<unsigned int> takeLeftNames(Kind kind);

private:
    Q_DISABLE_COPY(GLObject)

    Sharing m_sharing;
    QWeakPointer<ContextIdentity> m_identity;
    bool m_isClaimed = false;
};

} // namespace Velmora::Kvz
