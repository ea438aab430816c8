// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/checks/Check.h>

namespace Velmora::Kvz {

/// What is wrong with what the inputs of a pass get, and with its configuration.
class InputCheck : public Check
{
public:
    using Check::Check;

    void checkInputs(int index);
    void checkRules(int index);

private:
    void reportJitter(int index, const InputInfo &input, const ResolvedInput &source);
    void reportMissing(int index, int input);
};

} // namespace Velmora::Kvz
