// SPDX-License-Identifier: MIT
#include <Chain/TiledPicture.h>

#include <Chain/RenderChain.h>
#include <Chain/ResolvedChain.h>
#include <Chain/ResolvedPasses.h>

#include <QtGui/QVector2D>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace Velmora::Kvz {

namespace {

constexpr int leastSide = 16;
const QString viewportPort = QStringLiteral("Kvz_QRect_Viewport");
const QString projectionPort = QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix");
const QString originPort = QStringLiteral("Kvz_Vector2D_PatternOrigin");

/// Calls `visit(pass, reach)` for each enabled pass of a known class.
template <typename Visitor> void forEachReach(const ResolvedPasses &passes, Visitor visit)
{
    for (int i = 0; i < passes.size(); ++i) {
        const ResolvedPass &pass = passes[i];
        if (pass.enabled && pass.info)
            visit(i, pass.info->reach ? pass.info->reach(ResolvedUse(passes, i)) : PassReach());
    }
}

/// Whether a pass has a size of its own.
bool hasOwnSize(const ResolvedPass &pass)
{
    const int input = pass.info->findInput(viewportPort);
    if (input < 0)
        return false;
    const auto source = pass.inputs[size_t(input)].source;
    return source != ResolvedInput::Source::FrameValue && source != ResolvedInput::Source::Default;
}

/// Pixels of the whole that a length covers at the nearest place that a camera sees.
double nearestExtent(const Camera &camera, const QSize &size, double length)
{
    const QMatrix4x4 &p = camera.projectionMatrix;
    const double scale = std::max(double(p(0, 0)) * size.width(), double(p(1, 1)) * size.height());
    const double w = double(p(3, 3)) - double(p(3, 2)) * double(camera.nearPlane);
    return w > 0 ? 0.5 * length * scale / w : 0;
}

int roundedDown(int value, int grid)
{
    return value - value % grid;
}

} // namespace

TiledPicture::TiledPicture(const ResolvedChain &chain, const QSize &size)
    : m_chain(chain),
      m_size(size)
{ }

QString TiledPicture::problem() const
{
    QString problem;
    const ResolvedPasses &passes = m_chain.passes();
    forEachReach(passes, [&](int number, const PassReach &reach) {
        if (!problem.isEmpty())
            return;
        const QString obstacle =
            hasOwnSize(passes[number]) ? QStringLiteral("it has a size of its own") : reach.obstacle;
        const ChainPass &pass = passes.chain().passes[number];
        if (!obstacle.isEmpty())
            problem = QStringLiteral("the pass %1 (%2) cannot draw a part of a picture: %3")
                          .arg(pass.name, pass.className, obstacle);
    });
    return problem;
}

int TiledPicture::margin(const QVector<Camera> &cameras, float sceneSide) const
{
    double pixels = 0;
    forEachReach(m_chain.passes(), [&](int, const PassReach &reach) {
        double extent = 0;
        for (const Camera &camera : cameras)
            extent = std::max(extent, nearestExtent(camera, m_size, reach.sceneShare * double(sceneSide)));
        pixels += reach.pixels + std::ceil(extent);
    });
    // More than the picture would say nothing, and might not fit a number.
    return int(std::min(pixels, double(std::max(m_size.width(), m_size.height()))));
}

int TiledPicture::grid() const
{
    int grid = 2; // Shaders take derivatives over squares of two by two.
    forEachReach(
        m_chain.passes(), [&](int, const PassReach &reach) { grid = std::lcm(grid, std::max(reach.grid, 1)); });
    return grid;
}

QVector<PictureTile> TiledPicture::tiles(int side, const QVector<Camera> &cameras, float sceneSide) const
{
    const int around = margin(cameras, sceneSide);
    const int step = grid();
    const int tileSide = std::max(leastSide, side);
    const QRect whole(QPoint(0, 0), m_size);
    QVector<PictureTile> tiles;
    for (int bottom = (m_size.height() - 1) / tileSide * tileSide; bottom >= 0; bottom -= tileSide) {
        for (int left = 0; left < m_size.width(); left += tileSide) {
            PictureTile tile;
            tile.shown = QRect(left, bottom, tileSide, tileSide) & whole;
            tile.drawn = tile.shown.adjusted(-around, -around, around, around) & whole;
            tile.drawn.setLeft(roundedDown(tile.drawn.left(), step));
            tile.drawn.setTop(roundedDown(tile.drawn.top(), step));
            tiles.append(tile);
        }
    }
    return tiles;
}

void TiledPicture::begin(RenderChain *chain, const PictureTile &tile) const
{
    chain->forgetPast();
    chain->setViewport(QRect(QPoint(0, 0), tile.drawn.size()));
    chain->setFrameValue(originPort, QVector2D(float(tile.drawn.left()), float(tile.drawn.top())));
    const QRectF part(double(tile.drawn.left()) / m_size.width(), double(tile.drawn.top()) / m_size.height(),
        double(tile.drawn.width()) / m_size.width(), double(tile.drawn.height()) / m_size.height());
    const ResolvedPasses &passes = m_chain.passes();
    for (int i = 0; i < passes.size(); ++i) {
        if (!passes[i].enabled || !passes[i].info || !passes[i].info->valuesOfPart)
            continue;
        const QVariantMap values = passes[i].info->valuesOfPart(ResolvedUse(passes, i), part);
        for (auto value = values.begin(); value != values.end(); ++value)
            chain->setValue(passes.chain().passes[i].name, value.key(), value.value());
    }
}

void TiledPicture::setWholeCamera(RenderChain *chain, const Camera &whole) const
{
    const ResolvedPasses &passes = m_chain.passes();
    for (int i = 0; i < passes.size(); ++i) {
        const ResolvedPass &pass = passes[i];
        // What rests looks at a camera for its frustum alone, as shadow maps do, and makes what is its own.
        if (!pass.enabled || !pass.traits.testFlag(PassTrait::RestsUnchanged)
            || pass.info->findInput(projectionPort) < 0)
            continue;
        const QString &name = passes.chain().passes[i].name;
        if (passes[i].inputs[size_t(pass.info->findInput(projectionPort))].isExplicit)
            chain->disconnect(name, projectionPort);
        chain->setValue(name, projectionPort, whole.projectionMatrix);
    }
}

Camera TiledPicture::cameraOf(const Camera &whole, const PictureTile &tile) const
{
    Camera part = whole;
    const auto cut = [&](int row, int begin, int length, int of) {
        const double scale = double(of) / length;
        const double shift = double(of - 2 * begin - length) / length;
        for (int column = 0; column < 4; ++column) {
            const double value =
                scale * double(whole.projectionMatrix(row, column)) + shift * double(whole.projectionMatrix(3, column));
            part.projectionMatrix(row, column) = float(value);
        }
    };
    cut(0, tile.drawn.left(), tile.drawn.width(), m_size.width());
    cut(1, tile.drawn.top(), tile.drawn.height(), m_size.height());
    return part;
}

} // namespace Velmora::Kvz
