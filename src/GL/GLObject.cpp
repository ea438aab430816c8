// SPDX-License-Identifier: MIT
#include <GL/GLObject.h>

#include "ContextRegistry.h"

namespace Velmora::Kvz {

GLObject::GLObject(Sharing sharing)
    : m_sharing(sharing)
{ }

GLObject::~GLObject() = default;

void GLObject::claim()
{
    if (const QSharedPointer<ContextRecord> record = ContextRegistry::current())
        m_identity = m_sharing == Sharing::ShareGroup ? record->group->identity : record->identity;
    m_isClaimed = !m_identity.isNull();
}

bool GLObject::isLost() const
{
    return m_isClaimed && !m_identity.toStrongRef();
}

void GLObject::leaveName(Kind kind, unsigned int name)
{
    if (const QSharedPointer<ContextIdentity> identity = m_identity.toStrongRef())
        identity->leave(size_t(kind), name);
}

QVector<unsigned int> GLObject::takeLeftNames(Kind kind)
{
    const QSharedPointer<ContextRecord> record = ContextRegistry::current();
    return record ? record->identity->takeLeft(size_t(kind)) : QVector<unsigned int>();
}

bool GLObject::isKnownToCurrentContext() const
{
    const QSharedPointer<ContextIdentity> identity = m_identity.toStrongRef();
    if (!identity)
        return false;
    const QSharedPointer<ContextRecord> record = ContextRegistry::current();
    return record && identity == (m_sharing == Sharing::ShareGroup ? record->group->identity : record->identity);
}

} // namespace Velmora::Kvz
