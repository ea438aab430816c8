// SPDX-License-Identifier: MIT
#include "LoadCost.h"

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QtMath>

#include <meshoptimizer.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

namespace Velmora::Kvz {

namespace {

int rowsOf(int triangles)
{
    return std::max(2, int(std::sqrt(triangles / 4.0)));
}

/// A ball with bumps.
struct Ball
{
    std::vector<float> positions;
    std::vector<float> normals;
    std::vector<quint32> indices;

    explicit Ball(int triangles)
    {
        const int rows = rowsOf(triangles);
        const int columns = 2 * rows;
        for (int row = 0; row <= rows; ++row) {
            for (int column = 0; column < columns; ++column) {
                const double latitude = M_PI * (double(row) / rows - 0.5) * 0.999;
                const double longitude = 2 * M_PI * column / columns;
                const double n[] = {std::cos(latitude) * std::sin(longitude), std::sin(latitude),
                    std::cos(latitude) * std::cos(longitude)};
                const double radius = 1 + 0.01 * std::sin(20 * latitude) * std::sin(20 * longitude);
                for (const double value : n) {
                    positions.push_back(float(radius * value));
                    normals.push_back(float(value));
                }
            }
        }
        for (int row = 0; row < rows; ++row) {
            for (int column = 0; column < columns; ++column) {
                const auto a = quint32(row * columns + column);
                const auto b = quint32(row * columns + (column + 1) % columns);
                const auto c = quint32(a + quint32(columns)), d = quint32(b + quint32(columns));
                indices.insert(indices.end(), {a, b, d, a, d, c});
            }
        }
    }

    int triangleCount() const { return int(indices.size() / 3); }
};

void append(QByteArray *bytes, const void *from, size_t size)
{
    bytes->append(static_cast<const char *>(from), int(size));
}

QByteArray objOf(const Ball &ball, bool hasNormals)
{
    QByteArray obj;
    char line[200];
    for (size_t v = 0; v < ball.positions.size(); v += 3) {
        obj += QByteArray(line,
            std::snprintf(line, sizeof(line), "v %f %f %f\n", double(ball.positions[v]), double(ball.positions[v + 1]),
                double(ball.positions[v + 2])));
    }
    for (size_t v = 0; hasNormals && v < ball.normals.size(); v += 3) {
        obj += QByteArray(line,
            std::snprintf(line, sizeof(line), "vn %f %f %f\n", double(ball.normals[v]), double(ball.normals[v + 1]),
                double(ball.normals[v + 2])));
    }
    const char *const format = hasNormals ? "f %u//%u %u//%u %u//%u\n" : "f %u %u %u\n";
    for (size_t i = 0; i < ball.indices.size(); i += 3) {
        const unsigned a = ball.indices[i] + 1, b = ball.indices[i + 1] + 1, c = ball.indices[i + 2] + 1;
        const int length = hasNormals ? std::snprintf(line, sizeof(line), format, a, a, b, b, c, c)
                                      : std::snprintf(line, sizeof(line), format, a, b, c);
        obj += QByteArray(line, length);
    }
    return obj;
}

QByteArray plyOf(const Ball &ball)
{
    QByteArray ply = QStringLiteral("ply\nformat binary_little_endian 1.0\nelement vertex %1\nproperty float x\n"
                                    "property float y\nproperty float z\nelement face %2\n"
                                    "property list uchar int vertex_indices\nend_header\n")
                         .arg(ball.positions.size() / 3)
                         .arg(ball.triangleCount())
                         .toLatin1();
    append(&ply, ball.positions.data(), ball.positions.size() * sizeof(float));
    for (size_t i = 0; i < ball.indices.size(); i += 3) {
        ply.append(char(3));
        append(&ply, &ball.indices[i], 12);
    }
    return ply;
}

QByteArray stlOf(const Ball &ball)
{
    QByteArray stl(80, ' ');
    const auto count = quint32(ball.triangleCount());
    append(&stl, &count, 4);
    const float normal[3] = {0, 0, 0};
    for (size_t i = 0; i < ball.indices.size(); i += 3) {
        append(&stl, normal, 12);
        for (size_t corner = 0; corner < 3; ++corner)
            append(&stl, &ball.positions[3 * ball.indices[i + corner]], 12);
        stl.append(2, '\0');
    }
    return stl;
}

QByteArray glbOf(const Ball &ball)
{
    QByteArray binary;
    append(&binary, ball.positions.data(), ball.positions.size() * sizeof(float));
    append(&binary, ball.normals.data(), ball.normals.size() * sizeof(float));
    std::vector<float> texCoords;
    for (size_t v = 0; v < ball.normals.size(); v += 3)
        texCoords.insert(texCoords.end(), {ball.normals[v], ball.normals[v + 1]});
    append(&binary, texCoords.data(), texCoords.size() * sizeof(float));
    append(&binary, ball.indices.data(), ball.indices.size() * 4);
    const int vertices = int(ball.positions.size() / 3);
    QByteArray json = QStringLiteral(
        R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[{"mesh":0}],"materials":[{}],)"
        R"("meshes":[{"primitives":[{"attributes":{"POSITION":0,"NORMAL":1,"TEXCOORD_0":2},"indices":3,"material":0}]}],)"
        R"("accessors":[{"bufferView":0,"componentType":5126,"count":%1,"type":"VEC3","min":[-2,-2,-2],"max":[2,2,2]},)"
        R"({"bufferView":1,"componentType":5126,"count":%1,"type":"VEC3"},)"
        R"({"bufferView":2,"componentType":5126,"count":%1,"type":"VEC2"},)"
        R"({"bufferView":3,"componentType":5125,"count":%2,"type":"SCALAR"}],)"
        R"("bufferViews":[{"buffer":0,"byteOffset":0,"byteLength":%3},{"buffer":0,"byteOffset":%3,"byteLength":%3},)"
        R"({"buffer":0,"byteOffset":%4,"byteLength":%5},{"buffer":0,"byteOffset":%6,"byteLength":%7}],)"
        R"("buffers":[{"byteLength":%8}]})")
                          .arg(vertices)
                          .arg(ball.indices.size())
                          .arg(12 * vertices)
                          .arg(24 * vertices)
                          .arg(8 * vertices)
                          .arg(32 * vertices)
                          .arg(4 * ball.indices.size())
                          .arg(binary.size())
                          .toLatin1();
    json.append((4 - json.size() % 4) % 4, ' ');
    QByteArray glb("glTF");
    for (const quint32 number : {quint32(2), quint32(28 + json.size() + binary.size()), quint32(json.size())})
        append(&glb, &number, 4);
    glb += "JSON" + json;
    const auto size = quint32(binary.size());
    append(&glb, &size, 4);
    return glb + QByteArray("BIN\0", 4) + binary;
}

constexpr unsigned flags = aiProcess_Triangulate | aiProcess_GenUVCoords | aiProcess_TransformUVCoords;

} // namespace

