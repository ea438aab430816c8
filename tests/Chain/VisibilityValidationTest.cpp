// SPDX-License-Identifier: MIT
#include <Chain/ChainValidation.h>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

using Code = ChainFinding::Code;

ChainPass pass(const char *name, const char *className)
{
    ChainPass made;
    made.name = QString::fromLatin1(name);
    made.className = QString::fromLatin1(className);
    return made;
}

QVector<ChainFinding> findingsOf(const QVector<ChainPass> &passes)
{
    ChainDescription chain;
    chain.passes = passes;
    return validateChain(chain);
}

const char nodes[] = "Kvz_KvzTexture*_NodeBuffer";

} // namespace

TEST(VisibilityValidationTest, theThreePassesInOrderAreSound)
{
    EXPECT_TRUE(findingsOf({pass("lists", "VisibilityBufferRenderPass"), pass("sort", "VisibilitySortRenderPass"),
                               pass("layers", "VisibilityDeferredRenderPass")})
                    .isEmpty());
}

TEST(VisibilityValidationTest, shadingUnsortedListsIsAWarning)
{
    const QVector<ChainPass> plain = {
        pass("lists", "VisibilityBufferRenderPass"), pass("layers", "VisibilityDeferredRenderPass")};
    const QVector<ChainFinding> findings = findingsOf(plain);
    ASSERT_EQ(findings.size(), 1);
    EXPECT_EQ(findings[0].toString(),
        QStringLiteral("warning: pass \"layers\", Kvz_KvzTexture*_NodeBuffer: expected sorted lists, found lists in "
                       "drawing order; put a VisibilitySortRenderPass before it"));

    // The same with another pass in between, and with a sort that is not on the path.
    ChainPass visible = pass("visible", "VisibilityOcclusionRenderPass");
    visible.values.insert(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    bool isFound = false;
    for (const ChainFinding &finding : findingsOf({plain[0], visible, plain[1]}))
        isFound = isFound || finding.port == QString::fromLatin1(nodes);
    EXPECT_TRUE(isFound);
    ChainPass around = plain[1];
    around.connections.insert(
        QString::fromLatin1(nodes), ChainSource::output(QStringLiteral("lists"), QString::fromLatin1(nodes)));
    const QVector<ChainFinding> beside = findingsOf({plain[0], pass("sort", "VisibilitySortRenderPass"), around});
    ASSERT_EQ(beside.size(), 2);
    EXPECT_EQ(beside[0].code, Code::SharedDrawTarget) << "the sort changes what the other reads";
    EXPECT_EQ(beside[1].code, Code::UnusableConfiguration);
}

TEST(VisibilityValidationTest, bothKindsOfPassesAreTakenForEachOther)
{
    ChainPass depth = pass("geometry", "SurfaceRenderPass");
    for (const char *const sort : {"FragmentSortRenderPass", "VisibilitySortRenderPass"}) {
        EXPECT_TRUE(findingsOf(
            {depth, pass("lists", "FragmentListRenderPass"), pass("sort", sort), pass("layers", "LitListRenderPass")})
                        .isEmpty());
        EXPECT_TRUE(findingsOf(
            {pass("lists", "VisibilityBufferRenderPass"), pass("sort", sort), pass("layers", "LitListRenderPass")})
                        .isEmpty());
    }
    const QVector<ChainFinding> unsorted =
        findingsOf({depth, pass("lists", "FragmentListRenderPass"), pass("layers", "LitListRenderPass")});
    ASSERT_EQ(unsorted.size(), 1);
    EXPECT_TRUE(unsorted[0].toString().contains(QStringLiteral("expected sorted lists")));
    const QVector<ChainFinding> deep = findingsOf({pass("lists", "FragmentListRenderPass")});
    ASSERT_EQ(deep.size(), 1);
    EXPECT_EQ(deep[0].toString(),
        QStringLiteral(
            "warning: pass \"lists\", Kvz_KvzTexture*_Depth: expected the depth of the opaque surfaces, "
            "found none: layers behind them are recorded; put a SurfaceRenderPass with opaqueOnly before it"));
    EXPECT_EQ(findingsOf({pass("sort", "FragmentSortRenderPass")}).size(), 1);
}

TEST(VisibilityValidationTest, aConsumerBeforeItsProducerIsFound)
{
    // By name it finds no producer before it.
    QVector<ChainFinding> findings =
        findingsOf({pass("layers", "VisibilityDeferredRenderPass"), pass("lists", "VisibilityBufferRenderPass")});
    ASSERT_EQ(findings.size(), 2);
    for (const ChainFinding &finding : findings) {
        EXPECT_EQ(finding.code, Code::MissingInput);
        EXPECT_TRUE(finding.remedy.contains(QStringLiteral("VisibilityBufferRenderPass")));
    }
    findings = findingsOf({pass("sort", "VisibilitySortRenderPass"), pass("lists", "VisibilityBufferRenderPass")});
    ASSERT_EQ(findings.size(), 1);
    EXPECT_EQ(findings[0].code, Code::UnusableConfiguration);
    // An explicit connection reports the order.
    ChainPass sort = pass("sort", "VisibilitySortRenderPass");
    sort.connections.insert(
        QString::fromLatin1(nodes), ChainSource::output(QStringLiteral("lists"), QString::fromLatin1(nodes)));
    findings = findingsOf({sort, pass("lists", "VisibilityBufferRenderPass")});
    ASSERT_FALSE(findings.isEmpty());
    EXPECT_EQ(findings[0].code, Code::OrderViolation);
}

TEST(VisibilityValidationTest, flagsAreNumbersWithinTheirMask)
{
    const auto with = [](const QVariant &value, const QVariant &mask) {
        ChainPass lists = pass("lists", "VisibilityBufferRenderPass");
        lists.options.insert(QStringLiteral("drawFlagsValue"), value);
        lists.options.insert(QStringLiteral("drawFlagsMask"), mask);
        return findingsOf({lists});
    };
    EXPECT_TRUE(with(QStringLiteral("0x8000000000000001"), QStringLiteral("0x8000000000000001")).isEmpty());
    EXPECT_TRUE(with(QStringLiteral("1"), QStringLiteral("3")).isEmpty());
    QVector<ChainFinding> findings = with(QStringLiteral("glass"), QStringLiteral("1"));
    ASSERT_EQ(findings.size(), 1);
    EXPECT_EQ(findings[0].toString(),
        QStringLiteral("error: pass \"lists\", drawFlagsValue: expected a number of 64 bits as text, such as \"0x1\", "
                       "found \"glass\""));
    findings = with(QStringLiteral("0x10000000000000000"), QStringLiteral("1"));
    ASSERT_EQ(findings.size(), 1);
    findings = with(QStringLiteral("2"), QStringLiteral("1"));
    ASSERT_EQ(findings.size(), 1);
    EXPECT_EQ(findings[0].toString(),
        QStringLiteral("error: pass \"lists\", drawFlagsValue: expected no bit outside of drawFlagsMask, found \"2\"; "
                       "set its bits in drawFlagsMask too"));
}

TEST(VisibilityValidationTest, listsAreNoFramesAndNoDepth)
{
    // By name no pass takes the image of layers as a frame, or the port that is never written as a depth.
    QVector<ChainFinding> findings =
        findingsOf({pass("lists", "VisibilityBufferRenderPass"), pass("sort", "VisibilitySortRenderPass"),
            pass("layers", "VisibilityDeferredRenderPass"), pass("visible", "VisibilityOcclusionRenderPass")});
    ASSERT_EQ(findings.size(), 1);
    EXPECT_EQ(findings[0].port, QStringLiteral("Kvz_KvzTexture*_Depth"));
}

} // namespace Velmora::Kvz
