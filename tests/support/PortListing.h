// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

namespace Velmora::Kvz {

class RenderPass;
struct PassInfo;

/// The rows of tests/ports.txt by class, with columns two spaces apart: direction, index, name, type and, for inputs,
/// the default.
QMap<QString, QStringList> portListing();

/// The ports of a constructed pass in the form of the listing. Types are those of its registry entry, since a pass
/// itself does not know them; a default of another type is marked.
QStringList portRows(const RenderPass &pass, const PassInfo &info);

/// The value that an input is constructed with, as the listing and the tables of the headers write it; "-" for none.
/// Different values give different texts.
QString defaultText(const QVariant &value);

} // namespace Velmora::Kvz
