// SPDX-License-Identifier: MIT
// The quality of the anti-aliasing chains: their error against a picture of 256 samples, and ghosts of moving things.
#include "support/Cameras.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"
#include "support/Samples.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/RenderChain.h>
#include <ExtraPasses/SubsampleTable.h>
#include <GL/TextureManager.h>
#include <Host/Camera.h>
#include <RenderPasses/CameraJitterRenderPass.h>
#include <RenderPasses/FastApproximateAntiAliasingRenderPass.h>
#include <RenderPasses/SMAARenderPass.h>

#include <QtCore/QFile>
#include <QtCore/QMap>
#include <QtCore/QStringList>

#include <epoxy/gl.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize size(320, 180);
const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");

/// A cell of the tables in docs/anti-aliasing.md, with the tolerance that covers differences between machines.
struct Cell
{
    enum Kind { Number, Percentage, Empty };

    double value;
    int decimals;
    double tolerance;
    Kind kind = Number;

    QString text() const
    {
        if (kind == Empty)
            return QStringLiteral("-");
        return QString::number(value, 'f', decimals) + QLatin1String(kind == Percentage ? " %" : "");
    }
    /// Whether the page states this value with the same number of decimals.
    bool agrees(const QString &stated) const
    {
        if (kind == Empty)
            return stated == text();
        bool isNumber = false;
        const double number = stated.section(QLatin1Char(' '), 0, 0).toDouble(&isNumber);
        const Cell asStated{number, decimals, 0, kind};
        return isNumber && stated == asStated.text()
            && std::abs(number - value) <= tolerance + 0.5 * std::pow(10, -decimals);
    }
};

Cell errorCell(double error)
{
    return {error, 3, 0.002};
}

Cell percentage(double value)
{
    return {value, 0, 0.5, Cell::Percentage};
}

Cell noCell()
{
    return {0, 0, 0, Cell::Empty};
}

/// The measurements of a table, by the first words of each row.
using Table = QMap<QString, QVector<Cell>>;

