// SPDX-License-Identifier: MIT
#pragma once

#include "BlendFaces.h"
#include "DaeText.h"
#include "MtlText.h"
#include "ObjText.h"
#include "OffText.h"
#include "PlyBody.h"
#include "ThreeDsFaces.h"
#include "X3dText.h"

#include <optional>

class QFile;
struct aiScene;

namespace Velmora::Kvz {

/// The text of a model file, of the formats where assimp keeps something to itself or reads legal text wrongly.
class ModelText
{
public:
    /// Looks through a file of one of these formats; of others it takes text of UTF-16 alone. The file stays mapped.
    explicit ModelText(QFile *file);

    /// Whether no loader should see the file; the problem says why.
    bool isRefused() const { return !m_problem.isEmpty() || (m_x3d && !m_x3d->problem().isEmpty()); }
    /// What is wrong with the file, in one line; empty when nothing is.
    QString problem() const;
    /// The text as assimp reads it rightly. Null where the file is already so.
    QByteArray plainText() const;
    /// Whether plainCompanion() mends the files that the model names.
    bool hasCompanions() const { return m_obj.has_value(); }
    /// The text of a file that the model names by this name, as assimp reads it rightly.
    QByteArray plainCompanion(const QByteArray &text, const QString &name);
    /// Adds to what assimp read, before it is triangulated, what it left out.
    void complete(aiScene *scene);
    /// Why there may be nothing in the scene of a file that is no worse than others; empty where nothing is known.
    QString emptyReason() const;
    /// Paths of images that stand for several places each.
    QHash<QString, QStringList> imagePlaces() const;
    /// What there is to say, a line each, given the files that could not be opened.
    QStringList warnings(const QStringList &missingFiles) const;

private:
    void readPly(const char *begin, qint64 size);
    void readIrrlicht(const QString &text);
    void readOther(QFile *file, const QString &suffix);

    QString m_file;
    QString m_problem;
    QString m_emptyReason;
    PlyHeader m_ply;
    bool m_hasUnreadColours = false; // of PLY
    QByteArray m_text; // of another format, or of PLY
    std::optional<ObjText> m_obj;
    MtlText m_libraries;
    std::optional<OffText> m_off;
    std::optional<X3dText> m_x3d;
    std::optional<DaeText> m_dae;
    std::optional<ThreeDsFaces> m_3ds;
    std::optional<BlendFaces> m_blend;
};

} // namespace Velmora::Kvz
