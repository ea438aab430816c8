// SPDX-License-Identifier: MIT
#include <Chain/ChainDescription.h>

#include <Chain/ChainValue.h>
#include <Chain/NearestNames.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QLatin1String nonePrefix("none");
const QLatin1String previousPrefix("previous:");
const QLatin1String framePrefix("frame:");

/// Splits "pass.port"; the port's name has no dot.
bool splitOutput(const QString &text, QString *pass, QString *port)
{
    const int dot = text.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0 || dot == text.size() - 1)
        return false;
    *pass = text.left(dot);
    *port = text.mid(dot + 1);
    return true;
}

QString typeOf(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return QStringLiteral("null");
    case QJsonValue::Bool:
        return QStringLiteral("true or false");
    case QJsonValue::Double:
        return QStringLiteral("a number");
    case QJsonValue::String:
        return QStringLiteral("a text");
    case QJsonValue::Array:
        return QStringLiteral("a list");
    case QJsonValue::Object:
        return QStringLiteral("an object");
    case QJsonValue::Undefined:
        break;
    }
    return QStringLiteral("nothing");
}

/// Reads the members of JSON objects and keeps the first thing that is wrong.
class Reader
{
public:
    QString error() const { return m_error; }
    bool failed() const { return !m_error.isEmpty(); }

    void fail(const QString &place, const QString &expected, const QString &actual)
    {
        if (!failed())
            m_error = QStringLiteral("%1: expected %2, found %3").arg(place, expected, actual);
    }

    void fail(const QString &place, const QString &problem)
    {
        if (!failed())
            m_error = QStringLiteral("%1: %2").arg(place, problem);
    }

    void allowOnly(const QJsonObject &object, const QString &place, const QStringList &known)
    {
        for (const QString &key : object.keys()) {
            if (known.contains(key) || failed())
                continue;
            const QString where = place.isEmpty() ? key : place + QLatin1Char('.') + key;
            m_error = QStringLiteral("%1: unknown key%2").arg(where, nearestNamesHint(key, known));
        }
    }

    QString text(const QJsonObject &object, const char *key, const QString &place)
    {
        return member(object, key, place, QJsonValue::String, QStringLiteral("a text")).toString();
    }

    bool flag(const QJsonObject &object, const char *key, const QString &place, bool otherwise)
    {
        return member(object, key, place, QJsonValue::Bool, QStringLiteral("true or false")).toBool(otherwise);
    }

    QJsonObject members(const QJsonObject &object, const char *key, const QString &place)
    {
        return member(object, key, place, QJsonValue::Object, QStringLiteral("an object")).toObject();
    }

    /// The text members of an object, each handed to `take`, which says whether the text is good.
    template <typename Take>
    void texts(const QJsonObject &object, const char *key, const QString &place, const QString &expected, Take take)
    {
        const QJsonObject entries = members(object, key, place);
        for (auto it = entries.begin(); it != entries.end(); ++it) {
            if (!it.value().isString() || !take(it.key(), it.value().toString()))
                fail(joined(place, key) + QLatin1Char('.') + it.key(), expected,
                    it.value().isString() ? describeValue(it.value().toString()) : typeOf(it.value()));
        }
    }

private:
    static QString joined(const QString &place, const char *key)
    {
        return place.isEmpty() ? QString::fromUtf8(key) : place + QLatin1Char('.') + QLatin1String(key);
    }

    QJsonValue member(const QJsonObject &object, const char *key, const QString &place, QJsonValue::Type type,
        const QString &expected)
    {
        const QJsonValue value = object.value(QLatin1String(key));
        if (value.isUndefined() || value.type() == type)
            return value;
        fail(joined(place, key), expected, typeOf(value));
        return QJsonValue();
    }

    QString m_error;
};

