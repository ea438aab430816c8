// SPDX-License-Identifier: MIT
#include <Core/RenderPassHelper.h>

namespace Velmora::Kvz {

namespace {

int indexOf(const QVector<NamedValue<QVariant>> &ports, const QString &name)
{
    for (int i = 0; i < ports.size(); ++i) {
        if (ports[i].name == name)
            return i;
    }
    return -1;
}

template <typename T> bool contains(const QVector<T> &vector, int index)
{
    return index >= 0 && index < vector.size();
}

} // namespace

RenderPassHelper::~RenderPassHelper() = default;

void RenderPassHelper::setup(RenderCallbacks *)
{ }
void RenderPassHelper::beginFrame(RenderCallbacks *)
{ }
void RenderPassHelper::start(RenderCallbacks *)
{ }

void RenderPassHelper::skip(RenderCallbacks *)
{
    for (NamedValue<QVariant> &output : m_outputs)
        output.value = QVariant();
}

void RenderPassHelper::endFrame(RenderCallbacks *)
{ }
void RenderPassHelper::teardown(RenderCallbacks *)
{ }
void RenderPassHelper::teardownContextData(RenderCallbacks *)
{ }

int RenderPassHelper::numInputs() const
{
    return m_inputs.size();
}

int RenderPassHelper::numOutputs() const
{
    return m_outputs.size();
}

QString RenderPassHelper::inputName(int index) const
{
    return contains(m_inputs, index) ? m_inputs[index].name : QString();
}

QString RenderPassHelper::outputName(int index) const
{
    return contains(m_outputs, index) ? m_outputs[index].name : QString();
}

void RenderPassHelper::setInput(int index, const QVariant &value)
{
    if (contains(m_inputs, index))
        m_inputs[index].value = value;
}

QVariant RenderPassHelper::defaultValue(int index) const
{
    return m_defaultValues.value(index);
}

void RenderPassHelper::setDefaultValue(int index, const QVariant &value)
{
    if (contains(m_defaultValues, index))
        m_defaultValues[index] = value;
}

QVariant RenderPassHelper::output(int index) const
{
    return contains(m_outputs, index) ? m_outputs[index].value : QVariant();
}

void RenderPassHelper::setNumOutputUsers(int index, int count)
{
    if (contains(m_numOutputUsers, index))
        m_numOutputUsers[index] = count;
}

void RenderPassHelper::resetNumOutputUsers()
{
    m_numOutputUsers.fill(0);
}

unsigned int RenderPassHelper::errorCode() const
{
    return m_errorCode;
}

void RenderPassHelper::clearErrorCode()
{
    m_errorCode = 0;
}

void RenderPassHelper::setErrorCode(unsigned int code)
{
    m_errorCode = code;
}

void RenderPassHelper::addInput(const QString &name, const QVariant &defaultValue)
{
    m_inputs.append({name, defaultValue});
    m_defaultValues.append(defaultValue);
}

void RenderPassHelper::addOutput(const QString &name)
{
    m_outputs.append({name, QVariant()});
    m_numOutputUsers.append(0);
}

int RenderPassHelper::findInput(const QString &name) const
{
    return indexOf(m_inputs, name);
}

int RenderPassHelper::findOutput(const QString &name) const
{
    return indexOf(m_outputs, name);
}

} // namespace Velmora::Kvz
