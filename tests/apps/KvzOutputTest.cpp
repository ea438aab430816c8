// SPDX-License-Identifier: MIT
// `kvz render`: what its files hold, and pictures in tiles.
#include "../Import/GltfDocument.h"
#include "KvzRun.h"
#include "support/ExrFile.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QSet>
#include <QtGui/QMatrix4x4>
#include <QtGui/QRgba64>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Velmora::Kvz {

namespace {

/// Four tilted tetrahedra, one of glass. No two surfaces lie in one plane, where the last digit of a depth would decide which one shows.
void writeTetrahedra(const TemporaryFolder &folder)
{
    struct Solid
    {
        const char *material;
        QVector3D place;
        float scale, azimuth, tilt;
    };
    const Solid solids[] = {{"red", {-1.3f, 0.1f, 0}, 1, 17, 11}, {"blue", {1.2f, -0.2f, -0.6f}, 0.9f, 63, -23},
        {"glass", {0.1f, 0.15f, 1.3f}, 0.8f, 126, 29}, {"grey", {0.2f, 1.4f, -0.9f}, 0.7f, 40, 109}};
    const QVector3D corners[] = {
        {-1, -0.62f, -0.71f}, {1.03f, -0.55f, -0.8f}, {0.08f, -0.7f, 1.1f}, {0.11f, 1.2f, 0.05f}};
    const int faces[][3] = {{1, 2, 4}, {2, 3, 4}, {3, 1, 4}, {1, 3, 2}};
    QString text = "mtllib tetrahedra.mtl\n";
    int first = 0;
    for (const Solid &solid : solids) {
        QMatrix4x4 matrix;
        matrix.translate(solid.place);
        matrix.rotate(solid.tilt, 1, 0, 0);
        matrix.rotate(solid.azimuth, 0, 1, 0);
        matrix.scale(solid.scale);
        text += QStringLiteral("o %1\nusemtl %1\n").arg(solid.material);
        for (const QVector3D &corner : corners) {
            const QVector3D place = matrix.map(corner);
            text += QStringLiteral("v %1 %2 %3\n")
                        .arg(double(place.x()), 0, 'f', 5)
                        .arg(double(place.y()), 0, 'f', 5)
                        .arg(double(place.z()), 0, 'f', 5);
        }
        for (const auto &face : faces)
            text += QStringLiteral("f %1 %2 %3\n").arg(face[0] + first).arg(face[1] + first).arg(face[2] + first);
        first += 4;
    }
    folder.write("tetrahedra.obj", text.toUtf8());
    folder.write("tetrahedra.mtl",
        "newmtl red\nKd 0.8 0.2 0.1\nnewmtl blue\nKd 0.1 0.3 0.8\nKs 0.5 0.5 0.5\nNs 20\nnewmtl glass\nKd 0.4 0.8 "
        "0.5\nd 0.4\nnewmtl grey\nKd 0.6 0.6 0.6\n");
}

/// All that a picture of a product takes: environment, lamp, obscurance, tone mapping with dither, smooth edges, a ground with shadow.
const char *const productChain = R"({
    "name": "product", "lights": ["directional:-35,50"],
    "passes": [
        {"name": "surroundings", "class": "EnvironmentLightRenderPass"},
        {"name": "maps", "class": "ShadowMapRenderPass2"},
        {"name": "model", "class": "PhysicalForwardRenderPass"},
        {"name": "visibility", "class": "AmbientVisibilityRenderPass"},
        {"name": "tone", "class": "ToneMapRenderPass",
            "connections": {"Kvz_KvzTexture*_Frame": "model.Kvz_KvzTexture*_Frame"}},
        {"name": "smooth", "class": "CutoutAntiAliasingRenderPass",
            "connections": {"Kvz_KvzTexture*_Frame": "tone.Kvz_KvzTexture*_Frame"}},
        {"name": "ground", "class": "GroundShadowRenderPass"},
        {"name": "over", "class": "CompositeRenderPass", "values": {"Kvz_QColor_BackgroundColor": "#e8e4dc"},
            "connections": {
                "Kvz_KvzTexture*_Frame": "smooth.Kvz_KvzTexture*_Frame",
                "Kvz_KvzTexture*_Background": "ground.Kvz_KvzTexture*_Ground"}},
        {"name": "screen", "class": "TextureToScreenRenderPass",
            "connections": {"Kvz_KvzTexture*_Texture": "over.Kvz_KvzTexture*_Frame"}}
    ]})";

