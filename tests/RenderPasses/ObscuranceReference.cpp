// SPDX-License-Identifier: MIT
#include "ObscuranceReference.h"

#include <QtCore/QVector>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Velmora::Kvz {

namespace {

constexpr double farthest = -50;
constexpr double near0 = 1e-3; // Within this distance of a border a tap may read either texel.

bool isInside(const Image &image, int x, int y)
{
    return x >= 0 && y >= 0 && x < image.width && y < image.height;
}

Vector3d texel(const Image &image, int x, int y)
{
    const float *value = image.at(x, y);
    return {double(value[0]), double(value[1]), double(value[2])};
}

/// The integers to which single precision may truncate a number.
QVector<int> cut(double value)
{
    const int low = int(value - near0);
    const int high = int(value + near0);
    return low == high ? QVector<int>{low} : QVector<int>{low, high};
}

QVector<int> floored(double value)
{
    const int low = int(std::floor(value - near0));
    const int high = int(std::floor(value + near0));
    return low == high ? QVector<int>{low} : QVector<int>{low, high};
}

} // namespace

double ObscuranceReference::depthAt(int x, int y, int level) const
{
    const Image &image = level == 0 ? depth : coarserDepths.at(level - 1);
    // Reads outside are undefined in GL; here they give 0.
    return isInside(image, x, y) ? double(*image.at(x, y)) : 0;
}

Vector3d ObscuranceReference::reconstruct(double x, double y, double z) const
{
    const double n = double(nearPlane);
    const double f = double(farPlane);
    const double distance = n * f / ((n - f) * z + f);
    const auto p = [this](int column, int row) { return double(projection(row, column)); };
    const double w = size.width();
    const double h = size.height();
    return {-(x * (-2 / (w * p(0, 0))) + (1 - p(2, 0)) / p(0, 0)) * distance,
        -(y * (-2 / (h * p(1, 1))) + (1 + p(2, 1)) / p(1, 1)) * distance, -distance};
}

Vector3d ObscuranceReference::fetch(const Image &image, double x, double y) const
{
    return isInside(image, int(x), int(y)) ? texel(image, int(x), int(y)) : Vector3d{};
}

Vector3d ObscuranceReference::sample(const Image &image, double u, double v, bool linear) const
{
    const double x = u * image.width - (linear ? 0.5 : 0);
    const double y = v * image.height - (linear ? 0.5 : 0);
    const int column = int(std::floor(x));
    const int row = int(std::floor(y));
    const auto at = [&](int dx, int dy) {
        return texel(image, std::clamp(column + dx, 0, image.width - 1), std::clamp(row + dy, 0, image.height - 1));
    };
    if (!linear)
        return at(0, 0);
    const double s = x - column;
    const double t = y - row;
    return (at(0, 0) * (1 - s) + at(1, 0) * s) * (1 - t) + (at(0, 1) * (1 - s) + at(1, 1) * s) * t;
}

ObscuranceReference::Point ObscuranceReference::pointAt(int x, int y) const
{
    const double u = (x + 0.5) / size.width();
    const double v = (y + 0.5) / size.height();
    Point point{};
    switch (positionsFrom) {
    case Positions::FromDepth:
        point.isDiscarded = depthAt(x, y) == 1;
        point.place = reconstruct(x + 0.5, y + 0.5, depthAt(x, y));
        break;
    case Positions::Sampled:
        point.place = sample(positions, u, v, isLinear);
        break;
    case Positions::Fetched:
        point.place = fetch(positions, u * viewport.width(), v * viewport.height());
        break;
    }
    point.isDiscarded |= point.place[2] < farthest;
    return point;
}

/// False where derivatives are undefined.
bool ObscuranceReference::normalAt(int x, int y, Vector3d *normal) const
{
    const double u = (x + 0.5) / size.width();
    const double v = (y + 0.5) / size.height();
    switch (normalsFrom) {
    case Normals::FromPositions: {
        // The pixel's quad of 2 by 2; on this driver each row and column has its own derivative.
        if ((x | 1) >= size.width() || (y | 1) >= size.height())
            return false;
        for (int i = 0; i < 4; ++i) {
            if (pointAt((x & ~1) + i % 2, (y & ~1) + i / 2).isDiscarded)
                return false;
        }
        const Vector3d dx = pointAt(x | 1, y).place - pointAt(x & ~1, y).place;
        const Vector3d dy = pointAt(x, y | 1).place - pointAt(x, y & ~1).place;
        *normal = normalized(cross(dy, dx)) * -1;
        return true;
    }
    case Normals::World:
    case Normals::WorldFetched: {
        const Vector3d world = normalsFrom == Normals::World
            ? sample(normals, u, v, false)
            : fetch(normals, u * viewport.width(), v * viewport.height());
        QMatrix4x4 turn = camera;
        for (int i = 0; i < 3; ++i)
            turn(i, 3) = turn(3, i) = 0;
        *normal = xyz(DoubleMatrix(turn).inverted().transposed() * withW(world, 0));
        return true;
    }
    case Normals::Camera:
        *normal = normalized(sample(normals, u, v, false));
        if ((*normal)[2] < 0)
            *normal = *normal * -1;
        return true;
    }
    return false;
}