ChainPass readPass(const QJsonObject &object, const QString &place, Reader *reader)
{
    reader->allowOnly(object, place,
        {QStringLiteral("class"), QStringLiteral("connections"), QStringLiteral("enabled"), QStringLiteral("name"),
            QStringLiteral("options"), QStringLiteral("values")});
    ChainPass pass;
    pass.className = reader->text(object, "class", place);
    if (pass.className.isEmpty())
        reader->fail(
            place + QStringLiteral(".class"), QStringLiteral("the name of a pass class"), QStringLiteral("nothing"));
    pass.name = reader->text(object, "name", place);
    if (!object.contains(QLatin1String("name")))
        pass.name = pass.className;
    pass.enabled = reader->flag(object, "enabled", place, true);
    pass.options = reader->members(object, "options", place).toVariantMap();
    pass.values = reader->members(object, "values", place).toVariantMap();
    for (QVariant &value : pass.values) {
        if (value.userType() == QMetaType::Nullptr)
            value = QVariant();
    }
    reader->texts(object, "connections", place,
        QStringLiteral("\"pass.port\", \"previous:pass.port\", \"frame:port\" or \"none\""),
        [&](const QString &port, const QString &text) {
            ChainSource source;
            if (!ChainSource::fromString(text, &source))
                return false;
            pass.connections.insert(port, source);
            return true;
        });
    return pass;
}

std::vector<LightDescription> readLights(const QJsonValue &value, Reader *reader)
{
    if (!value.isUndefined() && !value.isArray())
        reader->fail(QStringLiteral("lights"), QStringLiteral("a list"), typeOf(value));
    const QJsonArray elements = value.toArray();
    std::vector<LightDescription> lights(size_t(elements.size()));
    for (int i = 0; i < elements.size(); ++i) {
        const QString place = QStringLiteral("lights[%1]").arg(i);
        QString problem;
        if (!elements[i].isString())
            reader->fail(place, QStringLiteral("a text"), typeOf(elements[i]));
        else if (!LightDescription::fromString(elements[i].toString(), &lights[size_t(i)], &problem))
            reader->fail(place, problem);
    }
    return lights;
}

QString syntaxError(const QByteArray &json, const QJsonParseError &problem)
{
    // The parser stops one past the character that it could not read.
    const QByteArray before = json.left(std::max(0, problem.offset - 1));
    const int line = before.count('\n') + 1;
    const int column = QString::fromUtf8(before.mid(before.lastIndexOf('\n') + 1)).size() + 1;
    return QStringLiteral("line %1, column %2: not JSON: %3").arg(line).arg(column).arg(problem.errorString());
}

QJsonObject toObject(const QVariantMap &map)
{
    QJsonObject object;
    for (auto it = map.begin(); it != map.end(); ++it) {
        const QJsonValue value = valueToJson(it.value());
        // Objects on the GPU have no written form; null in a file would say something else.
        if (!value.isNull() || !it.value().isValid() || it.value().userType() == QMetaType::QColor)
            object.insert(it.key(), value);
    }
    return object;
}

} // namespace

QString ChainOutput::toString() const
{
    return pass + QLatin1Char('.') + port;
}

ChainSource ChainSource::output(const QString &pass, const QString &port)
{
    return {Kind::Output, pass, port};
}

ChainSource ChainSource::previous(const QString &pass, const QString &port)
{
    return {Kind::Previous, pass, port};
}

ChainSource ChainSource::frameValue(const QString &port)
{
    return {Kind::FrameValue, QString(), port};
}

ChainSource ChainSource::none()
{
    return {};
}

QString ChainSource::toString() const
{
    switch (kind) {
    case Kind::Output:
        return pass + QLatin1Char('.') + port;
    case Kind::Previous:
        return previousPrefix + pass + QLatin1Char('.') + port;
    case Kind::FrameValue:
        return framePrefix + port;
    case Kind::None:
        break;
    }
    return nonePrefix;
}

bool ChainSource::fromString(const QString &text, ChainSource *source)
{
    ChainSource read;
    if (text == nonePrefix) {
        *source = read;
        return true;
    }
    if (text.startsWith(framePrefix)) {
        read.kind = Kind::FrameValue;
        read.port = text.mid(framePrefix.size());
        if (read.port.isEmpty())
            return false;
    } else {
        const bool isPrevious = text.startsWith(previousPrefix);
        read.kind = isPrevious ? Kind::Previous : Kind::Output;
        if (!splitOutput(isPrevious ? text.mid(previousPrefix.size()) : text, &read.pass, &read.port))
            return false;
    }
    *source = read;
    return true;
}

bool ChainSource::operator==(const ChainSource &other) const
{
    return kind == other.kind && pass == other.pass && port == other.port;
}

