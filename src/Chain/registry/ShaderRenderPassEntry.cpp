// SPDX-License-Identifier: MIT
#include <Chain/InputValue.h>
#include <Chain/registry/PassEntries.h>
#include <Chain/registry/ShaderUniforms.h>
#include <GL/ShaderPreprocessor.h>
#include <GL/ShaderProgram.h>
#include <RenderPasses/ShaderRenderPass.h>

#include <QtCore/QFile>
#include <QtCore/QRegularExpression>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

const QString texturePrefix = QStringLiteral("Kvz_KvzTexture*_");
const QString drawBuffersPrefix = QStringLiteral("Kvz_KvzDrawBuffers*_");

struct Stage
{
    const char *option;
    GLenum type;
    const char *description;
    void (ShaderRenderPass::*setSource)(const QString &);
    QString (*defaultSource)(); ///< Null: the stage is left out.
};

const Stage stages[] = {
    {"vertex", GL_VERTEX_SHADER, "Vertex stage; by default that of a screen quad.",
        &ShaderRenderPass::setVertexShaderSource, ShaderRenderPass::defaultVertexShaderSource},
    {"fragment", GL_FRAGMENT_SHADER, "Fragment stage; by default a copy of u_Input.",
        &ShaderRenderPass::setFragmentShaderSource, ShaderRenderPass::defaultFragmentShaderSource},
    {"geometry", GL_GEOMETRY_SHADER, "Geometry stage, if any.", &ShaderRenderPass::setGeometryShaderSource, nullptr},
    {"tessellationControl", GL_TESS_CONTROL_SHADER, "Tessellation control stage, if any.",
        &ShaderRenderPass::setTessellationControlShaderSource, nullptr},
    {"tessellationEvaluation", GL_TESS_EVALUATION_SHADER, "Tessellation evaluation stage, if any.",
        &ShaderRenderPass::setTessellationEvaluationShaderSource, nullptr},
};

/// The types that uniforms are set from.
const ValueType uniformTypes[] = {ValueType::Bool, ValueType::Int, ValueType::Float, ValueType::Color, ValueType::Rect,
    ValueType::Size, ValueType::Vector2D, ValueType::Vector3D, ValueType::Matrix4x4};

/// The kinds of images that 8 bits a channel from 0 to 1 can hold.
const TextureKind outputKinds[] = {
    TextureKind::Colour, TextureKind::Diffuse, TextureKind::Obscurance, TextureKind::Overlay};

bool isUniformType(ValueType type)
{
    return std::find(std::begin(uniformTypes), std::end(uniformTypes), type) != std::end(uniformTypes);
}

bool isIdentifier(const QString &name)
{
    static const QRegularExpression identifier(QStringLiteral("^[A-Za-z_][A-Za-z0-9_]*$"));
    return identifier.match(name).hasMatch();
}

/// What a port is called in the shaders: `u_Foo` for the input `Kvz_KvzTexture*_Foo`. Empty when that is no valid identifier.
QString nameInShaders(const QString &port, const QString &texturesAs)
{
    if (port.startsWith(drawBuffersPrefix))
        return port.mid(drawBuffersPrefix.size());
    if (!port.startsWith(texturePrefix))
        return isIdentifier(port) ? port : QString();
    const QString role = port.mid(texturePrefix.size());
    return isIdentifier(texturesAs + role) && !role.isEmpty() ? texturesAs + role : QString();
}

/// Reads the records of the options "inputs" and "outputs" into ports.
class Ports
{
public:
    Ports(PassInfo *pass, QVector<OptionProblem> *problems)
        : m_pass(pass),
          m_problems(problems)
    { }

    // A required field that is missing, and a field that is wrong, have been reported already.

