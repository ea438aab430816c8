// SPDX-License-Identifier: MIT
// `kvz info` and `kvz formats` on a machine without a driver.
#include "Import/GltfDocument.h"
#include "KvzRun.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QMap>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>
#include <QtGui/QVector3D>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

/// Runs the program where it finds no driver: facts need none.
Result runWithoutDriver(const QStringList &arguments)
{
    Kvz program;
    program.environment.insert("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent");
    return program.run(arguments);
}

/// The JSON object that a command prints as its only line; fails the test if it prints anything else.
QJsonObject jsonFrom(const QStringList &arguments)
{
    const Result result = runWithoutDriver(arguments);
    EXPECT_EQ(result.status, 0) << result.errors.join('\n').toStdString();
    EXPECT_EQ(result.errors, QStringList());
    EXPECT_EQ(linesOf(result.output).size(), 1);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(result.output.toUtf8(), &error);
    EXPECT_TRUE(document.isObject()) << error.errorString().toStdString() << "\n" << result.output.toStdString();
    return document.object();
}

/// A row of the text form without its name, or the lines of a list without their count.
QStringList rowsOf(const QString &output, const QString &name)
{
    QStringList rows;
    bool isIn = false;
    for (const QString &line : linesOf(output)) {
        isIn = line.startsWith(name + ' ') || (isIn && line.startsWith(' '));
        if (isIn)
            rows.append(line.mid(12));
    }
    return rows;
}

/// A scene with something of everything: a square of 2 by 2 and another one turned and moved, points, a line.
GltfDocument everything()
{
    GltfDocument document;
    const QJsonObject square = document.square();
    const int indices = document.squareIndices();
    document.root["meshes"] = QJsonArray{QJsonObject{{"primitives",
        QJsonArray{QJsonObject{{"attributes", square}, {"indices", indices}, {"material", 0}},
            QJsonObject{{"attributes", square}, {"mode", 0}, {"material", 1}},
            QJsonObject{{"attributes", square}, {"mode", 3}, {"material", 1}}}}}};
    const QString image = "data:image/png;base64," + pngBytes(plainImage(8, 4, Qt::white)).toBase64();
    document.root["images"] = QJsonArray{QJsonObject{{"name", "map"}, {"uri", image}}};
    document.root["textures"] = QJsonArray{QJsonObject{{"source", 0}}};
    document.root["materials"] =
        QJsonArray{QJsonObject{{"name", "leaf"}, {"alphaMode", "MASK"}, {"doubleSided", true},
                       {"pbrMetallicRoughness", QJsonObject{{"baseColorTexture", QJsonObject{{"index", 0}}}}}},
            QJsonObject{{"name", "glow"}, {"extensions", QJsonObject{{"KHR_materials_unlit", QJsonObject()}}}}};
    document.root["cameras"] = QJsonArray{QJsonObject{{"name", "eye"}, {"type", "perspective"},
                                              {"perspective", QJsonObject{{"yfov", 0.7853982}, {"znear", 0.1}}}},
        QJsonObject{{"name", "plan"}, {"type", "orthographic"},
            {"orthographic", QJsonObject{{"xmag", 3}, {"ymag", 2}, {"znear", 0.1}, {"zfar", 10}}}}};
    document.root["extensionsUsed"] =
        QJsonArray{"KHR_lights_punctual", "KHR_materials_variants", "KHR_materials_unlit", "VENDOR_notes"};
    document.root["extensionsRequired"] = QJsonArray{"KHR_lights_punctual"};
    document.root["extensions"] = QJsonObject{{"KHR_lights_punctual",
                                                  QJsonObject{{"lights",
                                                      QJsonArray{QJsonObject{{"name", "lamp"}, {"type", "point"},
                                                          {"intensity", 40}, {"color", QJsonArray{1, 0.5, 0.25}}}}}}},
        {"KHR_materials_variants",
            QJsonObject{{"variants", QJsonArray{QJsonObject{{"name", "day"}}, QJsonObject{{"name", "night"}}}}}}};
    const int times = document.addAccessor(GltfDocument::bytesOf<float>({0, 2.5f}), GltfDocument::Float, 2, "SCALAR");
    const int places =
        document.addAccessor(GltfDocument::bytesOf<float>({0, 0, 0, 0, 1, 0}), GltfDocument::Float, 2, "VEC3");
    document.root["animations"] = QJsonArray{QJsonObject{{"name", "hop"},
        {"samplers", QJsonArray{QJsonObject{{"input", times}, {"output", places}}}},
        {"channels",
            QJsonArray{QJsonObject{{"sampler", 0}, {"target", QJsonObject{{"node", 1}, {"path", "translation"}}}}}}}};
    document.setNodes({QJsonObject{{"mesh", 0}, {"scale", QJsonArray{2, 2, 2}}},
                          QJsonObject{{"mesh", 0}, {"translation", QJsonArray{0, 0, -4}},
                              {"rotation", QJsonArray{0, 0.70710678, 0, 0.70710678}}},
                          QJsonObject{{"camera", 0}}, QJsonObject{{"camera", 1}},
                          QJsonObject{{"extensions", QJsonObject{{"KHR_lights_punctual", QJsonObject{{"light", 0}}}}}}},
        {0, 1, 2, 3, 4});
    return document;
}