QVector<MeasuredFormat> measuredFormats()
{
    return {
        {"OBJ", "obj", false, [](int triangles) { return objOf(Ball(triangles), false); }},
        {"OBJ+normals", "obj", false, [](int triangles) { return objOf(Ball(triangles), true); }},
        {"PLY", "ply", true, [](int triangles) { return plyOf(Ball(triangles)); }},
        {"STL", "stl", false, [](int triangles) { return stlOf(Ball(triangles)); }},
        {"GLB", "glb", true, [](int triangles) { return glbOf(Ball(triangles)); }},
    };
}

int trianglesOf(int wanted)
{
    const int rows = rowsOf(wanted);
    return rows * 2 * rows * 2;
}

void importBare(const QString &file, bool isWelded)
{
    Assimp::Importer importer;
    const aiScene *scene = importer.ReadFile(QFile::encodeName(file).constData(), flags);
    if (!scene || scene->mNumMeshes != 1) {
        std::fprintf(stderr, "%s\n", importer.GetErrorString());
        std::_Exit(1);
    }
    if (!isWelded)
        return;
    const aiMesh &mesh = *scene->mMeshes[0];
    std::vector<unsigned> indices;
    indices.reserve(mesh.mNumFaces * 3);
    for (unsigned f = 0; f < mesh.mNumFaces; ++f)
        indices.insert(indices.end(), mesh.mFaces[f].mIndices, mesh.mFaces[f].mIndices + 3);
    std::vector<meshopt_Stream> streams{{mesh.mVertices, 12, 12}};
    if (mesh.mNormals)
        streams.push_back({mesh.mNormals, 12, 12});
    std::vector<unsigned> remap(mesh.mNumVertices);
    const size_t count = meshopt_generateVertexRemapMulti(
        remap.data(), nullptr, mesh.mNumVertices, mesh.mNumVertices, streams.data(), streams.size());
    std::vector<std::vector<float>> arrays;
    for (const meshopt_Stream &stream : streams) {
        arrays.emplace_back(count * 3);
        meshopt_remapVertexBuffer(arrays.back().data(), stream.data, mesh.mNumVertices, 12, remap.data());
    }
    meshopt_remapIndexBuffer(indices.data(), indices.data(), indices.size(), remap.data());
    meshopt_optimizeVertexCache(indices.data(), indices.data(), indices.size(), count);
    std::vector<unsigned> order(count);
    meshopt_optimizeVertexFetchRemap(order.data(), indices.data(), indices.size(), count);
    meshopt_remapIndexBuffer(indices.data(), indices.data(), indices.size(), order.data());
    for (std::vector<float> &array : arrays)
        meshopt_remapVertexBuffer(array.data(), array.data(), count, 12, order.data());
}

Cost costOf(const std::function<void()> &task)
{
    Cost best{1e30, 1e30, 0};
    for (int round = 0; round < 3; ++round) {
        int ends[2];
        if (pipe(ends) != 0)
            std::exit(1);
        const pid_t child = fork();
        if (child == 0) {
            QElapsedTimer timer;
            timer.start();
            const std::clock_t start = std::clock();
            task();
            const double spent[] = {
                double(timer.nsecsElapsed()) * 1e-6, double(std::clock() - start) * 1e3 / double(CLOCKS_PER_SEC)};
            const bool isWritten = write(ends[1], spent, sizeof(spent)) == sizeof(spent);
            std::_Exit(isWritten ? 0 : 1);
        }
        double spent[2] = {};
        close(ends[1]);
        const bool isRead = read(ends[0], spent, sizeof(spent)) == sizeof(spent);
        close(ends[0]);
        int status = 0;
        rusage usage{};
        wait4(child, &status, 0, &usage);
        if (!isRead || status != 0) {
            std::fprintf(stderr, "a load failed\n");
            std::exit(1);
        }
        best.milliseconds = std::min(best.milliseconds, spent[0]);
        best.processorMilliseconds = std::min(best.processorMilliseconds, spent[1]);
        best.megabytes = double(usage.ru_maxrss) / 1024;
    }
    return best;
}

} // namespace Velmora::Kvz
