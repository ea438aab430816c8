// SPDX-License-Identifier: MIT
#include <Chain/ChainValue.h>

#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QRect>
#include <QtCore/QVector>
#include <QtGui/QColor>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <cmath>

namespace Velmora::Kvz {

namespace {

bool isNumberType(int type)
{
    switch (type) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Float:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

bool isListType(int type)
{
    return type == QMetaType::QVariantList || type == QMetaType::QStringList;
}

bool toNumber(const QVariant &value, double *number)
{
    if (!isNumberType(value.userType()))
        return false;
    *number = value.toDouble();
    return std::isfinite(*number);
}

bool toNumbers(const QVariant &value, QVector<double> *numbers)
{
    if (!isListType(value.userType()))
        return false;
    numbers->clear();
    for (const QVariant &element : value.toList()) {
        double number;
        if (!toNumber(element, &number))
            return false;
        numbers->append(number);
    }
    return true;
}

const QString lengthKey = QStringLiteral("ofScene");
const QString inverseKey = QStringLiteral("perScene");

/// Takes a SceneRelative or its form in files. What reads one as a plain number, such as the rules of a pass, gets its value.
bool toSceneRelative(const QVariant &value, QVariant *result)
{
    static const bool hasConverter =
        QMetaType::registerConverter<SceneRelative, float>([](const SceneRelative &number) { return number.value; });
    static const bool hasDoubleConverter = QMetaType::registerConverter<SceneRelative, double>(
        [](const SceneRelative &number) { return double(number.value); });
    Q_UNUSED(hasConverter)
    Q_UNUSED(hasDoubleConverter)
    SceneRelative relative = value.value<SceneRelative>();
    if (value.userType() != qMetaTypeId<SceneRelative>()) {
        const QVariantMap form = value.toMap();
        double number;
        if (value.userType() != QMetaType::QVariantMap || form.size() != 1 || !toNumber(form.first(), &number)
            || (form.firstKey() != lengthKey && form.firstKey() != inverseKey))
            return false;
        relative = {float(number), form.firstKey() == lengthKey ? 1 : -1};
    }
    if (!std::isfinite(relative.value) || std::abs(relative.power) != 1)
        return false;
    *result = QVariant::fromValue(relative);
    return true;
}

bool isWholeInt(double number)
{
    return number == std::floor(number) && std::abs(number) <= 2147483647.0;
}

bool toInt(const QVariant &value, QVariant *result)
{
    double number;
    if (!toNumber(value, &number) || !isWholeInt(number))
        return false;
    *result = int(number);
    return true;
}

/// Whole numbers, `count` of them.
bool toInts(const QVariant &value, int count, QVector<int> *ints)
{
    QVector<double> numbers;
    if (!toNumbers(value, &numbers) || numbers.size() != count)
        return false;
    ints->clear();
    for (double number : qAsConst(numbers)) {
        if (!isWholeInt(number))
            return false;
        ints->append(int(number));
    }
    return true;
}

bool toColor(const QVariant &value, QVariant *result)
{
    QColor color;
    if (value.userType() == QMetaType::QString) {
        QString text = value.toString();
        // QColor reads eight digits with alpha first; files have it last.
        if (text.startsWith(QLatin1Char('#')) && text.size() == 9)
            text = QLatin1Char('#') + text.right(2) + text.mid(1, 6);
        if (QColor::isValidColor(text))
            color.setNamedColor(text);
    } else {
        QVector<double> channels;
        if (!toNumbers(value, &channels) || channels.size() < 3 || channels.size() > 4)
            return false;
        for (double channel : qAsConst(channels)) {
            if (channel < 0 || channel > 1)
                return false;
        }
        color.setRgbF(channels[0], channels[1], channels[2], channels.value(3, 1.0));
    }
    if (!color.isValid())
        return false;
    *result = color;
    return true;
}

bool toRect(const QVariant &value, QVariant *result)
{
    QVector<int> ints;
    if (value.userType() == QMetaType::QRect)
        *result = value;
    else if (toInts(value, 4, &ints))
        *result = QRect(ints[0], ints[1], ints[2], ints[3]);
    else
        return false;
    return true;
}

bool toRects(const QVariant &value, QVariant *result)
{
    if (toRect(value, result))
        return true;
    if (!isListType(value.userType()))
        return false;
    QVariantList rects;
    for (const QVariant &element : value.toList()) {
        QVariant rect;
        if (!toRect(element, &rect))
            return false;
        rects.append(rect);
    }
    *result = rects;
    return true;
}

template <typename T> bool isObject(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<T *>())
        return true;
    if (!(QMetaType::typeFlags(value.userType()) & QMetaType::PointerToQObject))
        return false;
    const QObject *object = value.value<QObject *>();
    return !object || qobject_cast<const T *>(object);
}

template <typename T> bool isObjectOrList(const QVariant &value)
{
    return isObject<T>(value) || value.userType() == QMetaType::QVariantList;
}

/// The number with the fewest digits that gives the same float, instead of all digits of its double.
double shortest(float value)
{
    double number = value;
    for (int digits = 6; digits <= 9; ++digits) {
        number = QString::number(double(value), 'g', digits).toDouble();
        if (float(number) == value)
            break;
    }
    return number;
}

QJsonArray jsonNumbers(std::initializer_list<double> numbers)
{
    QJsonArray array;
    for (double number : numbers)
        array.append(number);
    return array;
}

QJsonValue colorToJson(const QColor &color)
{
    if (!color.isValid())
        return QJsonValue::Null;
    const QColor rounded(color.red(), color.green(), color.blue(), color.alpha());
    if (rounded.rgba64() != color.rgba64())
        return jsonNumbers({color.redF(), color.greenF(), color.blueF(), color.alphaF()});
    QString text = color.name(QColor::HexRgb);
    if (color.alpha() != 255)
        text += QStringLiteral("%1").arg(color.alpha(), 2, 16, QLatin1Char('0'));
    return text;
}

} // namespace

QString typeName(ValueType type)
{
    switch (type) {
    case ValueType::Bool:
        return QStringLiteral("bool");
    case ValueType::Int:
        return QStringLiteral("int");
    case ValueType::Float:
        return QStringLiteral("float");
    case ValueType::String:
        return QStringLiteral("QString");
    case ValueType::Color:
        return QStringLiteral("QColor");
    case ValueType::Rect:
        return QStringLiteral("QRect");
    case ValueType::Rects:
        return QStringLiteral("QRect or list of QRect");
    case ValueType::Size:
        return QStringLiteral("QSize");
    case ValueType::Vector2D:
        return QStringLiteral("QVector2D");
    case ValueType::Vector3D:
        return QStringLiteral("QVector3D");
    case ValueType::Matrix4x4:
        return QStringLiteral("QMatrix4x4");
    case ValueType::Variant:
        return QStringLiteral("QVariant");
    case ValueType::Texture:
        return QStringLiteral("Texture *");
    case ValueType::DrawBuffers:
        return QStringLiteral("DrawBuffers *");
    case ValueType::Model:
        return QStringLiteral("GPUModel *");
    case ValueType::Framebuffer:
        return QStringLiteral("FramebufferObject *");
    case ValueType::Lights:
        return QStringLiteral("list of ShadowMapManager::Light *");
    case ValueType::InstanceData:
        return QStringLiteral("list of InstanceDataCollection *");
    case ValueType::ShadowMapData:
        return QStringLiteral("ShadowMapManager::RenderData *");
    case ValueType::Enumeration:
        return QStringLiteral("enumerator");
    case ValueType::Records:
        return QStringLiteral("list of objects");
    case ValueType::ShaderFile:
        return QStringLiteral("shader file");
    }
    return QString();
}

bool isPlain(ValueType type)
{
    switch (type) {
    case ValueType::Variant:
    case ValueType::Texture:
    case ValueType::DrawBuffers:
    case ValueType::Model:
    case ValueType::Framebuffer:
    case ValueType::Lights:
    case ValueType::InstanceData:
    case ValueType::ShadowMapData:
        return false;
    default:
        return true;
    }
}

bool canFeed(ValueType from, ValueType to)
{
    const auto isNumber = [](ValueType type) {
        return type == ValueType::Bool || type == ValueType::Int || type == ValueType::Float;
    };
    return from == to || from == ValueType::Variant || to == ValueType::Variant || (isNumber(from) && isNumber(to))
        || (from == ValueType::Rect && to == ValueType::Rects);
}

bool typeFromPortName(const QString &port, ValueType *type)
{
    static const struct
    {
        const char *word;
        ValueType type;
    } words[] = {
        {"QRect", ValueType::Rect},
        {"QSize", ValueType::Size},
        {"QColor", ValueType::Color},
        {"QMatrix4x4", ValueType::Matrix4x4},
        {"QVector3D", ValueType::Vector3D},
        {"QVector2D", ValueType::Vector2D},
        {"Vector2D", ValueType::Vector2D},
        {"QString", ValueType::String},
        {"string", ValueType::String},
        {"QVariant", ValueType::Variant},
        {"QList_KvzShadowMapManagerLight*", ValueType::Lights},
        {"QList", ValueType::InstanceData},
        {"KvzTexture*", ValueType::Texture},
        {"KvzDrawBuffers*", ValueType::DrawBuffers},
        {"KvzGPUModel*", ValueType::Model},
        {"KvzFramebuffer*", ValueType::Framebuffer},
        {"int", ValueType::Int},
        {"float", ValueType::Float},
        {"Float", ValueType::Float},
        {"bool", ValueType::Bool},
        {"Bool", ValueType::Bool},
    };
    for (const auto &word : words) {
        if (port.startsWith(QStringLiteral("Kvz_%1_").arg(QLatin1String(word.word)))) {
            *type = word.type;
            return true;
        }
    }
    return false;
}

QString writtenForm(ValueType type)
{
    switch (type) {
    case ValueType::Bool:
        return QStringLiteral("true or false");
    case ValueType::Int:
        return QStringLiteral("a whole number");
    case ValueType::Float:
        return QStringLiteral("a number");
    case ValueType::String:
        return QStringLiteral("a text in quotes");
    case ValueType::Color:
        return QStringLiteral("\"#rrggbb\", \"#rrggbbaa\" or [r, g, b, a] from 0 to 1");
    case ValueType::Rect:
        return QStringLiteral("[x, y, width, height] in whole numbers");
    case ValueType::Rects:
        return QStringLiteral("[x, y, width, height] in whole numbers, or a list of these");
    case ValueType::Size:
        return QStringLiteral("[width, height] in whole numbers");
    case ValueType::Vector2D:
        return QStringLiteral("[x, y]");
    case ValueType::Vector3D:
        return QStringLiteral("[x, y, z]");
    case ValueType::Matrix4x4:
        return QStringLiteral("16 numbers, row by row");
    case ValueType::Enumeration:
        return QStringLiteral("the name of an enumerator or its number");
    case ValueType::Records:
        return QStringLiteral("a list of objects");
    case ValueType::ShaderFile:
        return QStringLiteral("the name of a shader file in quotes");
    default:
        return QString();
    }
}

bool isShaderText(const QString &text)
{
    return text.contains(QLatin1Char('\n'));
}

bool convertValue(const QVariant &value, ValueType type, QVariant *result)
{
    const int from = value.userType();
    if (!value.isValid() || from == QMetaType::Nullptr) {
        *result = QVariant();
        return true;
    }
    const auto takeIf = [&](bool fits) {
        if (fits)
            *result = value;
        return fits;
    };

    QVector<double> numbers;
    QVector<int> ints;
    double number;
    switch (type) {
    case ValueType::Bool:
        return takeIf(from == QMetaType::Bool);
    case ValueType::Int:
        return toInt(value, result);
    case ValueType::Float:
        if (!toNumber(value, &number))
            return toSceneRelative(value, result);
        *result = float(number);
        return true;
    case ValueType::String:
        return takeIf(from == QMetaType::QString);
    case ValueType::ShaderFile:
        return takeIf(from == QMetaType::QString && !value.toString().isEmpty());
    case ValueType::Color:
        return takeIf(from == QMetaType::QColor) || toColor(value, result);
    case ValueType::Rect:
        return toRect(value, result);
    case ValueType::Rects:
        return toRects(value, result);
    case ValueType::Size:
        if (takeIf(from == QMetaType::QSize))
            return true;
        if (!toInts(value, 2, &ints))
            return false;
        *result = QSize(ints[0], ints[1]);
        return true;
    case ValueType::Vector2D:
        if (takeIf(from == QMetaType::QVector2D))
            return true;
        if (!toNumbers(value, &numbers) || numbers.size() != 2)
            return false;
        *result = QVector2D(float(numbers[0]), float(numbers[1]));
        return true;
    case ValueType::Vector3D:
        if (takeIf(from == QMetaType::QVector3D))
            return true;
        if (!toNumbers(value, &numbers) || numbers.size() != 3)
            return false;
        *result = QVector3D(float(numbers[0]), float(numbers[1]), float(numbers[2]));
        return true;
    case ValueType::Matrix4x4: {
        if (takeIf(from == QMetaType::QMatrix4x4))
            return true;
        if (!toNumbers(value, &numbers) || numbers.size() != 16)
            return false;
        float rows[16];
        for (int i = 0; i < 16; ++i)
            rows[i] = float(numbers[i]);
        *result = QMatrix4x4(rows);
        return true;
    }
    case ValueType::Variant:
        return takeIf(true);
    case ValueType::Texture:
        return takeIf(isObject<Texture>(value));
    case ValueType::DrawBuffers:
        return takeIf(isObjectOrList<DrawBuffers>(value));
    case ValueType::Model:
        return takeIf(from == qMetaTypeId<GPUModel *>());
    case ValueType::Framebuffer:
        return takeIf(isObject<FramebufferObject>(value));
    case ValueType::Lights:
        return takeIf(isObjectOrList<ShadowMapManager::Light>(value));
    case ValueType::InstanceData:
        return takeIf(from == QMetaType::QVariantList);
    case ValueType::ShadowMapData:
        return takeIf(isObject<ShadowMapManager::RenderData>(value));
    case ValueType::Enumeration:
        return takeIf(from == QMetaType::QString) || toInt(value, result);
    case ValueType::Records:
        return takeIf(isListType(from));
    }
    return false;
}

QJsonValue valueToJson(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<SceneRelative>()) {
        const auto relative = value.value<SceneRelative>();
        return QJsonObject{{relative.power == 1 ? lengthKey : inverseKey, shortest(relative.value)}};
    }
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return QJsonValue::Null;
    case QMetaType::Float:
        return shortest(value.toFloat());
    case QMetaType::QColor:
        return colorToJson(value.value<QColor>());
    case QMetaType::QRect: {
        const QRect rect = value.toRect();
        return jsonNumbers({double(rect.x()), double(rect.y()), double(rect.width()), double(rect.height())});
    }
    case QMetaType::QSize: {
        const QSize size = value.toSize();
        return jsonNumbers({double(size.width()), double(size.height())});
    }
    case QMetaType::QVector2D: {
        const auto vector = value.value<QVector2D>();
        return jsonNumbers({shortest(vector.x()), shortest(vector.y())});
    }
    case QMetaType::QVector3D: {
        const auto vector = value.value<QVector3D>();
        return jsonNumbers({shortest(vector.x()), shortest(vector.y()), shortest(vector.z())});
    }
    case QMetaType::QMatrix4x4: {
        float rows[16];
        value.value<QMatrix4x4>().copyDataTo(rows);
        QJsonArray array;
        for (float element : rows)
            array.append(shortest(element));
        return array;
    }
    case QMetaType::QVariantList: {
        QJsonArray array;
        for (const QVariant &element : value.toList())
            array.append(valueToJson(element));
        return array;
    }
    case QMetaType::QVariantMap: {
        QJsonObject object;
        const QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            object.insert(it.key(), valueToJson(it.value()));
        return object;
    }
    default:
        return QJsonValue::fromVariant(value);
    }
}

QString describeValue(const QVariant &value)
{
    if (!value.isValid())
        return QStringLiteral("null");
    if (QMetaType::typeFlags(value.userType()) & (QMetaType::PointerToQObject)
        || value.userType() == qMetaTypeId<GPUModel *>())
        return QLatin1String(value.typeName());
    const QByteArray text = QJsonDocument(QJsonArray{valueToJson(value)}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(text.mid(1, text.size() - 2));
}

} // namespace Velmora::Kvz