QJsonArray names(const QJsonValue &list)
{
    QJsonArray result;
    for (const QJsonValue &entry : list.toArray())
        result.append(entry.toObject()["name"]);
    return result;
}

void expectNear(const QJsonValue &corner, const QVector3D &expected)
{
    const QJsonArray values = corner.toArray();
    ASSERT_EQ(values.size(), 3);
    for (int axis = 0; axis < 3; ++axis)
        EXPECT_NEAR(values[axis].toDouble(), double(expected[axis]), 1e-5) << "axis " << axis;
}

} // namespace

TEST(InfoTest, jsonHasEveryFactOfAFile)
{
    const TemporaryFolder folder;
    const QString model = folder.write("all.gltf", everything().bytes());
    const QJsonObject info = jsonFrom({"info", model, "--json"});
    EXPECT_EQ(info["file"], model);
    EXPECT_EQ(info["format"], "glTF 2");
    EXPECT_EQ(info["unitInMetres"], 1);
    EXPECT_EQ(info["up"], "y");
    // The second square is turned about y by 90 degrees: from (0, 0) to (1, 1) in x and y, then z from 0 to -1, four back.
    expectNear(info["bounds"].toObject()["low"], {0, 0, -5});
    expectNear(info["bounds"].toObject()["high"], {2, 2, 0});
    EXPECT_EQ(info["items"], 2);
    EXPECT_EQ(info["triangles"], 4);
    EXPECT_EQ(info["points"], 8);
    EXPECT_EQ(info["lines"], 6);
    EXPECT_EQ(names(info["materials"]), (QJsonArray{"leaf", "glow"}));
    EXPECT_EQ(info["materials"].toArray()[0].toObject(),
        (QJsonObject{{"name", "leaf"}, {"alpha", "mask"}, {"doubleSided", true}, {"unlit", false}}));
    EXPECT_EQ(info["materials"].toArray()[1].toObject()["unlit"], true);
    ASSERT_EQ(info["images"].toArray().size(), 1);
    const QJsonObject image = info["images"].toArray()[0].toObject();
    EXPECT_EQ(image["width"], 8);
    EXPECT_EQ(image["height"], 4);
    EXPECT_EQ(image["isRead"], true);
    EXPECT_EQ(image["uses"], QJsonArray{"colour"});
    EXPECT_EQ(info["animations"], (QJsonArray{QJsonObject{{"name", "hop"}, {"seconds", 2.5}, {"channels", 1}}}));
    EXPECT_EQ(info["cameras"],
        (QJsonArray{QJsonObject{{"name", "eye"}, {"type", "perspective"}, {"verticalFieldOfView", 45}},
            QJsonObject{{"name", "plan"}, {"type", "orthographic"}, {"height", 4}}}));
    EXPECT_EQ(info["lights"],
        (QJsonArray{QJsonObject{
            {"name", "lamp"}, {"type", "point"}, {"colour", QJsonArray{1, 0.5, 0.25}}, {"intensity", 40}}}));
    EXPECT_EQ(info["variants"], (QJsonArray{"day", "night"}));
    EXPECT_EQ(info["extensionsUsed"].toArray().size(), 4);
    EXPECT_EQ(info["extensionsRequired"], QJsonArray{"KHR_lights_punctual"});
    // One mesh of 4 vertices and 6 indices, two items, one image of 8x4 with its levels 4x2, 2x1 and 1x1.
    EXPECT_EQ(info["gpuBytes"], 4 * 32 + 6 * 4 + 2 * 420 + 4 * (32 + 8 + 2 + 1));
    ASSERT_EQ(info["warnings"].toArray().size(), 1);
    EXPECT_EQ(info["warnings"].toArray()[0], model + ": 8 points and 6 lines are not drawn: triangles alone are");
}

