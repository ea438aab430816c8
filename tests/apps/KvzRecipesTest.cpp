// SPDX-License-Identifier: MIT
// The command lines of docs/recipes.md do what the page says.
#include "../Import/GltfDocument.h"
#include "KvzRun.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

namespace Velmora::Kvz {

namespace {

/// A GLB of a box, 2 by 1 by 1.5.
QByteArray boxGlb()
{
    GltfDocument document;
    QVector<float> positions;
    for (int corner = 0; corner < 8; ++corner)
        positions << (corner & 1 ? 1.0f : -1.0f) << (corner & 2 ? 0.5f : -0.5f) << (corner & 4 ? 0.75f : -0.75f);
    const QByteArray bytes(reinterpret_cast<const char *>(positions.constData()), positions.size() * 4);
    const QJsonObject attributes{{"POSITION", document.addAccessor(bytes, GltfDocument::Float, 8, "VEC3")}};
    const int indices = document.addAccessor(GltfDocument::bytesOf<quint16>({4, 5, 7, 4, 7, 6, 1, 0, 2, 1, 2, 3, 5, 1,
                                                 3, 5, 3, 7, 0, 4, 6, 0, 6, 2, 6, 7, 3, 6, 3, 2, 0, 1, 5, 0, 5, 4}),
        GltfDocument::UnsignedShort, 36, "SCALAR");
    document.setPrimitive({{"attributes", attributes}, {"indices", indices}, {"material", 0}});
    document.root["materials"] = QJsonArray{QJsonObject{{"pbrMetallicRoughness",
        QJsonObject{
            {"baseColorFactor", QJsonArray{0.8, 0.1, 0.05, 1}}, {"metallicFactor", 0}, {"roughnessFactor", 0.5}}}}};
    QByteArray json = document.bytes();
    json.append(QByteArray(-json.size() & 3, ' '));
    const QByteArray header = GltfDocument::bytesOf<quint32>({2, quint32(20 + json.size()), quint32(json.size())});
    return "glTF" + header + "JSON" + json;
}

/// The shell blocks of a page.
QStringList shellBlocks(const QString &file)
{
    QFile page(file);
    EXPECT_TRUE(page.open(QIODevice::ReadOnly));
    static const QRegularExpression block(QStringLiteral("^```sh\\n(.*?)^```$"),
        QRegularExpression::MultilineOption | QRegularExpression::DotMatchesEverythingOption);
    QStringList blocks;
    auto matches = block.globalMatch(QString::fromUtf8(page.readAll()));
    while (matches.hasNext())
        blocks.append(matches.next().captured(1));
    return blocks;
}

/// Expects a picture of this size that shows the box, which is red.
void expectBox(const QString &file, const QSize &size)
{
    const QImage image = expectPicture(file, size);
    int red = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            red += pixel.red() > 2 * pixel.green() && pixel.red() > 2 * pixel.blue();
        }
    }
    EXPECT_GT(red, size.width() * size.height() / 10) << file.toStdString();
}

} // namespace

TEST(KvzRecipesTest, theRecipesDoWhatTheySay)
{
    TemporaryFolder folder;
    folder.write("car.glb", boxGlb());
    QDir(folder.path(".")).mkdir("models");
    folder.write("models/cube.obj", cubeObj());
    folder.write("models/box.glb", boxGlb());
    const QStringList blocks = shellBlocks(QStringLiteral(KVZ_SOURCE_DIR "/docs/recipes.md"));
    ASSERT_GE(blocks.size(), 8);
    for (const QString &block : blocks) {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PATH", QFileInfo(QStringLiteral(KVZ_PROGRAM)).path() + ":" + environment.value("PATH"));
        process.setProcessEnvironment(environment);
        process.setWorkingDirectory(folder.path("."));
        process.start("bash", {"--norc", "-e", "-o", "pipefail", "-c", block});
        ASSERT_TRUE(process.waitForFinished(100000)) << block.toStdString();
        EXPECT_EQ(process.exitCode(), 0) << block.toStdString();
        EXPECT_EQ(process.readAllStandardError(), QByteArray()) << block.toStdString();
    }

    for (int i = 0; i < 24; i += 5)
        expectBox(folder.path(QStringLiteral("turntable-%1.png").arg(i, 2, 10, QLatin1Char('0'))), {320, 180});
    EXPECT_NE(QImage(folder.path("turntable-05.png")), QImage(folder.path("turntable-06.png")));
    EXPECT_FALSE(QFile::exists(folder.path("turntable-24.png")));
    expectBox(folder.path("thumbnail.png"), {256, 256});
    expectBox(folder.path("thumbnails/box.png"), {256, 256});
    EXPECT_EQ(linesOf(QString::fromUtf8(folder.read("thumbnails/index.jsonl"))).size(), 2);
    for (const char *view : {"front", "back", "left", "right", "top", "bottom"})
        expectBox(folder.path(QStringLiteral("car-%1_ortho.png").arg(view)), {400, 400});
    for (const char *chain : {"fxaa", "smaa-1x"}) {
        for (const char *name : {"%1.png", "%1-30,20.png", "%1-210,20.png"})
            expectBox(folder.path(QString(name).arg(chain)), {640, 360});
    }
    EXPECT_NE(QImage(folder.path("fxaa-30,20.png")), QImage(folder.path("smaa-1x-30,20.png")));
    EXPECT_EQ(QImage(folder.path("white.png")).pixelColor(0, 0), QColor(Qt::white));
    // Of each step, but for those of layers, which an opaque model does not have.
    const QStringList captures = QDir(folder.path("passes")).entryList({"*.png"});
    for (const char *step : {"panorama", "sky", "maps", "geometry", "positions", "obscurance", "blur-x", "blur-y",
             "mask", "shading", "over", "smooth", "accumulate"})
        EXPECT_FALSE(captures.filter(QStringLiteral("-%1-").arg(step)).isEmpty()) << step;
    EXPECT_GT(captures.size(), 15);
    expectBox(folder.path("answer.png"), {320, 180});
    const QColor warm = QImage(folder.path("warm.png")).pixelColor(0, 0);
    EXPECT_EQ(warm.red(), 255);
    EXPECT_NEAR(warm.green(), 0.95 * 255, 1);
    EXPECT_NEAR(warm.blue(), 0.7 * 255, 1);
    expectBox(folder.path("answers/car.glb.png"), {320, 180});
    EXPECT_EQ(folder.read("answers/car.glb.log"), "");
    EXPECT_EQ(folder.read("answers/refused"), "letter.obj\n");
    EXPECT_EQ(folder.read("answers/letter.obj.log").count('\n'), 1);
    EXPECT_FALSE(QFile::exists(folder.path("answers/letter.obj.png")));
}

} // namespace Velmora::Kvz