/// Checks the table under a heading of the page against the measurements.
void expectPageHas(const QString &heading, const Table &measured)
{
    QFile file(QStringLiteral(KVZ_SOURCE_DIR "/docs/anti-aliasing.md"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString page = QString::fromUtf8(file.readAll());
    const int begin = page.indexOf(QStringLiteral("\n## %1\n").arg(heading));
    ASSERT_GE(begin, 0) << "the page has no heading \"" << qPrintable(heading) << '"';
    QStringList found;
    for (const QString &line : page.mid(begin, page.indexOf(QStringLiteral("\n## "), begin + 1) - begin).split('\n')) {
        for (auto row = measured.begin(); row != measured.end(); ++row) {
            const QString start = QStringLiteral("| %1 |").arg(row.key());
            if (!line.startsWith(start))
                continue;
            found.append(row.key());
            QStringList texts;
            bool agrees = true;
            const QStringList cells = line.mid(start.size()).split('|');
            for (int i = 0; i < row->size(); ++i) {
                texts.append(row->at(i).text());
                agrees = agrees && row->at(i).agrees(cells.value(i).trimmed());
            }
            EXPECT_TRUE(agrees && cells.size() == row->size() + 1)
                << "docs/anti-aliasing.md says\n"
                << qPrintable(line) << "\nand the test finds\n"
                << qPrintable(start + QLatin1Char(' ') + texts.join(QStringLiteral(" | ")) + QStringLiteral(" |"));
        }
    }
    found.sort();
    EXPECT_EQ(found, QStringList(measured.keys())) << "each row once";
}

class AntiAliasingTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        // Opaque: the chains differ in how they blend translucent items, which is not what is measured here.
        ImportedScene scene = importScene(QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj"));
        for (ImportedMaterial &material : scene.materials) {
            material.alphaMode = MaterialData::Opaque;
            material.d = 1;
        }
        for (ImportedItem &item : scene.items)
            item.featureFlags &= ~quint64(GPUModel::Transparent);
        stillLife = scene.build();
        CameraView view;
        view.azimuth = 25;
        view.elevation = 18;
        view.distance = 0.85f;
        camera = frameScene(stillLife->sceneBounds(), view, size);
    }

    static ChainDescription ready(const char *name)
    {
        ChainDescription description;
        QString error;
        EXPECT_TRUE(loadChain(QString::fromUtf8(name), &description, &error)) << qPrintable(error);
        for (const ChainFinding &finding : validateChain(description))
            ADD_FAILURE() << name << qPrintable(finding.toString());
        return description;
    }

    /// Makes a chain of the description without the pass that presents; `pass` gives the picture.
    std::unique_ptr<RenderChain> makeChain(ChainDescription description, const char *pass, GPUModel *model)
    {
        description.passes.removeAt(description.findPass(QStringLiteral("screen")));
        auto chain = std::make_unique<RenderChain>();
        EXPECT_TRUE(chain->setDescription(description)) << qPrintable(chain->errorString());
        EXPECT_TRUE(chain->addExport(QStringLiteral("picture"), {QString::fromUtf8(pass), frame}));
        chain->setViewport(QRect(QPoint(), size));
        chain->setCamera(camera.cameraMatrix, camera.projectionMatrix);
        chain->setModel(model);
        // A light that moved with the camera would change the colours of moving things, which no filter can follow.
        chain->setFrameValue(FrameValues::fixedLight, true);
        return chain;
    }

    static Image render(RenderChain *chain)
    {
        EXPECT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
        return readTexture(chain->exportedTexture(QStringLiteral("picture")));
    }

    /// The mean of 16 by 16 samples in each pixel.
    Image reference(const ChainDescription &description, const char *pass)
    {
        const auto chain = makeChain(description, pass, stillLife.data());
        QVector<double> sum(size.width() * size.height() * 4, 0.0);
        for (int i = 0; i < 256; ++i) {
            chain->setCamera(camera.cameraMatrix,
                movedByPixels(camera.projectionMatrix, size, (i % 16 + 0.5) / 16 - 0.5, (i / 16 + 0.5) / 16 - 0.5));
            const Image image = render(chain.get());
            for (int k = 0; k < sum.size(); ++k)
                sum[k] += double(image.data[k]);
        }
        return meanOf(sum);
    }

    static Image meanOf(const QVector<double> &sumOf256)
    {
        Image mean(size.width(), size.height());
        for (int k = 0; k < sumOf256.size(); ++k)
            mean.data[k] = float(sumOf256[k] / 256);
        return mean;
    }

    /// Frames with one sample at any position in each pixel, in half floats and shaded as by the forward pass: the
    /// first of its two samples.
    class ForwardSamples
    {
    public:
        explicit ForwardSamples(AntiAliasingTest *test)
            : m_camera(test->camera),
              m_chain(test->makeChain(ready("smaa-s2x"), "frame", test->stillLife.data()))
        { }
        Image at(const QPointF &place)
        {
            const QPointF way = subsamplePosition(-1, 0) - place;
            m_chain->setCamera(m_camera.cameraMatrix, movedByPixels(m_camera.projectionMatrix, size, way.x(), way.y()));
            EXPECT_TRUE(m_chain->renderFrame()) << qPrintable(m_chain->errorString());
            return readSample(m_chain->exportedTexture(QStringLiteral("picture")), 0);
        }

    private:
        Camera m_camera;
        std::unique_ptr<RenderChain> m_chain;
    };

    /// The mean of 16 by 16 samples in each pixel.
    static Image forwardReference(ForwardSamples *samples)
    {
        QVector<double> sum(size.width() * size.height() * 4, 0.0);
        for (int i = 0; i < 256; ++i) {
            const Image image = samples->at({(i % 16 + 0.5) / 16, (i / 16 + 0.5) / 16});
            for (int k = 0; k < sum.size(); ++k)
                sum[k] += double(image.data[k]);
        }
        return meanOf(sum);
    }

    QSharedPointer<GPUModel> stillLife;
    Camera camera;
};

/// The result of a pass for a frame; the pass has been set up.
Image filtered(RenderPassProxy *pass, const Image &input)
{
    const auto texture = makeTexture(input, GL_RGBA16F);
    pass->setInput(pass->findInput(QStringLiteral("Kvz_QRect_Viewport")), QRect(QPoint(), size));
    pass->setInput(pass->findInput(frame), QVariant::fromValue(texture.get()));
    pass->setNumOutputUsers(0, 1);
    pass->start(nullptr);
    auto *const output = pass->output(0).value<Texture *>();
    Image image = readTexture(output);
    TextureManager::Instance()->releaseTempTextureRef(output, 1);
    return image;
}

} // namespace

