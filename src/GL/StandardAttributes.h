// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

/// Vertex attributes whose location is the same in every program: a name's place in this list.
constexpr const char *standardAttributes[] = {
    "va_Vertex", "va_Normal", "va_TexCoord", "va_Color", "va_Tangent", "va_TexCoord1", "va_DrawNumber"};

/// The fixed location of an attribute, or -1 when it has none.
inline int standardAttributeLocation(const QString &name)
{
    int location = 0;
    for (const char *attribute : standardAttributes) {
        if (name == QLatin1String(attribute))
            return location;
        ++location;
    }
    return -1;
}

} // namespace Velmora::Kvz
