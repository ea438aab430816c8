// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

class QJsonObject;

namespace Velmora::Kvz {

/// Looks at the references of a glTF document, of which the library takes those below 0, and values of a wrong type, as if they were not
/// there. Returns the first flaw of what makes scenes and meshes, empty where there is none; flaws of materials and the like, without
/// which the model can be drawn, are remarks. Numbers past the end are found where they are used.
QString flawOfReferences(const QJsonObject &document, QStringList *remarks);

} // namespace Velmora::Kvz