// The order found in the published results: every filter is better than none, SMAA better than FXAA, two samples better
// than one, whether from one frame or from two, and all four of 4x best. The mean of 64 frames has no such bound: its
// sum is rounded to 8 bits in each frame.
//
// Frames of two samples are forward shaded, so all filters are measured on frames of that shading, against one
// reference of the same shading. The ready chains of SMAA 1x and T2x shade from a G-buffer and are measured against a
// reference of that shading, and so is FXAA on a frame of theirs; the chain `fxaa` shades forward, into bytes.
TEST_F(AntiAliasingTest, filtersComeInTheOrderOfTheirQuality)
{
    ForwardSamples forwardSamples(this);
    const Image forwardTruth = forwardReference(&forwardSamples);
    const Image deferredTruth = reference(ready("smaa-1x"), "over");
    const double apart = meanError(forwardTruth, deferredTruth);
    std::printf("[ QUALITY  ] the two references are %.4f / 255 apart\n", apart);
    EXPECT_LT(apart, 0.15) << "the two ways of shading agree";

    enum Measure { Forward, ForwardAgainstDeferred, Deferred };
    using Errors = std::array<double, 3>;
    Table table;
    Errors none{};
    // An empty image is not measured.
    const auto enter = [&](const char *label, const Image &forward, const Image &deferred) {
        const QString name = QString::fromUtf8(label);
        const Errors errors{
            meanError(forward, forwardTruth), meanError(forward, deferredTruth), meanError(deferred, deferredTruth)};
        if (name == QLatin1String("none"))
            none = errors;
        QString line;
        QVector<Cell> cells;
        for (const Measure measure : {Forward, ForwardAgainstDeferred, Deferred}) {
            const bool isMeasured = !(measure == Deferred ? deferred : forward).data.isEmpty();
            line += isMeasured ? QString::asprintf(" %.4f", errors[measure]) : QStringLiteral("      -");
            cells.append(isMeasured ? errorCell(errors[measure]) : noCell());
            if (measure != ForwardAgainstDeferred)
                cells.append(isMeasured ? percentage(100 * errors[measure] / none[measure]) : noCell());
        }
        std::printf("[ QUALITY  ] %-34s%s / 255\n", label, qPrintable(line));
        table.insert(name, cells);
        for (const Image *image : {&forward, &deferred}) {
            if (!image->data.isEmpty())
                saveForViewing(
                    *image, QStringLiteral("quality-%1-%2").arg(name, image == &forward ? "forward" : "deferred"));
        }
        return errors;
    };
    std::printf(
        "[ QUALITY  ] mean error of forward frames, the same against the deferred reference, of deferred frames:\n");
    const auto chainImage = [&](const ChainDescription &description, const char *pass, int frames) {
        const auto chain = makeChain(description, pass, stillLife.data());
        Image image;
        for (int i = 0; i < frames; ++i)
            image = render(chain.get());
        return image;
    };
    const auto velocity = makeTexture(Image(size.width(), size.height()), GL_RGBA16F);
    const auto smaaImage = [&](int mode, const QVector<QPointF> &places) {
        SMAARenderPass pass;
        pass.setup(nullptr);
        pass.setInput(SMAARenderPass::SmaaMode, mode);
        pass.setInput(SMAARenderPass::Velocity, QVariant::fromValue(velocity.get()));
        Image image;
        for (int i = 0; i < places.size(); ++i) {
            pass.setInput(SMAARenderPass::JitterIndex, i % 2);
            image = filtered(&pass, forwardSamples.at(places[i]));
        }
        return image;
    };
    const QPointF middle(0.5, 0.5);
    const Image oneSample = forwardSamples.at(middle);
    FastApproximateAntiAliasingRenderPass fxaaPass;
    fxaaPass.setup(nullptr);

    const Image deferredSample = chainImage(ready("smaa-1x"), "over", 1);
    none = enter("none", oneSample, deferredSample);
    const Errors fxaa = enter("FXAA", filtered(&fxaaPass, oneSample), filtered(&fxaaPass, deferredSample));
    // The chain filters bytes. Away from edges, a step of theirs is more than all that is left of errors.
    const auto edgeError = [&](const Image &image) {
        double sum = 0;
        int count = 0;
        for (int i = 0; i < image.data.size(); ++i) {
            if (std::abs(oneSample.data[i] - forwardTruth.data[i]) > 4.0f / 255) {
                sum += std::abs(double(image.data[i]) - double(forwardTruth.data[i]));
                ++count;
            }
        }
        return 255 * sum / count;
    };
    const double ofChain = edgeError(chainImage(ready("fxaa"), "smooth", 1));
    const double ofFloats = edgeError(filtered(&fxaaPass, oneSample));
    const double unfiltered = edgeError(oneSample);
    std::printf(
        "[ QUALITY  ] at edges: none %.3f, FXAA %.3f, the chain fxaa %.3f / 255\n", unfiltered, ofFloats, ofChain);
    EXPECT_LT(ofChain, 1.03 * ofFloats);
    EXPECT_LT(ofChain, 0.85 * unfiltered);
    const Errors once =
        enter("SMAA 1x", smaaImage(SMAARenderPass::Smaa1X, {middle}), chainImage(ready("smaa-1x"), "smooth", 1));
    const Errors mean = enter("64 frames accumulated", Image(), chainImage(ready("temporal"), "accumulate", 65));
    const Errors frames =
        enter("SMAA T2x", smaaImage(SMAARenderPass::SmaaT2X, {subsamplePosition(-1, 0), subsamplePosition(-1, 1)}),
            chainImage(ready("smaa-t2x"), "smooth", 6));
    const Errors samples = enter("SMAA S2x", chainImage(ready("smaa-s2x"), "smooth", 1), Image());
    const Errors both = enter("SMAA 4x", chainImage(ready("smaa-4x"), "smooth", 6), Image());

    for (const Measure measure : {Forward, Deferred}) {
        SCOPED_TRACE(measure == Forward ? "forward" : "deferred");
        EXPECT_LT(fxaa[measure], 0.85 * none[measure]);
        EXPECT_LT(once[measure], 0.95 * fxaa[measure]);
        EXPECT_LT(frames[measure], 0.8 * once[measure]);
    }
    EXPECT_LT(mean[Deferred], none[Deferred]);
    EXPECT_LT(samples[Forward], 0.8 * once[Forward]);
    EXPECT_LT(both[Forward], 0.9 * std::min(samples[Forward], frames[Forward]));
    // Against the other reference the order is the same, as far as the two references agree.
    const auto other = [](const Errors &errors) { return errors[ForwardAgainstDeferred]; };
    EXPECT_LT(other(fxaa), 0.9 * other(none));
    EXPECT_LT(other(once), 0.97 * other(fxaa));
    EXPECT_LT(std::max(other(frames), other(samples)), 0.85 * other(once));
    EXPECT_LT(other(both), 0.93 * std::min(other(frames), other(samples)));

    // With another jitter, or without its index, T2x puts edges in the wrong place.
    ChainDescription antiDiagonal = ready("smaa-t2x");
    antiDiagonal.passes.removeAt(antiDiagonal.findPass(QStringLiteral("place")));
    antiDiagonal.passes[0].values[QStringLiteral("Kvz_int_JitterMode")] = int(JitterAntiDiagonal);
    ChainDescription noIndex = ready("smaa-t2x");
    noIndex.passes[noIndex.findPass(QStringLiteral("smooth"))].connections[QStringLiteral("Kvz_int_JitterIndex")] =
        ChainSource();
    const auto misled = [&](const char *label, const ChainDescription &description) {
        return enter(label, Image(), chainImage(description, "smooth", 6))[Deferred];
    };
    EXPECT_LT(frames[Deferred], 0.85 * misled("T2x with the anti-diagonal jitter", antiDiagonal));
    EXPECT_LT(frames[Deferred], 0.85 * misled("T2x without the jitter's index", noIndex));
    enter("256 samples", forwardTruth, deferredTruth);
    expectPageHas(QStringLiteral("How good they are"), table);
}