/// A model in light, tone mapped by cutting it off.
const char *const plainLightChain = R"({
    "name": "plain-light",
    "passes": [
        {"name": "model", "class": "LitForwardRenderPass"},
        {"name": "tone", "class": "ToneMapRenderPass", "options": {"operator": "none"}},
        {"name": "screen", "class": "TextureToScreenRenderPass",
            "connections": {"Kvz_KvzTexture*_Texture": "tone.Kvz_KvzTexture*_Frame"}}
    ]})";

/// Which pixels of two pictures differ by more than a step of 8 bits.
struct Difference
{
    int largest = 0;
    int beyondAStep = 0;
};

Difference differenceOf(const QImage &a, const QImage &b)
{
    Difference difference;
    EXPECT_EQ(a.size(), b.size());
    const QImage first = a.convertToFormat(QImage::Format_RGBA8888);
    const QImage second = b.convertToFormat(QImage::Format_RGBA8888);
    for (int y = 0; y < std::min(a.height(), b.height()); ++y) {
        const uchar *one = first.constScanLine(y);
        const uchar *other = second.constScanLine(y);
        for (int x = 0; x < a.width(); ++x, one += 4, other += 4) {
            int largest = 0;
            for (int channel = 0; channel < 4; ++channel)
                largest = std::max(largest, std::abs(one[channel] - other[channel]));
            difference.largest = std::max(difference.largest, largest);
            difference.beyondAStep += largest > 1 ? 1 : 0;
        }
    }
    return difference;
}

/// How many colours a picture has.
int colourCount(const QImage &image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            colours.insert(image.pixel(x, y));
    }
    return colours.size();
}

float decoded(int value)
{
    const double v = value / 255.0;
    return float(v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4));
}

class KvzOutputTest : public ::testing::Test
{
protected:
    KvzOutputTest()
    {
        writeTetrahedra(folder);
        folder.write("product.json", productChain);
        folder.write("plain-light.json", plainLightChain);
    }
    /// Renders the tetrahedra, and expects only these lines.
    void render(const QString &output, const QStringList &arguments, const QStringList &lines = {})
    {
        const Result result = run(QStringList{"render", model(), "-o", folder.path(output)} + arguments);
        EXPECT_EQ(result.status, 0) << arguments.join(' ').toStdString();
        EXPECT_EQ(result.errors, lines) << arguments.join(' ').toStdString();
    }
    QString model() const { return folder.path("tetrahedra.obj"); }
    QString chain(const char *name) const { return folder.path(QStringLiteral("%1.json").arg(name)); }
    QString warning(const QString &file, const char *text) const
    {
        return QStringLiteral("kvz: warning: %1: %2").arg(folder.path(file), text);
    }

    TemporaryFolder folder;
};

const QStringList small{"--size", "96x64"};

} // namespace

TEST_F(KvzOutputTest, sixteenBitsHoldWhatEightRoundOff)
{
    const QStringList arguments = small + QStringList{"--chain", chain("product")};
    render("8.png", arguments);
    render("16.png", arguments + QStringList{"--depth", "16"});
    const QImage words = QImage(folder.path("16.png")).convertToFormat(QImage::Format_RGBA64);
    ASSERT_EQ(words.size(), QSize(96, 64));
    int between = 0;
    int covered = 0;
    for (int y = 0; y < words.height(); ++y) {
        const auto *row = reinterpret_cast<const QRgba64 *>(words.constScanLine(y));
        for (int x = 0; x < words.width(); ++x) {
            const bool isBackground = row[x].red() == row[0].red();
            covered += isBackground ? 0 : 1;
            between += !isBackground && row[x].red() % 257 != 0 ? 1 : 0;
        }
    }
    EXPECT_GT(covered, 1000);
    EXPECT_GT(between, covered * 9 / 10) << "of 257 numbers one is that of 8 bits";
    const Difference difference = differenceOf(words, QImage(folder.path("8.png")));
    EXPECT_LE(difference.largest, 2) << "rounded, and dithered by less than half a step";
}