bool ChainPass::operator==(const ChainPass &other) const
{
    return name == other.name && className == other.className && enabled == other.enabled && options == other.options
        && values == other.values && connections == other.connections;
}

int ChainDescription::findPass(const QString &passName) const
{
    for (int i = 0; i < passes.size(); ++i) {
        if (passes[i].name == passName)
            return i;
    }
    return -1;
}

QStringList ChainDescription::passNames() const
{
    QStringList names;
    for (const ChainPass &pass : passes)
        names.append(pass.name);
    return names;
}

bool ChainDescription::fromJson(const QByteArray &json, ChainDescription *chain, QString *error)
{
    QJsonParseError problem;
    const QJsonDocument document = QJsonDocument::fromJson(json, &problem);
    if (problem.error != QJsonParseError::NoError) {
        *error = syntaxError(json, problem);
        return false;
    }
    if (!document.isObject()) {
        *error = QStringLiteral("the chain: expected an object, found a list");
        return false;
    }

    Reader reader;
    const QJsonObject object = document.object();
    reader.allowOnly(object, QString(),
        {QStringLiteral("description"), QStringLiteral("exports"), QStringLiteral("lights"), QStringLiteral("name"),
            QStringLiteral("passes")});
    ChainDescription read;
    read.name = reader.text(object, "name", QString());
    read.description = reader.text(object, "description", QString());

    const QJsonValue passes = object.value(QLatin1String("passes"));
    if (!passes.isArray())
        reader.fail(QStringLiteral("passes"), QStringLiteral("a list"), typeOf(passes));
    const QJsonArray elements = passes.toArray();
    for (int i = 0; i < elements.size(); ++i) {
        const QString place = QStringLiteral("passes[%1]").arg(i);
        if (!elements[i].isObject())
            reader.fail(place, QStringLiteral("an object"), typeOf(elements[i]));
        else
            read.passes.append(readPass(elements[i].toObject(), place, &reader));
    }

    read.lights = readLights(object.value(QLatin1String("lights")), &reader);

    reader.texts(
        object, "exports", QString(), QStringLiteral("\"pass.port\""), [&](const QString &name, const QString &text) {
            ChainSource source;
            if (!ChainSource::fromString(text, &source) || source.kind != ChainSource::Kind::Output)
                return false;
            read.exports.insert(name, {source.pass, source.port});
            return true;
        });

    if (reader.failed()) {
        *error = reader.error();
        return false;
    }
    *chain = read;
    return true;
}

QByteArray ChainDescription::toJson() const
{
    QJsonArray elements;
    for (const ChainPass &pass : passes) {
        QJsonObject element{{QStringLiteral("name"), pass.name}, {QStringLiteral("class"), pass.className}};
        if (!pass.enabled)
            element.insert(QStringLiteral("enabled"), false);
        if (const QJsonObject options = toObject(pass.options); !options.isEmpty())
            element.insert(QStringLiteral("options"), options);
        if (const QJsonObject values = toObject(pass.values); !values.isEmpty())
            element.insert(QStringLiteral("values"), values);
        QJsonObject connections;
        for (auto it = pass.connections.begin(); it != pass.connections.end(); ++it)
            connections.insert(it.key(), it.value().toString());
        if (!connections.isEmpty())
            element.insert(QStringLiteral("connections"), connections);
        elements.append(element);
    }
    QJsonObject object{{QStringLiteral("passes"), elements}};
    if (!name.isEmpty())
        object.insert(QStringLiteral("name"), name);
    if (!description.isEmpty())
        object.insert(QStringLiteral("description"), description);
    QJsonArray lightTexts;
    for (const LightDescription &light : lights)
        lightTexts.append(light.toString());
    if (!lightTexts.isEmpty())
        object.insert(QStringLiteral("lights"), lightTexts);
    QJsonObject published;
    for (auto it = exports.begin(); it != exports.end(); ++it)
        published.insert(it.key(), it.value().toString());
    if (!published.isEmpty())
        object.insert(QStringLiteral("exports"), published);
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

bool ChainDescription::operator==(const ChainDescription &other) const
{
    return name == other.name && description == other.description && passes == other.passes && lights == other.lights
        && exports == other.exports;
}

} // namespace Velmora::Kvz
