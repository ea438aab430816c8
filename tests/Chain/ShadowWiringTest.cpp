// SPDX-License-Identifier: MIT
// How chains with shadow passes are wired and what they are warned of. Nothing here constructs a pass.
#include <Chain/ChainValidation.h>
#include <Chain/FrameValues.h>
#include <Chain/RenderChain.h>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

const QString projection = FrameValues::projectionMatrix;

class ShadowWiringTest : public ::testing::TestWithParam<const char *>
{
protected:
    QString shadowClass() const { return QString::fromUtf8(GetParam()); }
};

/// Passes named after their classes.
ChainDescription chainOf(const QStringList &classNames)
{
    ChainDescription chain;
    for (const QString &className : classNames) {
        ChainPass pass;
        pass.name = pass.className = className;
        if (className == QLatin1String("CullingRenderPass"))
            pass.values.insert(QStringLiteral("Kvz_bool_FrustumCullingEnabledIn"), true);
        if (className == QLatin1String("CameraJitterPass"))
            pass.values.insert(QStringLiteral("Kvz_int_JitterMode"), 2);
        chain.passes.append(pass);
    }
    return chain;
}

QStringList linesOf(const ChainDescription &chain)
{
    QStringList lines;
    for (const ChainFinding &finding : validateChain(chain))
        lines.append(finding.toString());
    return lines;
}

} // namespace

TEST_P(ShadowWiringTest, aChainOfItIsSoundWithoutAContext)
{
    EXPECT_EQ(linesOf(chainOf({shadowClass()})), QStringList());
}

TEST_P(ShadowWiringTest, theProjectionIsTheFramesEvenAfterAPassThatJittersIt)
{
    ChainDescription description = chainOf({QStringLiteral("CameraJitterPass"), shadowClass()});
    RenderChain chain;
    ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    chain.setCamera(QMatrix4x4(), QMatrix4x4());
    const RenderChain::InputSource source = chain.inputSource(shadowClass(), projection);
    EXPECT_EQ(source.kind, RenderChain::InputSource::Kind::FrameValue);
    EXPECT_EQ(source.port, projection);

    // A pass connected to the jittered projection gets it, with a warning.
    description.passes[1].connections.insert(
        projection, ChainSource::output(QStringLiteral("CameraJitterPass"), projection));
    const QStringList warnings =
        linesOf(description).filter(QStringLiteral("pass \"%1\", %2").arg(shadowClass(), projection));
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings[0].contains(QStringLiteral("expected the camera without jitter"))) << qPrintable(warnings[0]);
}

TEST_P(ShadowWiringTest, cullingThatItUndoesIsAFinding)
{
    const QString culling = QStringLiteral("CullingRenderPass");
    EXPECT_EQ(linesOf(chainOf({culling, shadowClass()})),
        QStringList{
            QStringLiteral("warning: pass \"CullingRenderPass\": expected culling after the passes that reset it, "
                           "found it comes before pass \"%1\"; move it after the shadow pass, which makes all "
                           "items of the model drawable again")
                .arg(shadowClass())});
    EXPECT_EQ(linesOf(chainOf({shadowClass(), culling})), QStringList());
}

TEST_P(ShadowWiringTest, withoutAModelItDoesNotRun)
{
    const ChainDescription chain = chainOf({shadowClass()});
    QStringList frameValues = FrameValues::standardNames();
    frameValues.removeAll(FrameValues::model);
    const QVector<ChainFinding> findings = validateChain(chain, PassRegistry::standard(), frameValues);
    ASSERT_EQ(findings.size(), 1);
    EXPECT_EQ(findings[0].code, ChainFinding::Code::MissingInput);
    EXPECT_EQ(findings[0].port, QString(FrameValues::model));
}

TEST(ShadowDirtyTest, aPassThatIsNeverDirtyIsAFinding)
{
    ChainDescription chain = chainOf({QStringLiteral("ShadowMapRenderPass2")});
    chain.passes[0].values.insert(QStringLiteral("Kvz_bool_Dirty"), false);
    EXPECT_EQ(linesOf(chain),
        QStringList{
            QStringLiteral("warning: pass \"ShadowMapRenderPass2\", Kvz_bool_Dirty: expected a first frame that is "
                           "dirty, found always false: the pass never looks at the lights; leave it out, and have "
                           "the host set it to false between changes")});
    for (const QVariant &value : {QVariant(true), QVariant()}) {
        chain.passes[0].values.insert(QStringLiteral("Kvz_bool_Dirty"), value);
        EXPECT_EQ(linesOf(chain), QStringList());
    }
}

INSTANTIATE_TEST_SUITE_P(Both, ShadowWiringTest, ::testing::Values("ShadowMapRenderPass", "ShadowMapRenderPass2"));

} // namespace Velmora::Kvz
