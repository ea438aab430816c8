// SPDX-License-Identifier: MIT
#pragma once

#include "ImageDecoder.h"

#include <Import/ImportedScene.h>

#include <QtCore/QByteArray>
#include <QtCore/QDir>
#include <QtCore/QHash>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

class ImportBudget;

/// Reads the images of a scene, each once, and says in the scene's warnings which could not be had.
class SceneImages
{
public:
    SceneImages(const QString &file, ImportBudget *budget, ImportedScene *scene);

    /// The number of the image at a path, which is looked for beside the model file as it is written, without percent escapes,
    /// then by its bare name, and then in these ways without regard to upper and lower case: files made on Windows have
    /// one or the other.
    int fromPath(const QString &path, ImportedImage::Use use, const QString &material);
    /// From now on a path stands for several: the first one counts that can be read.
    void setPlaces(const QHash<QString, QStringList> &places) { m_places = places; }
    /// The number of an image that the model file holds, `name` being its key.
    int fromBytes(const QString &name, const QByteArray &bytes, ImportedImage::Use use, const QString &material);
    int fromPixels(const QString &name, const QImage &pixels, ImportedImage::Use use);
    /// The number of an image that is not there, with a reason of the reader's own.
    int missing(const QString &name, const QString &reason, ImportedImage::Use use, const QString &material);
    /// What takes the place of the images that are read from now on and cannot be had, in words of warnings.
    void setStandIn(const QString &words) { m_standIn = words; }
    QString standIn() const { return m_standIn; }
    static QString white() { return QStringLiteral("white is used"); }
    static QString nothingEmitted() { return QStringLiteral("nothing is emitted"); }
    /// Says something of a texture in the scene's warnings.
    void warn(const QString &name, const QString &text, const QString &material);
    /// Null for -1 and for what could not be had.
    QImage at(int number) const { return number < 0 ? QImage() : m_scene->images.at(number).image; }

private:
    int known(const QString &name, ImportedImage::Use use);
    int add(const QString &name, const DecodedImage &decoded, ImportedImage::Use use, const QString &material);
    DecodedImage decodeFile(const QString &path);
    QString fileOf(const QString &path, QString *remark) const;

    QString m_file;
    QDir m_directory;
    ImportBudget *m_budget;
    ImportedScene *m_scene;
    QHash<QString, int> m_numbers; // by name
    QHash<QString, QStringList> m_places;
    QString m_standIn = white();
};

} // namespace Velmora::Kvz