TEST_F(KvzOutputTest, aChainThatEndsInEightBitsIsTold)
{
    render("a.png", small + QStringList{"--chain", "temporal", "--depth", "16"},
        {warning("a.png", "the chain temporal ends in 8 bits a channel, and so the 16 of the picture hold no more")});
    render("b.png", small + QStringList{"--chain", "temporal"});
    EXPECT_EQ(differenceOf(QImage(folder.path("a.png")), QImage(folder.path("b.png"))).largest, 0);
}

TEST_F(KvzOutputTest, sixteenBitsHaveStraightAlpha)
{
    render("16.png", small + QStringList{"--chain", chain("product"), "--depth", "16", "--background", "none"});
    render("8.png", small + QStringList{"--chain", chain("product"), "--background", "none"});
    const QImage words(folder.path("16.png"));
    const QImage bytes(folder.path("8.png"));
    ASSERT_TRUE(words.hasAlphaChannel());
    EXPECT_EQ(words.depth(), 64);
    for (int y = 0; y < bytes.height(); y += 3) {
        for (int x = 0; x < bytes.width(); x += 3) {
            const QColor eight = bytes.pixelColor(x, y);
            const QColor sixteen = words.pixelColor(x, y);
            EXPECT_NEAR(eight.alpha(), sixteen.alpha(), 1);
            if (eight.alpha() > 250) {
                EXPECT_NEAR(eight.red(), sixteen.red(), 2) << x << " " << y;
            }
        }
    }
}

TEST_F(KvzOutputTest, filesOfLightHoldWhatIsExposedAndNotYetMapped)
{
    // Of a pixel that is covered in part, light and display values over black are not the same.
    folder.write("tetrahedra.mtl", folder.read("tetrahedra.mtl").replace("d 0.4", "d 1"));
    const QStringList opaque = small + QStringList{"--chain", chain("plain-light")};
    render("plain.png", opaque);
    render("plain.exr", opaque);
    render("brighter.exr", opaque + QStringList{"--set", "tone.Exposure=4"});
    const QImage display(folder.path("plain.png"));
    const ExrFile light = ExrFile::read(folder.path("plain.exr"));
    const ExrFile brighter = ExrFile::read(folder.path("brighter.exr"));
    ASSERT_EQ(light.size, QSize(96, 64));
    EXPECT_EQ(light.channels.keys(), (QStringList{"B", "G", "R"}));
    EXPECT_EQ(light.types["R"], Imf::HALF);
    int bright = 0;
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 96; ++x) {
            const float red = light.at("R", x, y);
            const int shown = qRed(display.pixel(x, y));
            EXPECT_GE(red, decoded(std::max(shown - 1, 0)) - 1e-4f) << x << " " << y;
            EXPECT_LE(red, decoded(std::min(shown + 1, 255)) + 1e-4f) << x << " " << y;
            EXPECT_NEAR(brighter.at("R", x, y), 16 * red, 0.002f * (16 * red) + 1e-4f) << "four stops";
            bright += brighter.at("R", x, y) > 1.5f ? 1 : 0;
        }
    }
    EXPECT_GT(bright, 200) << "beyond what a display shows";
}

TEST_F(KvzOutputTest, filesOfLightAreMultipliedByAlpha)
{
    render("cut.exr", small + QStringList{"--chain", chain("product"), "--background", "none"});
    const ExrFile light = ExrFile::read(folder.path("cut.exr"));
    EXPECT_EQ(light.channels.keys(), (QStringList{"A", "B", "G", "R"}));
    int rim = 0;
    int shadow = 0;
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 96; ++x) {
            const float alpha = light.at("A", x, y);
            rim += alpha > 0.1f && alpha < 0.9f && light.at("R", x, y) > 0.01f ? 1 : 0;
            shadow += alpha > 0.1f && alpha < 0.9f && light.at("R", x, y) == 0 ? 1 : 0;
            if (alpha == 0) {
                EXPECT_EQ(light.at("R", x, y), 0);
            }
        }
    }
    EXPECT_GT(rim, 20) << "pixels that the model covers in part";
    EXPECT_GT(shadow, 100) << "of the ground's shadow, black with the light that is lost as alpha";
}

