// SPDX-License-Identifier: MIT
// Pass classes made up for tests: their ports are data, their work is a function.
#pragma once

#include <Chain/PassInfo.h>
#include <Chain/PassRegistry.h>
#include <Core/RenderPassHelper.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>

#include <QtCore/QStringList>

#include <functional>

namespace Velmora::Kvz {

/// Does in start() what its class says, and records each lifecycle call.
class FakePass : public RenderPassHelper
{
public:
    using Body = std::function<void(FakePass &)>;
    using Listener = std::function<void(const QString &call, FakePass &)>;

    FakePass(const PassInfo &info, const PassOptions &passOptions, const Body &body, const Listener &listener)
        : options(passOptions),
          m_body(body),
          m_listener(listener)
    {
        for (const InputInfo &input : info.inputs)
            addInput(input.name, input.defaultValue);
        for (const OutputInfo &output : info.outputs)
            addOutput(output.name);
        tell("construct");
    }
    ~FakePass() override { tell("destroy"); }

    void setup(RenderCallbacks *) override { tell("setup"); }
    void beginFrame(RenderCallbacks *) override { tell("beginFrame"); }
    void start(RenderCallbacks *) override
    {
        tell("start");
        if (m_body)
            m_body(*this);
    }
    void skip(RenderCallbacks *callbacks) override
    {
        tell("skip");
        RenderPassHelper::skip(callbacks);
    }
    void endFrame(RenderCallbacks *) override { tell("endFrame"); }
    void teardown(RenderCallbacks *) override { tell("teardown"); }
    void teardownContextData(RenderCallbacks *) override { tell("teardownContextData"); }

    QVariant input(const char *name) const { return m_inputs[findInput(QString::fromUtf8(name))].value; }
    Texture *texture(const char *name) const { return getInputPointer<Texture>(findInput(QString::fromUtf8(name))); }
    void setOutput(const char *name, const QVariant &value)
    {
        m_outputs[findOutput(QString::fromUtf8(name))].value = value;
    }
    int users(const char *name) const { return m_numOutputUsers[findOutput(QString::fromUtf8(name))]; }

    /// Hands a new pooled texture on to the users of an output and returns it.
    Texture *handOnNew(const char *name, int width, int height)
    {
        TextureManager *manager = TextureManager::Instance();
        Texture *made = manager->tempTexture(TextureFormat::LowDynamicRange, width, height, 1, 1);
        setOutput(name, QVariant::fromValue(made));
        manager->addTempTextureRef(made, users(name));
        manager->releaseTempTextureRef(made, 1);
        return made;
    }

    const PassOptions options;

private:
    void tell(const char *call)
    {
        if (m_listener)
            m_listener(QString::fromUtf8(call), *this);
    }

    Body m_body;
    Listener m_listener;
};

inline InputInfo fakeInput(const char *name, ValueType type, const QVariant &defaultValue = QVariant())
{
    InputInfo input;
    input.name = QString::fromUtf8(name);
    input.type = type;
    input.defaultValue = defaultValue;
    return input;
}

inline InputInfo fakeImageInput(const char *name, TextureKind kind)
{
    InputInfo input = fakeInput(name, ValueType::Texture);
    input.texture.kind = kind;
    return input;
}

inline OutputInfo fakeOutput(const char *name, ValueType type)
{
    OutputInfo output;
    output.name = QString::fromUtf8(name);
    output.type = type;
    return output;
}

inline OutputInfo fakeImageOutput(const char *name, TextureKind kind, unsigned int internalFormat = 0)
{
    OutputInfo output = fakeOutput(name, ValueType::Texture);
    output.texture.kind = kind;
    output.texture.internalFormat = internalFormat;
    output.pooled = true;
    return output;
}

inline PassInfo fakeClass(const char *name, const QVector<InputInfo> &inputs, const QVector<OutputInfo> &outputs,
    const FakePass::Body &body = FakePass::Body(), const FakePass::Listener &listener = FakePass::Listener())
{
    PassInfo info;
    info.className = QString::fromUtf8(name);
    info.inputs = inputs;
    info.outputs = outputs;
    info.create = [inputs, outputs, body, listener](const PassOptions &options) {
        PassInfo ports;
        ports.inputs = inputs;
        ports.outputs = outputs;
        return std::make_unique<FakePass>(ports, options, body, listener);
    };
    return info;
}

} // namespace Velmora::Kvz
