// SPDX-License-Identifier: MIT
#include <GL/AutoDisabler.h>
#include <GL/AutoEnabler.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

AutoEnabler::AutoEnabler(unsigned int capability) : m_capability(capability), m_wasEnabled(glIsEnabled(capability))
{
    glEnable(m_capability);
}

AutoEnabler::~AutoEnabler()
{
    if (!m_wasEnabled)
        glDisable(m_capability);
}

AutoDisabler::AutoDisabler(unsigned int capability) : m_capability(capability), m_wasEnabled(glIsEnabled(capability))
{
    glDisable(m_capability);
}

AutoDisabler::~AutoDisabler()
{
    if (m_wasEnabled)
        glEnable(m_capability);
}

} // namespace Velmora::Kvz
