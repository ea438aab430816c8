// SPDX-License-Identifier: MIT
#include <Import/ModelImporter.h>

#include "AssimpLoader.h"
#include "AssimpTypes.h"
#include "ObjText.h"
#include "SceneReader.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

namespace Velmora::Kvz {

bool importModel(const QString &file, ImportedScene *scene, QString *error)
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

    AssimpLoader loader(file);
    QString problem;
    const aiScene *source = loader.read(&problem);
    if (!source)
        return refuse(problem);
    problem = findProblem(source);
    QStringList libraryWarnings;
    if (problem.isEmpty() && loader.isObj() && content.seek(0)) {
        const ObjText text(&content);
        problem = text.problem();
        libraryWarnings = text.libraryWarnings(file, loader.missingFiles());
    }
    if (!problem.isEmpty())
        return refuse(problem);
    source = loader.process(&problem);
    if (!source)
        return refuse(problem);

    ImportedScene result = SceneReader(source, file).read();
    if (result.items.isEmpty())
        return refuse(noTriangles);
    for (const ImportedItem &item : result.items) {
        if (!isFinite(item.modelMatrix))
            return refuse(QStringLiteral("node \"%1\" has a matrix that is not finite").arg(item.name));
    }
    result.warnings = libraryWarnings + result.warnings;
    *scene = result;
    return true;
}

} // namespace Velmora::Kvz
