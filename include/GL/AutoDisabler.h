// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

namespace Velmora::Kvz {

/// Disables a GL capability, such as GL_DEPTH_TEST, for a scope and restores its state at the end.
class KVZ_GL_EXPORT AutoDisabler
{
public:
    explicit AutoDisabler(unsigned int capability);
    ~AutoDisabler();

private:
    Q_DISABLE_COPY(AutoDisabler)

    unsigned int m_capability;
    bool m_wasEnabled;
};

} // namespace Velmora::Kvz
