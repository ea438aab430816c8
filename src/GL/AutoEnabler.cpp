// SPDX-License-Identifier: MIT
#include <GL/AutoDisabler.h>
#include <GL/AutoEnabler.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

void setEnabled(GLenum capability, bool enabled)
{
    if (enabled)
        glEnable(capability);
    else
        glDisable(capability);
}

} // namespace

AutoEnabler::AutoEnabler(unsigned int capability)
    : m_capability(capability),
      m_wasEnabled(glIsEnabled(capability))
{
    glEnable(m_capability);
}

AutoEnabler::~AutoEnabler()
{
    setEnabled(m_capability, m_wasEnabled);
}

AutoDisabler::AutoDisabler(unsigned int capability)
    : m_capability(capability),
      m_wasEnabled(glIsEnabled(capability))
{
    glDisable(m_capability);
}

AutoDisabler::~AutoDisabler()
{
    setEnabled(m_capability, m_wasEnabled);
}

} // namespace Velmora::Kvz
