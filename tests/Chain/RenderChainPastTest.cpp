// SPDX-License-Identifier: MIT
// What is left of earlier frames: chains follow the scene, and equal chains give equal pictures.
#include "support/GLTest.h"
#include "support/ModelChain.h"

#include <Chain/ChainLibrary.h>
#include <Chain/FrameValues.h>
#include <Chain/RenderChain.h>
#include <Chain/ResolvedChain.h>
#include <Core/RenderPass.h>
#include <GL/TextureManager.h>
#include <Scene/GPUModelBuilder.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/ShadowMapManager.h>

#include <QtGui/QColor>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>

namespace Velmora::Kvz {

namespace {

const QSize size(60, 36);
const QSize otherSize(48, 40);

/// A quad around the origin that faces the camera, turned by an angle in degrees.
MeshData quad(float half, float angle)
{
    QMatrix4x4 turn;
    turn.rotate(angle, 0, 0, 1);
    MeshData mesh;
    for (const QVector2D &corner : {QVector2D(-1, -1), QVector2D(1, -1), QVector2D(1, 1), QVector2D(-1, 1)}) {
        mesh.positions.append(turn.map(QVector3D(half * corner, 0)));
        mesh.normals.append(QVector3D(0, 0, 1));
        mesh.texCoords.append((corner + QVector2D(1, 1)) / 2);
    }
    mesh.indices = {0, 1, 2, 0, 2, 3};
    return mesh;
}

QMatrix4x4 placed(float x, float y, float z)
{
    QMatrix4x4 matrix;
    matrix.translate(x, y, z);
    return matrix;
}

/// A wall, a slanted card in front of it, and panes of glass, two of which lie in one plane.
QSharedPointer<GPUModel> makeModel(const QVector3D &colour)
{
    GPUModelBuilder builder;
    const auto add = [&](const QVector3D &kd, float opacity, float half, float angle, const QMatrix4x4 &matrix) {
        MaterialData material;
        material.kd = kd;
        material.d = opacity;
        if (opacity < 1)
            material.alphaMode = MaterialData::Blend;
        builder.addItem(builder.addMesh(quad(half, angle)), builder.addMaterial(material), matrix,
            opacity < 1 ? quint64(GPUModel::Transparent) : 0);
    };
    add({0.8f, 0.8f, 0.7f}, 1, 1, 0, placed(0, 0, -0.5f));
    add(colour, 1, 0.5f, 20, placed(-0.3f, 0, 0));
    add({0.2f, 0.5f, 1}, 0.5f, 0.4f, 35, placed(0.3f, 0.1f, 0.3f));
    add({1, 0.3f, 0.2f}, 0.4f, 0.4f, 5, placed(0.35f, -0.1f, 0.3f));
    return builder.build();
}

QStringList withPast()
{
    return {QStringLiteral("temporal"), QStringLiteral("full"), QStringLiteral("smaa-t2x"), QStringLiteral("smaa-4x")};
}

/// All other ready chains, and full-basic, whose past is that of full.
QStringList withoutPast()
{
    QStringList names = readyChainNames();
    for (const QString &name : withPast())
        names.removeAll(name);
    return names;
}

ChainDescription ready(const QString &name)
{
    ChainDescription description;
    QString error;
    EXPECT_TRUE(loadChain(name, &description, &error)) << qPrintable(error);
    // Small maps: what is in them matters here, and how they look does not.
    for (ChainPass &pass : description.passes) {
        if (pass.values.contains(QStringLiteral("Kvz_QSize_MapSize")))
            pass.values[QStringLiteral("Kvz_QSize_MapSize")] = QSize(64, 64);
    }
    return description;
}

/// What a host has set: the scene and the changes that it made to its chain.
struct Setting
{
    QSharedPointer<GPUModel> model;
    QSize size = Velmora::Kvz::size;
    float azimuth = 20;
    QVector3D moved; ///< Of the card.
    float ambient = 0.15f;
    QVariantList lights;
    std::function<void(RenderChain *)> change;
};

/// A chain with its own target.
struct Running
{
    explicit Running(const QString &name)
    {
        EXPECT_TRUE(chain.setDescription(ready(name))) << qPrintable(chain.errorString());
    }

