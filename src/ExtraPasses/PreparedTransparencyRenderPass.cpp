// SPDX-License-Identifier: MIT
#include <ExtraPasses/PreparedTransparencyRenderPass.h>

#include "steps/InputRead.h"

#include <GL/DrawBuffers.h>
#include <Scene/GPUModel.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/InstanceDataPlan.h>
#include <Scene/InstanceDataRegistry.h>

#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QString materialPlan = QStringLiteral("OBJMaterial");

/// A value of a row of floats, as setValue() of a collection takes it.
QVariant valueOf(const float *field, InstanceDataPlan::Type type)
{
    switch (type) {
    case InstanceDataPlan::Type::Float:
    case InstanceDataPlan::Type::Int:
        return field[0];
    case InstanceDataPlan::Type::Vec2:
        return QVector2D(field[0], field[1]);
    case InstanceDataPlan::Type::Vec3:
        return QVector3D(field[0], field[1], field[2]);
    case InstanceDataPlan::Type::Vec4:
        return QVector4D(field[0], field[1], field[2], field[3]);
    case InstanceDataPlan::Type::Mat4:
        return QMatrix4x4(field).transposed();
    }
    return QVariant();
}

/// The rows of material data of a model, colours multiplied by their opacity.
std::unique_ptr<InstanceDataCollection> premultipliedMaterials(const GPUModel &model)
{
    const InstanceDataPlan &plan = InstanceDataRegistry::Instance().getPlan(materialPlan);
    const int rowFloats = plan.stride() * 4;
    QVector<float> rows = model.materialRows();
    auto materials = std::make_unique<InstanceDataCollection>(materialPlan);
    materials->setRowCount(model.itemCount());
    for (int item = 0; item < model.itemCount(); ++item) {
        float *const row = rows.data() + item * rowFloats;
        const float opacity = std::min(row[plan.offset(QStringLiteral("getD"))], 1.0f);
        for (const QString &color : {QStringLiteral("getKd"), QStringLiteral("getKs")}) {
            for (int channel = 0; channel < 3; ++channel)
                row[plan.offset(color) + channel] *= opacity;
        }
        for (const InstanceDataPlan::Field &field : plan.fields())
            materials->setValue(item, field.getter, valueOf(row + plan.offset(field.getter), field.type));
    }
    return materials;
}

} // namespace

PreparedTransparencyRenderPass::PreparedTransparencyRenderPass(const QColor &clearColor, bool premultiply)
    : m_clearColor(clearColor),
      m_premultiply(premultiply)
{ }

PreparedTransparencyRenderPass::~PreparedTransparencyRenderPass() = default;

void PreparedTransparencyRenderPass::start(RenderCallbacks *callbacks)
{
    if (m_clearColor.isValid()) {
        glClearColor(float(m_clearColor.redF()), float(m_clearColor.greenF()), float(m_clearColor.blueF()),
            float(m_clearColor.alphaF()));
    }
    const auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);
    InstanceDataCollection *const materials = m_premultiply && model ? materialsOf(*model) : nullptr;
    if (materials)
        materials->bind(nullptr, nullptr);
    TransparencyRenderPass::start(callbacks);
    if (materials)
        materials->unbind(nullptr, nullptr);
}

InstanceDataCollection *PreparedTransparencyRenderPass::materialsOf(const GPUModel &model)
{
    // The geometry dies with its model, so one at the same place is not taken for it.
    if (!m_geometry || m_geometry != model.drawBuffers(0)) {
        m_geometry = model.drawBuffers(0);
        m_materials = m_geometry ? premultipliedMaterials(model) : nullptr;
    }
    return m_materials.get();
}

} // namespace Velmora::Kvz
