// SPDX-License-Identifier: MIT
#include <Chain/RenderChain.h>

#include <Chain/ChainWiring.h>
#include <Core/Log.h>
#include <Core/RenderPass.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLErrors.h>
#include <GL/GLExtensions.h>
#include <GL/GLObject.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderPreprocessor.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>
#include <Host/GLState.h>
#include <Host/GpuTimer.h>
#include <Host/ImageFile.h>
#include <Host/SampleCounter.h>
#include <Host/TextureCapture.h>
#include <Scene/GPUModel.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QFile>
#include <QtCore/QPointer>
#include <QtCore/QVarLengthArray>
#include <QtCore/QWeakPointer>

#include <epoxy/gl.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>

namespace Velmora::Kvz {

namespace {

/// Pass objects that are kept for one pass whose input is rounded to a grid.
constexpr int keptObjects = 4;

/// A pass object and the rounded value that it serves.
struct Instance
{
    std::unique_ptr<RenderPass> pass;
    double key = 0;
    quint64 lastUse = 0;
};

struct Node;

struct NodeInput
{
    const InputInfo *info = nullptr;
    WiredInput::Source source = WiredInput::Source::Default;
    const Node *producer = nullptr; ///< Of outputs.
    int output = -1; ///< Of outputs.
    const QVariant *value = nullptr; ///< Of values, earlier frames and frame values.
    QVariant stored; ///< Of values.
};

/// A pass of the chain with its wiring.
struct Node
{
    QString name;
    QByteArray label; ///< The name, for debug groups.
    std::shared_ptr<const PassInfo> info; ///< With the ports of its options.
    QVariantMap options; ///< As given.
    QString folder; ///< Where relative file names in options start.
    bool enabled = true;

    std::vector<Instance> instances;
    RenderPass *active = nullptr; ///< The object that ran last.

    std::vector<NodeInput> inputs;
    std::vector<int> users; ///< For each output: inputs and exports that take it.
    std::vector<bool> captured; ///< For each output: a picture of it is wanted.
    std::vector<QVariant> previous; ///< For each output: its value at the end of the last frame, where one is wanted.
    std::vector<bool> wantsPrevious;
    int viewportInput = -1;
    int projectionInput = -1;
    int gridInput = -1;
    int geometryInput = -1; ///< Of a pass that keeps the geometry of its first model.
    QPointer<DrawBuffers> geometry; ///< Of that model.
    bool hasGeometry = false; ///< The pass has seen one, which may be gone since.
    bool saidMissing = false; ///< The log has the line about a missing input.
    bool saidFailed = false; ///< The log has the line about a failure.
    bool saidFull = false; ///< The log has the line about fragments that found no room.
    SampleCounter fragments; ///< Of passes with limited room.
    bool knowsRoom = false; ///< The driver was asked whether there is a limit.
    bool hasLimitedRoom = false;

    RenderChain::PassTiming timing;
};

/// A pooled image that a pass was given.
struct HeldTexture
{
    Texture *texture;
    int before; ///< References before the pass ran.
    int inputs; ///< Inputs that hold it.
};

template <typename T> T *objectIn(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<T *>())
        return *static_cast<T *const *>(value.constData());
    return value.isValid() ? qobject_cast<T *>(value.value<QObject *>()) : nullptr;
}

/// Whether an output can be captured.
bool holdsImage(const OutputInfo &output)
{
    return output.type == ValueType::Texture || output.type == ValueType::ShadowMapData;
}

/// The layers in use of published shadow maps, laid out in one picture.
QImage captureShadowMaps(const QVariant &value, TextureDisplay display)
{
    const auto *const data = qobject_cast<ShadowMapManager::RenderData *>(value.value<QObject *>());
    if (!data || data->layerCount <= 0)
        return QImage();
    return captureTexture(data->projectionTexture(), display, QMatrix4x4(), data->layerCount);
}

bool isMissing(const QVariant &value, ValueType type)
{
    switch (type) {
    case ValueType::Texture:
        return !objectIn<Texture>(value);
    case ValueType::Model:
        return !value.value<GPUModel *>();
    case ValueType::DrawBuffers: {
        if (value.userType() != QMetaType::QVariantList)
            return !objectIn<DrawBuffers>(value);
        const QVariantList list = value.toList();
        return std::any_of(
            list.begin(), list.end(), [](const QVariant &element) { return !objectIn<DrawBuffers>(element); });
    }
    default:
        return !value.isValid();
    }
}

/// The shader files that options name, as absolute paths.
QStringList shaderFilesOf(const PassInfo &info, const QVariantMap &given, const QString &folder)
{
    QStringList files;
    const PassOptions options = resolveOptions(info, given, nullptr, folder);
    for (const OptionInfo &option : info.options) {
        const QString name = options.value(option.name).toString();
        if (option.type == ValueType::ShaderFile && !name.isEmpty() && !isShaderText(name))
            files.append(name);
    }
    return files;
}

/// Adds a sample to a running mean.
void addSample(double sample, int *count, double *last, double *mean)
{
    ++*count;
    *last = sample;
    *mean += (sample - *mean) / *count;
}

/// A debug group for a scope, where the driver has them.
class DebugGroup
{
public:
    DebugGroup(bool isSupported, const QByteArray &label)
        : m_isSupported(isSupported)
    {
        if (m_isSupported)
            glPushDebugGroup(GL_DEBUG_SOURCE_APPLICATION, 0, label.size(), label.constData());
    }
    ~DebugGroup()
    {
        if (m_isSupported)
            glPopDebugGroup();
    }

private:
    Q_DISABLE_COPY(DebugGroup)

    bool m_isSupported;
};

/// Whether the value of an input says how many samples a pass's images have, or whether several serve: the chain is checked
/// again when it changes.
bool decidesOnSamples(const PassInfo &info, const QString &port)
{
    return std::any_of(info.outputs.begin(), info.outputs.end(),
               [&](const OutputInfo &output) { return output.samplesInput == port; })
        || std::any_of(info.inputs.begin(), info.inputs.end(),
            [&](const InputInfo &input) { return input.refusesSamplesWith.contains(port) || input.samplesAs == port; });
}

} // namespace

struct RenderChain::Private
{
    explicit Private(const PassRegistry &passes)
        : registry(passes)
    { }

    // --- the chain ---