    /// Makes the chain what a setting says. The matrices are the model's, and not set here.
    void apply(const Setting &setting)
    {
        if (!target || target->width(0) != setting.size.width() || target->height(0) != setting.size.height()) {
            target = makeTexture(Image(setting.size.width(), setting.size.height()), GL_RGBA8);
            framebuffer.bind();
            framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
            framebuffer.setDrawBuffers();
            framebuffer.unbind();
        }
        CameraView view;
        view.azimuth = setting.azimuth;
        view.elevation = 15;
        const Camera camera = frameScene({QVector3D(-1, -1, -0.5f), QVector3D(1, 1, 0.5f)}, view, setting.size);
        chain.setFramebuffer(&framebuffer);
        chain.setViewport(QRect(QPoint(), setting.size));
        chain.setCamera(camera.cameraMatrix, camera.projectionMatrix);
        chain.setFrameValue(FrameValues::nearPlane, camera.nearPlane);
        chain.setFrameValue(FrameValues::farPlane, camera.farPlane);
        chain.setFrameValue(FrameValues::ambientIntensity, setting.ambient);
        chain.setFrameValue(FrameValues::lights, setting.lights.isEmpty() ? QVariant() : QVariant(setting.lights));
        chain.setModel(setting.model.data());
        if (setting.change)
            setting.change(&chain);
    }

    Image frame()
    {
        EXPECT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
        return readTexture(target.get());
    }

    RenderChain chain;
    std::unique_ptr<Texture> target;
    FramebufferObject framebuffer;
};

/// Whether an image shows more than one colour.
bool showsSomething(const Image &image)
{
    for (int i = 4; i < image.data.size(); ++i) {
        if (std::abs(image.data[i] - image.data[i % 4]) > 0.1f)
            return true;
    }
    return false;
}

} // namespace

class RenderChainPastTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        context();
        first = makeModel({0.9f, 0.5f, 0.1f});
        second = makeModel({0.1f, 0.9f, 0.3f});
        light.type = ShadowMapManager::Light::Directional;
        light.direction = QVector3D(-0.3f, -0.5f, -1);
    }

    void place(const Setting &setting)
    {
        if (setting.model)
            setting.model->setModelMatrix(1, placed(-0.3f, 0, 0) * placed(setting.moved.x(), setting.moved.y(), 0));
    }

    QSharedPointer<GPUModel> first;
    QSharedPointer<GPUModel> second;
    ShadowMapManager::Light light;
};

class ChainPastTest : public RenderChainPastTest, public ::testing::WithParamInterface<QString>
{ };