    void addInput(const QVariantMap &record, const QString &place)
    {
        if (!record.contains(QStringLiteral("name")) || !record.contains(QStringLiteral("type")))
            return;
        const QString name = record[QStringLiteral("name")].toString();
        if (nameInShaders(name, QStringLiteral("u_")).isEmpty()) {
            report(place + QStringLiteral(".name"), "\"u_NAME\" or a port name such as \"Kvz_KvzTexture*_NAME\"",
                describeValue(name));
            return;
        }
        if (m_pass->findInput(name) >= 0) {
            report(place + QStringLiteral(".name"), "a unique name", describeValue(name), "another input has it");
            return;
        }
        ValueType type;
        if (!readType(name, record, place, &type))
            return;
        InputInfo port = input(type, name, record);
        const QVariant value = record[QStringLiteral("value")];
        const InputValue read = readInputValue(port, value, QString());
        port.defaultValue = read.value;
        if (read.problem != InputValue::Problem::None) {
            const QString form = writtenForm(type);
            m_problems->append({place + QStringLiteral(".value"), form.isEmpty() ? QStringLiteral("no value") : form,
                describeValue(value), QStringLiteral("the input is of type %1").arg(typeName(type))});
            return;
        }
        m_pass->inputs.append(port);
    }

    void addOutput(const QVariantMap &record, const QString &place)
    {
        if (!record.contains(QStringLiteral("name")))
            return;
        const QString name = record[QStringLiteral("name")].toString();
        const QString variable = nameInShaders(name, QStringLiteral("o_"));
        if (!name.startsWith(texturePrefix) || variable.isEmpty()) {
            report(place + QStringLiteral(".name"), "\"Kvz_KvzTexture*_NAME\"", describeValue(name));
            return;
        }
        if (m_pass->findOutput(name) >= 0) {
            report(place + QStringLiteral(".name"), "a unique name", describeValue(name), "another output has it");
            return;
        }
        const TextureKind kind = outputKinds[record[QStringLiteral("kind")].toInt()];
        const QByteArray description = QStringLiteral("Written by %1.").arg(variable).toUtf8();
        m_pass->outputs.append(PassEntries::pooledOutput(name.toUtf8(), kind, GL_RGBA8, description));
    }

private:
    void report(const QString &option, const char *expected, const QString &actual, const char *remedy = "")
    {
        m_problems->append({option, QString::fromUtf8(expected), actual, QString::fromUtf8(remedy)});
    }

    /// The type that is given or that the name implies; the two must agree.
    bool readType(const QString &name, const QVariantMap &record, const QString &place, ValueType *type)
    {
        const QVariant given = record[QStringLiteral("type")];
        const bool isNamed = typeFromPortName(name, type);
        if (!isNamed && !given.isValid()) {
            report(place + QStringLiteral(".type"), "a type", QStringLiteral("nothing"),
                "its name does not say one, as \"Kvz_KvzTexture*_NAME\" does for an image");
            return false;
        }
        if (isNamed && *type != ValueType::Texture && *type != ValueType::DrawBuffers && !isUniformType(*type)) {
            report(place + QStringLiteral(".name"), "an image, a drawable or what a uniform can hold",
                QStringLiteral("%1, %2").arg(describeValue(name), typeName(*type)));
            return false;
        }
        if (!given.isValid())
            return true;
        const ValueType wanted = uniformTypes[given.toInt()];
        if (isNamed && wanted != *type) {
            report(place + QStringLiteral(".type"), "the type that its name says",
                QStringLiteral("%1 for %2").arg(typeName(wanted), describeValue(name)), "leave it out");
            return false;
        }
        *type = wanted;
        return true;
    }

    static InputInfo input(ValueType type, const QString &name, const QVariantMap &record)
    {
        const QByteArray port = name.toUtf8();
        const QByteArray variable = nameInShaders(name, QStringLiteral("u_")).toUtf8();
        if (type == ValueType::Texture) {
            const auto kind = TextureKind(record[QStringLiteral("kind")].toInt());
            return PassEntries::textureInput(port, kind, "The sampler " + variable + ".", "transparent black");
        }
        if (type == ValueType::DrawBuffers)
            return PassEntries::input(port, type, QVariant(), "What is drawn.", "a screen quad");
        return PassEntries::input(
            port, type, QVariant(), "The uniform " + variable + ".", "the uniform stays as it is");
    }

    PassInfo *m_pass;
    QVector<OptionProblem> *m_problems;
};

