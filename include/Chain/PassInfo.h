// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainValue.h>
#include <Host/Export.h>
#include <Host/TextureDisplay.h>

#include <QtCore/QFlags>
#include <QtCore/QRectF>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtGui/QColor>

#include <functional>
#include <memory>
#include <optional>

namespace Velmora::Kvz {

class RenderPass;

/// What an image holds. One port name serves several kinds, so the kind decides which image an input takes by name.
enum class TextureKind {
    Any, ///< Of inputs: takes all kinds.
    Colour,
    Depth,
    Normal,
    TexCoord,
    Id,
    Diffuse, ///< Material colour and opacity.
    Specular, ///< Specular colour, with the exponent in alpha.
    Emission, ///< Light that a surface emits; 1 in alpha: the diffuse colour is shown unlit.
    Positions, ///< Camera-space positions.
    Obscurance,
    Luminance, ///< One texel of average colour.
    Overlay, ///< Lines or surfaces that are laid over a frame.
    Velocity,
    Stencil,
    Environment, ///< Cube map of surroundings; a latitude-longitude image is a Colour.
    NodeList ///< Buffers of the transparency lists.
};

enum class ColourSpace {
    Linear,
    SRgb,
    Data ///< Not a colour.
};

/// What a texture port carries.
struct TextureTraits
{
    TextureKind kind = TextureKind::Any;
    unsigned int internalFormat =
        0; ///< GL internal format of an output; 0 where it follows an input or does not matter.
    ColourSpace colourSpace = ColourSpace::Linear;
    TextureDisplay display = TextureDisplay::Colour;
};

/// A port, as data.
struct PortInfo
{
    QString name; ///< Exact port name.
    ValueType type = ValueType::Variant;
    QString description; ///< One sentence.
    TextureTraits texture; ///< Of texture ports, and how to show shadow map data.
};

/// Where an input may find its value when nothing is said about it.
enum class ImplicitWiring {
    EarlierPass, ///< The nearest earlier output of its name and kind, else the frame's value.
    FrameOnly, ///< The frame's value alone, such as the projection without jitter.
    Never ///< It must be asked for.
};

/// What a pass does when an input image has several samples per texel.
enum class Multisampling {
    Refused, ///< It cannot read the image.
    Resolved, ///< It makes a copy with one sample.
    Taken ///< It reads the samples.
};

/// What becomes of an image file that an input names.
enum class ImageFileUse {
    None, ///< The input names no image file.
    Converted, ///< Images of every format come out right, and those beyond the driver's limit are scaled down.
    Light, ///< An image of light from all around, of any format and range; `problemWith` knows them.
    Bits32, ///< Its bits are uploaded unconverted, as 32 per pixel, at full size.
    CubemapFace ///< The same, and all such inputs of a pass want squares of one size.
};

struct InputInfo : PortInfo
{
    QVariant defaultValue; ///< As the pass is constructed.
    QString whenNull; ///< What the pass does with a null value, in a few words.
    bool required = false; ///< The pass must not run without a value.
    ImplicitWiring wiring = ImplicitWiring::EarlierPass;
    Multisampling multisampling = Multisampling::Refused; ///< Of texture ports.
    /// Of texture ports: inputs that, when fed or true, keep the pass from reading several samples.
    QStringList refusesSamplesWith;
    /// Of texture ports: the input that must say how many samples the image has, since it is attached beside the result.
    QString samplesAs;
    /// Of inputs of type String: what becomes of the image file that the value names. Relative names in a chain's values count
    /// from the folder of the chain file.
    ImageFileUse imageFile = ImageFileUse::None;
    /// Of such inputs: values that stand for something built in, not for a file.
    QStringList builtInNames;
    /// Of ImageFileUse::Light: what keeps a file from being used, in one line; empty for one that can.
    QString (*problemWith)(const QString &file) = nullptr;
    bool drawnInto = false; ///< The pass draws into the image that it is given.
    /// Of model inputs: the pass keeps the geometry of the first model it sees, so the chain makes a new pass for
    /// another model.
    bool keepsGeometry = false;
    bool needsStencil = false; ///< The pass masks by the stencil of this depth image.
    bool takesIntegers =
        false; ///< Of texture ports: the pass reads integers. Samplers that filter read zeros from them.
    /// Above 0: the pass keeps objects for each new value, so the chain rounds values to this grid and keeps a pass object
    /// for each of the last few.
    double gridStep = 0;
    /// Of a pass that jitters the camera: the value with which it does not. The chain gives it that in frames that have no past, where
    /// a temporal pass resolves a frame with itself.
    std::optional<QVariant> stillValue;
    /// While it is true, the pass forgets what it keeps of earlier frames. The chain sets it for one frame where that is no longer true.
    /// A pass that takes the frame's viewport, camera and projection forgets by itself where these change, and is left to do so.
    bool restartsPast = false;
    /// Of a pass that averages frames: the input says after how many the mean is done. Below 1 counts as 1.
    bool countsMean = false;

