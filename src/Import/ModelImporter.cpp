// SPDX-License-Identifier: MIT
#include <Import/ModelImporter.h>

#include "AmfReader.h"
#include "AssimpLoader.h"
#include "AssimpTypes.h"
#include "GltfFile.h"
#include "GltfReader.h"
#include "ImportBudget.h"
#include "ModelText.h"
#include "PlainMesh.h"
#include "SceneReader.h"
#include "ThreeMfReader.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QLocale>

#include <algorithm>
#include <limits>

namespace Velmora::Kvz {

namespace {

const QString noTriangles = QStringLiteral("no triangles");

/// The number of points and lines of a scene in words; empty where it has none.
QString notDrawn(const ImportedScene &scene)
{
    qint64 points = 0;
    qint64 lines = 0;
    for (const ImportedPrimitives &set : scene.pointSets)
        points += set.indices.size();
    for (const ImportedPrimitives &set : scene.lineSets)
        lines += set.indices.size() / 2;
    const auto words = [](qint64 count, const QString &one) {
        return QLocale(QLocale::English).toString(count) + QLatin1Char(' ') + one
            + (count == 1 ? QString() : QStringLiteral("s"));
    };
    QStringList parts;
    if (points > 0)
        parts.append(words(points, QStringLiteral("point")));
    if (lines > 0)
        parts.append(words(lines, QStringLiteral("line")));
    if (parts.isEmpty())
        return {};
    return parts.join(QStringLiteral(" and ")) + (points + lines == 1 ? QStringLiteral(" is") : QStringLiteral(" are"))
        + QStringLiteral(" not drawn: triangles alone are");
}

/// Whether a matrix leaves no area of anything: it maps space onto a point or a line.
bool leavesNoArea(const QMatrix4x4 &matrix)
{
    const QVector3D x = matrix.column(0).toVector3D();
    const QVector3D y = matrix.column(1).toVector3D();
    const QVector3D z = matrix.column(2).toVector3D();
    const float longest = std::max({x.length(), y.length(), z.length()});
    if (!(longest > 0))
        return true;
    const auto area = [longest](const QVector3D &a, const QVector3D &b) {
        return QVector3D::crossProduct(a / longest, b / longest).length();
    };
    return std::max({area(x, y), area(y, z), area(z, x)}) < 1e-6f;
}

/// The largest alpha of an image, 0 to 1; 1 for a null image.
float largestAlpha(const QImage &image)
{
    if (image.isNull() || !image.hasAlphaChannel())
        return 1;
    int largest = 0;
    for (int y = 0; y < image.height() && largest < 255; ++y) {
        const QImage row = image.copy(0, y, image.width(), 1).convertToFormat(QImage::Format_ARGB32);
        const QRgb *const line = reinterpret_cast<const QRgb *>(row.constScanLine(0));
        for (int x = 0; x < row.width(); ++x)
            largest = std::max(largest, qAlpha(line[x]));
    }
    return float(largest) / 255;
}

/// The largest opacity of an item's surface before its material is blended or cut by it.
float largestOpacity(const ImportedMaterial &material, const ImportedMesh &mesh)
{
    const float factor = material.alphaMode == MaterialData::Mask ? material.baseColour.w() : material.d;
    if (!(factor > 0))
        return 0;
    float ofColours = mesh.colours.isEmpty() ? 1 : 0;
    for (const QVector4D &colour : mesh.colours)
        ofColours = std::max(ofColours, colour.w());
    return factor * ofColours * largestAlpha(material.mapKd);
}

/// Why nothing of a scene can be seen; empty where something can, or where it has no items.
QString reasonForNothing(const ImportedScene &scene)
{
    constexpr float leastOpacity = 0.5f / 255;
    QStringList reasons;
    for (const ImportedItem &item : scene.items) {
        const ImportedMaterial &material = scene.materials[item.material];
        if (leavesNoArea(item.modelMatrix)) {
            reasons.append(QStringLiteral("nodes scale it to nothing"));
            continue;
        }
        if (material.alphaMode == MaterialData::Opaque)
            return {};
        const float opacity = largestOpacity(material, scene.meshes[item.mesh]);
        const bool isMask = material.alphaMode == MaterialData::Mask;
        if (opacity >= (isMask ? material.alphaCutoff : leastOpacity))
            return {};
        reasons.append(isMask ? QStringLiteral("materials cut all of it away by their mask")
                              : QStringLiteral("materials are wholly transparent"));
    }
    reasons.removeDuplicates();
    return reasons.join(QStringLiteral(", "));
}

/// A line for each texture that a mesh has no coordinates for.
QStringList missingSets(const ImportedScene &scene)
{
    QStringList lines;
    for (const ImportedItem &item : scene.items) {
        const ImportedMaterial &material = scene.materials[item.material];
        const ImportedMesh &mesh = scene.meshes[item.mesh];
        for (const ImportedTexture &texture :
            {material.baseColourTexture, material.specularTexture, material.emissionTexture}) {
            if (texture.image < 0 || texture.uvSet == 0 || !mesh.texCoords1.isEmpty())
                continue;
            const QString name =
                mesh.name.isEmpty() ? QStringLiteral("a mesh") : QStringLiteral("mesh \"%1\"").arg(mesh.name);
            lines.append(QStringLiteral("material \"%1\": texture \"%2\" is laid out by a second set of texture "
                                        "coordinates, which %3 does not have")
                             .arg(material.name, scene.images[texture.image].name, name));
        }
    }
    lines.removeDuplicates();
    return lines;
}

bool readWithAssimp(
    QFile *content, const ImportOptions &options, ImportBudget *budget, ImportedScene *scene, QString *problem)
{
    const QString file = content->fileName();
    ModelText text(content);
    if (text.isRefused()) {
        *problem = text.problem();
        return false;
    }
    AssimpLoader loader(file, &text, budget);
    const aiScene *source = loader.read(problem);
    if (!source) {
        if (!text.problem().isEmpty() && budget->problem().isEmpty())
            *problem = text.problem();
        return false;
    }
    *problem = findProblem(source);
    if (problem->isEmpty())
        *problem = text.problem();
    if (!problem->isEmpty())
        return false;
    text.complete(const_cast<aiScene *>(source)); // which the loader owns, and has finished with
    source = loader.process(problem);
    if (!source)
        return false;
    SceneReader reader(source, loader.format(), file, options, budget);
    reader.setImagePlaces(text.imagePlaces());
    if (!reader.read(scene, problem))
        return false;
    if (scene->items.isEmpty() && options.needsTriangles && !text.emptyReason().isEmpty()) {
        *problem = QStringLiteral("%1; %2").arg(noTriangles, text.emptyReason());
        return false;
    }
    scene->format = loader.formatName();
    scene->warnings = text.warnings(loader.missingFiles()) + scene->warnings;
    return true;
}

bool readContent(
    QFile *content, const ImportOptions &options, ImportBudget *budget, ImportedScene *scene, QString *problem)
{
    const QFileInfo info(content->fileName());
    const bool mayBeGltf = content->seek(0)
        && (content->peek(4) == "glTF" || info.suffix().compare(QLatin1String("gltf"), Qt::CaseInsensitive) == 0);
    if (mayBeGltf && info.size() < std::numeric_limits<int>::max()) {
        const uchar *mapped = content->map(0, info.size());
        const QByteArray bytes = mapped
            ? QByteArray::fromRawData(reinterpret_cast<const char *>(mapped), int(info.size()))
            : content->readAll();
        if (GltfFile::isGltf2(info.suffix(), bytes)) {
            GltfFile document;
            return document.load(content->fileName(), bytes, budget, problem)
                && GltfReader(&document, content->fileName(), options, budget).read(scene, problem);
        }
    }
    if (info.suffix().compare(QLatin1String("amf"), Qt::CaseInsensitive) == 0 && info.size() > 0)
        return readAmf(content, options, budget, scene, problem);
    if (info.suffix().compare(QLatin1String("3mf"), Qt::CaseInsensitive) == 0 && info.size() > 0)
        return read3mf(content, options, budget, scene, problem);
    return readPlainMesh(content, options, budget, scene) || readWithAssimp(content, options, budget, scene, problem);
}

} // namespace

bool importModel(const QString &file, ImportedScene *scene, QString *error)
{
    return importModel(file, ImportOptions(), scene, error);
}

bool importModel(const QString &file, const ImportOptions &options, ImportedScene *scene, QString *error)
{
    const auto refuse = [&](const QString &reason) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(file, reason);
        return false;
    };
    const QFileInfo info(file);
    if (info.isDir())
        return refuse(QStringLiteral("is a directory, not a model file"));
    if (!info.exists())
        return refuse(QStringLiteral("no such file"));
    QFile content(file);
    if (!content.open(QIODevice::ReadOnly))
        return refuse(content.errorString());
    if (isCutPly(&content))
        return refuse(QStringLiteral("damaged or truncated: its header has no end"));
    ImportBudget budget(options, info.size());
    QString problem = content.seek(0) ? exaggeratedHeader(content.read(65536), info.size()) : content.errorString();
    if (!problem.isEmpty())
        return refuse(problem);
    if (!budget.takeBytes(info.size()))
        return refuse(budget.problem());

