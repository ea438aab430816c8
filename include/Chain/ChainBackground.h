// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/PassRegistry.h>
#include <Host/Export.h>

#include <QtCore/QString>
#include <QtGui/QColor>

namespace Velmora::Kvz {

/// Puts one colour (straight alpha) behind the picture of a chain, instead of what its passes with the trait Background
/// fill in. A transparent colour leaves the empty parts of the picture transparent, with premultiplied colours.
///
/// The background passes are removed, with the passes that only feed them, and the chain's last pass with an input
/// `Kvz_QColor_BackgroundColor` gets the colour. A chain without such a pass keeps its gradient, in that one colour.
///
/// False, with `chain` untouched and one line in `error`, for a colour that is not opaque if a pass of the chain loses
/// alpha or none composites, and for a chain in which no colour can be set.
KVZ_HOST_EXPORT bool setBackground(ChainDescription *chain, const QColor &colour, QString *error,
    const PassRegistry &registry = PassRegistry::standard());

} // namespace Velmora::Kvz