TEST(InfoTest, textHasOneLineForEachFact)
{
    const TemporaryFolder folder;
    const QString model = folder.write("all.gltf", everything().bytes());
    const Result result = runWithoutDriver({"info", model});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors,
        QStringList("kvz: warning: " + model + ": 8 points and 6 lines are not drawn: triangles alone are"));
    const Result quiet = runWithoutDriver({"info", model, "--quiet"});
    EXPECT_EQ(quiet.errors, QStringList());
    EXPECT_EQ(quiet.output, result.output);
    const auto rows = [&](const QString &name) { return rowsOf(result.output, name); };
    EXPECT_EQ(rows("Format"), QStringList("glTF 2"));
    EXPECT_EQ(rows("Unit"), QStringList("metre"));
    EXPECT_EQ(rows("Up axis"), QStringList("y"));
    EXPECT_EQ(rows("Items"), QStringList("2"));
    EXPECT_EQ(rows("Triangles"), QStringList("4"));
    EXPECT_EQ(rows("Points"), QStringList("8"));
    EXPECT_EQ(rows("Lines"), QStringList("6"));
    EXPECT_EQ(
        rows("Materials"), (QStringList{"2", "\"leaf\", mask, double-sided", "\"glow\", opaque, single-sided, unlit"}));
    ASSERT_EQ(rows("Images").size(), 2);
    EXPECT_TRUE(rows("Images")[1].endsWith(", 8x4, colour")) << rows("Images")[1].toStdString();
    EXPECT_EQ(rows("Animations"), (QStringList{"1", "\"hop\", 2.5 s"}));
    EXPECT_EQ(
        rows("Cameras"), (QStringList{"2", "\"eye\", perspective, 45 degrees high", "\"plan\", orthographic, 4 high"}));
    EXPECT_EQ(rows("Lights"), (QStringList{"1", "\"lamp\", point"}));
    EXPECT_EQ(rows("Variants"), (QStringList{"2", "day", "night"}));
    EXPECT_EQ(
        rows("Extensions").mid(0, 3), (QStringList{"4", "KHR_lights_punctual, required", "KHR_materials_variants"}));
    EXPECT_EQ(rows("GPU memory"), QStringList("about 1.1 KiB"));
}

TEST(InfoTest, whatAFileDoesNotSayIsNull)
{
    const TemporaryFolder folder;
    const QJsonObject info = jsonFrom({"info", folder.write("cube.obj", cubeObj()), "--json"});
    EXPECT_EQ(info["format"], "Wavefront Object");
    EXPECT_TRUE(info["unitInMetres"].isNull());
    EXPECT_TRUE(info["up"].isNull());
    expectNear(info["bounds"].toObject()["low"], {-1, -1, -1});
    expectNear(info["bounds"].toObject()["high"], {1, 1, 1});
    EXPECT_EQ(info["triangles"], 12);
    EXPECT_EQ(info["materials"].toArray()[0].toObject()["doubleSided"], QJsonValue(QJsonValue::Null));
    EXPECT_EQ(info["extensionsUsed"], QJsonArray());
    EXPECT_EQ(info["warnings"], QJsonArray());

    const Result text = runWithoutDriver({"info", folder.path("cube.obj")});
    EXPECT_EQ(rowsOf(text.output, "Unit"), QStringList("not said"));
    EXPECT_EQ(rowsOf(text.output, "Up axis"), QStringList("not said; y is taken"));
}

