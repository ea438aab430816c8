// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>

#include <QtCore/QSize>
#include <epoxy/gl.h>

namespace Velmora::Kvz::PassEntries {

namespace {

/// How images of a kind are usually shown, and what their numbers are.
void setUsualTraits(TextureTraits *traits, TextureKind kind)
{
    traits->kind = kind;
    traits->colourSpace = ColourSpace::Data;
    switch (kind) {
    case TextureKind::Any:
    case TextureKind::Colour:
    case TextureKind::Diffuse:
    case TextureKind::Specular:
    case TextureKind::Emission:
    case TextureKind::Luminance:
    case TextureKind::Overlay:
        traits->colourSpace = ColourSpace::Linear;
        traits->display = TextureDisplay::Colour;
        break;
    case TextureKind::Depth:
        traits->display = TextureDisplay::Depth;
        break;
    case TextureKind::Normal:
        traits->display = TextureDisplay::Normal;
        break;
    case TextureKind::TexCoord:
        traits->display = TextureDisplay::TexCoord;
        break;
    case TextureKind::Id:
        traits->display = TextureDisplay::Id;
        break;
    case TextureKind::Positions:
        traits->display = TextureDisplay::Positions;
        break;
    case TextureKind::Obscurance:
        traits->display = TextureDisplay::Scalar;
        break;
    case TextureKind::Velocity:
        traits->display = TextureDisplay::Motion;
        break;
    case TextureKind::Stencil:
    case TextureKind::Environment:
    case TextureKind::NodeList:
        traits->display = TextureDisplay::Hidden;
        break;
    }
}

} // namespace

InputInfo input(
    const char *name, ValueType type, const QVariant &defaultValue, const char *description, const char *whenNull)
{
    InputInfo info;
    info.name = QString::fromUtf8(name);
    info.type = type;
    info.description = QString::fromUtf8(description);
    info.defaultValue = defaultValue;
    info.whenNull = QString::fromUtf8(whenNull);
    return info;
}

InputInfo textureInput(const char *name, TextureKind kind, const char *description, const char *whenNull)
{
    InputInfo info = input(name, ValueType::Texture, QVariant(), description, whenNull);
    setUsualTraits(&info.texture, kind);
    return info;
}

InputInfo requiredTextureInput(const char *name, TextureKind kind, const char *description)
{
    InputInfo info = textureInput(name, kind, description, "the pass must not run");
    info.required = true;
    return info;
}

InputInfo viewportInput()
{
    return input("Kvz_QRect_Viewport", ValueType::Rect, QVariant(), "Target rectangle in pixels.", "size 0 by 0");
}

InputInfo projectionInput()
{
    return input(
        "Kvz_QMatrix4x4_ProjectionMatrix", ValueType::Matrix4x4, QVariant(), "Camera to clip space.", "the identity");
}

InputInfo unjitteredProjectionInput()
{
    InputInfo info = projectionInput();
    info.description = QStringLiteral("Camera to clip space, without jitter.");
    info.wiring = ImplicitWiring::FrameOnly;
    return info;
}

InputInfo cameraInput()
{
    return input(
        "Kvz_QMatrix4x4_CameraMatrix", ValueType::Matrix4x4, QVariant(), "World to camera space.", "the identity");
}

InputInfo imageFileInput(const char *name, ImageFileUse use, const char *description, const char *whenNull)
{
    InputInfo info = input(name, ValueType::String, QVariant(), description, whenNull);
    info.imageFile = use;
    return info;
}

InputInfo blurRadiusInput(const char *description)
{
    InputInfo info = input("Kvz_float_BlurRadius", ValueType::Float, 2.0f, description, "0");
    info.gridStep = 0.25;
    return info;
}

PassReach blurReach(const PassUse &use)
{
    // Three standard deviations, and the texel beside the last for a read between two.
    constexpr float longest = 4096;
    const QVariant radius = use.value(QStringLiteral("Kvz_float_BlurRadius"));
    PassReach reach;
    reach.pixels = int(3 * qBound(0.0f, radius.toFloat(), longest)) + 3;
    if (!radius.isValid() && use.isFed(QStringLiteral("Kvz_float_BlurRadius")))
        reach.obstacle = QStringLiteral("how far its blur reaches is not known before the frame; set BlurRadius");
    return reach;
}

QVector<InputInfo> lightInputs()
{
    return {
        input("Kvz_float_HeadlightIntensity", ValueType::Float, 0.85f, "Factor on the light from the eye, from 0 up.",
            "0.85"),
        input("Kvz_float_AmbientIntensity", ValueType::Float, 0.15f,
            "Share of the base colour that is seen without light, from 0 up.", "0.15"),
        input("Kvz_bool_FixedLight", ValueType::Bool, false,
            "Whether one fixed light from the upper right takes the place of both.", "false"),
    };
}

QVector<InputInfo> physicalLightInputs()
{
    InputInfo lights = lightsInput();
    lights.description = QStringLiteral("The lamps; those of the shadow maps cast shadows.");
    lights.whenNull = QStringLiteral("no lamps");
    return {
        textureInput("Kvz_KvzTexture*_Environment", TextureKind::Environment,
            "The surroundings, as EnvironmentLightRenderPass makes them.", "no surroundings"),
        input("Kvz_QVariant_Irradiance", ValueType::Variant, QVariant(), "Nine vectors from the same pass.",
            "surroundings light nothing diffuse"),
        input("Kvz_float_EnvironmentRotation", ValueType::Float, 0.0f, "Turns the surroundings about +y, in degrees.",
            "0"),
        lights,
        input("Kvz_QVariant_ShadowMapData", ValueType::ShadowMapData, QVariant(), "The shadow maps of the lamps.",
            "nothing casts a shadow"),
        input("Kvz_float_LightBleedingReduction", ValueType::Float, 0.2f,
            "Visibilities up to this count as 0, from 0 to below 1: higher values remove light that leaks where "
            "shadows overlap, and make edges harder.",
            "0"),
    };
}

OptionInfo opaqueOnlyOption()
{
    return option("opaqueOnly", ValueType::Bool, false,
        "Leaves out the items that let light through, for chains that draw these apart.");
}

InputInfo shadowModelInput()
{
    InputInfo info =
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "the pass must not run");
    info.required = true;
    return info;
}

