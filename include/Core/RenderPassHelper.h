// SPDX-License-Identifier: MIT
#pragma once

#include <Core/NamedValue.h>
#include <Core/RenderPass.h>

#include <QtCore/QMetaObject>
#include <QtCore/QMetaType>
#include <QtCore/QObject>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// Holds the ports of a pass and gives every lifecycle operation a harmless body.
///
/// start() does nothing. skip() makes all outputs invalid and releases nothing.
class KVZ_CORE_EXPORT RenderPassHelper : public RenderPass
{
public:
    RenderPassHelper() = default;
    ~RenderPassHelper() override;

    void setup(RenderCallbacks *callbacks) override;
    void beginFrame(RenderCallbacks *callbacks) override;
    void start(RenderCallbacks *callbacks) override;
    void skip(RenderCallbacks *callbacks) override;
    void endFrame(RenderCallbacks *callbacks) override;
    void teardown(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

    int numInputs() const override;
    int numOutputs() const override;
    QString inputName(int index) const override;
    QString outputName(int index) const override;
    void setInput(int index, const QVariant &value) override;
    QVariant defaultValue(int index) const override;
    void setDefaultValue(int index, const QVariant &value) override;
    QVariant output(int index) const override;
    void setNumOutputUsers(int index, int count) override;
    void resetNumOutputUsers() override;

    unsigned int errorCode() const override;
    void clearErrorCode() override;
    void setErrorCode(unsigned int code) override;

    void addInput(const QString &name, const QVariant &defaultValue) override;
    void addOutput(const QString &name) override;
    int findInput(const QString &name) const override;
    int findOutput(const QString &name) const override;

    /// The object on input `index` as a `T`, a QObject class, or null when nothing of that class is connected.
    template <typename T> T *getInputPointer(int index) const;

    /// Reads a value that is one `T` or a list of them into `result`, which is emptied first.
    ///
    /// An element that does not convert becomes a default `T`; an invalid element is left out. Returns false, with
    /// `result` empty, for a null value and for one that is neither.
    template <typename T, template <typename> class Container>
    static bool getVectorFromVariant(const QVariant &value, Container<T> &result);

protected:
    QVector<NamedValue<QVariant>> m_inputs;
    QVector<NamedValue<QVariant>> m_outputs;
    QVector<int> m_numOutputUsers; ///< Parallel to m_outputs.

private:
    template <typename T> static T *pointerFromVariant(const QVariant &value);

    QVector<QVariant> m_defaultValues; ///< Parallel to m_inputs.
    unsigned int m_errorCode = 0;
};

template <typename T> T *RenderPassHelper::pointerFromVariant(const QVariant &value)
{
    QObject *object = nullptr;
    const int type = value.userType();
    if (QMetaType::typeFlags(type) & QMetaType::PointerToQObject)
        object = *static_cast<QObject *const *>(value.constData());
    else if (type == qMetaTypeId<T *>())
        object = *static_cast<T *const *>(value.constData());
    else if (type == QMetaType::QObjectStar)
        object = *static_cast<QObject *const *>(value.constData());
    else {
        QVariant converted = value;
        if (converted.convert(qMetaTypeId<T *>()))
            object = *static_cast<T *const *>(converted.constData());
    }
    return static_cast<T *>(T::staticMetaObject.cast(object));
}

template <typename T> T *RenderPassHelper::getInputPointer(int index) const
{
    if (index < 0 || index >= m_inputs.size())
        return nullptr;
    const QVariant value = m_inputs[index].value;
    if (T *pointer = pointerFromVariant<T>(value))
        return pointer;
    return qobject_cast<T *>(pointerFromVariant<QObject>(value));
}

template <typename T, template <typename> class Container>
bool RenderPassHelper::getVectorFromVariant(const QVariant &value, Container<T> &result)
{
    result.resize(0);
    if (value.isNull())
        return false;
    if (value.canConvert<T>()) {
        result.append(value.value<T>());
        return true;
    }
    if (!value.canConvert<QVariantList>())
        return false;
    const QVariantList elements = value.value<QVariantList>();
    result.reserve(elements.size());
    for (const QVariant &element : elements) {
        if (element.isValid())
            result.append(element.value<T>());
    }
    return true;
}

} // namespace Velmora::Kvz