    const PassRegistry &registry;
    ChainDescription description;
    std::vector<std::unique_ptr<Node>> nodes; ///< Parallel to the description's passes; none for a chain with errors.
    std::map<QString, QVariant> frameValues; ///< A map, since inputs point to its values.
    bool boundsFollowModel = true;
    bool lightsFollowChain = true;
    std::vector<std::unique_ptr<ShadowMapManager::Light>> lights; ///< Those of the chain, at their places.
    bool usesBounds = false; ///< An input takes the bounds of the frame.
    bool wiringIsStale = true;
    QString error;
    QStringList knownErrors; ///< Of the description.
    bool errorsAreKnown = false;

    bool fail(const QString &text)
    {
        error = text;
        return false;
    }

    QVector<ChainFinding> findings(const ChainDescription &chain) const
    {
        QStringList names = FrameValues::standardNames();
        QVariantMap known;
        for (const auto &value : frameValues) {
            if (!names.contains(value.first))
                names.append(value.first);
            known.insert(value.first, value.second);
        }
        return validateChain(chain, registry, names, known);
    }

    QStringList errors(const ChainDescription &chain) const
    {
        QStringList texts;
        for (const ChainFinding &finding : findings(chain)) {
            if (finding.severity == ChainFinding::Severity::Error)
                texts.append(finding.toString());
        }
        return texts;
    }

    const QStringList &presentErrors()
    {
        if (!errorsAreKnown)
            knownErrors = errors(description);
        errorsAreKnown = true;
        return knownErrors;
    }

    /// Has the chain checked and wired again before the next frame.
    void setStale()
    {
        wiringIsStale = true;
        errorsAreKnown = false;
    }

    /// Whether a frame value of this name says how many samples images of the chain have, or what may be done with them.
    bool decides(const QString &port) const
    {
        return std::any_of(description.passes.begin(), description.passes.end(), [&](const ChainPass &pass) {
            const PassInfo *info = registry.find(pass.className);
            return info && decidesOnSamples(*info, port);
        });
    }

    bool apply(const ChainDescription &candidate);
    std::shared_ptr<const PassInfo> infoOf(int pass) const;
    bool findInput(const QString &pass, const QString &port, int *passIndex, int *inputIndex);

    // --- nodes and wiring ---

    bool updateWiring();
    void matchNodes();
    void wireNode(Node *node, const ChainPass &described, const WiredPass &wired);
    QSet<QString> frameValueNames() const;
    Node *node(const QString &name) const;
    void setFrameValue(const QString &port, const QVariant &value);
    void followBounds();
    void followLights();

    // --- the frame ---

    QSize lastSize;
    QColor clearColor{0, 0, 0, 0};
    bool restoresState = false;
    bool hasDebugGroups = false;
    quint64 frame = 0;
    TextureManager *manager = nullptr; ///< Of the frame that runs.

    bool render();
    bool checkViewports(QSize *size);
    bool makePasses();
    std::unique_ptr<RenderPass> makePass(const Node &node);
    bool makeInstance(Node *node, double key);
    bool reloadShaders();
    bool chooseInstance(Node *node, double value);
    void followGeometry(Node *node);
    void runNode(Node *node, int index, const QSize &frameSize);
    void endFrame();
    QVariant inputValue(const Node &node, int input) const;
    QSize viewportOf(const Node &node, const QSize &frameSize) const;
    void reportFailure(Node *node);
    static bool isCounted(Node *node);
    static void reportFragments(Node *node, quint64 count);
    static void releaseCounter(Node *node, bool isCurrent);
    void hold(Texture *texture, bool isCounted, QVarLengthArray<HeldTexture, 8> *held);
    void balance(const Node &node, const QVarLengthArray<HeldTexture, 8> &held);

    // --- results ---

    QVector<Texture *> exported; ///< Textures that exports hold.
    bool exportsAreValid = false;
    bool capturesAll = false;
    QVector<Capture> captures;
    bool timing = false;
    GpuTimer gpuTimer;

    void releaseExports();
    void capture(Node *node);
    static QImage captureLists(const Node &node, Texture *heads);
    void collectTimes(bool waits);

    // --- contexts ---

    std::unique_ptr<GLObject> context; ///< A claim on the context that the passes belong to.
    QWeakPointer<OpenGLDeviceContext> device; ///< Of that context.
    int endListener = 0; ///< At the device.
    std::vector<Instance> retired; ///< Passes that left the chain while no context was at hand.

    bool isInContext() const { return context && context->isKnownToCurrentContext(); }
    void enterContext();
    void leaveContext();
    void stopListening()
    {
        if (const auto known = device.toStrongRef())
            known->removeEndListener(endListener);
        device.clear();
    }
    void retire(std::vector<Instance> *instances);
    void deleteRetired();
};

RenderChain::RenderChain(const PassRegistry &registry)
    : d(new Private(registry))
{ }

RenderChain::~RenderChain()
{
    d->stopListening();
    d->releaseExports();
    d->gpuTimer.release(d->isInContext());
    for (const auto &node : d->nodes) {
        d->releaseCounter(node.get(), d->isInContext());
        d->retire(&node->instances);
    }
    d->deleteRetired();
}

// --- the chain -----------------------------------------------------------------------------------------------------

bool RenderChain::setDescription(const ChainDescription &description)
{
    d->description = description;
    d->setStale();
    if (d->lightsFollowChain)
        d->followLights();
    d->error.clear();
    const QStringList &errors = d->presentErrors();
    return errors.isEmpty() || d->fail(errors.first());
}

const ChainDescription &RenderChain::description() const
{
    return d->description;
}

QVector<ChainFinding> RenderChain::findings() const
{
    return d->findings(d->description);
}

QString RenderChain::errorString() const
{
    return d->error;
}

/// Takes a changed chain unless it has errors that the present one has not.
bool RenderChain::Private::apply(const ChainDescription &candidate)
{
    const QStringList remaining = errors(candidate);
    for (const QString &text : remaining) {
        if (!presentErrors().contains(text))
            return fail(text);
    }
    description = candidate;
    setStale();
    knownErrors = remaining;
    errorsAreKnown = true;
    return true;
}

/// The class of a pass with the ports of its options; null when it is unknown.
std::shared_ptr<const PassInfo> RenderChain::Private::infoOf(int pass) const
{
    const ChainPass &described = description.passes[pass];
    return wiringIsStale ? registry.describe(described.className, described.options) : nodes[size_t(pass)]->info;
}

