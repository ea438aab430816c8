// SPDX-License-Identifier: MIT
#include "GltfChecks.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <cmath>

namespace Velmora::Kvz {

namespace {

QString text(const QJsonValue &value)
{
    const QByteArray json = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    const QString all = QString::fromUtf8(json.mid(1, json.size() - 2));
    return all.size() > 40 ? all.left(40) + QStringLiteral("...") : all;
}

/// Walks a document and notes what is not of the type that glTF asks for.
class ReferenceCheck
{
public:
    QString flaw;
    QStringList remarks;

    void checkDocument(const QJsonObject &document)
    {
        m_isVital = true;
        number(document, "scene", QStringLiteral("the document"));
        each(document, "scenes",
            [this](const QJsonObject &scene, const QString &name) { numbers(scene, "nodes", name); });
        each(document, "nodes", [this](const QJsonObject &node, const QString &name) {
            number(node, "mesh", name);
            numbers(node, "children", name);
            m_isVital = false;
            number(node, "camera", name);
            number(node, "skin", name);
            m_isVital = true;
        });
        each(document, "meshes", [this](const QJsonObject &mesh, const QString &name) {
            each(
                mesh, "primitives",
                [this](const QJsonObject &primitive, const QString &part) { checkPrimitive(primitive, part); }, name);
        });
        each(document, "accessors",
            [this](const QJsonObject &accessor, const QString &name) { number(accessor, "bufferView", name); });
        each(document, "bufferViews",
            [this](const QJsonObject &view, const QString &name) { number(view, "buffer", name); });
        m_isVital = false;
        each(document, "textures", [this](const QJsonObject &texture, const QString &name) {
            number(texture, "source", name);
            number(texture, "sampler", name);
        });
        each(document, "images",
            [this](const QJsonObject &image, const QString &name) { number(image, "bufferView", name); });
        each(document, "materials",
            [this](const QJsonObject &material, const QString &name) { checkMaterial(material, name); });
    }

private:
    void note(const QString &where, const QString &what)
    {
        const QString line = QStringLiteral("%1: %2").arg(where, what);
        if (!m_isVital)
            remarks.append(line);
        else if (flaw.isEmpty())
            flaw = line;
    }

    template <typename Function>
    void each(const QJsonObject &owner, const char *key, Function function, const QString &in = QString())
    {
        const QJsonValue list = owner[QLatin1String(key)];
        if (list.isUndefined())
            return;
        if (!list.isArray())
            note(in.isEmpty() ? QStringLiteral("the document") : in,
                QStringLiteral("its %1 are no list").arg(QLatin1String(key)));
        const QJsonArray items = list.toArray();
        const QString one = QLatin1String(key) == QLatin1String("meshes") ? QStringLiteral("mesh")
                                                                          : QString::fromLatin1(key).chopped(1);
        for (int i = 0; i < items.size(); ++i) {
            const QString name =
                (in.isEmpty() ? QString() : in + QStringLiteral(", ")) + QStringLiteral("%1 %2").arg(one).arg(i);
            if (items[i].isObject())
                function(items[i].toObject(), name);
            else
                note(name, QStringLiteral("it is %1, and no object").arg(text(items[i])));
        }
    }

    void index(const QJsonValue &value, const QString &key, const QString &where)
    {
        if (value.isUndefined())
            return;
        if (!value.isDouble() || value.toDouble() < 0 || value.toDouble() != std::floor(value.toDouble()))
            note(where, QStringLiteral("its %1 is %2, which is no index").arg(key, text(value)));
    }

    void number(const QJsonObject &owner, const char *key, const QString &where)
    {
        index(owner[QLatin1String(key)], QLatin1String(key), where);
    }

    void numbers(const QJsonObject &owner, const char *key, const QString &where)
    {
        for (const QJsonValue &value : owner[QLatin1String(key)].toArray())
            index(value, QStringLiteral("list of ") + QLatin1String(key), where);
    }

    /// A member that is an object; empty, with a note, where it is none.
    QJsonObject object(const QJsonObject &owner, const QString &key, const QString &where)
    {
        const QJsonValue value = owner[key];
        if (!value.isUndefined() && !value.isObject())
            note(where, QStringLiteral("its %1 is %2, and no object").arg(key, text(value)));
        return value.toObject();
    }

    void checkPrimitive(const QJsonObject &primitive, const QString &name)
    {
        number(primitive, "indices", name);
        const QJsonObject attributes = object(primitive, QStringLiteral("attributes"), name);
        for (auto attribute = attributes.begin(); attribute != attributes.end(); ++attribute)
            index(attribute.value(), attribute.key(), name);
        m_isVital = false;
        number(primitive, "material", name);
        m_isVital = true;
    }

    void checkMaterial(const QJsonObject &material, const QString &name)
    {
        static const QString pbrName = QStringLiteral("pbrMetallicRoughness");
        const QJsonObject pbr = object(material, pbrName, name);
        checkFactors(pbr, {"metallicFactor", "roughnessFactor"}, name);
        checkFactors(material, {"alphaCutoff"}, name);
        for (const char *key : {"baseColorTexture", "metallicRoughnessTexture"})
            checkTexture(pbr, QLatin1String(key), name);
        for (const char *key : {"normalTexture", "occlusionTexture", "emissiveTexture"})
            checkTexture(material, QLatin1String(key), name);
    }

    void checkFactors(const QJsonObject &owner, std::initializer_list<const char *> keys, const QString &where)
    {
        for (const char *key : keys) {
            const QJsonValue value = owner[QLatin1String(key)];
            if (!value.isUndefined() && !value.isDouble())
                note(where, QStringLiteral("its %1 is %2, and no number").arg(QLatin1String(key), text(value)));
        }
    }

    void checkTexture(const QJsonObject &owner, const QString &key, const QString &where)
    {
        const QJsonObject texture = object(owner, key, where);
        const QString part = QStringLiteral("%1, %2").arg(where, key);
        number(texture, "index", part);
        number(texture, "texCoord", part);
        checkFactors(texture, {"scale", "strength"}, part);
        const QJsonObject extensions = object(texture, QStringLiteral("extensions"), part);
        for (auto extension = extensions.begin(); extension != extensions.end(); ++extension)
            object(extensions, extension.key(), part);
    }

    bool m_isVital = true;
};

} // namespace

QString flawOfReferences(const QJsonObject &document, QStringList *remarks)
{
    ReferenceCheck check;
    check.checkDocument(document);
    *remarks = check.remarks;
    return check.flaw;
}

} // namespace Velmora::Kvz