TEST_P(ChainPastTest, afterEveryEventTheFramesAreThoseOfANewChain)
{
    const QString name = GetParam();
    const bool reprojects = name.startsWith(QLatin1String("smaa"));
    const QString pass = name == QLatin1String("full") ? QStringLiteral("maps")
        : name == QLatin1String("smaa-4x")             ? QStringLiteral("background")
                                                       : QStringLiteral("layers");
    Setting setting;
    setting.model = first;
    if (name == QLatin1String("full"))
        setting.lights = {QVariant::fromValue(&light)};
    InstanceDataCollection rows(QStringLiteral("SurfaceMaterial"));

    struct Event
    {
        const char *what;
        bool isLed; ///< A velocity leads the last picture on.
        std::function<void()> happen;
    };
    const std::function<void(RenderChain *)> disable = [pass](RenderChain *chain) {
        EXPECT_TRUE(chain->setEnabled(pass, false)) << qPrintable(chain->errorString());
    };
    const std::function<void(RenderChain *)> setValue = [name](RenderChain *chain) {
        const bool isSet = name == QLatin1String("full")
            ? chain->setValue("obscurance", "Kvz_float_SAOIntensity", 40)
            : chain->setValue("background", "Kvz_QColor_ColorTop", QColor(Qt::red));
        EXPECT_TRUE(isSet) << qPrintable(chain->errorString());
    };
    QVector<Event> events = {
        {"nothing", true, [] {}},
        {"an item moves", true,
            [&] {
                setting.moved = {0.2f, 0.1f, 0};
            }},
        {"the camera moves", true, [&] { setting.azimuth = -15; }},
        {"both", true,
            [&] {
                setting.azimuth = 5;
                setting.moved = {0, -0.1f, 0};
            }},
        {"a light changes", true,
            [&] {
                setting.ambient = 0.5f;
                light.direction = QVector3D(0.5f, -0.2f, -1);
            }},
        {"a value of a pass changes", true, [&] { setting.change = setValue; }},
        {"another model", false, [&] { setting.model = second; }},
        {"no model", false, [&] { setting.model.reset(); }},
        {"a model and another camera", false,
            [&] {
                setting.model = first;
                setting.azimuth = 30;
            }},
        {"another size", false, [&] { setting.size = otherSize; }},
        {"a pass less", false,
            [&] {
                setting.change = [=](RenderChain *chain) {
                    setValue(chain);
                    disable(chain);
                };
            }},
        {"rows of the host", false,
            [&] {
                rows.setRowCount(first->itemCount());
                for (int row = 0; row < rows.rowCount(); ++row) {
                    rows.setValue(row, QStringLiteral("getBaseColour"), QVector3D(0.3f * float(row), 1, 0.2f));
                    rows.setValue(row, QStringLiteral("getOpacity"), row < 2 ? 1.0f : 0.6f);
                    rows.setValue(row, QStringLiteral("getSurfaceFlags"), row < 2 ? 1 : 1 + 8);
                }
                rows.bind(nullptr, nullptr);
            }},
        {"no rows of the host", false, [&] { rows.unbind(nullptr, nullptr); }},
    };
    if (name != QLatin1String("smaa-4x")) {
        events.append({"another option", false, [&] {
                           setting.change = [=](RenderChain *chain) {
                               setValue(chain);
                               disable(chain);
                               EXPECT_TRUE(chain->setOption("geometry", "opaqueOnly", false))
                                   << qPrintable(chain->errorString());
                           };
                       }});
    }

    Running running(name);
    Image last;
    for (const Event &event : events) {
        SCOPED_TRACE(event.what);
        event.happen();
        place(setting);
        running.apply(setting);
        Running fresh(name);
        fresh.apply(setting);
        Image shown, expected;
        // An odd number, so that the jitter is at another place when the next event comes, and enough of them to settle.
        for (int frame = 0; frame < 5; ++frame) {
            shown = running.frame();
            expected = fresh.frame();
            if (reprojects && event.isLed)
                continue;
            // Without a past to lead on, each frame is that of a new chain. The images of the geometry have the filters
            // that the passes of the first frame have set, which the first frame of a new chain's obscurance has not yet.
            const bool isFiltered = frame > 0 || name != QLatin1String("full");
            EXPECT_LE(maximumDifference(shown, expected), isFiltered ? 0 : 0.2) << "frame " << frame;
            EXPECT_LE(meanError(shown, expected), isFiltered ? 0 : 1) << "frame " << frame;
        }
        if (setting.model) {
            EXPECT_TRUE(showsSomething(shown));
        } else {
            for (const QString &line : log.takeWarnings())
                EXPECT_TRUE(line.contains("is skipped")) << qPrintable(line);
        }
        if (reprojects && event.isLed) {
            EXPECT_LE(maximumDifference(shown, expected), 0.01) << "when it has settled";
        }
        if (last.width == shown.width && QByteArray(event.what) != "nothing") {
            EXPECT_GT(maximumDifference(shown, last), 0.02) << "the event shows";
        }
        last = shown;
        saveForViewing(shown, QStringLiteral("past-%1-%2").arg(name, QString(event.what).replace(' ', '-')));
    }
}

INSTANTIATE_TEST_SUITE_P(ReadyChains, ChainPastTest, ::testing::ValuesIn(withPast()),
    [](const ::testing::TestParamInfo<QString> &chain) { return QString(chain.param).remove('-').toStdString(); });