TEST(InfoTest, pointsAloneHaveFactsToo)
{
    const TemporaryFolder folder;
    const QString model = folder.write("cloud.ply",
        "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\nend_header\n"
        "0 0 0\n1 5 0\n-2 0 3\n");
    const QJsonObject info = jsonFrom({"info", model, "--json"});
    EXPECT_EQ(info["points"], 3);
    EXPECT_EQ(info["triangles"], 0);
    EXPECT_EQ(info["items"], 0);
    EXPECT_EQ(info["gpuBytes"], 0);
    expectNear(info["bounds"].toObject()["low"], {-2, 0, 0});
    expectNear(info["bounds"].toObject()["high"], {1, 5, 3});
    EXPECT_EQ(info["warnings"], QJsonArray{model + ": 3 points are not drawn: triangles alone are"});
}

TEST(InfoTest, axisAndMomentChangeTheBounds)
{
    const TemporaryFolder folder;
    const QString tall = folder.write("tall.obj", "v 0 0 0\nv 1 0 0\nv 0 2 5\nf 1 2 3\n");
    const QJsonObject upright = jsonFrom({"info", tall, "--json", "--up", "z"});
    expectNear(upright["bounds"].toObject()["low"], {0, 0, -2});
    expectNear(upright["bounds"].toObject()["high"], {1, 5, 0});

    // The second square rises by as much as the animation says: from 0 to 1 in 2.5 seconds.
    const QString model = folder.write("all.gltf", everything().bytes());
    const auto heightWith = [&](const QStringList &more) {
        const QJsonObject bounds = jsonFrom(QStringList{"info", model, "--json"} + more)["bounds"].toObject();
        return bounds["low"].toArray()[2].toDouble();
    };
    EXPECT_NEAR(heightWith({}), -5, 1e-5);
    EXPECT_NEAR(heightWith({"--time", "0"}), -1, 1e-5) << "the animation moves it to the origin";
    EXPECT_NEAR(heightWith({"--animation", "hop", "--time", "2.5"}), -1, 1e-5);

    const auto refusal = [&](const QStringList &more) {
        return runWithoutDriver(QStringList{"info", model} + more).errors.join('|');
    };
    EXPECT_EQ(refusal({"--up", "w"}), "kvz: --up w: expected x, y, z, -x, -y or -z");
    EXPECT_EQ(refusal({"--time", "-1"}), "kvz: --time -1: expected seconds, 0 or more");
    EXPECT_TRUE(refusal({"--animation", "hopp"}).contains("\"hop\"")) << refusal({"--animation", "hopp"}).toStdString();
    EXPECT_EQ(
        refusal({"--format", "glb"}), "kvz: --format is for a model from standard input, - (see kvz info --help)");
}

TEST(InfoTest, aModelMayComeFromStandardInput)
{
    const TemporaryFolder folder;
    Kvz program;
    program.input = folder.write("a.bin", "mtllib gone.mtl\nusemtl one\n" + cubeObj());
    const Result result = program.run({"info", "-", "--format", "obj", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, QStringList());
    const QJsonObject info = QJsonDocument::fromJson(result.output.toUtf8()).object();
    EXPECT_EQ(info["file"], "-");
    EXPECT_EQ(info["triangles"], 12);
    ASSERT_EQ(info["warnings"].toArray().size(), 1);
    const QString warning = info["warnings"].toArray()[0].toString();
    EXPECT_TRUE(warning.startsWith("standard input: ")) << warning.toStdString();
    EXPECT_FALSE(warning.contains("/tmp")) << warning.toStdString();
    const Result text = program.run({"info", "-", "--format", "obj"});
    EXPECT_EQ(text.errors, QStringList("kvz: warning: " + warning));
    EXPECT_EQ(rowsOf(text.output, "Triangles"), QStringList("12"));
    EXPECT_EQ(program.run({"info", "-"}).errors,
        QStringList("kvz: standard input has no name that tells its type; add --format SUFFIX (see kvz info --help)"));
}

TEST(InfoTest, aFileThatCannotBeReadIsRefusedInOneLine)
{
    const TemporaryFolder folder;
    const QString model = folder.write("bad.glb", "glTF");
    for (const QStringList &more : {QStringList(), QStringList("--json")}) {
        const Result result = runWithoutDriver(QStringList{"info", model} + more);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, QString());
        ASSERT_EQ(result.errors.size(), 1) << result.errors.join('\n').toStdString();
        EXPECT_TRUE(result.errors[0].startsWith("kvz: " + model + ": ")) << result.errors[0].toStdString();
    }
    EXPECT_EQ(runWithoutDriver({"info"}).status, 2);
    EXPECT_EQ(runWithoutDriver({"info", model, model}).status, 2);
}