InputInfo instanceDataInput()
{
    return input("Kvz_QList_InstanceData", ValueType::InstanceData, QVariant(),
        "Rows that place the items instead of the model's own.", "the model's own");
}

InputInfo lightsInput()
{
    return input("Kvz_QList_KvzShadowMapManagerLight*_Lights", ValueType::Lights, QVariant(),
        "The lights that cast shadows.", "no lights, so no layers");
}

InputInfo shadowProjectionInput()
{
    InputInfo info = unjitteredProjectionInput();
    info.whenNull = QStringLiteral("directional lights have one layer");
    return info;
}

InputInfo shadowCameraInput()
{
    InputInfo info = cameraInput();
    info.whenNull = QStringLiteral("directional lights have one layer");
    return info;
}

InputInfo sceneBoundsInput(const char *name, const char *description)
{
    return input(name, ValueType::Vector3D, QVariant(), description, "the model's bounds");
}

InputInfo mapSizeInput()
{
    return input(
        "Kvz_QSize_MapSize", ValueType::Size, QSize(512, 512), "Width and height of each map in texels.", "no map");
}

OutputInfo shadowMapDataOutput()
{
    OutputInfo info = output(
        "Kvz_QVariant_ShadowMapData", ValueType::ShadowMapData, "Layers, matrices, biases and the array of moments.");
    info.texture.display = TextureDisplay::Depth;
    return info;
}

OptionInfo instanceDataPlanOption()
{
    return option("instanceDataPlan", ValueType::String, QStringLiteral("TavoInstance"),
        "The plan of instance data that places the items.");
}

InputInfo headPointersInput(const char *whenNull)
{
    InputInfo info = textureInput(
        "Kvz_KvzTexture*_HeadPointers", TextureKind::NodeList, "One pointer per pixel, 0 for none.", whenNull);
    info.takesIntegers = true;
    return info;
}