TEST_F(RenderChainPastTest, shadowMapsRestUntilTheirSceneChanges)
{
    ShadowMapManager::Light spot;
    spot.type = ShadowMapManager::Light::Spot;
    spot.position = QVector3D(1, 1.5f, 4);
    spot.direction = QVector3D(-0.2f, -0.35f, -1);
    spot.coneAngle = 60;
    for (const QString &name : {QStringLiteral("shadows"), QStringLiteral("shadows-layered")}) {
        for (ShadowMapManager::Light *const one : {&spot, &light}) {
            SCOPED_TRACE(QStringLiteral("%1, light type %2").arg(name).arg(int(one->type)).toStdString());
            Setting setting;
            setting.model = first;
            setting.lights = {QVariant::fromValue(one)};
            place(setting);
            Running running(name);
            running.chain.setTimingEnabled(true);
            int frames = 0;
            const auto check = [&](const char *what, bool rests) {
                SCOPED_TRACE(what);
                place(setting);
                running.apply(setting);
                Running fresh(name);
                fresh.apply(setting);
                const Image shown = running.frame();
                EXPECT_EQ(maximumDifference(shown, fresh.frame()), 0);
                running.chain.finishTimings();
                EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
                const auto timings = running.chain.timings();
                const auto maps = std::find_if(timings.begin(), timings.end(),
                    [](const RenderChain::PassTiming &timing) { return timing.pass == QLatin1String("maps"); });
                EXPECT_TRUE(maps != timings.end() && maps->rests == rests);
                ++frames;
                for (const RenderChain::PassTiming &timing : timings)
                    EXPECT_EQ(timing.gpuFrames, timing.gpuFrames > 0 ? frames : 0) << qPrintable(timing.pass);
                return shown;
            };
            const bool followsView = one == &light;
            const Image start = check("first frame", false);
            check("nothing", true);
            setting.azimuth = -10;
            check("the camera moves", !followsView);
            setting.moved = {0.4f, 0.2f, 0};
            const Image moved = check("an item moves", false);
            EXPECT_GT(maximumDifference(start, moved), 0.1);
            check("nothing again", true);
            const QVector3D direction = one->direction;
            one->direction = QVector3D(0.3f, -0.2f, -1);
            const Image turned = check("the light turns", false);
            EXPECT_GT(maximumDifference(moved, turned), 0.05) << "the shadow stays";
            one->direction = direction;
            setting.change = [](RenderChain *chain) {
                EXPECT_TRUE(chain->setValue("maps", "Kvz_QSize_MapSize", QSize(32, 32)));
            };
            check("smaller maps", false);
            setting.model = second;
            check("another model", false);
            check("at last", true);
        }
    }
}

TEST_F(RenderChainPastTest, gradientsRestUntilTheyLookDifferent)
{
    Setting setting;
    setting.model = first;
    Running running(QStringLiteral("forward"));
    running.chain.setTimingEnabled(true);
    const auto rests = [](const RenderChain &chain) {
        const auto timings = chain.timings();
        return std::any_of(timings.begin(), timings.end(), [](const RenderChain::PassTiming &timing) {
            return timing.pass == QLatin1String("background") && timing.rests;
        });
    };
    const auto check = [&](const char *what, bool isAtRest) {
        SCOPED_TRACE(what);
        running.apply(setting);
        Running fresh(QStringLiteral("forward"));
        fresh.apply(setting);
        const Image shown = running.frame();
        EXPECT_EQ(maximumDifference(shown, fresh.frame()), 0);
        EXPECT_EQ(rests(running.chain), isAtRest);
        return shown;
    };
    const Image start = check("first frame", false);
    EXPECT_TRUE(showsSomething(start));
    check("nothing", true);
    setting.azimuth = -10;
    check("the camera moves", true);
    setting.change = [](RenderChain *chain) {
        EXPECT_TRUE(chain->setValue("background", "Kvz_QColor_ColorTop", QColor(200, 30, 10)));
    };
    const Image red = check("another colour", false);
    EXPECT_GT(maximumDifference(start, red), 0.3);
    setting.change = nullptr;
    running.apply(setting);
    EXPECT_EQ(maximumDifference(running.frame(), red), 0);
    EXPECT_TRUE(rests(running.chain));
    setting.size = otherSize;
    running.apply(setting);
    running.frame();
    EXPECT_FALSE(rests(running.chain)) << "another size";
}

