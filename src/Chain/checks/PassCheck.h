// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/checks/Check.h>

#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtCore/QVariant>

namespace Velmora::Kvz {

/// What is wrong with a pass by itself: its name, class, options and values.
class PassCheck : public Check
{
public:
    using Check::Check;

    void reportEmptyChain();
    void checkName(int index);
    /// False, with a finding, for an unknown class, about which nothing else can be said.
    bool checkClass(int index);
    void checkOptions(int index);
    void checkValues(int index);

private:
    void checkValue(int index, const QString &port, const QVariant &given);
    void checkImageFile(int index, const InputInfo &input, const QString &path, const QString &name);
    void checkFace(int index, const InputInfo &input, const QString &path, const QSize &size);
};

} // namespace Velmora::Kvz
