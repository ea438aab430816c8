// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

namespace Velmora::Kvz {

/// Enables a GL capability, such as GL_BLEND, for a scope and restores its state at the end.
class KVZ_GL_EXPORT AutoEnabler
{
public:
    explicit AutoEnabler(unsigned int capability);
    ~AutoEnabler();

private:
    Q_DISABLE_COPY(AutoEnabler)

    unsigned int m_capability;
    bool m_wasEnabled;
};

} // namespace Velmora::Kvz