namespace {

/// A bright box in front of a dark floor, which shows ghosts best.
QSharedPointer<GPUModel> boxOnFloor()
{
    GPUModelBuilder builder;
    MaterialData bright, dark;
    bright.kd = QVector3D(1, 1, 1);
    dark.kd = QVector3D(0.05f, 0.05f, 0.05f);
    QMatrix4x4 floor;
    floor.translate(0, -1, 0);
    floor.scale(6);
    builder.addItem(builder.addMesh(groundMesh()), builder.addMaterial(dark), floor);
    QMatrix4x4 box;
    box.scale(0.5f);
    builder.addItem(builder.addMesh(boxMesh()), builder.addMaterial(bright), box);
    return builder.build();
}

/// By how much colours lie outside their range.
struct Residual
{
    double worst = 0;
    double mean = 0; ///< Over all pixels, in steps of 8 bits.
};

/// By how much the three colours of a pixel lie outside the range of its 3 by 3 neighbourhood in the reference. A
/// mixture of neighbours, as anti-aliasing makes, lies within; what comes from elsewhere does not.
Residual ghost(const Image &image, const Image &reference)
{
    Residual residual;
    for (int y = 1; y + 1 < image.height; ++y) {
        for (int x = 1; x + 1 < image.width; ++x) {
            for (int channel = 0; channel < 3; ++channel) {
                float least = 1e9f, most = -1e9f;
                for (int i = 0; i < 9; ++i) {
                    const float value = reference.at(x + i % 3 - 1, y + i / 3 - 1)[channel];
                    least = std::min(least, value);
                    most = std::max(most, value);
                }
                const float value = image.at(x, y)[channel];
                const double outside = std::max({0.0, double(least - value), double(value - most)});
                residual.worst = std::max(residual.worst, outside);
                residual.mean += outside * 255 / (3.0 * image.width * image.height);
            }
        }
    }
    return residual;
}

} // namespace

