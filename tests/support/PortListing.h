// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

namespace Velmora::Kvz {

class RenderPass;
struct PassInfo;

/// The rows of tests/ports.txt by class, their columns two spaces apart: direction, index, name, type and, of inputs, the
/// default.
QMap<QString, QStringList> portListing();

/// The ports of a constructed pass as the listing writes them. The types are those of its registry entry, since a pass itself
/// knows none; a default of another type is pointed out.
QStringList portRows(const RenderPass &pass, const PassInfo &info);

/// The value that an input is constructed with, as the listing and the tables of the headers write it; "-" for none. Different
/// values have different texts.
QString defaultText(const QVariant &value);

} // namespace Velmora::Kvz
