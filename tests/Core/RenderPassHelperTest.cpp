// SPDX-License-Identifier: MIT
#include "support/LogCapture.h"

#include <Core/RenderPassHelper.h>

#include <QtCore/QRect>
#include <QtCore/QThread>
#include <QtCore/QTimer>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

const QString numberName = QStringLiteral("Kvz_float_Number");
const QString objectName = QStringLiteral("Kvz_KvzTexture*_Object");

/// A pass with two inputs and two outputs that exposes its members.
class ProbePass : public RenderPassHelper
{
public:
    enum Input { Number, Object };
    enum Output { First, Second };

    ProbePass()
    {
        addInput(numberName, 2.0f);
        addInput(objectName, QVariant());
        addOutput(QStringLiteral("Kvz_int_First"));
        addOutput(QStringLiteral("Kvz_int_Second"));
    }

    QVariant value(int input) const { return m_inputs[input].value; }
    QVector<int> users() const { return m_numOutputUsers; }
    void setOutput(int index, const QVariant &value) { m_outputs[index].value = value; }
};

class RenderPassHelperTest : public ::testing::Test
{
protected:
    ProbePass pass;
};

QVariantList list(std::initializer_list<QVariant> values)
{
    return QVariantList(values);
}

} // namespace

TEST_F(RenderPassHelperTest, countsAndNamesPortsInTheOrderOfTheirDeclaration)
{
    EXPECT_EQ(pass.numInputs(), 2);
    EXPECT_EQ(pass.numOutputs(), 2);
    EXPECT_EQ(pass.inputName(0), numberName);
    EXPECT_EQ(pass.inputName(1), objectName);
    EXPECT_EQ(pass.outputName(0), QStringLiteral("Kvz_int_First"));
    EXPECT_EQ(pass.outputName(1), QStringLiteral("Kvz_int_Second"));
    pass.addInput(QStringLiteral("later"), 1);
    EXPECT_EQ(pass.numInputs(), 3);
    EXPECT_EQ(pass.inputName(2), QStringLiteral("later"));
}

TEST_F(RenderPassHelperTest, findsPortsByTheirExactName)
{
    EXPECT_EQ(pass.findInput(objectName), 1);
    EXPECT_EQ(pass.findOutput(QStringLiteral("Kvz_int_Second")), 1);
    EXPECT_EQ(pass.findInput(QStringLiteral("Kvz_Float_Number")), -1);
    EXPECT_EQ(pass.findInput(QStringLiteral("Kvz_KvzTexture_Object")), -1);
    EXPECT_EQ(pass.findInput(QString()), -1);
    EXPECT_EQ(pass.findInput(QStringLiteral("Kvz_int_First")), -1) << "an output is no input";
    EXPECT_EQ(pass.findOutput(numberName), -1);
    pass.addInput(objectName, QVariant());
    EXPECT_EQ(pass.findInput(objectName), 1) << "the first of two ports of one name";
}

TEST_F(RenderPassHelperTest, anInputStartsAsItsDefaultAndASetValueReplacesIt)
{
    EXPECT_EQ(pass.value(ProbePass::Number), QVariant(2.0f));
    EXPECT_FALSE(pass.value(ProbePass::Object).isValid());
    pass.setInput(ProbePass::Number, 5);
    EXPECT_EQ(pass.value(ProbePass::Number), QVariant(5));
    EXPECT_EQ(pass.defaultValue(ProbePass::Number), QVariant(2.0f));
}

TEST_F(RenderPassHelperTest, aNewDefaultLeavesTheValueAlone)
{
    pass.setDefaultValue(ProbePass::Number, 7.0f);
    EXPECT_EQ(pass.defaultValue(ProbePass::Number), QVariant(7.0f));
    EXPECT_EQ(pass.value(ProbePass::Number), QVariant(2.0f));
}

TEST_F(RenderPassHelperTest, ignoresIndicesOutOfRange)
{
    for (int index : {-1, 2, 1000}) {
        EXPECT_EQ(pass.inputName(index), QString());
        EXPECT_EQ(pass.outputName(index), QString());
        EXPECT_FALSE(pass.defaultValue(index).isValid());
        EXPECT_FALSE(pass.output(index).isValid());
        EXPECT_EQ(pass.getInputPointer<QTimer>(index), nullptr);
        pass.setInput(index, 1);
        pass.setDefaultValue(index, 1);
        pass.setNumOutputUsers(index, 1);
    }
    EXPECT_EQ(pass.numInputs(), 2);
    EXPECT_EQ(pass.value(ProbePass::Number), QVariant(2.0f));
    EXPECT_EQ(pass.defaultValue(ProbePass::Number), QVariant(2.0f));
    EXPECT_EQ(pass.users(), (QVector<int>{0, 0}));
}