bool RenderChain::Private::findInput(const QString &pass, const QString &port, int *passIndex, int *inputIndex)
{
    *passIndex = description.findPass(pass);
    if (*passIndex < 0) {
        return fail(
            QStringLiteral("no pass named \"%1\"%2").arg(pass, nearestNamesHint(pass, description.passNames())));
    }
    const std::shared_ptr<const PassInfo> info = infoOf(*passIndex);
    *inputIndex = info ? info->findInput(port) : -1;
    if (*inputIndex < 0) {
        return fail(QStringLiteral("pass \"%1\" has no input \"%2\"%3")
                        .arg(pass, port, nearestNamesHint(port, info ? info->inputNames() : QStringList())));
    }
    return true;
}

bool RenderChain::setValue(const QString &pass, const QString &port, const QVariant &value)
{
    int passIndex, inputIndex;
    if (!d->findInput(pass, port, &passIndex, &inputIndex))
        return false;
    ChainPass &described = d->description.passes[passIndex];
    const std::shared_ptr<const PassInfo> known = d->infoOf(passIndex);
    const PassInfo &info = *known;
    const InputInfo &input = info.inputs[inputIndex];
    QVariant converted;
    if (!convertValue(value, input.type, &converted)) {
        return d->fail(QStringLiteral("pass \"%1\", %2: expected %3, found %4")
                           .arg(pass, port, typeName(input.type), describeValue(value)));
    }
    if (isEmptyViewport(input, converted)) {
        return d->fail(QStringLiteral("pass \"%1\", %2: expected a width and height of 1 or more, found %3")
                           .arg(pass, port, describeValue(value)));
    }

    const QVariant resolved = resolveImageFile(input, converted, d->description.folder);
    const bool namesImage = input.imageFile != ImageFileUse::None && !resolved.toString().isEmpty();
    if (namesImage) {
        const QString problem = inspectImageFile(resolved.toString()).problem;
        if (!problem.isEmpty()) {
            return d->fail(QStringLiteral("pass \"%1\", %2: expected an image file, found \"%3\", %4")
                               .arg(pass, port, resolved.toString(), problem));
        }
    }

    const bool decides = namesImage || decidesOnSamples(info, port);
    if (d->wiringIsStale || decides || !described.values.contains(port))
        d->setStale();
    else
        d->nodes[size_t(passIndex)]->inputs[size_t(inputIndex)].stored = converted;
    described.values.insert(port, converted);
    return true;
}

bool RenderChain::clearValue(const QString &pass, const QString &port)
{
    int passIndex, inputIndex;
    if (!d->findInput(pass, port, &passIndex, &inputIndex))
        return false;
    if (d->description.passes[passIndex].values.remove(port))
        d->setStale();
    return true;
}

bool RenderChain::setEnabled(const QString &pass, bool enabled)
{
    ChainDescription changed = d->description;
    const int index = changed.findPass(pass);
    if (index < 0) {
        return d->fail(QStringLiteral("no pass named \"%1\"%2").arg(pass, nearestNamesHint(pass, changed.passNames())));
    }
    if (changed.passes[index].enabled == enabled)
        return true;
    changed.passes[index].enabled = enabled;
    return d->apply(changed);
}

bool RenderChain::connect(const QString &pass, const QString &port, const ChainSource &source)
{
    int passIndex, inputIndex;
    if (!d->findInput(pass, port, &passIndex, &inputIndex))
        return false;
    ChainDescription changed = d->description;
    changed.passes[passIndex].connections.insert(port, source);
    return d->apply(changed);
}

bool RenderChain::disconnect(const QString &pass, const QString &port)
{
    int passIndex, inputIndex;
    if (!d->findInput(pass, port, &passIndex, &inputIndex))
        return false;
    ChainDescription changed = d->description;
    changed.passes[passIndex].connections.remove(port);
    return d->apply(changed);
}

bool RenderChain::setOption(const QString &pass, const QString &option, const QVariant &value)
{
    ChainDescription changed = d->description;
    const int index = changed.findPass(pass);
    if (index < 0) {
        return d->fail(QStringLiteral("no pass named \"%1\"%2").arg(pass, nearestNamesHint(pass, changed.passNames())));
    }
    changed.passes[index].options.insert(option, value);
    return d->apply(changed);
}

bool RenderChain::addExport(const QString &name, const ChainOutput &output)
{
    ChainDescription changed = d->description;
    changed.exports.insert(name, output);
    return d->apply(changed);
}

bool RenderChain::removeExport(const QString &name)
{
    if (!d->description.exports.contains(name))
        return d->fail(QStringLiteral("no export named \"%1\"").arg(name));
    d->description.exports.remove(name);
    d->setStale();
    return true;
}

// --- values of the frame -------------------------------------------------------------------------------------------

void RenderChain::Private::setFrameValue(const QString &port, const QVariant &value)
{
    const auto known = frameValues.find(port);
    if (known != frameValues.end() && value.isValid()) {
        const int type = value.userType();
        const bool maySayNumber = type == QMetaType::Bool || type == QMetaType::Int;
        const bool changes = maySayNumber && known->second != value;
        known->second = value;
        if (changes && decides(port))
            setStale();
        return;
    }
    if (known == frameValues.end() && !value.isValid())
        return;
    // Names that come and go change the wiring; the inputs must not point to a value that is gone.
    if (value.isValid())
        frameValues.emplace(port, value);
    else
        frameValues.erase(known);
    setStale();
}

void RenderChain::setFrameValue(const QString &port, const QVariant &value)
{
    const bool isBound = port == FrameValues::sceneBoundsMin || port == FrameValues::sceneBoundsMax;
    if (isBound)
        d->boundsFollowModel = !value.isValid();
    if (port == FrameValues::lights)
        d->lightsFollowChain = !value.isValid();
    d->setFrameValue(port, value);
    if ((port == FrameValues::model || isBound) && d->boundsFollowModel)
        d->followBounds();
    // Bounds of the model bring their lights along.
    if (d->lightsFollowChain && (port == FrameValues::lights || (isBound && !d->boundsFollowModel)))
        d->followLights();
}

QVariant RenderChain::frameValue(const QString &port) const
{
    const auto value = d->frameValues.find(port);
    return value == d->frameValues.end() ? QVariant() : value->second;
}