/// The reader of OpenGEX writes to standard error by itself and gives no reason.
TEST(InfoTest, readersDoNotWriteToTheTerminal)
{
    const TemporaryFolder folder;
    const QString model = folder.write(
        "camera.ogex", "CameraObject {\n    Param (attrib = \"fov\") { float { 0.97 } }\n}\nCameraObject {}\n");
    const Result result = runWithoutDriver({"info", model});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(
        result.errors, QStringList("kvz: " + model + ": damaged or truncated: no reader for .ogex files accepts it"));
}

TEST(FormatsTest, everyTypeHasItsSuffixesAndItsLibrary)
{
    const QJsonObject formats = jsonFrom({"formats", "--json"});
    QMap<QString, QString> readers; // by suffix and name
    for (const QJsonValue &value : formats["models"].toArray()) {
        const QJsonObject format = value.toObject();
        EXPECT_FALSE(format["name"].toString().isEmpty());
        EXPECT_FALSE(format["suffixes"].toArray().isEmpty()) << format["name"].toString().toStdString();
        for (const QJsonValue &suffix : format["suffixes"].toArray())
            readers.insert(suffix.toString() + ", " + format["name"].toString(), format["library"].toString());
    }
    EXPECT_TRUE(readers["obj, Wavefront Object"].startsWith("assimp "));
    EXPECT_EQ(readers["glb, glTF 2"], "tinygltf");
    EXPECT_TRUE(readers["gltf, glTF 1"].startsWith("assimp "));

    QSet<QString> read, written;
    for (const QJsonValue &value : formats["imagesRead"].toArray())
        read.insert(value.toObject()["suffixes"].toArray()[0].toString());
    for (const QJsonValue &value : formats["imagesWritten"].toArray())
        written.insert(value.toObject()["suffixes"].toArray()[0].toString());
    EXPECT_TRUE(read.contains("png") && read.contains("jpg"));
    EXPECT_TRUE(written.contains("png") && written.contains("exr"));
    EXPECT_FALSE(read.contains("txt") || written.contains("gif"));

    const Result text = runWithoutDriver({"formats"});
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(text.errors, QStringList());
    for (const char *title : {"Models:", "Images that are read:", "Images that are written:"})
        EXPECT_TRUE(linesOf(text.output).contains(title)) << title;
    EXPECT_TRUE(text.output.contains(QRegularExpression("\n +gltf glb +glTF 2 +tinygltf\n")))
        << text.output.toStdString();
}

/// What `kvz info` calls a format is what `kvz formats` lists.
TEST(FormatsTest, namesAreThoseOfInfo)
{
    const TemporaryFolder folder;
    QStringList names;
    for (const QJsonValue &value : jsonFrom({"formats", "--json"})["models"].toArray())
        names.append(value.toObject()["name"].toString());
    const QStringList files{folder.write("a.obj", cubeObj()), folder.write("a.gltf", everything().bytes()),
        folder.write("a.stl",
            "solid a\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\n"
            "endloop\nendfacet\nendsolid a\n")};
    for (const QString &file : files) {
        const QString format = jsonFrom({"info", file, "--json"})["format"].toString();
        EXPECT_TRUE(names.contains(format)) << file.toStdString() << ": " << format.toStdString();
    }
}

} // namespace Velmora::Kvz