TEST_F(RenderPassHelperTest, anOutputIsInvalidUntilItIsWritten)
{
    EXPECT_FALSE(pass.output(ProbePass::First).isValid());
    pass.setOutput(ProbePass::First, 3);
    EXPECT_EQ(pass.output(ProbePass::First), QVariant(3));
}

TEST_F(RenderPassHelperTest, keepsTheUserCountsOfItsOutputs)
{
    EXPECT_EQ(pass.users(), (QVector<int>{0, 0}));
    pass.setNumOutputUsers(ProbePass::Second, 3);
    EXPECT_EQ(pass.users(), (QVector<int>{0, 3}));
    pass.setNumOutputUsers(ProbePass::First, 1);
    pass.resetNumOutputUsers();
    EXPECT_EQ(pass.users(), (QVector<int>{0, 0}));
}

TEST_F(RenderPassHelperTest, keepsTheErrorCodeUntilItIsCleared)
{
    EXPECT_EQ(pass.errorCode(), 0u);
    pass.setErrorCode(unsigned(-1));
    EXPECT_EQ(pass.errorCode(), 4294967295u);
    pass.start(nullptr);
    EXPECT_EQ(pass.errorCode(), 4294967295u);
    pass.clearErrorCode();
    EXPECT_EQ(pass.errorCode(), 0u);
}

