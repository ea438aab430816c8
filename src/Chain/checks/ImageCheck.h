// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/checks/Check.h>

namespace Velmora::Kvz {

/// What is wrong with the image that a texture input gets from an output.
class ImageCheck : public Check
{
public:
    using Check::Check;

    void checkImage(int index, const InputInfo &input, const ResolvedInput &source);

private:
    void checkKind(int index, const InputInfo &input, const ResolvedInput &source);
    void checkSamples(int index, const InputInfo &input, const ResolvedInput &source);
    QString refusalOfSamples(int index, const InputInfo &input) const;
    void checkSamplesAgree(int index, const InputInfo &input, const ResolvedInput &source);
    bool readsAround(ResolvedInput source, const ResolvedInput &origin, int painter) const;
    void checkDrawTarget(int painter, const InputInfo &input, const ResolvedInput &source);
};

} // namespace Velmora::Kvz