class GhostTest : public AntiAliasingTest
{
protected:
    struct Result
    {
        Residual moving; ///< Against the same frame alone.
        Residual stopped; ///< In the first frame that stands still, whose past is the last one of the motion.
        Residual standing; ///< The same of a scene that never moved: what the other place of the jitter leaves.
        double lost; ///< The mean difference of that frame from one of a scene that never moved, in steps of 8 bits.
        double after; ///< The largest difference of the next frame from one of a scene that never moved.
    };

    /// Moves for eight frames, several pixels in each, then stops for two.
    Result run(const ChainDescription &description, bool movesCamera, bool movesItem)
    {
        const QSharedPointer<GPUModel> model = boxOnFloor();
        const auto step = [&](RenderChain *chain, int i) {
            QMatrix4x4 box;
            box.translate(movesItem ? 0.12f * float(i) - 0.4f : 0.3f, 0, 0);
            box.scale(0.5f);
            if (model->modelMatrix(1) != box)
                model->setModelMatrix(1, box);
            QMatrix4x4 view;
            const float x = movesCamera ? 0.15f * float(i) : 0.5f;
            view.lookAt(QVector3D(x, 1.2f, 5), QVector3D(x, 0, 0), QVector3D(0, 1, 0));
            QMatrix4x4 lens;
            lens.perspective(40, float(size.width()) / float(size.height()), 0.5f, 40);
            chain->setCamera(view, lens);
        };
        // All frames with the first position of the jitter: once settled, a frame is resolved with one like it.
        ChainDescription single = description;
        for (ChainPass &chainPass : single.passes) {
            if (QStringList{"place", "frame", "smooth"}.contains(chainPass.name))
                chainPass.values[QStringLiteral("Kvz_int_JitterIndex")] = 0;
        }
        // The last of this many frames of a still scene. Even and odd frames have the two positions of the jitter. The first has
        // neither, so it takes some of them to settle.
        const auto still = [&](const ChainDescription &what, int i, int frames) {
            const auto chain = makeChain(what, "smooth", model.data());
            step(chain.get(), i);
            Image image;
            for (int k = 0; k < frames; ++k)
                image = render(chain.get());
            return image;
        };
        const Image alone = still(single, 6, 5);
        const Image aloneStopped = still(single, 7, 5);
        const Image neverMoved[2] = {still(description, 7, 5), still(description, 7, 6)};
        const auto chain = makeChain(description, "smooth", model.data());
        const auto next = [&](int i) {
            step(chain.get(), i);
            return render(chain.get());
        };
        Image image;
        for (int i = 0; i <= 6; ++i)
            image = next(i);
        saveForViewing(image, QStringLiteral("ghost-%1-%2%3").arg(description.name).arg(movesCamera).arg(movesItem));
        Result result{ghost(image, alone), {}, {}, 0, 0};
        next(7);
        image = next(7);
        saveForViewing(
            image, QStringLiteral("ghost-%1-%2%3-stopped").arg(description.name).arg(movesCamera).arg(movesItem));
        result.stopped = ghost(image, aloneStopped);
        result.standing = ghost(neverMoved[0], aloneStopped);
        result.lost = meanError(image, neverMoved[0]);
        result.after = maximumDifference(next(7), neverMoved[1]);
        return result;
    }
};