// An image that another pass draws into is no longer what its own pass made.
TEST_F(RenderChainPastTest, nothingRestsThatIsDrawnInto)
{
    ChainDescription description;
    QString error;
    ASSERT_TRUE(ChainDescription::fromJson(R"({"passes": [
        {"name": "background", "class": "GradientRenderPass",
            "values": {"Kvz_QColor_ColorTop": "#00000000", "Kvz_QColor_ColorBottom": "#00ff0080"}},
        {"name": "alone", "class": "CompositeRenderPass",
            "connections": {"Kvz_KvzTexture*_Frame": "background.Kvz_KvzTexture*_Frame"}},
        {"name": "painted", "class": "GradientRenderPass",
            "values": {"Kvz_QColor_ColorTop": "#ff0000ff", "Kvz_QColor_ColorBottom": "#ff00ffff"}},
        {"name": "sky", "class": "SkyboxRenderPass",
            "connections": {"Kvz_KvzTexture*_Background": "painted.Kvz_KvzTexture*_Frame",
                "Kvz_KvzTexture*_Frame": "alone.Kvz_KvzTexture*_Frame"}},
        {"name": "screen", "class": "TextureToScreenRenderPass",
            "connections": {"Kvz_KvzTexture*_Texture": "sky.Kvz_KvzTexture*_Frame"}}]})",
        &description, &error))
        << qPrintable(error);
    Setting setting;
    Running running(QStringLiteral("forward"));
    ASSERT_TRUE(running.chain.setDescription(description)) << qPrintable(running.chain.errorString());
    running.chain.setTimingEnabled(true);
    running.apply(setting);
    const Image start = running.frame();
    EXPECT_TRUE(showsSomething(start));
    for (int frame = 0; frame < 3; ++frame)
        EXPECT_EQ(maximumDifference(running.frame(), start), 0) << frame;
    for (const RenderChain::PassTiming &timing : running.chain.timings())
        EXPECT_EQ(timing.rests, timing.pass == QLatin1String("painted")) << qPrintable(timing.pass);
}

class ChainWithoutPastTest : public RenderChainPastTest, public ::testing::WithParamInterface<QString>
{ };

TEST_P(ChainWithoutPastTest, afterEveryEventTheFrameIsThatOfANewChain)
{
    Setting setting;
    setting.model = first;
    setting.lights = {QVariant::fromValue(&light)};
    Running running(GetParam());
    // The first pass of a picture may be off, whatever it is: one that makes a background, maps or an image.
    const QString firstPass = running.chain.description().passes[0].name;
    struct Event
    {
        const char *what;
        std::function<void()> happen;
    };
    const Event events[] = {
        {"nothing", [] {}},
        {"an item, the camera and a light",
            [&] {
                setting.moved = {0.2f, 0.1f, 0};
                setting.azimuth = -15;
                setting.ambient = 0.5f;
                light.direction = QVector3D(0.5f, -0.2f, -1);
            }},
        {"another model", [&] { setting.model = second; }},
        {"no model", [&] { setting.model.reset(); }},
        {"a model and another size",
            [&] {
                setting.model = first;
                setting.size = otherSize;
            }},
        {"a pass less",
            [&] {
                setting.change = [=](RenderChain *chain) {
                    EXPECT_TRUE(chain->setEnabled(firstPass, false)) << qPrintable(chain->errorString());
                };
            }},
    };
    for (const Event &event : events) {
        SCOPED_TRACE(event.what);
        event.happen();
        place(setting);
        running.apply(setting);
        Running fresh(GetParam());
        fresh.apply(setting);
        Image shown, expected;
        // Numbers of the frame before, such as a measured brightness, need one more to settle.
        for (int frame = 0; frame < 3; ++frame) {
            shown = running.frame();
            expected = fresh.frame();
        }
        EXPECT_EQ(maximumDifference(shown, expected), 0);
        EXPECT_TRUE(showsSomething(shown) || !setting.model || setting.change);
        log.takeWarnings(); // Of passes without what they draw; both chains say them.
    }
}

INSTANTIATE_TEST_SUITE_P(ReadyChains, ChainWithoutPastTest, ::testing::ValuesIn(withoutPast()),
    [](const ::testing::TestParamInfo<QString> &chain) { return QString(chain.param).remove('-').toStdString(); });

