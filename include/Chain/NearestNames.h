// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// The known names that may have been meant, nearest first, at most three; empty if none is near. Case is ignored, and
/// so are the words "Kvz_" and "RenderPass".
KVZ_HOST_EXPORT QStringList nearestNames(const QString &name, const QStringList &known);

/// Advice about an unknown name: `did you mean "A" or "B"?`; all known names where none is near and they are few;
/// `otherwise` where they are many, and where there are none.
KVZ_HOST_EXPORT QString nearestNamesAdvice(
    const QString &name, const QStringList &known, const QString &otherwise = QString());

/// The same to put behind a message: "; " and the advice, or nothing where there is none.
KVZ_HOST_EXPORT QString nearestNamesHint(
    const QString &name, const QStringList &known, const QString &otherwise = QString());

} // namespace Velmora::Kvz
