// SPDX-License-Identifier: MIT
#include "support/LogCapture.h"

#include <Core/Log.h>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

class LogTest : public ::testing::Test
{
protected:
    LogCapture log;

    /// The only message that the test logged.
    LogCapture::Message message() const
    {
        EXPECT_EQ(log.messages().size(), 1);
        return log.messages().value(0);
    }
};

} // namespace

TEST_F(LogTest, placesATextByBaseNameAndLine)
{
    logWarning("/some/folder.d/BlendRenderPass.cpp", 42, QStringLiteral("A text."));
    EXPECT_EQ(message().text, QStringLiteral("[BlendRenderPass:42] A text."));
}

TEST_F(LogTest, takesAFileWithoutFolderOrSuffix)
{
    logWarning("BlendRenderPass", 7, QStringLiteral("text"));
    EXPECT_EQ(message().text, QStringLiteral("[BlendRenderPass:7] text"));
}

TEST_F(LogTest, keepsPercentSignsAndForeignLettersOfATextAsTheyAre)
{
    const QString text = QStringLiteral("100 % of %1 and %s, ") + QString(QChar(0x00e4));
    logDebug("A.cpp", 1, text);
    EXPECT_EQ(message().text, QStringLiteral("[A:1] ") + text);
}

TEST_F(LogTest, hasALevelForEachFunction)
{
    logDebug("A.cpp", 1, QString());
    logWarning("A.cpp", 1, QString());
    logCritical("A.cpp", 1, QString());
    ASSERT_EQ(log.messages().size(), 3);
    EXPECT_EQ(log.messages()[0].type, QtDebugMsg);
    EXPECT_EQ(log.messages()[1].type, QtWarningMsg);
    EXPECT_EQ(log.messages()[2].type, QtCriticalMsg);
}

TEST_F(LogTest, aTextWithoutAPlaceIsLoggedAsItStands)
{
    const QString text = QStringLiteral("[Log] 100 % of %1 and %s, ") + QString(QChar(0x00e4)) + QLatin1Char(' ');
    logDebug(text);
    EXPECT_EQ(message().text, text);
    EXPECT_EQ(message().type, QtDebugMsg);
    EXPECT_EQ(message().category, QStringLiteral("default"));
    EXPECT_TRUE(message().file.isEmpty());
    EXPECT_EQ(message().line, 0);
}

TEST_F(LogTest, logsUnderTheDefaultCategoryWithoutAFile)
{
    KVZ_WARNING(QStringLiteral("text"));
    EXPECT_EQ(message().category, QStringLiteral("default"));
    EXPECT_TRUE(message().file.isEmpty());
    EXPECT_EQ(message().line, 0);
    EXPECT_TRUE(message().function.isEmpty());
}

TEST_F(LogTest, macrosGiveTheCallersFileAndLine)
{
    const int line = __LINE__ + 1;
    KVZ_DEBUG(QStringLiteral("a"));
    KVZ_WARNING(QStringLiteral("b"));
    KVZ_CRITICAL(QStringLiteral("c"));
    EXPECT_EQ(log.takeDebug(), QStringList{QStringLiteral("[LogTest:%1] a").arg(line)});
    EXPECT_EQ(log.takeWarnings(), QStringList{QStringLiteral("[LogTest:%1] b").arg(line + 1)});
    EXPECT_EQ(log.takeCriticals(), QStringList{QStringLiteral("[LogTest:%1] c").arg(line + 2)});
}

TEST_F(LogTest, aFailedAssertionIsLoggedAndTheCodeRunsOn)
{
    const int answer = 41;
    bool ranOn = false;
    const int line = __LINE__ + 1;
    KVZ_ASSERT(answer == 42, "the answer is %d in %s", answer, "this case");
    ranOn = true;
    EXPECT_TRUE(ranOn);
    EXPECT_EQ(message().type, QtCriticalMsg);
    EXPECT_EQ(message().text,
        QStringLiteral("[LogTest:%1] [ !! ] Assertion 'answer == 42' failed: the answer is 41 in this case").arg(line));
    EXPECT_EQ(message().category, QStringLiteral("default"));
}

TEST_F(LogTest, anAssertionThatHoldsIsSilent)
{
    KVZ_ASSERT(1 + 1 == 2, "%s", "no message");
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(LogTest, anAssertionIsOneStatement)
{
    bool other = false;
    if (log.messages().isEmpty())
        KVZ_ASSERT(true, "%s", "no message");
    else
        other = true;
    EXPECT_FALSE(other);
}

TEST_F(LogTest, anAssertionsConditionShowsEscapedPercentSignsPlain)
{
    logAssertion("A.cpp", 3, QStringLiteral("a \\% 2 == 0 && b \\% 3 == 0 && c % 5"), QStringLiteral("50 \\% of %1"));
    // The message is final text and is not unescaped.
    EXPECT_EQ(message().text,
        QStringLiteral("[A:3] [ !! ] Assertion 'a % 2 == 0 && b % 3 == 0 && c % 5' failed: 50 \\% of %1"));
}

TEST_F(LogTest, anAssertionsConditionMayHoldPlaceholders)
{
    logAssertion("A.cpp", 3, QStringLiteral("a %2 == %1"), QStringLiteral("b"));
    EXPECT_EQ(message().text, QStringLiteral("[A:3] [ !! ] Assertion 'a %2 == %1' failed: b"));
}

} // namespace Velmora::Kvz
