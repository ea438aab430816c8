// SPDX-License-Identifier: MIT
#include <Chain/running/ContextClaim.h>

#include <GL/GLObject.h>
#include <GL/OpenGLDeviceContext.h>

namespace Velmora::Kvz {

ContextClaim::~ContextClaim()
{
    stopListening();
}

void ContextClaim::claim(const std::function<void()> &end)
{
    m_object = std::make_unique<GLObject>(GLObject::Sharing::OneContext);
    m_object->claim();
    const QSharedPointer<OpenGLDeviceContext> current = OpenGLDeviceContext::current();
    m_device = current;
    m_listener = current->addEndListener(end);
}

void ContextClaim::release()
{
    stopListening();
    m_object.reset();
}

void ContextClaim::stopListening()
{
    if (const auto known = m_device.toStrongRef())
        known->removeEndListener(m_listener);
    m_device.clear();
}

bool ContextClaim::isCurrent() const
{
    return m_object && m_object->isKnownToCurrentContext();
}

} // namespace Velmora::Kvz
