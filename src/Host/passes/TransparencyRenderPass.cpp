// SPDX-License-Identifier: MIT
#include <Host/passes/PassEntries.h>
#include <RenderPasses/TransparencyRenderPass.h>

#include "steps/InputRead.h"

#include <GL/BufferTexture.h>
#include <GL/DrawBuffers.h>
#include <Scene/GPUModel.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/InstanceDataPlan.h>
#include <Scene/InstanceDataRegistry.h>

#include <QtCore/QPointer>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <epoxy/gl.h>

#include <algorithm>
#include <vector>

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
    std::vector<float> rows(size_t(model.itemCount()) * size_t(rowFloats));
    auto *const source = dynamic_cast<BufferTexture *>(model.materialData(0));
    if (!source || source->size() < long(rows.size() * sizeof(float)))
        return nullptr;
    glBindBuffer(GL_COPY_READ_BUFFER, source->buffer()->getBO());
    glGetBufferSubData(GL_COPY_READ_BUFFER, 0, GLsizeiptr(rows.size() * sizeof(float)), rows.data());
    glBindBuffer(GL_COPY_READ_BUFFER, 0);

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

/// The pass, with what it leaves to its host: the background, which it takes from GL's clear colour, and materials whose
/// colours are multiplied by their opacity.
class PreparedTransparencyRenderPass : public TransparencyRenderPass
{
public:
    PreparedTransparencyRenderPass(const QColor &clearColor, bool premultiply)
        : m_clearColor(clearColor),
          m_premultiply(premultiply)
    { }

    void start(RenderCallbacks *callbacks) override
    {
        if (m_clearColor.isValid())
            glClearColor(float(m_clearColor.redF()), float(m_clearColor.greenF()), float(m_clearColor.blueF()),
                float(m_clearColor.alphaF()));
        const auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);
        InstanceDataCollection *const materials = m_premultiply && model ? materialsOf(*model) : nullptr;
        if (materials)
            materials->bind(nullptr, nullptr);
        TransparencyRenderPass::start(callbacks);
        if (materials)
            materials->unbind(nullptr, nullptr);
    }

private:
    InstanceDataCollection *materialsOf(const GPUModel &model)
    {
        // The geometry dies with its model, so one at the same place is not taken for it.
        if (!m_geometry || m_geometry != model.drawBuffers(0)) {
            m_geometry = model.drawBuffers(0);
            m_materials = m_geometry ? premultipliedMaterials(model) : nullptr;
        }
        return m_materials.get();
    }

    QColor m_clearColor;
    bool m_premultiply;
    QPointer<DrawBuffers> m_geometry; ///< Of the model whose materials these are.
    std::unique_ptr<InstanceDataCollection> m_materials;
};

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    return std::make_unique<PreparedTransparencyRenderPass>(
        options[QStringLiteral("clearColor")].value<QColor>(), options[QStringLiteral("premultiply")].toBool());
}

} // namespace

PassInfo PassEntries::transparencyRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("TransparencyRenderPass");
    pass.summary =
        QStringLiteral("Draws a model with transparency in one pass, by weighted blending without an order.");
    InputInfo unread = textureInput("Kvz_KvzTexture*_Texture", TextureKind::Any, "Not read.", "no difference");
    unread.wiring = ImplicitWiring::Never;
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "a cleared frame"),
        unread,
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA32F,
            "Opaque and transparent surfaces over the clear colour."),
        textureOutput("Kvz_KvzTexture*_Depth", TextureKind::Depth, GL_DEPTH_COMPONENT32F,
            "Depth from 0 to 1 of the opaque surfaces."),
    };
    pass.options = {
        option("clearColor", ValueType::Color, QVariant(),
            "Shows where there is nothing; without it the chain's clear colour does, transparent black as a rule."),
        option("premultiply", ValueType::Bool, false,
            "Multiplies the colours of materials by their opacity, as the formula takes them."),
    };
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Shades | PassTrait::Transparent;
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
