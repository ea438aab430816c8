// SPDX-License-Identifier: MIT
#include "ShadowMaps.h"

#include <GL/AutoBinder.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

/// The moments of texels that no caster touched.
constexpr float farMoment = 1e9f;

std::unique_ptr<Texture> makeArray(const QSize &size, int layers, GLint internalFormat, GLenum format, GLint filter)
{
    auto array =
        std::make_unique<Texture>(GL_TEXTURE_2D_ARRAY, internalFormat, size.width(), size.height(), layers, nullptr);
    AutoBinder binder(array.get());
    glTexImage3D(
        GL_TEXTURE_2D_ARRAY, 0, internalFormat, size.width(), size.height(), layers, 0, format, GL_FLOAT, nullptr);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MIN_FILTER, filter);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAG_FILTER, filter);
    return array;
}

void setWrap(GLint mode)
{
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_S, mode);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_T, mode);
}

} // namespace

std::optional<CornerPair> sceneBounds(
    const NamedValue<QVariant> &minimum, const NamedValue<QVariant> &maximum, const GPUModel *model)
{
    const auto low = optionalValue<QVector3D>(minimum);
    const auto high = optionalValue<QVector3D>(maximum);
    if (low && high)
        return CornerPair(*low, *high);
    if (model && model->hasFeatureFlags(GPUModel::HasSceneBounds))
        return model->sceneBounds();
    return std::nullopt;
}

QVector<InstanceDataCollection *> instanceData(const NamedValue<QVariant> &port)
{
    QVector<InstanceDataCollection *> collections;
    const QVariantList elements = port.value.value<QVariantList>();
    for (const QVariant &element : elements) {
        if (auto *const collection = qobject_cast<InstanceDataCollection *>(element.value<QObject *>()))
            collections.append(collection);
    }
    return collections;
}

void setFarClearColor()
{
    glClearColor(farMoment, farMoment, farMoment, 1.0f);
}

std::unique_ptr<Texture> makeMomentArray(const QSize &size, int layers)
{
    return makeArray(size, layers, GL_RG32F, GL_RG, GL_LINEAR);
}

std::unique_ptr<Texture> makeDepthArray(const QSize &size, int layers)
{
    return makeArray(size, layers, GL_DEPTH_COMPONENT32F, GL_DEPTH_COMPONENT, GL_NEAREST);
}

void clampToFarBorder(Texture *moments)
{
    const float border[] = {farMoment, farMoment, farMoment, 1.0f};
    AutoBinder binder(moments);
    glTexParameterfv(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_BORDER_COLOR, border);
    setWrap(GL_CLAMP_TO_BORDER);
}

void clampToEdge(Texture *array)
{
    AutoBinder binder(array);
    setWrap(GL_CLAMP_TO_EDGE);
}

bool castsNothing(const GPUModel *model)
{
    return !model || model->isDrawEmpty(0, castsNoShadow);
}

CasterKinds::CasterKinds(const GPUModel &model)
    : hasSingleSided(!model.isDrawEmpty(0, GPUModel::DoubleSided)),
      hasDoubleSided(!model.isDrawEmpty(GPUModel::DoubleSided, GPUModel::DoubleSided))
{ }

void drawCasters(GPUModel *model, ShaderProgram *program, const CasterKinds &kinds)
{
    constexpr quint64 mask = castsNoShadow | GPUModel::DoubleSided;
    if (kinds.hasSingleSided) {
        glEnable(GL_CULL_FACE);
        model->draw(program, nullptr, 0, mask);
    }
    glDisable(GL_CULL_FACE);
    if (kinds.hasDoubleSided)
        model->draw(program, nullptr, GPUModel::DoubleSided, mask);
}

} // namespace Velmora::Kvz
