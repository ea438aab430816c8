// SPDX-License-Identifier: MIT
// What `kvz info` says of the model files of two of Debian's packages is what the model on the GPU has, file by file: items, triangles, and
// the box around the corners that are drawn.
#include "apps/KvzRun.h"
#include "support/GLTest.h"
#include "support/Meshes.h"

#include <GL/DrawBuffers.h>
#include <GL/DrawElementsIndirectCommand.h>
#include <Import/ModelFormats.h>
#include <Import/ModelImporter.h>
#include <Scene/GPUModel.h>

#include <QtCore/QDirIterator>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <limits>

namespace Velmora::Kvz {

namespace {

QStringList modelFiles()
{
    QStringList suffixes;
    for (const FileFormat &format : modelFormats())
        suffixes += format.suffixes;
    QStringList files;
    for (const char *folder : {"/usr/share/assimp/models", "/usr/share/glmark2/models"}) {
        QDirIterator iterator(QString::fromLatin1(folder), QDir::Files, QDirIterator::Subdirectories);
        while (iterator.hasNext()) {
            const QString file = iterator.next();
            if (suffixes.contains(QFileInfo(file).suffix().toLower()))
                files.append(file);
        }
    }
    files.sort();
    return files;
}

/// What is drawn of a model.
struct Drawn
{
    qint64 triangles = 0;
    QVector3D low;
    QVector3D high;
};

Drawn drawnOf(const GPUModel &model)
{
    Drawn drawn;
    const float infinity = std::numeric_limits<float>::infinity();
    drawn.low = QVector3D(infinity, infinity, infinity);
    drawn.high = -drawn.low;
    const MeshData mesh = readMesh(*model.drawBuffers(0));
    const QVector<DrawElementsIndirectCommand> &commands = model.drawBuffers(0)->drawElementsIndirectCommands();
    for (int item = 0; item < model.itemCount(); ++item) {
        const DrawElementsIndirectCommand &command = commands[item];
        const QMatrix4x4 matrix = model.modelMatrix(item);
        drawn.triangles += command.count / 3;
        for (quint32 i = command.firstIndex; i < command.firstIndex + command.count; ++i) {
            const quint32 vertex = mesh.indices.isEmpty() ? i : mesh.indices.at(int(i));
            const QVector3D place = matrix.map(mesh.positions.at(int(vertex)));
            for (int axis = 0; axis < 3; ++axis) {
                drawn.low[axis] = std::min(drawn.low[axis], place[axis]);
                drawn.high[axis] = std::max(drawn.high[axis], place[axis]);
            }
        }
    }
    return drawn;
}

void expectCorner(const QJsonValue &corner, const QVector3D &drawn, float extent)
{
    const QJsonArray values = corner.toArray();
    ASSERT_EQ(values.size(), 3);
    for (int axis = 0; axis < 3; ++axis) // The text has seven digits.
        EXPECT_NEAR(values[axis].toDouble(), double(drawn[axis]), 1e-5 * double(extent) + 1e-30) << "axis " << axis;
}

} // namespace

using DrawnFactsTest = GLTest;

TEST_F(DrawnFactsTest, infoTellsOfWhatIsDrawn)
{
    const QStringList files = modelFiles();
    ASSERT_GT(files.size(), 100) << "scripts/setup installs the packages";
    int compared = 0;
    for (const QString &file : files) {
        SCOPED_TRACE(qPrintable(file));
        const Result info = run({"info", "--json", file});
        ImportedScene scene;
        QString error;
        const bool isDrawn = importModel(file, &scene, &error);
        if (info.status != 0) {
            EXPECT_EQ(info.status, 1);
            EXPECT_EQ(info.errors.size(), 1) << info.errors.join('\n').toStdString();
            EXPECT_FALSE(isDrawn);
            continue;
        }
        QJsonParseError parsing;
        const QJsonObject facts = QJsonDocument::fromJson(info.output.toUtf8(), &parsing).object();
        ASSERT_EQ(parsing.error, QJsonParseError::NoError) << info.output.toStdString();
        EXPECT_EQ(info.errors, QStringList());
        if (!isDrawn) {
            EXPECT_EQ(facts["triangles"].toInt(-1), 0) << qPrintable(error);
            continue;
        }
        const QSharedPointer<GPUModel> model = scene.build();
        ASSERT_TRUE(model);
        const Drawn drawn = drawnOf(*model);
        EXPECT_EQ(facts["items"].toInt(), model->itemCount());
        EXPECT_EQ(qint64(facts["triangles"].toDouble()), drawn.triangles);
        const QJsonObject bounds = facts["bounds"].toObject();
        float extent = 0;
        for (int axis = 0; axis < 3; ++axis)
            extent = std::max({extent, std::abs(drawn.low[axis]), std::abs(drawn.high[axis])});
        expectCorner(bounds["low"], drawn.low, extent);
        expectCorner(bounds["high"], drawn.high, extent);
        ++compared;
        log.clear(); // Of images that are scaled down.
    }
    EXPECT_GT(compared, 80);
    std::printf("%d of %d files compared\n", compared, files.size());
}

/// Of two cubes of Blender one is flat by its faces: all its normals lie along an axis.
TEST(CorpusNormalsTest, facesOfBlenderAreAsFlatAsTheySay)
{
    const QPair<const char *, int> files[] = {{"SmoothVsSolidCube_248", 2}, {"BlenderDefault_250_Compressed", 1}};
    for (const auto &file : files) {
        ImportedScene scene;
        QString error;
        const QString path = QStringLiteral("/usr/share/assimp/models/BLEND/%1.blend").arg(QLatin1String(file.first));
        ASSERT_TRUE(importModel(path, &scene, &error)) << qPrintable(error);
        const auto isFlat = [](const ImportedMesh &mesh) {
            return std::all_of(mesh.normals.begin(), mesh.normals.end(), [](const QVector3D &normal) {
                return std::max({std::abs(normal.x()), std::abs(normal.y()), std::abs(normal.z())}) > 0.999f;
            });
        };
        EXPECT_EQ(scene.meshes.size(), file.second) << file.first;
        EXPECT_EQ(std::count_if(scene.meshes.begin(), scene.meshes.end(), isFlat), 1) << file.first;
    }
}

/// The first material of a Blender file's meshes taken away, as the program does where it is deleted.
TEST(CorpusNormalsTest, emptySlotsOfBlenderAreNoMaterial)
{
    QFile file(QStringLiteral("/usr/share/assimp/models/BLEND/BlenderDefault_269.blend"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    QByteArray bytes = file.readAll();
    ASSERT_TRUE(bytes.startsWith("BLENDER-v")) << "64 bits, the lowest first";
    // A block with the address of a material in it, behind that of its mesh.
    const int mesh = bytes.indexOf(QByteArray("ME\0\0", 4));
    const int material = bytes.indexOf(QByteArray("MA\0\0", 4));
    ASSERT_GT(mesh, 0);
    ASSERT_GT(material, 0);
    const QByteArray address = bytes.mid(material + 8, 8);
    const int slot = bytes.indexOf(address, mesh + 24);
    ASSERT_GT(slot, 0);
    bytes.replace(slot, 8, QByteArray(8, '\0'));
    QTemporaryDir folder;
    QFile copy(folder.filePath(QStringLiteral("a.blend")));
    ASSERT_TRUE(copy.open(QIODevice::WriteOnly) && copy.write(bytes) == bytes.size());
    copy.close();
    ImportedScene scene;
    QString error;
    ASSERT_TRUE(importModel(copy.fileName(), &scene, &error)) << qPrintable(error);
    EXPECT_EQ(scene.items.size(), 1);
    EXPECT_EQ(scene.meshes.value(0).indices.size(), 36);
}

} // namespace Velmora::Kvz
