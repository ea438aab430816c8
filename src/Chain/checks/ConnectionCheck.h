// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/checks/Check.h>

namespace Velmora::Kvz {

/// What is wrong with explicit connections and with exports.
class ConnectionCheck : public Check
{
public:
    using Check::Check;

    void checkConnections(int index);
    void checkExports();

private:
    void checkConnection(int index, const InputInfo &input, const ChainSource &source);
    void checkFrameValue(int index, const InputInfo &input, const QString &name);
};

} // namespace Velmora::Kvz