TEST_F(RenderPassHelperTest, runsItsWholeLifeWithoutCallbacks)
{
    LogCapture log;
    RenderPass &interface = pass;
    pass.setOutput(ProbePass::First, 3);
    interface.setup(nullptr);
    interface.beginFrame(nullptr);
    interface.start(nullptr);
    interface.endFrame(nullptr);
    EXPECT_TRUE(interface.isFinished());
    interface.teardown(nullptr);
    interface.teardownContextData(nullptr);
    EXPECT_EQ(interface.output(ProbePass::First), QVariant(3));
    EXPECT_EQ(interface.errorCode(), 0u);
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(RenderPassHelperTest, skipMakesTheOutputsInvalidAndKeepsTheInputs)
{
    pass.setOutput(ProbePass::First, 3);
    pass.setOutput(ProbePass::Second, 4);
    pass.setNumOutputUsers(ProbePass::First, 2);
    pass.skip(nullptr);
    EXPECT_FALSE(pass.output(ProbePass::First).isValid());
    EXPECT_FALSE(pass.output(ProbePass::Second).isValid());
    EXPECT_EQ(pass.value(ProbePass::Number), QVariant(2.0f));
    EXPECT_EQ(pass.users(), (QVector<int>{2, 0}));
}

TEST_F(RenderPassHelperTest, readsAPointerOfTheWantedClass)
{
    QTimer timer;
    pass.setInput(ProbePass::Object, QVariant::fromValue(&timer));
    EXPECT_EQ(pass.getInputPointer<QTimer>(ProbePass::Object), &timer);
}

TEST_F(RenderPassHelperTest, readsAPointerOfTheBaseClass)
{
    QTimer timer;
    pass.setInput(ProbePass::Object, QVariant::fromValue<QObject *>(&timer));
    EXPECT_EQ(pass.getInputPointer<QTimer>(ProbePass::Object), &timer);
}

TEST_F(RenderPassHelperTest, readsAPointerOfADerivedClass)
{
    QTimer timer;
    pass.setInput(ProbePass::Object, QVariant::fromValue(&timer));
    EXPECT_EQ(pass.getInputPointer<QObject>(ProbePass::Object), &timer);
}

TEST_F(RenderPassHelperTest, anObjectOfAnotherClassIsNull)
{
    QObject object;
    pass.setInput(ProbePass::Object, QVariant::fromValue<QObject *>(&object));
    EXPECT_EQ(pass.getInputPointer<QTimer>(ProbePass::Object), nullptr);
    QThread *const thread = QThread::currentThread();
    pass.setInput(ProbePass::Object, QVariant::fromValue(thread));
    EXPECT_EQ(pass.getInputPointer<QTimer>(ProbePass::Object), nullptr);
}

TEST_F(RenderPassHelperTest, aNullPointerAndAnythingThatIsNoPointerAreNull)
{
    for (const QVariant &value : {QVariant::fromValue<QTimer *>(nullptr), QVariant::fromValue<QObject *>(nullptr),
             QVariant(), QVariant(QVariant::String), QVariant::fromValue(nullptr), QVariant(12), QVariant(numberName),
             QVariant(QVariantList{1, 2}), QVariant::fromValue<void *>(&pass)}) {
        pass.setInput(ProbePass::Object, value);
        EXPECT_EQ(pass.getInputPointer<QTimer>(ProbePass::Object), nullptr) << value.typeName();
    }
}

TEST_F(RenderPassHelperTest, getVectorFromVariantRefusesNull)
{
    for (const QVariant &value : {QVariant(), QVariant(QVariant::Rect), QVariant(QRect())}) {
        QVector<QRect> rectangles{QRect(1, 2, 3, 4)};
        EXPECT_FALSE((RenderPassHelper::getVectorFromVariant<QRect, QVector>(value, rectangles))) << value.typeName();
        EXPECT_TRUE(rectangles.isEmpty());
    }
}

TEST_F(RenderPassHelperTest, getVectorFromVariantReadsOneValue)
{
    QVector<QRect> rectangles{QRect(1, 2, 3, 4), QRect()};
    EXPECT_TRUE((RenderPassHelper::getVectorFromVariant<QRect, QVector>(QRect(5, 6, 7, 8), rectangles)));
    EXPECT_EQ(rectangles, QVector<QRect>{QRect(5, 6, 7, 8)});
    EXPECT_TRUE((RenderPassHelper::getVectorFromVariant<QRect, QVector>(QRectF(1, 2, 3, 4), rectangles)));
    EXPECT_EQ(rectangles, QVector<QRect>{QRect(1, 2, 3, 4)}) << "converted";
}

TEST_F(RenderPassHelperTest, getVectorFromVariantReadsAListInItsOrder)
{
    QVector<QRect> rectangles{QRect(9, 9, 9, 9)};
    const QVariant value = list({QRect(0, 0, 1, 1), QRectF(2, 2, 3, 3), QRect(5, 5, 1, 1)});
    EXPECT_TRUE((RenderPassHelper::getVectorFromVariant<QRect, QVector>(value, rectangles)));
    EXPECT_EQ(rectangles, (QVector<QRect>{QRect(0, 0, 1, 1), QRect(2, 2, 3, 3), QRect(5, 5, 1, 1)}));
    EXPECT_TRUE((RenderPassHelper::getVectorFromVariant<QRect, QVector>(
        QVariant::fromValue(QVector<QRect>{QRect(1, 1, 1, 1), QRect(2, 2, 2, 2)}), rectangles)));
    EXPECT_EQ(rectangles, (QVector<QRect>{QRect(1, 1, 1, 1), QRect(2, 2, 2, 2)}));
}

TEST_F(RenderPassHelperTest, getVectorFromVariantReadsAnEmptyList)
{
    QVector<QRect> rectangles{QRect(9, 9, 9, 9)};
    EXPECT_TRUE((RenderPassHelper::getVectorFromVariant<QRect, QVector>(QVariantList(), rectangles)));
    EXPECT_TRUE(rectangles.isEmpty());
}

TEST_F(RenderPassHelperTest, getVectorFromVariantTakesADefaultForWhatDoesNotConvertAndLeavesOutWhatIsInvalid)
{
    QVector<QRect> rectangles;
    const QVariant value = list({QRect(1, 1, 1, 1), QVariant(), numberName, QRect(2, 2, 2, 2)});
    EXPECT_TRUE((RenderPassHelper::getVectorFromVariant<QRect, QVector>(value, rectangles)));
    ASSERT_EQ(rectangles, (QVector<QRect>{QRect(1, 1, 1, 1), QRect(), QRect(2, 2, 2, 2)}));
    EXPECT_EQ(rectangles[1].right(), -1);
    EXPECT_EQ(rectangles[1].bottom(), -1);
}

TEST_F(RenderPassHelperTest, getVectorFromVariantRefusesWhatIsNeitherValueNorList)
{
    QVector<QRect> rectangles{QRect(9, 9, 9, 9)};
    EXPECT_FALSE((RenderPassHelper::getVectorFromVariant<QRect, QVector>(12, rectangles)));
    EXPECT_TRUE(rectangles.isEmpty());
}

TEST_F(RenderPassHelperTest, getVectorFromVariantKeepsTheCapacity)
{
    QVector<QRect> rectangles;
    rectangles.reserve(100);
    EXPECT_FALSE((RenderPassHelper::getVectorFromVariant<QRect, QVector>(QVariant(), rectangles)));
    EXPECT_GE(rectangles.capacity(), 100);
}

} // namespace Velmora::Kvz
