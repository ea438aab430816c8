// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// Where ShaderPreprocessor finds what `#instancedata "Name"` brings in. The plans belong to the scene, which builds on this
/// layer and registers them here.
struct PlanDeclarations
{
    /// The declarations of a plan; null when there is none of that name.
    QString (*find)(const QString &plan);
    QStringList (*planNames)();
};

/// Call it from an initializer of file scope, so that the plans are there before any source is processed. Not owned; null
/// removes the plans.
void setPlanDeclarations(const PlanDeclarations *declarations);

} // namespace Velmora::Kvz