InputInfo nodeBufferInput(const char *whenNull)
{
    InputInfo info =
        textureInput("Kvz_KvzTexture*_NodeBuffer", TextureKind::NodeList, "The nodes of the lists.", whenNull);
    info.takesIntegers = true;
    return info;
}

InputInfo nodeBufferWidthInput(const char *whenNull)
{
    return input("Kvz_int_NodeBufferWidth", ValueType::Int, QVariant(), "Nodes in a row of that image.", whenNull);
}

QVector<OutputInfo> listOutputs(const char *headsDescription, const char *nodesDescription)
{
    QVector<OutputInfo> outputs = {
        textureOutput("Kvz_KvzTexture*_HeadPointers", TextureKind::NodeList, GL_R32UI, headsDescription),
        textureOutput("Kvz_KvzTexture*_NodeBuffer", TextureKind::NodeList, GL_RGBA32UI, nodesDescription),
        output("Kvz_int_NodeBufferWidth", ValueType::Int, "Nodes in a row of that image."),
    };
    outputs[0].texture.display = TextureDisplay::ListLength;
    return outputs;
}

DriverNeed listNeed(const char *without)
{
    return {{QStringLiteral("GL_ARB_shader_atomic_counters"), QStringLiteral("GL_ARB_shader_image_load_store"),
                QStringLiteral("GL_ARB_shading_language_420pack")},
        QString::fromUtf8(without)};
}

DriverNeed floatBitsNeed()
{
    return {{QStringLiteral("GL_ARB_shader_bit_encoding")},
        QStringLiteral("depths cannot be read as the integers of lists: its shaders do not compile"), true};
}

DriverNeed vertexTexelsNeed()
{
    return {{QStringLiteral("GL_ARB_texture_buffer_object_rgb32")},
        QStringLiteral("vertices cannot be read: the image stays empty"), true};
}

UseRule sortedListsRule()
{
    const QString nodes = QStringLiteral("Kvz_KvzTexture*_NodeBuffer");
    return {nodes, QStringLiteral("sorted lists"), QStringLiteral("lists in drawing order"),
        QStringLiteral("put a VisibilitySortRenderPass before it"), [nodes](const PassUse &use) {
            const QStringList path = use.sourceClasses(nodes);
            const auto hasOneOf = [&path](const char *first, const char *second) {
                return path.contains(QLatin1String(first)) || path.contains(QLatin1String(second));
            };
            return hasOneOf("VisibilityBufferRenderPass", "FragmentListRenderPass")
                && !hasOneOf("VisibilitySortRenderPass", "FragmentSortRenderPass");
        }};
}

OutputInfo output(const char *name, ValueType type, const char *description)
{
    OutputInfo info;
    info.name = QString::fromUtf8(name);
    info.type = type;
    info.description = QString::fromUtf8(description);
    return info;
}

OutputInfo textureOutput(const char *name, TextureKind kind, unsigned int internalFormat, const char *description)
{
    OutputInfo info = output(name, ValueType::Texture, description);
    setUsualTraits(&info.texture, kind);
    info.texture.internalFormat = internalFormat;
    return info;
}

OutputInfo pooledOutput(const char *name, TextureKind kind, unsigned int internalFormat, const char *description)
{
    OutputInfo info = textureOutput(name, kind, internalFormat, description);
    info.pooled = true;
    return info;
}

OptionInfo option(const char *name, ValueType type, const QVariant &defaultValue, const char *description)
{
    OptionInfo info;
    info.name = QString::fromUtf8(name);
    info.type = type;
    info.defaultValue = defaultValue;
    info.description = QString::fromUtf8(description);
    return info;
}

UseRule warnWhenOpen(const char *port, const char *expected, const char *consequence, const char *remedy)
{
    const QString name = QString::fromUtf8(port);
    return {name, QString::fromUtf8(expected), QString::fromUtf8(consequence), QString::fromUtf8(remedy),
        [name](const PassUse &use) { return !use.isFed(name); }};
}

} // namespace Velmora::Kvz::PassEntries