QStringList RenderChain::frameValueNames() const
{
    QStringList names;
    for (const auto &value : d->frameValues)
        names.append(value.first);
    return names;
}

void RenderChain::setViewport(const QRect &viewport)
{
    d->setFrameValue(FrameValues::viewport, viewport);
}

void RenderChain::setCamera(const QMatrix4x4 &camera, const QMatrix4x4 &projection)
{
    d->setFrameValue(FrameValues::cameraMatrix, camera);
    d->setFrameValue(FrameValues::projectionMatrix, projection);
}

/// Makes the bounds of the frame those of its model, or takes them away.
void RenderChain::Private::followBounds()
{
    const auto value = frameValues.find(FrameValues::model);
    const GPUModel *model = value == frameValues.end() ? nullptr : value->second.value<GPUModel *>();
    const auto bounds = model ? model->sceneBounds() : QPair<QVector3D, QVector3D>();
    setFrameValue(FrameValues::sceneBoundsMin, model ? QVariant(bounds.first) : QVariant());
    setFrameValue(FrameValues::sceneBoundsMax, model ? QVariant(bounds.second) : QVariant());
    if (lightsFollowChain)
        followLights();
}

/// Makes the lights of the frame those of the chain, placed around the scene, or takes them away.
void RenderChain::Private::followLights()
{
    const auto bound = [this](const QString &name) {
        const auto value = frameValues.find(name);
        return value == frameValues.end() ? QVector3D() : value->second.value<QVector3D>();
    };
    const QPair<QVector3D, QVector3D> bounds{bound(FrameValues::sceneBoundsMin), bound(FrameValues::sceneBoundsMax)};
    QVariantList list;
    lights.resize(description.lights.size());
    for (size_t i = 0; i < lights.size(); ++i) {
        if (!lights[i])
            lights[i] = std::make_unique<ShadowMapManager::Light>();
        description.lights[i].place(bounds, lights[i].get());
        list.append(QVariant::fromValue(lights[i].get()));
    }
    setFrameValue(FrameValues::lights, list.isEmpty() ? QVariant() : QVariant(list));
}

void RenderChain::setModel(GPUModel *model)
{
    setFrameValue(FrameValues::model, model ? QVariant::fromValue(model) : QVariant());
}

void RenderChain::setFramebuffer(FramebufferObject *framebuffer)
{
    d->setFrameValue(FrameValues::framebuffer, framebuffer ? QVariant::fromValue(framebuffer) : QVariant());
}

// --- nodes and wiring ----------------------------------------------------------------------------------------------

Node *RenderChain::Private::node(const QString &name) const
{
    for (const auto &node : nodes) {
        if (node->name == name)
            return node.get();
    }
    return nullptr;
}

/// Makes the nodes those of the description. Passes that stay what they were keep their objects.
void RenderChain::Private::matchNodes()
{
    std::vector<std::unique_ptr<Node>> matched;
    bool isInOrder = nodes.size() == size_t(description.passes.size());
    for (const ChainPass &pass : qAsConst(description.passes)) {
        const auto same = std::find_if(nodes.begin(), nodes.end(), [&](const std::unique_ptr<Node> &node) {
            return node && node->name == pass.name && node->info->className == pass.className
                && node->options == pass.options && node->folder == description.folder;
        });
        isInOrder = isInOrder && same - nodes.begin() == std::ptrdiff_t(matched.size());
        if (same != nodes.end()) {
            matched.push_back(std::move(*same));
        } else {
            matched.push_back(std::make_unique<Node>());
            matched.back()->name = pass.name;
            matched.back()->label = pass.name.toUtf8();
            matched.back()->options = pass.options;
            matched.back()->folder = description.folder;
            matched.back()->timing.pass = pass.name;
        }
        matched.back()->info = registry.describe(pass.className, pass.options);
        matched.back()->enabled = pass.enabled;
    }
    for (const auto &left : nodes) {
        if (!left)
            continue;
        releaseCounter(left.get(), isInContext());
        retire(&left->instances);
    }
    nodes = std::move(matched);
    // The spans of times under way have the numbers of the old nodes.
    if (!isInOrder)
        gpuTimer.discard();
}

void RenderChain::Private::wireNode(Node *node, const ChainPass &described, const WiredPass &wired)
{
    const PassInfo &info = *node->info;
    node->viewportInput = info.findInput(FrameValues::viewport);
    node->projectionInput = info.findInput(FrameValues::projectionMatrix);
    node->gridInput = -1;
    node->geometryInput = -1;
    node->inputs.resize(size_t(info.inputs.size()));
    for (int i = 0; i < info.inputs.size(); ++i) {
        const WiredInput &source = wired.inputs[i];
        NodeInput &input = node->inputs[size_t(i)];
        input = NodeInput();
        input.info = &info.inputs[i];
        input.source = source.source;
        switch (source.source) {
        case WiredInput::Source::Default:
            break;
        case WiredInput::Source::Value:
            convertValue(described.values.value(input.info->name), input.info->type, &input.stored);
            input.stored = resolveImageFile(*input.info, input.stored, description.folder);
            input.value = &input.stored;
            break;
        case WiredInput::Source::Output:
            input.producer = nodes[size_t(source.pass)].get();
            input.output = source.output;
            ++nodes[size_t(source.pass)]->users[size_t(source.output)];
            break;
        case WiredInput::Source::Previous: {
            Node *producer = nodes[size_t(source.pass)].get();
            producer->wantsPrevious[size_t(source.output)] = true;
            input.value = &producer->previous[size_t(source.output)];
            break;
        }
        case WiredInput::Source::FrameValue:
            input.value = &frameValues.find(source.frameValue)->second;
            usesBounds = usesBounds || source.frameValue == FrameValues::sceneBoundsMin
                || source.frameValue == FrameValues::sceneBoundsMax;
            break;
        }
        if (input.info->gridStep > 0)
            node->gridInput = i;
        if (input.info->keepsGeometry)
            node->geometryInput = i;
    }
}

QSet<QString> RenderChain::Private::frameValueNames() const
{
    QSet<QString> names;
    for (const auto &value : frameValues)
        names.insert(value.first);
    return names;
}