    /// Of inputs of type Lights: without any the pass has nothing to do, and the chain skips it.
    bool idleWithoutLights = false;

    /// Whether a value of this input is the name of an image file.
    bool namesFile(const QString &value) const
    {
        return imageFile != ImageFileUse::None && !value.isEmpty() && !builtInNames.contains(value);
    }
};

struct OutputInfo : PortInfo
{
    bool pooled = false; ///< A temporary texture, counted; otherwise the pass owns it and overwrites it each frame.
    bool keptByProducer = false; ///< The pass relies on the content in later frames, so nobody may draw into it.
    QString passesOn; ///< The input whose value it hands on as it is.
    QString samplesInput; ///< The input that says how many samples per texel the image has.
    int samples = 1; ///< Of images: samples per texel, where no input says it.
};

/// A construction option: an argument of the constructor, a setter, or what is added to a pass before its first frame.
struct OptionInfo
{
    QString name;
    ValueType type = ValueType::Variant;
    QVariant defaultValue; ///< Invalid: none.
    bool required = false;
    QString description; ///< One sentence.
    QStringList enumerators; ///< Of enumerations: the names, from value 0 up.
    QVector<OptionInfo> fields; ///< Of records.
};

/// What the rules of order and use need to know of a pass.
enum class PassTrait {
    NeverReleasesInputs = 0x1, ///< Leaves the references of its input images to the chain.
    JittersCamera = 0x2,
    AccumulatesFrames = 0x4, ///< Consumes jitter: it averages or resolves over frames.
    Shades = 0x8,
    Obscures = 0x10, ///< Ambient obscurance. A pass that applies an obscurance image to a picture has it automatically.
    Transparent = 0x20, ///< Composites transparent surfaces.
    AntiAliases = 0x40, ///< Filters the edges of a finished frame.
    Culls = 0x80, ///< Marks items of a model as not drawn.
    ResetsCulling = 0x100, ///< Makes all items of a model drawable again.
    Presents = 0x200, ///< Puts the frame on the screen or the host's framebuffer.
    Background = 0x400, ///< Fills what lies behind the model.
    LosesAlpha = 0x800, ///< The alpha of its picture is not that of its frame, or does not fit its colours.
    BasicSurfaces =
        0x2000, ///< Draws what the basic passes know of a model: materials without colours of vertices or sampling.
    ComparesFrames = 0x1000, ///< Its output shows what has changed since the previous frame.
    /// Of a pass that accumulates frames: a velocity leads it from one frame to the next, so what it keeps stays true while the
    /// camera or items move.
    Reprojects = 0x4000,
    /// Its output depends on how many frames it has seen, as a place in a sequence does. It may draw random numbers from drand48().
    CountsFrames = 0x8000,
    /// What it makes is its own, and depends on its inputs, models and lights alone. The chain does not start it while these are as
    /// they were when it ran last: it rests, and its outputs stay. It looks at a camera for directional lights alone.
    RestsUnchanged = 0x10000,
    PhysicalSurfaces =
        0x20000, ///< Draws what materials have for physically based light, with images that other passes do without.
    BringsLights = 0x40000 ///< Where the frame has no lights, it gives the passes behind it lights of its own.
};
Q_DECLARE_FLAGS(PassTraits, PassTrait)
Q_DECLARE_OPERATORS_FOR_FLAGS(PassTraits)

/// What a rule of use may ask about a pass in its chain.
class KVZ_HOST_EXPORT PassUse
{
public:
    virtual ~PassUse();
    /// Whether a connection, a value, an earlier pass or the frame feeds an input.
    virtual bool isFed(const QString &input) const = 0;
    /// The value of an input as far as it is known before the frame: what was set, else the default.
    virtual QVariant value(const QString &input) const = 0;
    /// An option, else its default.
    virtual QVariant option(const QString &name) const = 0;
    /// The classes of the passes that an input's value comes through, the nearest first: the class of the pass that
    /// outputs it, of the pass whose value that one hands on, and so on. Empty if no pass outputs it.
    virtual QStringList sourceClasses(const QString &input) const = 0;
    /// The samples per texel of the image that an earlier pass gives to an input; 0 where that is not known.
    virtual int samples(const QString &input) const = 0;
};

/// A configuration that a pass accepts although it gives no good picture.
struct UseRule
{
    QString port; ///< Where the finding is shown.
    QString expected;
    QString actual;
    QString remedy;
    std::function<bool(const PassUse &)> broken;
};

/// A trait that a pass has in some configurations only.
struct ConditionalTrait
{
    PassTrait trait;
    std::function<bool(const PassUse &)> holds;
};

/// What a pass, or one of its strategies, needs of the driver.
struct DriverNeed
{
    QStringList extensions; ///< All of them, as hasGLExtension() takes them.
    QString without; ///< What the pass does where one is missing.
    bool vital = false; ///< Without them the pass is useless.
};

/// What is wrong with an option.
struct OptionProblem
{
    QString option; ///< Name or path, such as "primitives[2].size".
    QString expected;
    QString actual;
    QString remedy;
};

/// Options by name, converted to their types: enumerations as int, records as QVariantList of QVariantMap.
using PassOptions = QVariantMap;

/// What a pass reads around a pixel that it draws, for pictures that are drawn in tiles.
struct PassReach
{
    int pixels = 0; ///< To each side.
    double sceneShare = 0; ///< And this share of the longest side of the scene's bounds, as it is projected.
    int grid =
        1; ///< Tiles begin at multiples of it, where the pass works on blocks of pixels or at a lower resolution.
    QString obstacle; ///< Why it cannot draw a part of a picture by itself; empty where it can.
};

/// All that is known of a pass class without constructing it.
struct KVZ_HOST_EXPORT PassInfo
{
    QString className;
    QString summary; ///< One line.
    QVector<InputInfo> inputs; ///< In index order.
    QVector<OutputInfo> outputs; ///< In index order.
    QVector<OptionInfo> options;
    PassTraits traits; ///< Those that it has always.
    QVector<ConditionalTrait> conditionalTraits;
    QVector<UseRule> rules;
    QVector<DriverNeed> driverNeeds;
    /// All GL calls of the class are this library's own, which note what they set: a frame then need not ask the driver for it. True of
    /// the classes of PassRegistry::standard(); PassRegistry::add() makes it false, since it cannot know.
    bool keepsStateKnown = false;
    QColor clearColor; ///< In force before each start(), instead of the chain's, where it is valid.
    /// What the pass reads around a pixel. Empty: what lies at the pixel alone.
    std::function<PassReach(const PassUse &)> reach;
    /// The values with which a pass draws a part of what it would draw by those that it has: for one whose picture spans the whole frame, such
    /// as a gradient. The part is in fractions of the frame, y upwards. Empty: its values serve for any part.
    std::function<QVariantMap(const PassUse &, const QRectF &part)> valuesOfPart;
    /// Above 0: where the driver has all of `driverNeeds`, the pass keeps this many fragments of a frame and silently loses
    /// the rest. The chain counts them and says when there were more.
    qint64 fragmentRoom = 0;
    /// How many frames the pass needs, with inputs that stay as they are, until what it makes is final: 1 where no frame depends on another.
    /// 0: as its traits say, which is 64 for a mean without an input that `countsMean`, 3 for one that reprojects, 2 for one that culls or
    /// compares frames, and else 1. Below 0: never, as for a pass that shows the time.
    int framesToSettle = 0;
    /// Makes a pass with these options, all of them known and of the right type, defaults filled in. The context is
    /// current.
    std::function<std::unique_ptr<RenderPass>(const PassOptions &)> create;
    /// Used instead of `create` for a class that can refuse its options with the driver at hand, such as shaders that do
    /// not compile: null, with the reason in `error`, which may have several lines. Empty: the class has `create` alone.
    std::function<std::unique_ptr<RenderPass>(const PassOptions &, QString *error)> createChecked;
    /// Of a pass that keeps something of earlier frames, and has no input that `restartsPast`: makes it forget. Empty: such a pass is made
    /// anew. The context is current.
    std::function<void(RenderPass *)> forgetPast;
    /// Reports options of the right type whose values make no pass. Empty: all values serve.
    std::function<void(const PassOptions &, QVector<OptionProblem> *problems)> checkOptions;
    /// Reports what a pass with these options can hardly use, as only the driver knows, such as inputs for uniforms
    /// that its shaders do not read. The options are those that `create` takes; `use` tells what feeds the inputs. The
    /// context is current. Empty: there is nothing to report.
    std::function<void(const PassOptions &, const PassUse &use, QVector<OptionProblem> *problems)> checkOnDriver;
    /// Adds the ports that a pass with these options has besides those of its class, and reports options that make none.
    /// Empty: the class has its ports whatever its options are.
    std::function<void(const PassOptions &, PassInfo *, QVector<OptionProblem> *problems)> completePorts;

    /// Index by exact name; -1 when there is none.
    int findInput(const QString &name) const;
    int findOutput(const QString &name) const;
    int findOption(const QString &name) const;
    QStringList inputNames() const;
    QStringList outputNames() const;
    QStringList optionNames() const;
};

/// Names of the enumerators, as messages and `kvz passes` show them.
KVZ_HOST_EXPORT QString toString(TextureKind kind);
KVZ_HOST_EXPORT QString toString(TextureDisplay display);
KVZ_HOST_EXPORT QString toString(ColourSpace space);
KVZ_HOST_EXPORT QString toString(Multisampling multisampling);
KVZ_HOST_EXPORT QStringList toStringList(PassTraits traits);
/// The name of a GL internal format, such as "GL_RGBA16F"; its number in hexadecimal for one that no pass uses.
KVZ_HOST_EXPORT QString formatName(unsigned int internalFormat);

} // namespace Velmora::Kvz
