// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/checks/Check.h>

namespace Velmora::Kvz {

/// What is wrong between the passes as a whole: their order by roles, and lights that no pass takes.
class OrderCheck : public Check
{
public:
    using Check::Check;

    void checkRoles();
    void checkLights();

private:
    bool appliesObscurance(const ResolvedPass &pass) const;
};

} // namespace Velmora::Kvz