TEST_F(KvzOutputTest, chainsOfDisplayValuesAreDecodedWithALine)
{
    render("d.exr", small + QStringList{"--chain", "deferred"},
        {warning("d.exr", "the chain deferred ends in display values; the light in it is theirs, decoded from sRGB")});
    render("d.png", small + QStringList{"--chain", "deferred"});
    const ExrFile light = ExrFile::read(folder.path("d.exr"));
    const QImage display(folder.path("d.png"));
    ASSERT_EQ(light.size, display.size());
    for (int y = 0; y < 64; y += 3) {
        for (int x = 0; x < 96; x += 3) {
            const int shown = qGreen(display.pixel(x, y));
            EXPECT_GE(light.at("G", x, y), decoded(std::max(shown - 1, 0)) - 2e-4f) << x << " " << y;
            EXPECT_LE(light.at("G", x, y), decoded(std::min(shown + 1, 255)) + 2e-4f) << x << " " << y;
        }
    }
}

TEST_F(KvzOutputTest, layersHoldTheImagesOfTheFrame)
{
    // A square 5 before a camera with parallel rays that sees 4 by 2 units.
    GltfDocument document;
    document.setSquare({{"pbrMetallicRoughness",
        QJsonObject{{"baseColorFactor", QJsonArray{1, 0, 0, 1}}, {"metallicFactor", 0}, {"roughnessFactor", 1}}}});
    document.root["cameras"] = QJsonArray{QJsonObject{{"type", "orthographic"}, {"name", "straight"},
        {"orthographic", QJsonObject{{"xmag", 2}, {"ymag", 1}, {"znear", 0.1}, {"zfar", 100}}}}};
    document.setNodes({QJsonObject{{"mesh", 0}, {"translation", QJsonArray{-0.5, -0.5, 0}}},
                          QJsonObject{{"camera", 0}, {"translation", QJsonArray{0, 0, 5}}}},
        {0, 1});
    const QString square = folder.write("square.gltf", document.bytes());
    const auto layers = [&](const char *name, const QStringList &arguments) {
        const Result result = run(QStringList{"render", square, "--camera", "straight", "--size", "160x80", "--layers",
                                      "--chain", "deferred", "-o", folder.path(name)}
            + arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.errors.size(), 1) << result.errors.join('\n').toStdString();
        return ExrFile::read(folder.path(name));
    };
    const ExrFile whole = layers("whole.exr", {});
    ASSERT_EQ(whole.size, QSize(160, 80));
    for (const char *channel :
        {"R", "background.Frame.R", "geometry.Depth.Z", "geometry.Normal.X", "geometry.Diffuse.R"})
        EXPECT_TRUE(whole.channels.contains(channel)) << whole.channels.keys().join(' ').toStdString();
    // The middle of the square, and beside it.
    EXPECT_NEAR(whole.at("geometry.Depth.Z", 80, 40), 5, 1e-3f);
    EXPECT_TRUE(std::isinf(whole.at("geometry.Depth.Z", 20, 40)));
    EXPECT_NEAR(whole.at("geometry.Normal.Z", 80, 40), 1, 1e-3f);
    EXPECT_EQ(whole.at("geometry.Normal.Z", 20, 40), 0);
    EXPECT_NEAR(whole.at("geometry.Diffuse.R", 80, 40), 1, 1e-3f);
    // The square takes 40 by 40 pixels: rows 20 to 59, top row first.
    EXPECT_EQ(whole.at("geometry.Normal.Z", 80, 19), 0);
    EXPECT_NEAR(whole.at("geometry.Normal.Z", 80, 20), 1, 1e-3f);

    const ExrFile tiles = layers("tiles.exr", {"--tile", "64"});
    ASSERT_EQ(tiles.channels.keys(), whole.channels.keys());
    for (const QString &channel : whole.channels.keys()) {
        const std::vector<float> &a = whole.channels[channel];
        const std::vector<float> &b = tiles.channels[channel];
        int different = 0;
        for (size_t i = 0; i < a.size(); ++i)
            different += a[i] == b[i] || std::abs(a[i] - b[i]) < 2e-3f ? 0 : 1;
        EXPECT_EQ(different, 0) << channel.toStdString();
    }
}

