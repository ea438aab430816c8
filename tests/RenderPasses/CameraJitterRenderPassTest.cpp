// SPDX-License-Identifier: MIT
// No test here has an OpenGL context: the pass computes matrices and nothing else.
#include "support/Cameras.h"
#include "support/DoubleMatrix.h"
#include "support/LogCapture.h"

#include <RenderPasses/CameraJitterRenderPass.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>

namespace Velmora::Kvz {

namespace {

using Port = CameraJitterPass;

/// The generator behind drand48(), from its published constants.
class Random48
{
public:
    /// The state that seed48() sets, lowest 16 bits first.
    explicit Random48(quint64 state)
        : m_state(state)
    { }
    double next()
    {
        m_state = (0x5DEECE66DULL * m_state + 0xB) & 0xFFFFFFFFFFFFULL;
        return double(m_state) / double(1ULL << 48);
    }

private:
    quint64 m_state;
};

void seedDefault()
{
    unsigned short state[3] = {0, 0, 0}; // The state of a generator that was never seeded.
    seed48(state);
}

class CameraJitterPassTest : public ::testing::Test
{
protected:
    CameraJitterPassTest()
    {
        pass.setInput(Port::Viewport, QRect(7, 3, 640, 480));
        pass.setInput(Port::ProjectionMatrix, perspective(QSize(640, 480), 0.5f, 30));
        pass.setInput(Port::CameraMatrix, lookAt(QVector3D(1, 2, 4), QVector3D()));
        pass.setInput(Port::ResetTemporal, false);
    }
    ~CameraJitterPassTest() override { EXPECT_TRUE(log.messages().isEmpty()); }

    void setMode(int mode) { pass.setInput(Port::Mode, mode); }
    int index() const { return pass.output(Port::JitterIndex).toInt(); }
    QMatrix4x4 projection() const { return pass.output(Port::ProjectionMatrixOut).value<QMatrix4x4>(); }
    QVector2D amount() const { return pass.output(Port::JitterAmount).value<QVector2D>(); }
    /// The offset of a frame in pixels of the 640 by 480 viewport.
    QVector2D frame()
    {
        pass.start(nullptr);
        return {amount().x() * 320, amount().y() * 240};
    }