bool RenderChain::Private::updateWiring()
{
    if (!wiringIsStale)
        return true;
    if (!presentErrors().isEmpty())
        return fail(presentErrors().first());

    matchNodes();
    const ChainWiring wiring = wireChain(description, registry, frameValueNames());
    for (const auto &node : nodes) {
        const auto outputs = size_t(node->info->outputs.size());
        node->users.assign(outputs, 0);
        node->captured.resize(outputs, false);
        node->previous.resize(outputs);
        node->wantsPrevious.assign(outputs, false);
    }
    usesBounds = false;
    for (size_t i = 0; i < nodes.size(); ++i)
        wireNode(nodes[i].get(), description.passes[int(i)], wiring[int(i)]);
    for (const ChainOutput &output : qAsConst(description.exports)) {
        Node *producer = node(output.pass);
        ++producer->users[size_t(producer->info->findOutput(output.port))];
    }
    wiringIsStale = false;
    return true;
}

RenderChain::InputSource RenderChain::inputSource(const QString &pass, const QString &port) const
{
    InputSource found;
    int passIndex, inputIndex;
    if (!d->findInput(pass, port, &passIndex, &inputIndex))
        return found;
    const ChainWiring wiring = wireChain(d->description, d->registry, d->frameValueNames());
    const WiredInput &input = wiring[passIndex].inputs[inputIndex];
    switch (input.source) {
    case WiredInput::Source::Default:
        found.kind = InputSource::Kind::Default;
        break;
    case WiredInput::Source::Value:
        found.kind = InputSource::Kind::Value;
        break;
    case WiredInput::Source::Output:
    case WiredInput::Source::Previous:
        found.kind =
            input.source == WiredInput::Source::Output ? InputSource::Kind::Output : InputSource::Kind::Previous;
        found.pass = d->description.passes[input.pass].name;
        found.port = wiring[input.pass].info->outputs[input.output].name;
        break;
    case WiredInput::Source::FrameValue:
        found.kind = InputSource::Kind::FrameValue;
        found.port = input.frameValue;
        break;
    }
    return found;
}

RenderPass *RenderChain::pass(const QString &name) const
{
    const Node *node = d->node(name);
    return node ? node->active : nullptr;
}

int RenderChain::passObjectCount() const
{
    size_t count = d->retired.size();
    for (const auto &node : d->nodes)
        count += node->instances.size();
    return int(count);
}

// --- contexts ------------------------------------------------------------------------------------------------------

void RenderChain::Private::enterContext()
{
    if (isInContext())
        return;
    leaveContext();
    context = std::make_unique<GLObject>(GLObject::Sharing::OneContext);
    context->claim();
    hasDebugGroups = epoxy_gl_version() >= 43 || epoxy_has_gl_extension("GL_KHR_debug");
    const QSharedPointer<OpenGLDeviceContext> current = OpenGLDeviceContext::current();
    device = current;
    endListener = current->addEndListener([this] { leaveContext(); });
}

/// Deletes all passes. Their objects in a context that is not current drop their names.
void RenderChain::Private::leaveContext()
{
    stopListening();
    const bool isCurrent = isInContext();
    releaseExports(); // In a context that shares textures they are still there.
    gpuTimer.release(isCurrent);
    for (const auto &node : nodes) {
        if (isCurrent) {
            for (const Instance &instance : node->instances) {
                instance.pass->teardown(nullptr);
                instance.pass->teardownContextData(nullptr);
            }
        }
        releaseCounter(node.get(), isCurrent);
        node->hasGeometry = false;
        node->knowsRoom = false;
        node->instances.clear();
        node->active = nullptr;
        node->previous.assign(node->previous.size(), QVariant());
    }
    deleteRetired();
    context.reset();
    lastSize = QSize();
}

void RenderChain::Private::retire(std::vector<Instance> *instances)
{
    for (Instance &instance : *instances)
        retired.push_back(std::move(instance));
    instances->clear();
}

void RenderChain::Private::deleteRetired()
{
    if (isInContext()) {
        for (const Instance &instance : retired)
            instance.pass->teardown(nullptr);
    }
    retired.clear();
}

void RenderChain::releaseContext()
{
    d->leaveContext();
}

// --- the frame -----------------------------------------------------------------------------------------------------

bool RenderChain::renderFrame()
{
    d->error.clear();
    if (!OpenGLDeviceContext::currentHandle())
        return d->fail(QStringLiteral("no current OpenGL context"));
    return d->render();
}

/// Checks the viewport of the frame, whose size it gives, and those that enabled passes have of their own.
bool RenderChain::Private::checkViewports(QSize *size)
{
    const auto value = frameValues.find(FrameValues::viewport);
    if (value == frameValues.end())
        return fail(QStringLiteral("no viewport: set %1").arg(FrameValues::viewport));
    *size = value->second.toRect().size();
    GLint limit = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &limit);
    const auto check = [&](const Node *node, const QSize &viewport) {
        if (!viewport.isEmpty() && viewport.width() <= limit && viewport.height() <= limit)
            return true;
        return fail(
            QStringLiteral("%1viewport of %2 by %3 pixels: each side must be from 1 to %4")
                .arg(node ? QStringLiteral("pass \"%1\": ").arg(node->name) : QString(),
                    QString::number(viewport.width()), QString::number(viewport.height()), QString::number(limit)));
    };
    if (!check(nullptr, *size))
        return false;
    return std::all_of(nodes.begin(), nodes.end(), [&](const std::unique_ptr<Node> &node) {
        if (!node->enabled || node->viewportInput < 0)
            return true;
        const QVariant *own = node->inputs[size_t(node->viewportInput)].value;
        return !own || !own->isValid() || check(node.get(), own->toRect().size());
    });
}

bool RenderChain::Private::render()
{
    QSize size;
    enterContext();
    if (!updateWiring() || !checkViewports(&size))
        return false;
    deleteRetired();
    if (!makePasses())
        return false;

    manager = TextureManager::Instance();
    releaseExports();
    if (size != lastSize)
        manager->deleteUnusedTempTextures();
    lastSize = size;
    captures.clear();
    ++frame;
    if (boundsFollowModel && usesBounds)
        followBounds();

    std::unique_ptr<SavedGLState> found;
    if (restoresState)
        found = std::make_unique<SavedGLState>();
    if (timing)
        gpuTimer.beginFrame(int(nodes.size()));
    for (const auto &node : nodes) {
        if (node->gridInput < 0)
            node->active->beginFrame(nullptr);
    }
    for (size_t i = 0; i < nodes.size(); ++i)
        runNode(nodes[i].get(), int(i), size);
    endFrame();
    if (found)
        found->restore();
    return true;
}