TEST_F(RenderChainPastTest, equalChainsGiveEqualBytesWhateverWasDrawnBefore)
{
    Setting setting;
    setting.model = first;
    setting.lights = {QVariant::fromValue(&light)};
    QMap<QString, QVector<Image>> pictures;
    const QStringList names = readyChainNames();
    for (const QString &name : names) {
        Running running(name);
        running.apply(setting);
        // Random jitter begins with the fifth frame.
        const int frames = ResolvedChain(running.chain.description()).keepsPast() ? 7 : 2;
        for (int frame = 0; frame < frames; ++frame)
            pictures[name].append(running.frame());
    }

    // In the reverse order, and in turns with another chain, which shares the pool of images.
    Running companion(QStringLiteral("glow"));
    Setting other = setting;
    other.model = second;
    other.azimuth = 70;
    companion.apply(other);
    srand48(99);
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        SCOPED_TRACE(qPrintable(*name));
        Running running(*name);
        running.apply(setting);
        for (int frame = 0; frame < pictures[*name].size(); ++frame) {
            companion.frame();
            drand48();
            const Image shown = running.frame();
            EXPECT_TRUE(showsSomething(shown)) << "frame " << frame;
            EXPECT_EQ(maximumDifference(shown, pictures[*name][frame]), 0) << "frame " << frame;
        }
    }
    log.takeWarnings(); // What single chains say of this scene does not matter here.
}

TEST_F(RenderChainPastTest, randomJitterHasNumbersOfItsOwn)
{
    Setting setting;
    setting.model = first;
    const auto amounts = [&](int frames, const std::function<void()> &between) {
        Running running(QStringLiteral("temporal"));
        running.apply(setting);
        QVector<QVector2D> result;
        for (int frame = 0; frame < frames; ++frame) {
            running.frame();
            result.append(running.chain.pass("jitter")->output(2).value<QVector2D>());
            between();
        }
        return result;
    };
    srand48(5);
    const double expected[] = {drand48(), drand48()};
    srand48(5);
    const QVector<QVector2D> quiet = amounts(7, [] {});
    EXPECT_EQ(drand48(), expected[0]) << "the host's numbers go on";
    EXPECT_EQ(drand48(), expected[1]);
    EXPECT_EQ(amounts(7, [] { drand48(); }), quiet);
    for (int frame = 0; frame < 4; ++frame)
        EXPECT_TRUE(quiet[frame].isNull()) << frame;
    for (int frame = 4; frame < 7; ++frame) {
        EXPECT_FALSE(quiet[frame].isNull()) << frame;
        EXPECT_NE(quiet[frame], quiet[frame - 1]);
    }
}

TEST_F(RenderChainPastTest, theFirstTemporalFrameIsThatOfOneFrame)
{
    Setting setting;
    setting.model = first;
    const auto of = [&](const char *name, bool isBare = false) {
        Running running(QString::fromLatin1(name));
        running.apply(setting);
        if (isBare) {
            EXPECT_TRUE(running.chain.setEnabled("jitter", false));
            EXPECT_TRUE(running.chain.connect(
                "screen", "Kvz_KvzTexture*_Texture", ChainSource::output("smooth", "Kvz_KvzTexture*_Frame")));
        }
        return running.frame();
    };
    const auto compare = [](const char *what, const Image &shown, const Image &expected, double mean, double most) {
        SCOPED_TRACE(what);
        saveForViewing(shown, QStringLiteral("first-%1").arg(what));
        saveForViewing(expected, QStringLiteral("first-%1-expected").arg(what));
        EXPECT_TRUE(showsSomething(shown));
        EXPECT_LE(meanError(shown, expected), mean);
        EXPECT_LE(maximumDifference(shown, expected), most);
    };
    const double step = 1.01 / 255;
    compare("temporal", of("temporal"), of("deferred"), 0.5, step);
    compare("full", of("full"), of("full", true), 0.5, step);
    // SMAA weighs edges as if the samples lay where its tables have them in this mode, which is a quarter of a pixel off here. A frame
    // that is blended with itself displaced by as much is twice as far off.
    compare("t2x", of("smaa-t2x"), of("smaa-1x"), 1, 0.2);
    compare("4x", of("smaa-4x"), of("smaa-s2x"), 0.3, 0.1);

    // And so are those without a past later on.
    Running running(QStringLiteral("smaa-t2x"));
    running.apply(setting);
    for (int frame = 0; frame < 3; ++frame)
        running.frame();
    setting.size = otherSize;
    running.apply(setting);
    compare("t2x-size", running.frame(), of("smaa-1x"), 1, 0.2);
    running.frame();
    setting.model = second;
    setting.azimuth = 60;
    running.apply(setting);
    compare("t2x-model", running.frame(), of("smaa-1x"), 1, 0.2);
}

