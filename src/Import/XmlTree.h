// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QVector>

#include <vector>

namespace Velmora::Kvz {

/// An element of an XML document. Comments and processing instructions are left out, and the texts between children are one.
struct XmlElement
{
    QString name; ///< With its prefix, as all names.
    QVector<QPair<QString, QString>> attributes;
    QString text;
    std::vector<XmlElement> children;

    bool has(const QString &attribute) const;
    /// Of an attribute; empty where there is none.
    QString value(const QString &attribute) const;
    void set(const QString &attribute, const QString &value);
    void remove(const QString &attribute);
    /// The first child of a name; null where there is none.
    const XmlElement *child(const QString &childName) const;
    XmlElement *child(const QString &childName);
};

/// The root of a document. False where it is not well-formed, or nested deeper than any model file would be.
bool readXml(const QByteArray &document, XmlElement *root);

/// A document in UTF-8.
QByteArray writeXml(const XmlElement &root);

} // namespace Velmora::Kvz