bool RenderChain::Private::makePasses()
{
    for (const auto &node : nodes) {
        if (node->instances.empty() && !makeInstance(node.get(), 0))
            return false;
        if (!node->active)
            node->active = node->instances.front().pass.get();
    }
    return true;
}

/// A pass of a node's class and options, before its setup; null after a failure.
std::unique_ptr<RenderPass> RenderChain::Private::makePass(const Node &node)
{
    const PassInfo &info = *node.info;
    const PassOptions options = resolveOptions(info, node.options, nullptr, node.folder);
    QString reason = QStringLiteral("%1 could not be made").arg(info.className);
    std::unique_ptr<RenderPass> pass = info.createChecked ? info.createChecked(options, &reason) : info.create(options);
    if (!pass) {
        fail(QStringLiteral("pass \"%1\": %2").arg(node.name, reason));
        return nullptr;
    }

    QStringList inputs, outputs;
    for (int i = 0; i < pass->numInputs(); ++i)
        inputs.append(pass->inputName(i));
    for (int i = 0; i < pass->numOutputs(); ++i)
        outputs.append(pass->outputName(i));
    if (inputs != info.inputNames() || outputs != info.outputNames()) {
        fail(QStringLiteral("pass \"%1\": %2 has other ports than its registry entry says")
                 .arg(node.name, info.className));
        return nullptr;
    }
    return pass;
}

bool RenderChain::Private::makeInstance(Node *node, double key)
{
    Instance instance;
    instance.pass = makePass(*node);
    instance.key = key;
    if (!instance.pass)
        return false;
    instance.pass->setup(nullptr);
    node->instances.push_back(std::move(instance));
    return true;
}

bool RenderChain::Private::reloadShaders()
{
    if (wiringIsStale)
        errorsAreKnown = false; // A file that was missing may be there now.
    enterContext();
    if (!updateWiring())
        return false;

    // All or none: the passes give way when the last new one is made.
    std::vector<std::pair<Node *, Instance>> remade;
    for (const auto &node : nodes) {
        if (node->instances.empty() || shaderFilesOf(*node->info, node->options, node->folder).isEmpty())
            continue;
        Instance instance;
        instance.pass = makePass(*node);
        if (!instance.pass)
            return false;
        remade.emplace_back(node.get(), std::move(instance));
    }
    for (auto &[node, instance] : remade) {
        retire(&node->instances);
        instance.pass->setup(nullptr);
        node->active = instance.pass.get();
        node->instances.push_back(std::move(instance));
    }
    deleteRetired();
    return true;
}

bool RenderChain::reloadShaders()
{
    d->error.clear();
    if (!OpenGLDeviceContext::currentHandle())
        return d->fail(QStringLiteral("no current OpenGL context"));
    return d->reloadShaders();
}

QStringList RenderChain::shaderFiles() const
{
    QStringList files;
    for (const ChainPass &pass : qAsConst(d->description.passes)) {
        const PassInfo *info = d->registry.find(pass.className);
        if (info)
            files += shaderFilesOf(*info, pass.options, d->description.folder);
    }
    for (const QString &name : QStringList(files)) {
        QFile file(name);
        if (file.open(QIODevice::ReadOnly)) {
            const QString source = QString::fromUtf8(file.readAll());
            files += ShaderPreprocessor(GL_FRAGMENT_SHADER, source, name, nullptr).includedFiles();
        }
    }
    files.removeDuplicates();
    return files;
}

/// Makes the object for a value of the grid the active one; the least recently used one makes room for it.
bool RenderChain::Private::chooseInstance(Node *node, double value)
{
    std::vector<Instance> &instances = node->instances;
    // No NaN equals another, and yet one object serves them all.
    auto chosen = std::find_if(instances.begin(), instances.end(), [&](const Instance &instance) {
        return instance.key == value || (std::isnan(instance.key) && std::isnan(value));
    });
    // An object that never ran serves any value.
    if (chosen == instances.end()) {
        chosen = std::find_if(
            instances.begin(), instances.end(), [](const Instance &instance) { return instance.lastUse == 0; });
    }
    if (chosen == instances.end()) {
        if (!makeInstance(node, value))
            return false;
        chosen = instances.end() - 1;
    }
    chosen->key = value;
    chosen->lastUse = frame;
    node->active = chosen->pass.get();
    if (int(instances.size()) > keptObjects) {
        const auto oldest = std::min_element(instances.begin(), instances.end(),
            [](const Instance &a, const Instance &b) { return a.lastUse < b.lastUse; });
        retired.push_back(std::move(*oldest));
        instances.erase(oldest);
        deleteRetired();
    }
    return true;
}

/// Makes a pass anew that keeps the geometry of another model than its input has now.
void RenderChain::Private::followGeometry(Node *node)
{
    const QVariant value = inputValue(*node, node->geometryInput);
    const GPUModel *const model = value.userType() == qMetaTypeId<GPUModel *>() ? value.value<GPUModel *>() : nullptr;
    DrawBuffers *const geometry = model ? model->drawBuffers(0) : nullptr;
    if (!geometry || (node->hasGeometry && node->geometry == geometry))
        return;
    if (node->hasGeometry) {
        std::vector<Instance> old;
        old.swap(node->instances);
        if (!makeInstance(node, 0)) {
            KVZ_WARNING(error);
            node->instances.swap(old);
            return;
        }
        retire(&old);
        deleteRetired();
        node->active = node->instances.front().pass.get();
        node->active->beginFrame(nullptr);
    }
    node->geometry = geometry;
    node->hasGeometry = true;
}

QVariant RenderChain::Private::inputValue(const Node &node, int index) const
{
    const NodeInput &input = node.inputs[size_t(index)];
    if (input.producer)
        return input.producer->active->output(input.output);
    return input.value ? *input.value : node.active->defaultValue(index);
}

QSize RenderChain::Private::viewportOf(const Node &node, const QSize &frameSize) const
{
    if (node.viewportInput < 0)
        return frameSize;
    const QRect viewport = inputValue(node, node.viewportInput).toRect();
    return viewport.isValid() ? viewport.size() : frameSize;
}