ObscuranceReference::Answer ObscuranceReference::at(int x, int y) const
{
    const Point centre = pointAt(x, y);
    Answer answer;
    if (centre.isDiscarded)
        return answer;
    Vector3d normal{};
    if (!normalAt(x, y, &normal)) {
        answer.isDefined = false;
        return answer;
    }
    const Vector3d &c = centre.place;
    const double diskRadius = -0.5 * size.height() * double(projection(1, 1)) * double(radius) / c[2];
    // The angle in single precision, as the shader computes it.
    const float spin = (3.0f * float(x ^ y) + float(x * y)) * 10.0f;
    const float share = 1.0f / float(taps);
    double lowSum = 0, highSum = 0;
    bool mayDiscard = false;
    for (int i = 0; i < taps; ++i) {
        const float alpha = (float(i) + 0.5f) * share;
        const float angle = alpha * (float(turns) * 6.28f) + spin;
        const double slack = 2 * double(std::nextafter(angle, 1e30f) - angle) + 2e-5;
        const double r = double(alpha) * diskRadius;
        QVector<int> levels{0};
        if (!coarserDepths.isEmpty()) {
            levels = floored(std::log2(r / size.width()));
            for (int &level : levels)
                level = std::clamp(level - logMaxOffset, 0, 5);
            EXPECT_LE(*std::max_element(levels.begin(), levels.end()), coarserDepths.size())
                << "a level that is not there";
            for (int &level : levels)
                level = std::min(level, coarserDepths.size());
        }
        double low = 1e30, high = -1e30;
        bool discards = false, stays = false;
        const auto take = [&](const Vector3d &q) {
            const Vector3d v = q - c;
            const double vv = dot(v, v);
            const double vn = dot(v, normal);
            const double r2 = double(radius) * double(radius);
            const double value = 4 * std::max(1 - vv / r2, 0.0) * std::max(vn - double(bias), 0.0);
            low = std::min(low, value);
            high = std::max(high, value);
            stays = true;
        };
        for (double turned : {double(angle) - slack, double(angle), double(angle) + slack}) {
            const double dx = r * std::cos(turned);
            const double dy = r * std::sin(turned);
            if (positionsFrom == Positions::FromDepth) {
                for (int column : cut(x + dx)) {
                    for (int row : cut(y + dy)) {
                        for (int level : qAsConst(levels)) {
                            const double d = depthAt(column, row, level);
                            if (d == 1)
                                discards = true;
                            else
                                take(reconstruct(x + dx + 0.5, y + dy + 0.5, d));
                        }
                    }
                }
                continue;
            }
            const double u = (x + 0.5 + dx) / size.width();
            const double v = (y + 0.5 + dy) / size.height();
            if (positionsFrom == Positions::Fetched) {
                for (int column : cut(u * viewport.width())) {
                    for (int row : cut(v * viewport.height()))
                        take(fetch(positions, column + (column < 0 ? 0 : 0.5), row + (row < 0 ? 0 : 0.5)));
                }
            } else if (isLinear) {
                take(sample(positions, u, v, true));
            } else {
                for (int column : floored(u * positions.width)) {
                    for (int row : floored(v * positions.height))
                        take(
                            sample(positions, (column + 0.5) / positions.width, (row + 0.5) / positions.height, false));
                }
            }
        }
        // A tap where nothing was drawn discards the fragment.
        if (discards && !stays)
            return Answer();
        mayDiscard |= discards;
        lowSum += low;
        highSum += high;
    }
    const auto obscurance = [this](double sum) {
        return std::clamp(1 - sum * double(intensity) * (5.0 / taps), 0.0, 1.0);
    };
    answer.low = obscurance(highSum);
    answer.high = mayDiscard ? 1 : obscurance(lowSum);
    return answer;
}

