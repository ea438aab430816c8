// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/PassInfo.h>
#include <Host/Export.h>

#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include <memory>

namespace Velmora::Kvz {

/// The description of a class for a pass with certain options.
struct ConfiguredPass
{
    std::shared_ptr<const PassInfo> info; ///< With the ports that the options add.
    PassOptions options;
    QVector<OptionProblem> problems;
};

/// Converts the options of a pass, fills in defaults, and reports what is wrong. Options with problems are left out, except
/// files that do not exist. File names become absolute; relative ones start in `folder`, or in the working directory
/// where it is empty.
KVZ_HOST_EXPORT PassOptions resolveOptions(const PassInfo &pass, const QVariantMap &given,
    QVector<OptionProblem> *problems = nullptr, const QString &folder = QString());

/// The same, with the ports that the options add.
KVZ_HOST_EXPORT ConfiguredPass configurePass(
    const std::shared_ptr<const PassInfo> &info, const QVariantMap &given, const QString &folder = QString());

} // namespace Velmora::Kvz