    ImportedScene result;
    const bool isRead = readContent(&content, options, &budget, &result, &problem);
    if (!budget.problem().isEmpty())
        return refuse(budget.problem());
    if (!isRead)
        return refuse(problem);
    if (!options.variant.isEmpty() && !result.variants.contains(options.variant)) {
        return refuse(result.variants.isEmpty()
                ? QStringLiteral("has no variants, so none is called \"%1\"").arg(options.variant)
                : QStringLiteral("has no variant \"%1\"; it has \"%2\"")
                      .arg(options.variant, result.variants.join(QStringLiteral("\", \""))));
    }
    const QString primitives = notDrawn(result);
    if (result.items.isEmpty() && options.needsTriangles)
        return refuse(primitives.isEmpty() ? noTriangles : QStringLiteral("%1; %2").arg(noTriangles, primitives));
    for (const ImportedItem &item : qAsConst(result.items)) {
        if (!isFinite(item.modelMatrix))
            return refuse(QStringLiteral("node \"%1\" has a matrix that is not finite").arg(item.name));
    }
    for (const QString &line : missingSets(result))
        result.warnings.append(QStringLiteral("%1: %2").arg(file, line));
    const QString nothing = reasonForNothing(result);
    if (!nothing.isEmpty())
        result.warnings.append(QStringLiteral("%1: nothing of it can be seen: its %2").arg(file, nothing));
    if (!primitives.isEmpty())
        result.warnings.append(QStringLiteral("%1: %2").arg(file, primitives));
    if (!(options.scaleInto >= 0) || (options.scaleInto > 0 && !scaleInto(&result, options.scaleInto)))
        return refuse(QStringLiteral("cannot be scaled to a length of %1").arg(double(options.scaleInto)));
    *scene = result;
    return true;
}

} // namespace Velmora::Kvz
