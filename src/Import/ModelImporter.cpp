// SPDX-License-Identifier: MIT
#include <Import/ModelImporter.h>

#include "AssimpLoader.h"
#include "AssimpTypes.h"
#include "ImportBudget.h"
#include "ObjText.h"
#include "SceneReader.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <limits>
#include <optional>

namespace Velmora::Kvz {

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
    ImportBudget budget(options.limits, info.size());
    QString problem = content.seek(0) ? exaggeratedHeader(content.read(65536), info.size()) : content.errorString();
    if (!problem.isEmpty())
        return refuse(problem);
    if (!budget.takeBytes(info.size()))
        return refuse(budget.problem());

    std::optional<ObjText> objText;
    if (info.suffix().compare(QLatin1String("obj"), Qt::CaseInsensitive) == 0) {
        if (info.size() > std::numeric_limits<int>::max())
            return refuse(QStringLiteral("OBJ files of 2 GiB and more are not read"));
        const uchar *bytes = content.map(0, info.size());
        if (!bytes && info.size() > 0)
            return refuse(content.errorString());
        objText.emplace(QByteArray::fromRawData(reinterpret_cast<const char *>(bytes), int(info.size())));
    }
    AssimpLoader loader(file, objText ? objText->plainText() : QByteArray(), &budget);
    const aiScene *source = loader.read(&problem);
    if (!source)
        return refuse(problem);
    problem = findProblem(source);
    if (problem.isEmpty() && objText)
        problem = objText->problem();
    if (!problem.isEmpty())
        return refuse(problem);
    source = loader.process(&problem);
    if (!source)
        return refuse(problem);

    ImportedScene result = SceneReader(source, file, &budget).read();
    if (!budget.problem().isEmpty())
        return refuse(budget.problem());
    if (result.items.isEmpty())
        return refuse(noTriangles);
    for (const ImportedItem &item : result.items) {
        if (!isFinite(item.modelMatrix))
            return refuse(QStringLiteral("node \"%1\" has a matrix that is not finite").arg(item.name));
    }
    if (objText)
        result.warnings = objText->libraryWarnings(file, loader.missingFiles()) + result.warnings;
    *scene = result;
    return true;
}

} // namespace Velmora::Kvz
