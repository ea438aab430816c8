// SPDX-License-Identifier: MIT
#pragma once

#include "PictureList.h"
#include "RenderTarget.h"

#include <Chain/RenderChain.h>
#include <Chain/TiledPicture.h>
#include <Host/LightFile.h>
#include <Host/PictureFile.h>

#include <QtCore/QBuffer>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

/// The file of a picture, which takes it tile by tile: in rows from the top, each from left to right. Rows of tiles go to disk when they are
/// whole. Functions return the reason why they cannot, in one line, or nothing.
class PictureOutput
{
public:
    /// `endsInLight`: the chain gives light, not display values. Both must live as long as this.
    PictureOutput(const Picture &picture, const RenderOptions &options, bool endsInLight);
    ~PictureOutput();

    /// What the target holds of a tile, and the texels of the frame's images, of which those of the tile's size become layers.
    QString add(const PictureTile &tile, RenderTarget &target, QVector<RenderChain::Capture> images);
    /// Makes the file.
    QString finish();

    /// Whether each row of the picture has one colour.
    bool isPlain() const { return m_isPlain; }
    /// Whether no value of it needs more than 8 bits. Of pictures that are read as floats.
    bool holdsBytesAlone() const { return m_holdsBytesAlone; }
    /// What converting, compressing and writing the rows of tiles took so far.
    double writingMilliseconds() const { return m_writingMilliseconds; }
    /// The images that are not in the file: of other kinds or sizes.
    const QStringList &missingLayers() const { return m_missingLayers; }

private:
    QString addBytes(const PictureTile &tile, RenderTarget &target);
    QString addColours(const PictureTile &tile, RenderTarget &target);
    void chooseLayers(const PictureTile &tile, const QVector<RenderChain::Capture> &images);
    void addLayers(const PictureTile &tile, const QVector<RenderChain::Capture> &images);
    void noteLateLayers(const QVector<RenderChain::Capture> &images);
    QString flush(int rows);
    QString flushLight(int rows);
    bool openPicture(QString *error);
    QString named(const QString &reason) const;

    const Picture &m_picture;
    const RenderOptions &m_options;
    bool m_endsInLight;
    std::unique_ptr<PictureFile> m_file;
    std::unique_ptr<LightFile> m_light;
    QBuffer m_buffer; ///< Of a picture for standard output.

    // A row of tiles.
    QImage m_bytes;
    std::vector<float> m_colours;
    std::vector<std::vector<quint32>> m_layerWords;

    QVector<LightLayer> m_layers; ///< Of the file, but for the picture itself.
    QVector<QPair<QString, QString>> m_sources; ///< Pass and port of each.
    QStringList m_missingLayers;
    bool m_hasChosenLayers = false;
    double m_writingMilliseconds = 0;
    bool m_isPlain = true;
    bool m_holdsBytesAlone = true;
};

} // namespace Velmora::Kvz