TEST_F(KvzOutputTest, otherFormatsAreWrittenByTheirSuffix)
{
    render("a.png", small);
    const QImage png(folder.path("a.png"));
    for (const char *type : {"jpg", "webp"}) {
        const QString good = QStringLiteral("good.%1").arg(type);
        const QString poor = QStringLiteral("poor.%1").arg(type);
        render(good, small + QStringList{"--quality", "98"});
        render(poor, small + QStringList{"--quality", "3"});
        EXPECT_LT(folder.read(poor).size() * 3, folder.read(good).size() * 2) << type;
        const QImage image(folder.path(good));
        ASSERT_EQ(image.size(), QSize(96, 64)) << type;
        EXPECT_NEAR(image.pixelColor(48, 32).green(), png.pixelColor(48, 32).green(), 12) << type;
    }
    EXPECT_TRUE(folder.read("good.jpg").startsWith("\xff\xd8"));
    EXPECT_EQ(folder.read("good.webp").mid(8, 4), "WEBP");
}

TEST_F(KvzOutputTest, optionsThatDoNotFitTheFileAreRefused)
{
    const auto refused = [&](const char *file, const QStringList &arguments, const QString &line) {
        expectLine(QStringList{"render", model(), "-o", folder.path(file)} + arguments, 1, line);
    };
    const auto file = [&](const char *name) { return folder.path(name); };
    refused("a.png", {"--depth", "12"}, "--depth 12: expected 8 or 16");
    refused("a.png", {"--depth", "deep"}, "--depth deep: expected 8 or 16");
    for (const char *quality : {"101", "-1", "best", "7.5"})
        refused("a.jpg", {QStringLiteral("--quality=%1").arg(quality)},
            QStringLiteral("--quality %1: expected a number from 0 to 100").arg(quality));
    refused("a.png", {"--quality", "90"},
        "-o " + file("a.png") + ": pictures of type .png have no quality; .jpg and .webp have");
    refused("a.webp", {"--depth", "16"},
        "-o " + file("a.webp") + ": pictures of type .webp have 8 bits a channel here; write a PNG");
    refused("a.exr", {"--depth", "16"},
        "-o " + file("a.exr") + ": files of light are half floats without loss; leave --depth out");
    refused("a.exr", {"--quality", "5"},
        "-o " + file("a.exr") + ": files of light are half floats without loss; leave --quality out");
    refused("a.png", {"--layers"},
        "-o " + file("a.png") + ": pictures of this type have no layers, which --layers needs; write an .exr");
    refused("a.jpg", {"--background", "none"},
        "-o " + file("a.jpg") + ": pictures of this type have no alpha, which --background none needs; write a PNG");
    refused("a.webp", {"--size", "16384x8"},
        "-o " + file("a.webp") + ": pictures of type .webp have at most 16383 pixels a side; write a PNG");
    refused("a.xyz", {}, file("a.xyz") + ": pictures of type .xyz cannot be written; use .png");
    for (const char *tile : {"0", "63", "big"})
        refused("a.png", {"--tile", tile},
            QStringLiteral("--tile %1: expected the side of a tile in pixels, 64 or more, such as 1024").arg(tile));
    refused("a.png", {"--tile", "64", "--chain", "backdrop"},
        "--tile 64: backdrop: the pass backdrop (BackgroundImageRenderPass) cannot draw a part of a picture: it fits "
        "its "
        "image into what it draws");
    expectRefused({"render", model(), "-o", file("a.png"), "--tile", "64", "--capture", file("images")}, 2,
        "--tile and --capture do not go together", "");
    expectRefused({"render", model(), "-o", file("a.exr"), "--layers", "--capture", file("images")}, 2,
        "--layers and --capture do not go together", "");
    // What is beyond the driver's limit is drawn in tiles by most chains.
    expectRefused({"render", model(), "-o", file("a.png"), "--chain", "backdrop", "--size", "1000000x16"}, 1,
        "--size 1000000x16: the limit of this driver is ",
        ", and it cannot be drawn in tiles: backdrop: the pass backdrop (BackgroundImageRenderPass) ");
    for (const QString &entry : folder.entries())
        EXPECT_FALSE(entry.startsWith("a.")) << entry.toStdString();
}

/// One test for each chain.
class KvzTilesTest : public KvzOutputTest, public ::testing::WithParamInterface<const char *>
{ };

