// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// A file name with places for what tells pictures apart: "{model}", "{view}", "{frame}" and "{frame:04}", which is the number
/// with zeros in front, four digits. "{{" and "}}" are braces.
class NameTemplate
{
public:
    /// What fills the places.
    struct Picture
    {
        QString model;
        QString view;
        int frame = 0;
    };

    /// False for braces that are none of these, with one line in `error`.
    static bool fromString(const QString &text, NameTemplate *result, QString *error);

    /// Whether it has a place of this name: "model", "view" or "frame".
    bool has(const QString &name) const;
    QString fileName(const Picture &picture) const;

    /// A text as a part of a file name: characters that shells or file systems take for something else become "_".
    static QString plain(const QString &text);

private:
    struct Part
    {
        QString text; ///< As it is, or the name of a place.
        bool isPlace = false;
        int digits = 0; ///< Least number of digits.
    };

    QVector<Part> m_parts;
};

} // namespace Velmora::Kvz
