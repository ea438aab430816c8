// SPDX-License-Identifier: MIT
#include <GL/AutoBinder.h>

namespace Velmora::Kvz {

AutoBinder::AutoBinder(Bindable *object)
    : m_object(object)
{
    if (m_object)
        m_object->bind();
}

AutoBinder::AutoBinder(const QSharedPointer<Bindable> &object)
    : m_keepAlive(object),
      m_object(object.data())
{
    if (m_object)
        m_object->bind();
}

AutoBinder::~AutoBinder()
{
    if (m_object)
        m_object->unbind();
}

} // namespace Velmora::Kvz
