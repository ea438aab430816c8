// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/PrimitiveBuilderRenderPass.h>

#include <QtGui/QVector3D>

namespace Velmora::Kvz {

namespace {

enum Shape { Quad, Cube };

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    auto pass = std::make_unique<PrimitiveBuilderRenderPass>();
    for (const QVariant &element : options[QStringLiteral("primitives")].toList()) {
        const QVariantMap primitive = element.toMap();
        const float size = primitive[QStringLiteral("size")].toFloat();
        const auto position = primitive[QStringLiteral("position")].value<QVector3D>();
        if (primitive[QStringLiteral("shape")].toInt() == Quad)
            pass->addQuad(size, position);
        else
            pass->addCube(size, position);
    }
    // Any call of the setter makes the pass publish a drawable, which without primitives would be empty.
    if (!options[QStringLiteral("useIndirectDrawCommands")].toBool())
        pass->setUseIndirectDrawCommands(false);
    return pass;
}

} // namespace

PassInfo PassEntries::primitiveBuilderRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("PrimitiveBuilderRenderPass");
    pass.summary = QStringLiteral("Builds one drawable from quads and cubes.");
    pass.outputs = {
        output("Kvz_KvzDrawBuffers*_Geometry", ValueType::DrawBuffers, "The drawable; null without primitives."),
    };

    OptionInfo shape = option("shape", ValueType::Enumeration, QVariant(), "What to add.");
    shape.enumerators = QStringList{QStringLiteral("quad"), QStringLiteral("cube")};
    shape.required = true;
    OptionInfo primitives =
        option("primitives", ValueType::Records, QVariantList(), "The primitives to add, in order.");
    primitives.fields = {
        shape,
        option("size", ValueType::Float, 1.0f, "Half the edge of a quad, the whole edge of a cube, in world units."),
        option("position", ValueType::Vector3D, QVector3D(), "Centre in world space."),
    };
    pass.options = {
        primitives,
        option("useIndirectDrawCommands", ValueType::Bool, true, "Adds a draw command for each primitive."),
    };
    pass.traits = PassTrait::NeverReleasesInputs;
    pass.rules = {{QStringLiteral("primitives"), QStringLiteral("at least one primitive"), QStringLiteral("none"),
        QStringLiteral("add {\"shape\": \"cube\"}; without it, passes that draw its geometry are skipped"),
        [](const PassUse &use) { return use.option(QStringLiteral("primitives")).toList().isEmpty(); }}};
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