TEST_F(GhostTest, temporalModesLeaveNoneBehindWhatMoves)
{
    // The residuals that are allowed, close to what they are. Where a moving camera uncovers something, surfaces that
    // move at similar speeds are not told apart, and the last frame shows through for one frame. In 4x the velocity
    // covers one of the two samples, which leaves a fringe of one pixel around an item without the item's motion.
    struct Limits
    {
        double worst;
        double mean; ///< In steps of 8 bits.
        double stopped; ///< The worst in the first frame that stands still.
        double lost; ///< In steps of 8 bits.
    };
    struct Motion
    {
        const char *name;
        bool movesCamera;
        bool movesItem;
        Limits limits[2]; ///< Of T2x and 4x.
    };
    const Motion motions[] = {
        {"an item moves", false, true, {{0.01, 0.001, 0.002, 0.05}, {0.2, 0.008, 0.002, 0.06}}},
        {"the camera moves", true, false, {{0.065, 0.003, 0.002, 0.25}, {0.18, 0.0055, 0.002, 0.13}}},
        {"the camera follows the item", true, true, {{0.04, 0.001, 0.004, 0.25}, {0.036, 0.001, 0.002, 0.15}}},
    };
    const char *const chains[] = {"smaa-t2x", "smaa-4x"};
    Table moving, stopped;
    for (const Motion &motion : motions) {
        QVector<Cell> cells, unfollowed, losses;
        for (int i : {0, 1}) {
            SCOPED_TRACE(testing::Message() << chains[i] << ": " << motion.name);
            const Limits &limits = motion.limits[i];
            const Result followed = run(ready(chains[i]), motion.movesCamera, motion.movesItem);
            ChainDescription blind = ready(chains[i]);
            blind.name += QStringLiteral("-blind");
            // A velocity that reports no motion.
            ChainPass &velocity = blind.passes[blind.findPass(QStringLiteral("velocity"))];
            velocity.values[QStringLiteral("Kvz_QMatrix4x4_CameraMatrix")] = QMatrix4x4();
            velocity.values[QStringLiteral("Kvz_KvzGPUModel*_Geometry")] = QVariant();
            const Result ghosted = run(blind, motion.movesCamera, motion.movesItem);
            std::printf("[ RESIDUAL ] %-8s %-27s: worst %.4f, mean %.4f / 255 while it moves (without velocity %.4f, "
                        "%.4f); worst %.4f in the first still frame (%.4f where nothing moved), %.4f / 255 lost; "
                        "%.5f after (%.5f)\n",
                chains[i], motion.name, followed.moving.worst, followed.moving.mean, ghosted.moving.worst,
                ghosted.moving.mean, followed.stopped.worst, followed.standing.worst, followed.lost, followed.after,
                ghosted.after);
            EXPECT_LT(followed.moving.worst, limits.worst);
            EXPECT_LT(followed.moving.mean, limits.mean);
            EXPECT_GT(ghosted.moving.worst, 0.1) << "there would be a ghost";
            EXPECT_GT(ghosted.moving.mean, 4 * followed.moving.mean);
            // In the first still frame the history shows things where they are now but at other speeds, so it gets less
            // weight.
            EXPECT_LT(followed.stopped.worst, limits.stopped);
            EXPECT_LT(followed.lost, limits.lost);
            // The history is one frame, stored before its resolve, so velocity no longer matters.
            EXPECT_LT(followed.after, 0.5 / 255);
            EXPECT_LT(ghosted.after, 0.5 / 255);
            cells += {{followed.moving.worst, 3, 0.004}, {followed.moving.mean, 4, 0.001}};
            unfollowed += {errorCell(ghosted.moving.mean)};
            losses +=
                {{followed.stopped.worst, 3, 0.004}, {followed.standing.worst, 3, 0.004}, errorCell(followed.lost)};
        }
        moving.insert(QString::fromUtf8(motion.name), cells + unfollowed);
        stopped.insert(QString::fromUtf8(motion.name), losses);
    }
    expectPageHas(QStringLiteral("What remains of moving things"), moving);
    expectPageHas(QStringLiteral("What remains when they stop"), stopped);
}

} // namespace Velmora::Kvz