void completePorts(const PassOptions &options, PassInfo *pass, QVector<OptionProblem> *problems)
{
    Ports ports(pass, problems);
    const QVariantList inputs = options[QStringLiteral("inputs")].toList();
    for (int i = 0; i < inputs.size(); ++i)
        ports.addInput(inputs[i].toMap(), QStringLiteral("inputs[%1]").arg(i));
    const QVariantList outputs = options[QStringLiteral("outputs")].toList();
    for (int i = 0; i < outputs.size(); ++i)
        ports.addOutput(outputs[i].toMap(), QStringLiteral("outputs[%1]").arg(i));
}

/// The text of a stage. `given` is a file name, or the text itself.
bool readSource(const QString &given, QString *source, QString *error)
{
    if (isShaderText(given)) {
        *source = given;
        return true;
    }
    QFile file(given);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(given, file.errorString());
        return false;
    }
    *source = QString::fromUtf8(file.readAll());
    return true;
}

/// The ports of a pass with these options, and from which on its inputs are not those of the class.
PassInfo portsOf(const PassOptions &options, int *ownInputs)
{
    PassInfo ports = PassEntries::shaderRenderPass();
    *ownInputs = ports.inputs.size();
    QVector<OptionProblem> ignored;
    completePorts(options, &ports, &ignored);
    return ports;
}

/// Builds the program that the pass will build, to learn what the pass is silent about. `pass`, if any, gets the sources.
bool buildProgram(const PassOptions &options, ShaderProgram *program, ShaderRenderPass *pass, QString *error)
{
    for (const Stage &stage : stages) {
        const QString option = QString::fromUtf8(stage.option);
        const QString given = options[option].toString();
        if (given.isEmpty()) {
            if (stage.defaultSource)
                program->addShader(int(stage.type), stage.defaultSource(), option);
            continue;
        }
        QString source;
        if (!readSource(given, &source, error))
            return false;
        const QString name = isShaderText(given) ? option : given;
        program->addShader(int(stage.type), source, name);
        // Included files are found relative to the source's name, which the pass does not take, so it is given expanded text.
        if (pass)
            (pass->*stage.setSource)(ShaderPreprocessor(stage.type, source, name, nullptr).text());
    }
    int ownInputs = 0;
    const PassInfo ports = portsOf(options, &ownInputs);
    QStringList colours;
    for (const OutputInfo &output : ports.outputs)
        colours.append(nameInShaders(output.name, QStringLiteral("o_")));
    program->setFragDataLocations(colours);
    if (program->compile() && program->link())
        return true;
    *error = QStringLiteral("its shaders do not compile:\n%1").arg(program->log().trimmed());
    return false;
}

/// Constructs the pass after building a program like its own to get the driver's messages, about which the pass is silent.
std::unique_ptr<RenderPass> createChecked(const PassOptions &options, QString *error)
{
    auto pass = std::make_unique<ShaderRenderPass>();
    ShaderProgram program;
    if (!buildProgram(options, &program, pass.get(), error))
        return nullptr;
    int ownInputs = 0;
    const PassInfo ports = portsOf(options, &ownInputs);
    for (int i = ownInputs; i < ports.inputs.size(); ++i)
        pass->addInput(ports.inputs[i].name, ports.inputs[i].defaultValue);
    for (const OutputInfo &output : qAsConst(ports.outputs))
        pass->addOutput(output.name);
    pass->setClear(options[QStringLiteral("clear")].toBool());
    pass->setBlend(ShaderRenderPass::BlendMode(options[QStringLiteral("blend")].toInt()));
    return pass;
}

/// Shaders that do not compile are reported when the pass is made.
void checkOnDriver(const PassOptions &options, const PassUse &use, QVector<OptionProblem> *problems)
{
    ShaderProgram program;
    QString ignored;
    if (!buildProgram(options, &program, nullptr, &ignored))
        return;
    int ownInputs = 0;
    const PassInfo info = portsOf(options, &ownInputs);
    QVector<UniformPort> ports;
    bool givesSize = !use.isFed(QStringLiteral("Kvz_QRect_Viewport"));
    for (int i = 0; i < info.inputs.size(); ++i) {
        const InputInfo &input = info.inputs[i];
        if (input.type == ValueType::DrawBuffers)
            continue;
        const bool isTexture = input.type == ValueType::Texture;
        // The viewport is the pass's own, and without one the first image gives the size: shaders need not read them.
        ports.append({input.name, nameInShaders(input.name, QStringLiteral("u_")), input.type,
            i < ownInputs || (isTexture && givesSize)});
        if (isTexture && use.isFed(input.name))
            givesSize = false;
    }
    checkUniforms(program, ports, use, problems);
}

