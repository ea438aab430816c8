// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/PassRegistry.h>
#include <Host/Export.h>

#include <QtCore/QString>
#include <QtGui/QColor>

namespace Velmora::Kvz {

/// Puts one colour behind the picture of a chain, in place of whatever its passes with the trait Background fill in. Straight alpha; a
/// transparent colour leaves the picture transparent where nothing is, with the colours multiplied by alpha.
///
/// The background passes are taken out, with the passes that only feed them, and the chain's last pass with an input
/// `Kvz_QColor_BackgroundColor` gets the colour. A chain without such a pass keeps its gradient, in that one colour.
///
/// False, with `chain` untouched and one line in `error`, for a colour that is not opaque where a pass of the chain loses alpha or
/// nothing composites, and where nothing in the chain can have its colour changed.
KVZ_HOST_EXPORT bool setBackground(ChainDescription *chain, const QColor &colour, QString *error,
    const PassRegistry &registry = PassRegistry::standard());

} // namespace Velmora::Kvz