/// Notes a pooled image that an input holds. `isCounted` says that its producer added a reference for the input; for an
/// image of the host the chain adds it, so that the pass gives back what is not the host's.
void RenderChain::Private::hold(Texture *texture, bool isCounted, QVarLengthArray<HeldTexture, 8> *held)
{
    if (!isCounted)
        manager->addTempTextureRef(texture, 1);
    for (HeldTexture &other : *held) {
        if (other.texture == texture) {
            other.before += isCounted ? 0 : 1;
            ++other.inputs;
            return;
        }
    }
    const int references = manager->tempTextureRefs(texture);
    if (references >= 0)
        held->append({texture, references, 1});
}

/// Brings the references of a pass's input images to what they must be, whether the pass gave them back or not: those
/// before, less its inputs, plus the users of outputs that hand an image on.
void RenderChain::Private::balance(const Node &node, const QVarLengthArray<HeldTexture, 8> &held)
{
    for (const HeldTexture &input : held) {
        int expected = input.before - input.inputs;
        for (size_t i = 0; i < node.users.size(); ++i) {
            if (node.info->outputs[int(i)].type == ValueType::Texture
                && objectIn<Texture>(node.active->output(int(i))) == input.texture)
                expected += node.users[i] + int(node.captured[i]);
        }
        const int actual = manager->tempTextureRefs(input.texture);
        if (actual > expected)
            manager->releaseTempTextureRef(input.texture, actual - expected);
        else if (actual >= 0)
            manager->addTempTextureRef(input.texture, expected - actual);
    }
}

/// Says that a pass reports a failure, once for each pass, and clears it for the next frame.
void RenderChain::Private::reportFailure(Node *node)
{
    const unsigned int code = node->active->errorCode();
    if (code == 0)
        return;
    node->active->clearErrorCode();
    if (node->saidFailed)
        return;
    node->saidFailed = true;
    // Where memory ran out, that is the reason.
    const bool noMemory = takeGLErrors() == GL_OUT_OF_MEMORY;
    const QString reason =
        noMemory ? QStringLiteral("out of graphics memory") : QStringLiteral("error code 0x%1").arg(code, 0, 16);
    KVZ_WARNING(QStringLiteral("pass \"%1\" failed: %2").arg(node->name, reason));
}

/// Whether a pass can lose fragments on this driver.
bool RenderChain::Private::isCounted(Node *node)
{
    if (node->knowsRoom)
        return node->hasLimitedRoom;
    const PassInfo &info = *node->info;
    node->knowsRoom = true;
    // Without image writes nothing is recorded, and there are no barriers.
    node->hasLimitedRoom = info.fragmentRoom > 0 && hasGLExtension("GL_ARB_shader_image_load_store")
        && std::all_of(info.driverNeeds.begin(), info.driverNeeds.end(), [](const DriverNeed &need) {
               return std::all_of(need.extensions.begin(), need.extensions.end(),
                   [](const QString &extension) { return hasGLExtension(extension.toUtf8().constData()); });
           });
    return node->hasLimitedRoom;
}

/// Says that a pass had more fragments than it keeps, once until they fit again.
void RenderChain::Private::reportFragments(Node *node, quint64 count)
{
    const auto room = quint64(node->info->fragmentRoom);
    if (count > room && !node->saidFull) {
        KVZ_WARNING(
            QStringLiteral("pass \"%1\" lost fragments: a frame had %2, and it has room for %3; select fewer items "
                           "or make the viewport smaller")
                .arg(node->name)
                .arg(count)
                .arg(room));
    }
    node->saidFull = count > room;
}

/// Reads what the counters of a node still hold, and deletes them.
void RenderChain::Private::releaseCounter(Node *node, bool isCurrent)
{
    if (isCurrent)
        node->fragments.finish([&](quint64 count) { reportFragments(node, count); });
    node->fragments.release(isCurrent);
}

void RenderChain::Private::runNode(Node *node, int index, const QSize &frameSize)
{
    const auto began = std::chrono::steady_clock::now();
    if (capturesAll && node->enabled) {
        for (size_t i = 0; i < node->captured.size(); ++i)
            node->captured[i] = node->info->outputs[int(i)].texture.display != TextureDisplay::Hidden
                && holdsImage(node->info->outputs[int(i)]);
    }

    QVariant gridValue;
    if (node->gridInput >= 0) {
        gridValue = inputValue(*node, node->gridInput);
        const double step = node->inputs[size_t(node->gridInput)].info->gridStep;
        const double rounded = std::round(gridValue.toDouble() / step) * step;
        if (gridValue.isValid())
            gridValue = float(rounded);
        if (!chooseInstance(node, rounded))
            KVZ_WARNING(error);
        node->active->beginFrame(nullptr);
    }
    if (node->geometryInput >= 0)
        followGeometry(node);
    RenderPass *pass = node->active;

    applyBaselineState(
        viewportOf(*node, frameSize), node->info->clearColor.isValid() ? node->info->clearColor : clearColor);
    manager->setHolderLabel(node->name);
    const InputInfo *missing = nullptr;
    QVarLengthArray<HeldTexture, 8> held;
    for (int i = 0; i < int(node->inputs.size()); ++i) {
        const NodeInput &input = node->inputs[size_t(i)];
        const QVariant value = i == node->gridInput ? gridValue : inputValue(*node, i);
        if (input.info->required && isMissing(value, input.info->type))
            missing = input.info;
        if (input.info->type == ValueType::Texture) {
            if (Texture *texture = objectIn<Texture>(value))
                hold(texture, input.producer, &held);
        }
        pass->setInput(i, value);
    }
    for (size_t i = 0; i < node->users.size(); ++i)
        pass->setNumOutputUsers(int(i), node->users[i] + int(node->captured[i]));

    if (node->enabled && missing && !node->saidMissing) {
        node->saidMissing = true;
        KVZ_WARNING(QStringLiteral("pass \"%1\" is skipped: %2 is null").arg(node->name, missing->name));
    }
    gpuTimer.beginSpan(index);
    {
        const DebugGroup group(hasDebugGroups, node->label);
        if (!node->enabled || missing) {
            pass->skip(nullptr);
        } else if (isCounted(node)) {
            node->fragments.poll([&](quint64 count) { reportFragments(node, count); });
            // The pass clears what shaders wrote in the last frame, and the next one may go on with images.
            glMemoryBarrier(GL_FRAMEBUFFER_BARRIER_BIT | GL_BUFFER_UPDATE_BARRIER_BIT);
            node->fragments.begin();
            pass->start(nullptr);
            node->fragments.end();
            glMemoryBarrier(GL_SHADER_IMAGE_ACCESS_BARRIER_BIT);
        } else {
            pass->start(nullptr);
        }
    }
    gpuTimer.endSpan(index);
    reportFailure(node);
    balance(*node, held);
    if (timing) {
        const std::chrono::duration<double, std::milli> span = std::chrono::steady_clock::now() - began;
        addSample(span.count(), &node->timing.frames, &node->timing.cpuLast, &node->timing.cpuMean);
    }
    capture(node);
}

