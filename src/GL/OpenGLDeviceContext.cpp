// SPDX-License-Identifier: MIT
#include <GL/OpenGLDeviceContext.h>

#include "ContextRegistry.h"
#include "DeviceState.h"

#include <GL/AutoBinder.h>
#include <GL/ShaderProgram.h>

#include <epoxy/gl.h>

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

OpenGLDeviceContext::OpenGLDeviceContext()
    : d(std::make_unique<Private>())
{ }

OpenGLDeviceContext::~OpenGLDeviceContext() = default;

QSharedPointer<OpenGLDeviceContext> OpenGLDeviceContext::current()
{
    const QSharedPointer<ContextRecord> record = ContextRegistry::current();
    return record ? record->device : QSharedPointer<OpenGLDeviceContext>();
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
    return ContextRegistry::currentHandle();
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

void OpenGLDeviceContext::notifyEnd()
{
    const auto listeners = d->endListeners; // They may remove themselves.
    for (const auto &listener : listeners)
        listener.second();
}

void OpenGLDeviceContext::releaseResources()
{
    d->quadPositions.clear();
    d->quadTexCoords.clear();
    d->blit.reset();
}

} // namespace Velmora::Kvz