OptionInfo enumeration(
    const char *name, const QVariant &defaultValue, const char *description, const QStringList &names)
{
    OptionInfo option = PassEntries::option(name, ValueType::Enumeration, defaultValue, description);
    option.enumerators = names;
    return option;
}

OptionInfo portNameOption(const char *description)
{
    OptionInfo option = PassEntries::option("name", ValueType::String, QVariant(), description);
    option.required = true;
    return option;
}

OptionInfo inputsOption()
{
    QStringList types, kinds;
    for (const ValueType type : uniformTypes)
        types.append(typeName(type));
    for (int kind = 0; kind <= int(TextureKind::Environment); ++kind)
        kinds.append(toString(TextureKind(kind)));
    OptionInfo inputs = PassEntries::option("inputs", ValueType::Records, QVariantList(), "Further inputs, in order.");
    inputs.fields = {
        portNameOption("Port name: an image, Kvz_KvzTexture*_NAME, which is the sampler u_NAME; a drawable; or the "
                       "name of a uniform."),
        enumeration("type", QVariant(), "Type of a uniform whose name does not say it.", types),
        PassEntries::option("value", ValueType::Variant, QVariant(), "Value of a uniform until something feeds it."),
        enumeration("kind", int(TextureKind::Any), "Which images it takes by name.", kinds),
    };
    return inputs;
}

OptionInfo outputsOption()
{
    QStringList kinds;
    for (const TextureKind kind : outputKinds)
        kinds.append(toString(kind));
    OptionInfo outputs = PassEntries::option(
        "outputs", ValueType::Records, QVariantList(), "Outputs, in the order of the colour attachments.");
    outputs.fields = {
        portNameOption("Port name of an image, Kvz_KvzTexture*_NAME, which the shader writes as o_NAME."),
        enumeration("kind", 0, "What the image holds.", kinds),
    };
    return outputs;
}

} // namespace

PassInfo PassEntries::shaderRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("ShaderRenderPass");
    pass.summary = QStringLiteral("Runs your own GLSL, with the ports that its options name.");
    pass.inputs = {
        input("Kvz_QRect_Viewport", ValueType::Rect, QVariant(), "Size of the outputs.",
            "that of the first connected image, else 1 by 1"),
    };
    for (const Stage &stage : stages)
        pass.options.append(option(stage.option, ValueType::ShaderFile, QVariant(), stage.description));
    pass.options += {
        inputsOption(),
        outputsOption(),
        option("clear", ValueType::Bool, true, "Whether the outputs are cleared each frame."),
        enumeration("blend", int(ShaderRenderPass::BlendNone),
            "How the shader's colours are blended with what is there.",
            {QStringLiteral("None"), QStringLiteral("Alpha"), QStringLiteral("Additive")}),
        option("lookAround", ValueType::Int, QVariant(),
            "How many pixels around its own the shader reads, if it knows no place in the picture: then the picture "
            "can be "
            "drawn in tiles."),
    };
    pass.reach = [](const PassUse &use) {
        PassReach reach;
        const QVariant pixels = use.option(QStringLiteral("lookAround"));
        reach.pixels = qBound(0, pixels.toInt(), 4096);
        if (!pixels.isValid())
            reach.obstacle = QStringLiteral("what its shader reads is not known; see its option lookAround");
        return reach;
    };
    pass.completePorts = completePorts;
    pass.createChecked = createChecked;
    pass.checkOnDriver = checkOnDriver;
    pass.create = [](const PassOptions &options) {
        QString ignored;
        return createChecked(options, &ignored);
    };
    return pass;
}

} // namespace Velmora::Kvz