TEST_P(KvzTilesTest, areTheWholePicture)
{
    const QString name = qstrcmp(GetParam(), "product") == 0 ? chain("product") : QString::fromLatin1(GetParam());
    const QStringList arguments{"--size", "200x120", "--chain", name, "--quiet"};
    render("whole.png", arguments);
    render("tiles.png", arguments + QStringList{"--tile", "110"});
    const QImage whole(folder.path("whole.png"));
    EXPECT_GT(colourCount(whole), 100);
    const Difference difference = differenceOf(whole, QImage(folder.path("tiles.png")));
    // One pixel that an edge passes within the rasteriser's last digit.
    EXPECT_LE(difference.beyondAStep, 1) << difference.largest;
}

INSTANTIATE_TEST_SUITE_P(Chains, KvzTilesTest,
    ::testing::Values("product", "studio", "deferred", "forward", "smaa-1x", "smaa-s2x", "glow", "soft-focus",
        "shadows", "shadows-layered", "skybox-panorama", "transparency-lists", "transparency-weighted"));

TEST_F(KvzOutputTest, samplesAreThoseOfTheWholePicture)
{
    for (const char *name : {"temporal", "smaa-t2x"}) {
        const QStringList arguments{"--size", "160x100", "--chain", name, "--samples", "4"};
        render("whole.png", arguments);
        render("tiles.png", arguments + QStringList{"--tile", "64"});
        const Difference difference = differenceOf(QImage(folder.path("whole.png")), QImage(folder.path("tiles.png")));
        EXPECT_LE(difference.beyondAStep, 3) << name << ", " << difference.largest;
    }
}

TEST_F(KvzOutputTest, cutOutsInTilesHaveTheWholeAlpha)
{
    const QStringList arguments{"--size", "160x100", "--chain", chain("product"), "--background", "none"};
    render("whole.png", arguments);
    render("tiles.png", arguments + QStringList{"--tile", "64"});
    const QImage tiles(folder.path("tiles.png"));
    EXPECT_TRUE(tiles.hasAlphaChannel());
    EXPECT_LE(differenceOf(QImage(folder.path("whole.png")), tiles).beyondAStep, 1);
}

TEST_F(KvzOutputTest, picturesBeyondTheDriversLimitAreDrawnInTilesWithALine)
{
    const Result result =
        run({"render", model(), "--chain", "forward", "--size", "40000x16", "-o", folder.path("wide.png")});
    EXPECT_EQ(result.status, 0);
    ASSERT_EQ(result.errors.size(), 1) << result.errors.join('\n').toStdString();
    EXPECT_TRUE(result.errors[0].startsWith("kvz: warning: --size 40000x16: the limit of this driver is "))
        << result.errors[0].toStdString();
    EXPECT_TRUE(result.errors[0].endsWith("; drawn in tiles of up to 2048x2048"));
    const QImage wide(folder.path("wide.png"));
    ASSERT_EQ(wide.size(), QSize(40000, 16));
    // The model is in the middle, and the background the same to both sides.
    EXPECT_EQ(wide.pixel(0, 8), wide.pixel(39999, 8));
    bool isDrawn = false;
    for (int x = 19990; x < 20010; ++x)
        isDrawn = isDrawn || wide.pixel(x, 8) != wide.pixel(0, 8);
    EXPECT_TRUE(isDrawn);
}

TEST_F(KvzOutputTest, FourThousandPixelsInTilesAreTheWholePicture)
{
    // What obscurance reads around a tile is half a thousand pixels here, so that small tiles would draw most of it again and again.
    const QPair<QString, const char *> cases[] = {{"deferred", "1024"}, {chain("product"), "2048"}};
    for (const auto &[name, side] : cases) {
        const QStringList arguments{"--size", "4096x4096", "--chain", name};
        render("whole.png", arguments);
        render("tiles.png", arguments + QStringList{"--tile", side});
        const QImage whole(folder.path("whole.png"));
        ASSERT_EQ(whole.size(), QSize(4096, 4096));
        const Difference difference = differenceOf(whole, QImage(folder.path("tiles.png")));
        // One in 100,000: pixels that an edge passes within the rasteriser's last digit, and such where a look-up of obscurance falls
        // so close between two texels that rounding decides. Seen were 18 and 70.
        EXPECT_LE(difference.beyondAStep, 4096 * 4096 / 100000) << name.toStdString() << ", " << difference.largest;
        std::printf("%s: %d of 16777216 pixels differ by more than a step, by %d at most\n", qPrintable(name),
            difference.beyondAStep, difference.largest);
    }
}

} // namespace Velmora::Kvz