ObscuranceScene::ObscuranceScene(const QSize &size, const QMatrix4x4 &projection)
    : depth(size.width(), size.height(), 1),
      positions(size.width(), size.height()),
      normals(size.width(), size.height())
{
    const DoubleMatrix forward(projection);
    const DoubleMatrix inverse = forward.inverted();
    const auto pointOn = [&](double x, double y, double z) {
        const Vector4d p = inverse * Vector4d{x, y, z, 1};
        return xyz(p) * (1 / p[3]);
    };
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const double deviceX = 2 * (x + 0.5) / size.width() - 1;
            const double deviceY = 2 * (y + 0.5) / size.height() - 1;
            const Vector3d origin = pointOn(deviceX, deviceY, -1);
            const Vector3d ray = pointOn(deviceX, deviceY, 1) - origin;
            double nearest = 1; // Along the ray; 1 is the far plane.
            Vector3d normal{0, 0, 1};
            const auto meet = [&](double t, const Vector3d &facing) {
                if (t > 0 && t < nearest) {
                    nearest = t;
                    normal = facing;
                }
            };
            meet((-1.2 - origin[1]) / ray[1], {0, 1, 0});
            meet((-1.7 - origin[0]) / ray[0], {1, 0, 0});
            const double wall = (-7.5 - origin[2]) / ray[2];
            if ((origin + ray * wall)[0] < 1)
                meet(wall, {0, 0, 1});
            const Vector3d centre{0.4, -0.55, -4.5};
            const double ball = 0.6;
            const Vector3d away = origin - centre;
            const double a = dot(ray, ray), b = dot(away, ray), c = dot(away, away) - ball * ball;
            if (b * b - a * c > 0) {
                const double t = (-b - std::sqrt(b * b - a * c)) / a;
                meet(t, normalized(origin + ray * t - centre));
            }

            const Vector3d point = origin + ray * nearest;
            const Vector4d clip = forward * withW(point, 1);
            *depth.at(x, y) = nearest < 1 ? float((clip[2] / clip[3] + 1) / 2) : 1.0f;
            positions.setPixel(x, y, QVector4D(float(point[0]), float(point[1]), float(point[2]), 1));
            normals.setPixel(x, y, QVector4D(float(normal[0]), float(normal[1]), float(normal[2]), 0));
        }
    }
}

Image ObscuranceScene::worldNormals(const QMatrix4x4 &camera) const
{
    Image world = normals;
    const QMatrix4x4 turn = camera.inverted();
    for (int y = 0; y < world.height; ++y) {
        for (int x = 0; x < world.width; ++x)
            world.setPixel(x, y, QVector4D(turn.mapVector(normals.pixel(x, y).toVector3D()), 0));
    }
    return world;
}

ObscuranceCoverage compareWithFormula(const Image &image, const ObscuranceReference &reference)
{
    ObscuranceCoverage coverage;
    EXPECT_EQ(QSize(image.width, image.height), reference.size);
    if (QSize(image.width, image.height) != reference.size)
        return coverage;
    const double tolerance = 1.0 / 255;
    double error = 0;
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const QVector4D pixel = image.pixel(x, y);
            EXPECT_EQ(pixel, QVector4D(pixel.x(), pixel.x(), pixel.x(), 1)) << x << ' ' << y;
            const ObscuranceReference::Answer answer = reference.at(x, y);
            if (!answer.isDefined) {
                ++coverage.undefined;
                continue;
            }
            ++coverage.compared;
            const double value = double(pixel.x());
            const double off = std::max(answer.low - value, value - answer.high);
            error = std::max(error, off);
            EXPECT_LE(off, tolerance) << x << ' ' << y << ": " << value << " for " << answer.low << " to "
                                      << answer.high;
            coverage.vague += answer.high - answer.low > 4.0 / 255 ? 1 : 0;
            coverage.white += answer.low == 1 ? 1 : 0;
            coverage.black += answer.high == 0 ? 1 : 0;
            if (::testing::Test::HasFailure())
                return coverage;
        }
    }
    std::printf("[ COMPARED ] %d pixels (%d white, %d black, %d vague, %d undefined), largest excess %.2f steps\n",
        coverage.compared, coverage.white, coverage.black, coverage.vague, coverage.undefined, error * 255);
    return coverage;
}

void expectTelling(const ObscuranceCoverage &coverage)
{
    const int pixels = coverage.compared + coverage.undefined;
    EXPECT_LT(coverage.undefined, pixels / 20);
    EXPECT_LT(coverage.vague, pixels / 10);
    EXPECT_GT(coverage.white, pixels / 10);
    EXPECT_GT(coverage.compared - coverage.white - coverage.black, pixels / 25) << "shades of grey";
}

} // namespace Velmora::Kvz
