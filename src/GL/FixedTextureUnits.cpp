// SPDX-License-Identifier: MIT
#include <GL/FixedTextureUnits.h>

#include "DeviceState.h"
#include "ManagedTextures.h"

#include <Core/Log.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

QStringList &reserved()
{
    static QStringList *const names =
        new QStringList(QStringList(ManagedTextures::samplers()) << QStringLiteral("kvz_DrawCommands"));
    return *names;
}

} // namespace

void FixedTextureUnits::reserve(const QString &sampler)
{
    if (!reserved().contains(sampler))
        reserved().append(sampler);
}

int FixedTextureUnits::unitOf(const QString &sampler)
{
    const int index = reserved().indexOf(sampler);
    return index < 0 ? -1 : TextureUnitAllocator::count() - 1 - index;
}

QStringList FixedTextureUnits::samplers()
{
    return reserved();
}

int TextureUnitAllocator::count()
{
    const QSharedPointer<OpenGLDeviceContext> device = OpenGLDeviceContext::current();
    if (!device)
        return 0;
    if (device->d->combinedUnits == 0)
        glGetIntegerv(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS, &device->d->combinedUnits);
    return device->d->combinedUnits;
}

int TextureUnitAllocator::acquire()
{
    const QSharedPointer<OpenGLDeviceContext> device = OpenGLDeviceContext::current();
    std::vector<bool> &used = device->d->usedUnits;
    const size_t firstFixed = size_t(qMax(2, count() - int(reserved().size())));
    size_t unit = 1;
    while (unit < used.size() && used[unit])
        ++unit;
    if (unit >= firstFixed) {
        KVZ_WARNING(QStringLiteral("No texture unit is free: the driver offers %1, and %2 are kept for scene data")
                        .arg(count())
                        .arg(reserved().size()));
        return int(firstFixed) - 1;
    }
    if (unit >= used.size())
        used.resize(unit + 1);
    used[unit] = true;
    return int(unit);
}

void TextureUnitAllocator::release(int unit)
{
    const QSharedPointer<OpenGLDeviceContext> device = OpenGLDeviceContext::current();
    if (device && size_t(unit) < device->d->usedUnits.size())
        device->d->usedUnits[unit] = false;
}

} // namespace Velmora::Kvz