    LogCapture log;
    CameraJitterPass pass;
};

} // namespace

TEST_F(CameraJitterPassTest, numbersItsModes)
{
    EXPECT_EQ(int(JitterOff), 0);
    EXPECT_EQ(int(JitterRandom), 1);
    EXPECT_EQ(int(JitterAntiDiagonal), 2);
    EXPECT_EQ(int(JitterDiagonal), 3);
}

TEST_F(CameraJitterPassTest, startsAtIndexZeroAndAlternates)
{
    for (int mode = 0; mode < 4; ++mode) {
        CameraJitterPass fresh;
        fresh.setInput(Port::Viewport, QRect(0, 0, 10, 10));
        fresh.setInput(Port::Mode, mode);
        for (int i = 0; i < 7; ++i) {
            fresh.start(nullptr);
            EXPECT_EQ(fresh.output(Port::JitterIndex), QVariant(i % 2)) << mode;
        }
    }
}

TEST_F(CameraJitterPassTest, givesTheSequencesOfTheFixedModes)
{
    setMode(JitterAntiDiagonal);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(frame(), i % 2 == 0 ? QVector2D(0.25f, -0.25f) : QVector2D(-0.25f, 0.25f));
    setMode(JitterDiagonal);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(frame(), i % 2 == 0 ? QVector2D(0.75f, 0.75f) : QVector2D(0.25f, 0.25f));
    setMode(JitterOff);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(frame(), QVector2D(0, 0));
}

TEST_F(CameraJitterPassTest, fixedSequencesGoOnThroughResets)
{
    setMode(JitterDiagonal);
    pass.setInput(Port::ResetTemporal, true);
    for (int i = 0; i < 5; ++i) {
        QMatrix4x4 moved;
        moved.translate(float(i), 0, 0);
        pass.setInput(Port::CameraMatrix, moved);
        EXPECT_EQ(frame(), i % 2 == 0 ? QVector2D(0.75f, 0.75f) : QVector2D(0.25f, 0.25f));
    }
}

TEST_F(CameraJitterPassTest, drawsYBeforeXForTheRandomMode)
{
    setMode(JitterRandom);
    seedDefault();
    Random48 random(0);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(frame(), QVector2D(0, 0)) << i;
    float widest = 0;
    // Far more than 34 frames: the jitter never stops.
    for (int i = 0; i < 500; ++i) {
        const double first = random.next();
        const double second = random.next();
        const QVector2D pixels(float(second - 0.5), float(first - 0.5));
        pass.start(nullptr);
        EXPECT_EQ(amount(), QVector2D(2.0f * pixels.x() / 640.0f, 2.0f * pixels.y() / 480.0f)) << i;
        widest = std::max(widest, pixels.length());
    }
    EXPECT_GT(widest, 0.5f);
}

TEST_F(CameraJitterPassTest, getJitterCountsItsStillFrames)
{
    seedDefault();
    Random48 random(0);
    pass.start(nullptr); // A reset, in the mode that does not count its frames.
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(pass.getJitter(JitterRandom), QVector2D(0, 0));
    const double first = random.next();
    const double second = random.next();
    EXPECT_EQ(pass.getJitter(JitterRandom), QVector2D(float(second - 0.5), float(first - 0.5)));
    EXPECT_EQ(pass.getJitter(JitterAntiDiagonal), QVector2D(0.25f, -0.25f));
    pass.start(nullptr);
    EXPECT_EQ(pass.getJitter(JitterAntiDiagonal), QVector2D(-0.25f, 0.25f));
    EXPECT_EQ(pass.getJitter(JitterDiagonal), QVector2D(0.25f, 0.25f));
    EXPECT_EQ(pass.getJitter(JitterOff), QVector2D(0, 0));
    // Before the first frame the index selects neither diagonal.
    CameraJitterPass fresh;
    EXPECT_EQ(fresh.getJitter(JitterDiagonal), QVector2D(0.25f, 0.25f));
}

TEST_F(CameraJitterPassTest, restsWhileResetsAreLeftOn)
{
    CameraJitterPass fresh; // As constructed, resets are on.
    fresh.setInput(Port::Viewport, QRect(0, 0, 640, 480));
    fresh.setInput(Port::Mode, int(JitterRandom));
    for (int i = 0; i < 50; ++i) {
        fresh.start(nullptr);
        EXPECT_EQ(fresh.output(Port::JitterAmount).value<QVector2D>(), QVector2D(0, 0));
    }
}

TEST_F(CameraJitterPassTest, anyChangeRestartsTheStillFrames)
{
    setMode(JitterRandom);
    srand48(4);
    // The number of frames after a change that have no jitter.
    const auto stillFrames = [this] {
        int still = 0;
        while (still < 10 && frame() == QVector2D(0, 0))
            ++still;
        return still;
    };
    EXPECT_EQ(stillFrames(), 4) << "the first frame is a reset, as the size was 0 by 0";
    EXPECT_EQ(stillFrames(), 0) << "nothing changed";

    for (const int port : {int(Port::CameraMatrix), int(Port::ProjectionMatrix)}) {
        for (int element = 0; element < 16; ++element) {
            auto matrix = lookAt(QVector3D(1, 2, 4), QVector3D());
            pass.setInput(port, matrix);
            frame();
            stillFrames();
            matrix.data()[element] = std::nextafter(matrix.constData()[element], 100.0f);
            pass.setInput(port, matrix);
            EXPECT_EQ(stillFrames(), 4) << port << ' ' << element;
        }
    }
    for (const QRect &viewport : {QRect(7, 3, 641, 480), QRect(7, 3, 641, 479)}) {
        pass.setInput(Port::Viewport, viewport);
        EXPECT_EQ(stillFrames(), 4);
    }
    pass.setInput(Port::Viewport, QRect(0, 90, 641, 479));
    EXPECT_EQ(stillFrames(), 0) << "where the viewport lies does not count";
    pass.setInput(Port::ResetTemporal, true);
    EXPECT_EQ(stillFrames(), 10);
    pass.setInput(Port::ResetTemporal, QVariant());
    EXPECT_EQ(stillFrames(), 3) << "the last reset frame was still already; null is false";
}

TEST_F(CameraJitterPassTest, theFirstFrameOfAnySizeIsAReset)
{
    // Matrices are the identity from the start, so only the size differs.
    for (const QVariant &viewport : {QVariant(QRect(0, 0, 640, 480)), QVariant()}) {
        CameraJitterPass fresh;
        fresh.setInput(Port::ResetTemporal, false);
        fresh.setInput(Port::Mode, int(JitterRandom));
        fresh.setInput(Port::Viewport, viewport);
        srand48(4);
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(fresh.getJitter(JitterRandom), QVector2D(0, 0)) << "the still frames, used up";
        fresh.start(nullptr);
        const auto shift = fresh.output(Port::JitterAmount).value<QVector2D>();
        if (viewport.isValid()) {
            EXPECT_EQ(shift, QVector2D(0, 0)) << "still again";
        } else {
            // A still frame would give 0 / 0, which is NaN.
            EXPECT_TRUE(std::isinf(shift.x()) && std::isinf(shift.y())) << "no reset: 0 by 0 is the size before";
        }
    }
}

TEST_F(CameraJitterPassTest, comparesWithTheLatestReset)
{
    setMode(JitterRandom);
    QMatrix4x4 matrix;
    pass.setInput(Port::CameraMatrix, matrix);
    for (int i = 0; i < 5; ++i)
        frame();
    EXPECT_NE(frame(), QVector2D(0, 0));
    // The pass compares its inputs, never its own jittered output.
    matrix(0, 3) = -0.0f;
    pass.setInput(Port::CameraMatrix, matrix);
    EXPECT_NE(frame(), QVector2D(0, 0)) << "-0 equals 0";
    matrix(2, 1) = std::numeric_limits<float>::quiet_NaN();
    pass.setInput(Port::CameraMatrix, matrix);
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(frame(), QVector2D(0, 0)) << "NaN always is a change";
}

TEST_F(CameraJitterPassTest, movesTheImageByPixelsAtAnyDepth)
{
    const QSize size(640, 480);
    const QMatrix4x4 unjittered = perspective(size, 0.5f, 30);
    setMode(JitterDiagonal);
    pass.start(nullptr);
    EXPECT_EQ(amount(), QVector2D(2.0f * 0.75f / 640.0f, 2.0f * 0.75f / 480.0f));

    // The output is exactly the product, element by element.
    for (int column = 0; column < 4; ++column) {
        const QVector4D in = unjittered.column(column);
        const QVector4D out = projection().column(column);
        EXPECT_EQ(out.x(), in.x() + amount().x() * in.w()) << column;
        EXPECT_EQ(out.y(), in.y() + amount().y() * in.w()) << column;
        EXPECT_EQ(out.z(), in.z());
        EXPECT_EQ(out.w(), in.w());
    }
    for (const QVector3D &point : {QVector3D(0.3f, -0.2f, -0.6f), QVector3D(-4, 3, -11), QVector3D(9, 2, -29)}) {
        const QVector3D moved = projection().map(point) - unjittered.map(point);
        EXPECT_NEAR(moved.x() * 320, 0.75f, 1e-4);
        EXPECT_NEAR(moved.y() * 240, 0.75f, 1e-4);
        EXPECT_NEAR(moved.z(), 0, 1e-7);
    }
}

TEST_F(CameraJitterPassTest, handsTheProjectionOnUnmovedWhenOff)
{
    const QMatrix4x4 unjittered = perspective(QSize(640, 480), 0.5f, 30);
    for (int i = 0; i < 3; ++i) {
        pass.start(nullptr);
        for (int element = 0; element < 16; ++element)
            EXPECT_EQ(projection().constData()[element], unjittered.constData()[element]);
    }
}

TEST_F(CameraJitterPassTest, readsUnsetMatricesAsTheIdentity)
{
    CameraJitterPass fresh;
    fresh.setInput(Port::Viewport, QRect(0, 0, 8, 4));
    fresh.setInput(Port::Mode, int(JitterAntiDiagonal));
    fresh.start(nullptr);
    QMatrix4x4 expected;
    expected(0, 3) = 2.0f * 0.25f / 8;
    expected(1, 3) = 2.0f * -0.25f / 4;
    EXPECT_EQ(fresh.output(0).value<QMatrix4x4>(), expected);
}

TEST_F(CameraJitterPassTest, reportsAnUnknownModeInEveryFrame)
{
    for (const int mode : {4, 17, -1}) {
        setMode(mode);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(frame(), QVector2D(0, 0));
            const QStringList messages = log.takeCriticals();
            ASSERT_EQ(messages.size(), 1);
            const QString text = QStringLiteral("] [ !! ] Assertion 'false' failed: CameraJitterPass: the returned "
                                                "jitter for mode %1 will probably be incorrect")
                                     .arg(mode);
            EXPECT_TRUE(messages[0].startsWith(QStringLiteral("[CameraJitterRenderPass:"))) << qPrintable(messages[0]);
            EXPECT_TRUE(messages[0].endsWith(text)) << qPrintable(messages[0]);
        }
    }
    EXPECT_EQ(pass.errorCode(), 0u);
    setMode(3);
    frame();
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(CameraJitterPassTest, divisionByAnEmptyViewportRunsAllTheSame)
{
    pass.setInput(Port::Viewport, QVariant());
    setMode(JitterDiagonal);
    pass.start(nullptr);
    EXPECT_TRUE(std::isinf(amount().x()) && std::isinf(amount().y()));
    EXPECT_EQ(index(), 0);
    setMode(JitterOff);
    pass.start(nullptr);
    EXPECT_TRUE(std::isnan(amount().x()) && std::isnan(amount().y()));
}

TEST_F(CameraJitterPassTest, aSkippedFrameAdvancesNothing)
{
    setMode(JitterRandom);
    srand48(1);
    pass.start(nullptr);
    EXPECT_EQ(index(), 0);
    for (int i = 0; i < 9; ++i) {
        pass.skip(nullptr);
        for (int output = 0; output < 3; ++output)
            EXPECT_FALSE(pass.output(output).isValid());
    }
    for (int i = 1; i < 4; ++i) {
        EXPECT_EQ(frame(), QVector2D(0, 0)) << i;
        EXPECT_EQ(index(), i % 2);
    }
    EXPECT_NE(frame(), QVector2D(0, 0));
}

} // namespace Velmora::Kvz
