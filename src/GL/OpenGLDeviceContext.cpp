// SPDX-License-Identifier: MIT
#include <GL/OpenGLDeviceContext.h>

#include "BlitResources.h"
#include "ContextRegistry.h"
#include "CurrentContext.h"

#include <GL/AutoBinder.h>

#include <GL/TrackedGL.h>

#include <map>

namespace Velmora::Kvz {

namespace {

constexpr float quadPositions[] = {-1, -1, 0, 1, -1, 0, -1, 1, 0, -1, 1, 0, 1, -1, 0, 1, 1, 0};
constexpr float quadTexCoords[] = {0, 0, 1, 0, 0, 1, 0, 1, 1, 0, 1, 1};

QSharedPointer<BufferObject> createStaticBuffer(const float *data, int count)
{
    const auto buffer = QSharedPointer<BufferObject>::create();
    buffer->upload(data, count, GL_STATIC_DRAW);
    return buffer;
}

} // namespace

struct OpenGLDeviceContext::Private
{
    QWeakPointer<ContextRecord> context; ///< Null for a device that nobody has from current().
    QSharedPointer<BufferObject> quadPositions;
    QSharedPointer<BufferObject> quadTexCoords;
    std::map<int, std::function<void()>> endListeners; ///< By number.
    int nextListener = 0;
};

/// What a context keeps of its device.
struct OpenGLDeviceContext::Holder
{
    QSharedPointer<OpenGLDeviceContext> device;
};

OpenGLDeviceContext::OpenGLDeviceContext()
    : d(std::make_unique<Private>())
{ }

OpenGLDeviceContext::~OpenGLDeviceContext() = default;

QSharedPointer<OpenGLDeviceContext> OpenGLDeviceContext::current()
{
    const QSharedPointer<ContextRecord> record = ContextRegistry::current();
    if (!record)
        return {};
    QSharedPointer<OpenGLDeviceContext> &device = record->resources.get<Holder>().device;
    if (!device) {
        device = QSharedPointer<OpenGLDeviceContext>::create();
        device->d->context = record;
        record->onEnd = [device = device.data()] { device->end(); };
    }
    return device;
}

QSharedPointer<BufferObject> OpenGLDeviceContext::createBufferObject()
{
    return QSharedPointer<BufferObject>::create();
}

QSharedPointer<DrawBuffers> OpenGLDeviceContext::createDrawBuffers()
{
    return QSharedPointer<DrawBuffers>::create();
}

QSharedPointer<DrawBuffers> OpenGLDeviceContext::createScreenQuad()
{
    if (!d->quadPositions) {
        d->quadPositions = createStaticBuffer(quadPositions, 18);
        d->quadTexCoords = createStaticBuffer(quadTexCoords, 12);
    }
    const QSharedPointer<VertexArrayObject> vao = createVertexArrayObject();
    vao->upload(QStringLiteral("va_Vertex"), d->quadPositions, 3, GL_FLOAT);
    vao->upload(QStringLiteral("va_TexCoord"), d->quadTexCoords, 2, GL_FLOAT);
    {
        AutoBinder binder(vao);
        vao->enableStandardArrays();
    }
    const QSharedPointer<DrawBuffers> quad = createDrawBuffers();
    quad->setVAO(vao);
    quad->setPrimitiveType(GL_TRIANGLES);
    quad->setVertexCount(6);
    return quad;
}

QSharedPointer<DrawBuffers> OpenGLDeviceContext::createScreenQuad2()
{
    return createScreenQuad();
}

QSharedPointer<VertexArrayObject> OpenGLDeviceContext::createVertexArrayObject()
{
    return QSharedPointer<VertexArrayObject>::create();
}

void OpenGLDeviceContext::shareObjectsWith(void *other)
{
    ContextRegistry::shareCurrentWith(other);
}

void OpenGLDeviceContext::announceContextEnd()
{
    ContextRegistry::endCurrent();
}

void *OpenGLDeviceContext::currentHandle()
{
    return currentContextHandle();
}

int OpenGLDeviceContext::addEndListener(const std::function<void()> &listener)
{
    d->endListeners.emplace(d->nextListener, listener);
    return d->nextListener++;
}

void OpenGLDeviceContext::removeEndListener(int number)
{
    d->endListeners.erase(number);
}

void OpenGLDeviceContext::end()
{
    const auto listeners = d->endListeners; // They may remove themselves.
    for (const auto &listener : listeners)
        listener.second();
    releaseResources();
}

void OpenGLDeviceContext::releaseResources()
{
    d->quadPositions.clear();
    d->quadTexCoords.clear();
    if (const QSharedPointer<ContextRecord> context = d->context.toStrongRef())
        context->resources.release<BlitResources>();
}

} // namespace Velmora::Kvz
