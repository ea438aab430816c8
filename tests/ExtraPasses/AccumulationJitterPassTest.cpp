// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/GLTest.h"

#include <ExtraPasses/AccumulationJitterPass.h>

#include <QtCore/QRect>
#include <QtGui/QVector2D>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

using Port = AccumulationJitterPass;

const QSize size(40, 30);

class AccumulationJitterPassTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        pass.setInput(Port::Viewport, QRect(QPoint(), size));
        pass.setInput(Port::ProjectionMatrix, perspective(size, 0.5f, 40));
    }
    /// The next frame's shift in pixels.
    QVector2D next()
    {
        pass.start(nullptr);
        const auto amount = pass.output(Port::JitterAmount).value<QVector2D>();
        return {amount.x() * float(size.width()) / 2, amount.y() * float(size.height()) / 2};
    }
    int index() const { return pass.output(Port::JitterIndex).toInt(); }

    AccumulationJitterPass pass;
};

} // namespace

TEST_F(AccumulationJitterPassTest, beginsAtTheCentreAndCoversThePixelEvenly)
{
    for (const int frames : {4, 9, 16, 32, 64}) {
        pass.setInput(Port::AccumulatedFrames, frames);
        pass.setInput(Port::Restart, true);
        QVector<QVector2D> places;
        for (int i = 0; i < frames; ++i) {
            places.append(next());
            EXPECT_EQ(index(), i);
            pass.setInput(Port::Restart, false);
        }
        EXPECT_EQ(places[0], QVector2D(0, 0));
        QVector2D sum;
        double nearest = 1;
        for (int i = 0; i < frames; ++i) {
            EXPECT_LE(std::abs(places[i].x()), 0.5001f);
            EXPECT_LE(std::abs(places[i].y()), 0.5001f);
            sum += places[i];
            for (int j = 0; j < i; ++j) {
                // The pixel's neighbours have the same samples, so distances wrap.
                const auto apart = [](float a, float b) {
                    const double way = std::abs(double(a) - double(b));
                    return std::min(way, 1 - way);
                };
                nearest = std::min(
                    nearest, std::hypot(apart(places[i].x(), places[j].x()), apart(places[i].y(), places[j].y())));
            }
        }
        // A square grid of N points has a distance of 1 / sqrt(N).
        EXPECT_GT(nearest, 0.5 / std::sqrt(frames)) << frames;
        EXPECT_LT(double(sum.length()) / frames, 0.45 / std::sqrt(frames)) << "the picture hardly moves";
        EXPECT_EQ(next(), QVector2D(0, 0)) << "the sequence repeats";
    }
}

TEST_F(AccumulationJitterPassTest, shiftsTheProjection)
{
    next();
    const QVector2D pixels = next();
    EXPECT_GT(pixels.length(), 0.1f);
    const auto shifted = pass.output(Port::ProjectionMatrixOut).value<QMatrix4x4>();
    const QMatrix4x4 expected =
        movedByPixels(perspective(size, 0.5f, 40), size, double(pixels.x()), double(pixels.y()));
    for (int i = 0; i < 16; ++i)
        EXPECT_NEAR(shifted.constData()[i], expected.constData()[i], 1e-6);
}

TEST_F(AccumulationJitterPassTest, beginsAnewWhenTheViewChanges)
{
    const auto runTwo = [this] {
        next();
        next();
        EXPECT_EQ(index(), 1);
    };
    runTwo();
    pass.setInput(Port::CameraMatrix, lookAt(QVector3D(0, 0, 5), QVector3D()));
    next();
    EXPECT_EQ(index(), 0);
    pass.setInput(Port::ProjectionMatrix, perspective(size, 1, 40));
    runTwo();
    pass.setInput(Port::Viewport, QRect(0, 0, 41, 30));
    runTwo();
    pass.setInput(Port::Restart, true);
    next();
    EXPECT_EQ(index(), 0);
    next();
    EXPECT_EQ(index(), 0);
}

TEST_F(AccumulationJitterPassTest, anEmptyViewportShiftsNothing)
{
    pass.setInput(Port::Viewport, QVariant());
    pass.setInput(Port::AccumulatedFrames, -3);
    for (int i = 0; i < 3; ++i) {
        pass.start(nullptr);
        EXPECT_EQ(pass.output(Port::JitterAmount).value<QVector2D>(), QVector2D());
        EXPECT_EQ(pass.output(Port::ProjectionMatrixOut).value<QMatrix4x4>(), perspective(size, 0.5f, 40));
    }
}

} // namespace Velmora::Kvz