TEST_F(RenderChainPastTest, chainsOnOneModelHavePastsOfTheirOwn)
{
    ChainDescription moving, culling;
    QString error;
    ASSERT_TRUE(ChainDescription::fromJson(R"({"passes": [
        {"name": "surfaces", "class": "SurfaceRenderPass"}, {"name": "velocity", "class": "VelocityRenderPass"}]})",
        &moving, &error));
    ASSERT_TRUE(ChainDescription::fromJson(R"({"passes": [
        {"name": "culling", "class": "CullingRenderPass", "values": {"Kvz_bool_FrustumCullingEnabledIn": true}},
        {"name": "surfaces", "class": "SurfaceRenderPass"}]})",
        &culling, &error));
    RenderChain chains[3];
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(chains[i].setDescription(i == 2 ? culling : moving));
        chains[i].setViewport(QRect(0, 0, 40, 40));
        chains[i].setCamera(QMatrix4x4(), QMatrix4x4());
        chains[i].setModel(first.data());
    }
    // A camera that sees none of it.
    chains[2].setCamera(placed(50, 0, 0), QMatrix4x4());
    const auto motion = [&](int chain) {
        return renderOutputs(&chains[chain], {{"velocity", "Kvz_KvzTexture*_Velocity"}})[0].at(20, 20)[0];
    };
    const auto move = [&](float x) {
        for (int item = 0; item < first->itemCount(); ++item)
            first->setModelMatrix(item, placed(x, 0, 0));
    };
    move(-0.1f);
    EXPECT_EQ(motion(0), 0) << "nothing has moved yet";
    EXPECT_EQ(motion(1), 0);
    move(0);
    EXPECT_TRUE(chains[2].renderFrame());
    EXPECT_NEAR(motion(0), 0.05, 1e-4) << "the chain that culls has not taken the motion, and culls for itself";
    move(0.1f);
    EXPECT_NEAR(motion(0), 0.05, 1e-4);
    EXPECT_NEAR(motion(1), 0.1, 1e-4) << "two moves since its last frame";
    EXPECT_EQ(motion(0), 0);
    EXPECT_EQ(motion(1), 0);
    EXPECT_EQ(first->culledCount(), 0);
    const auto depth = [&] {
        return renderOutputs(&chains[2], {{"surfaces", "Kvz_KvzTexture*_Depth"}})[0].at(20, 20)[0];
    };
    EXPECT_EQ(depth(), 1);
    // Marks of a camera that looked away do not outlive the culling.
    EXPECT_TRUE(chains[2].setValue("culling", "Kvz_bool_FrustumCullingEnabledIn", false));
    chains[2].setCamera(QMatrix4x4(), QMatrix4x4());
    EXPECT_LT(depth(), 1);
    EXPECT_EQ(first->previousModelMatrix(0), first->modelMatrix(0));
}

TEST_F(RenderChainPastTest, whatTheChainCannotSeeTakesACall)
{
    Setting setting;
    setting.model = first;
    Running running(QStringLiteral("smaa-t2x"));
    running.apply(setting);
    const Image begin = running.frame();
    EXPECT_GT(maximumDifference(running.frame(), begin), 0.01);
    running.frame();
    running.chain.forgetPast();
    EXPECT_EQ(maximumDifference(running.frame(), begin), 0);
    // What is set again as it was is no change.
    const Image next = running.frame();
    running.chain.forgetPast();
    running.frame();
    running.apply(setting);
    place(setting);
    EXPECT_TRUE(running.chain.setEnabled("layers", true));
    EXPECT_TRUE(running.chain.setValue("smooth", "Kvz_int_SmaaMode", 2));
    EXPECT_EQ(maximumDifference(running.frame(), next), 0);
    EXPECT_TRUE(running.chain.setValue("smooth", "Kvz_bool_RenderInHDR", false));
    EXPECT_LE(maximumDifference(running.frame(), begin), 0.01) << "another format of the past";
}

} // namespace Velmora::Kvz