void RenderChain::Private::endFrame()
{
    manager->setHolderLabel(QString());
    capturesAll = false;
    for (const auto &node : nodes) {
        for (size_t i = 0; i < node->previous.size(); ++i) {
            if (node->wantsPrevious[i])
                node->previous[i] = node->active->output(int(i));
        }
        node->active->endFrame(nullptr);
    }
    for (const ChainOutput &output : qAsConst(description.exports)) {
        const Node *producer = node(output.pass);
        const QVariant value = producer->active->output(producer->info->findOutput(output.port));
        if (Texture *texture = objectIn<Texture>(value))
            exported.append(texture);
    }
    exportsAreValid = true;

    QVarLengthArray<GPUModel *, 4> models;
    const auto addModel = [&](const QVariant &value) {
        GPUModel *model = value.userType() == qMetaTypeId<GPUModel *>() ? value.value<GPUModel *>() : nullptr;
        if (model && !models.contains(model))
            models.append(model);
    };
    for (const auto &value : frameValues)
        addModel(value.second);
    for (const auto &node : nodes) {
        for (const NodeInput &input : node->inputs)
            addModel(input.stored);
    }
    for (GPUModel *model : models)
        model->advanceFrame();

    gpuTimer.endFrame();
    if (timing)
        collectTimes(false);
}

// --- results -------------------------------------------------------------------------------------------------------

void RenderChain::Private::releaseExports()
{
    TextureManager *owner = TextureManager::Instance();
    for (Texture *texture : qAsConst(exported))
        owner->releaseTempTextureRef(texture, 1);
    exported.clear();
    exportsAreValid = false;
}

QVariant RenderChain::exportedValue(const QString &name) const
{
    const auto output = d->description.exports.constFind(name);
    const Node *node = output == d->description.exports.constEnd() ? nullptr : d->node(output->pass);
    if (!node || !node->active || !d->exportsAreValid)
        return QVariant();
    return node->active->output(node->info->findOutput(output->port));
}

Texture *RenderChain::exportedTexture(const QString &name) const
{
    return objectIn<Texture>(exportedValue(name));
}

void RenderChain::releaseExports()
{
    d->releaseExports();
}

bool RenderChain::requestCapture(const ChainOutput &output)
{
    const int index = d->description.findPass(output.pass);
    const std::shared_ptr<const PassInfo> info = index < 0 ? nullptr : d->infoOf(index);
    const int port = info ? info->findOutput(output.port) : -1;
    if (port < 0 || !holdsImage(info->outputs[port]))
        return d->fail(QStringLiteral("no image \"%1\" in this chain").arg(output.toString()));
    if (!d->updateWiring())
        return false;
    d->nodes[size_t(index)]->captured[size_t(port)] = true;
    return true;
}

void RenderChain::requestAllCaptures()
{
    d->capturesAll = true;
}

QVector<RenderChain::Capture> RenderChain::takeCaptures()
{
    QVector<Capture> taken;
    taken.swap(d->captures);
    return taken;
}

/// A picture of how long the lists behind head pointers are, whose nodes are further outputs of their pass.
QImage RenderChain::Private::captureLists(const Node &node, Texture *heads)
{
    const auto output = [&node](const char *name) {
        const int index = node.info->findOutput(QString::fromLatin1(name));
        return index < 0 ? QVariant() : node.active->output(index);
    };
    return captureListLengths(
        heads, objectIn<Texture>(output("Kvz_KvzTexture*_NodeBuffer")), output("Kvz_int_NodeBufferWidth").toInt());
}

void RenderChain::Private::capture(Node *node)
{
    for (size_t i = 0; i < node->captured.size(); ++i) {
        if (!node->captured[i])
            continue;
        node->captured[i] = false;
        const OutputInfo &output = node->info->outputs[int(i)];
        QMatrix4x4 projection;
        if (node->projectionInput >= 0)
            projection = inputValue(*node, node->projectionInput).value<QMatrix4x4>();
        const QVariant value = node->active->output(int(i));
        if (output.type == ValueType::ShadowMapData) {
            captures.append({node->name, output.name, captureShadowMaps(value, output.texture.display)});
            continue;
        }
        Texture *texture = objectIn<Texture>(value);
        captures.append({node->name, output.name,
            output.texture.display == TextureDisplay::ListLength
                ? captureLists(*node, texture)
                : captureTexture(texture, output.texture.display, projection)});
        manager->releaseTempTextureRef(texture, 1);
    }
}

void RenderChain::setTimingEnabled(bool enabled)
{
    d->timing = enabled;
}

bool RenderChain::isTimingEnabled() const
{
    return d->timing;
}

void RenderChain::Private::collectTimes(bool waits)
{
    const GpuTimer::Sink sink = [this](int span, quint64 nanoseconds) {
        PassTiming &times = nodes[size_t(span)]->timing;
        addSample(double(nanoseconds) * 1e-6, &times.gpuFrames, &times.gpuLast, &times.gpuMean);
    };
    if (waits)
        gpuTimer.finish(sink);
    else
        gpuTimer.poll(sink);
}

QVector<RenderChain::PassTiming> RenderChain::timings() const
{
    QVector<PassTiming> timings;
    for (const auto &node : d->nodes)
        timings.append(node->timing);
    return timings;
}

void RenderChain::finishTimings()
{
    if (d->isInContext())
        d->collectTimes(true);
}

void RenderChain::resetTimings()
{
    d->gpuTimer.discard();
    for (const auto &node : d->nodes) {
        const QString name = node->timing.pass;
        node->timing = PassTiming();
        node->timing.pass = name;
    }
}

void RenderChain::setClearColor(const QColor &color)
{
    d->clearColor = color;
}

void RenderChain::setRestoresState(bool restores)
{
    d->restoresState = restores;
}

} // namespace Velmora::Kvz
