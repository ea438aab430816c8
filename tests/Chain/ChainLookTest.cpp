// SPDX-License-Identifier: MIT
#include <Chain/ChainLibrary.h>
#include <Chain/ChainLook.h>
#include <Chain/ResolvedChain.h>

#include <QtCore/QFileInfo>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

const QString environmentPort = QStringLiteral("Kvz_QString_Environment");
const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");

ChainDescription ready(const char *name)
{
    ChainDescription chain;
    QString error;
    EXPECT_TRUE(loadChain(QString::fromLatin1(name), &chain, &error)) << qPrintable(error);
    return chain;
}

ChainPass &passOf(ChainDescription &chain, const char *name)
{
    return chain.passes[chain.findPass(QString::fromLatin1(name))];
}

/// A chain with a look, which it must know.
ChainDescription with(const char *name, const ChainLook &look)
{
    ChainDescription chain = ready(name);
    QString error;
    EXPECT_EQ(look.firstUnknown(chain), QString());
    EXPECT_TRUE(look.apply(&chain, &error)) << qPrintable(error);
    EXPECT_EQ(ResolvedChain(chain).errors(), QStringList());
    return chain;
}

} // namespace

TEST(ChainLookTest, nothingSetChangesNothing)
{
    for (const QString &name : readyChainNames()) {
        ChainDescription chain = ready(qPrintable(name));
        const ChainDescription before = chain;
        QString error;
        EXPECT_TRUE(ChainLook().apply(&chain, &error));
        EXPECT_EQ(chain, before) << qPrintable(name);
    }
}

TEST(ChainLookTest, valuesGoToThePassesThatKnowThem)
{
    ChainLook look;
    look.environment = QStringLiteral("daylight");
    look.environmentRotation = 30.0f;
    look.exposure = -1.5f;
    look.automaticExposure = true;
    look.toneMapping = ChainLook::ToneMapping::Filmic;
    look.ground = false;
    ChainDescription chain = with("studio", look);
    EXPECT_EQ(passOf(chain, "environment").values[environmentPort], QStringLiteral("daylight"));
    EXPECT_EQ(passOf(chain, "environment").values[QStringLiteral("Kvz_float_EnvironmentRotation")], 30.0f);
    EXPECT_EQ(passOf(chain, "tones").values[QStringLiteral("Kvz_float_Exposure")], -1.5f);
    EXPECT_EQ(passOf(chain, "tones").values[QStringLiteral("Kvz_bool_AutoExposure")], true);
    EXPECT_EQ(passOf(chain, "tones").options[QStringLiteral("operator")], QStringLiteral("filmic"));
    EXPECT_EQ(passOf(chain, "ground").values[QStringLiteral("Kvz_float_GroundExtent")], 0.0f);
    EXPECT_TRUE(passOf(chain, "surfaces").values.isEmpty()) << "it takes the rotation from the environment's pass";
}

TEST(ChainLookTest, whatIsSortedMayBeWeighed)
{
    ChainLook look;
    for (const char *name : {"studio", "transparency-lists", "full"}) {
        look.sortsTransparency = true;
        EXPECT_EQ(with(name, look), ready(name)) << name;
        look.sortsTransparency = false;
        ChainDescription chain = with(name, look);
        EXPECT_EQ(chain.findPass(QStringLiteral("lists")), -1) << name;
        EXPECT_EQ(chain.findPass(QStringLiteral("sorted")), -1) << name;
        EXPECT_TRUE(passOf(chain, "layers").className.contains(QStringLiteral("Weighted"))) << name;
    }
    EXPECT_EQ(look.firstUnknown(ready("forward")), QStringLiteral("sortsTransparency"));
}

TEST(ChainLookTest, whatAChainDoesNotKnowIsNamedAndNothingChanges)
{
    QVector<ChainLook> looks(7);
    looks[0].environment = QStringLiteral("studio");
    looks[1].environmentRotation = 1.0f;
    looks[2].exposure = 1.0f;
    looks[3].automaticExposure = true;
    looks[4].toneMapping = ChainLook::ToneMapping::None;
    looks[5].ground = false;
    looks[6].environmentAsBackground = true;
    const char *names[] = {"environment", "environmentRotation", "exposure", "automaticExposure", "toneMapping",
        "ground", "environmentAsBackground"};
    for (int i = 0; i < looks.size(); ++i) {
        ChainDescription chain = ready("deferred");
        const ChainDescription before = chain;
        QString error;
        EXPECT_EQ(looks[i].firstUnknown(chain), QString::fromLatin1(names[i]));
        EXPECT_FALSE(looks[i].apply(&chain, &error));
        EXPECT_EQ(error, QStringLiteral("no pass of the chain deferred knows %1").arg(QString::fromLatin1(names[i])));
        EXPECT_EQ(chain, before);
    }
    // What is disabled knows nothing.
    ChainDescription chain = ready("studio");
    passOf(chain, "tones").enabled = false;
    EXPECT_EQ(looks[2].firstUnknown(chain), QStringLiteral("exposure"));
}

TEST(ChainLookTest, anImageTakesThePlaceOfTheBackground)
{
    ChainLook look;
    look.backgroundImage = QFileInfo(QStringLiteral(KVZ_SOURCE_DIR "/Media/Environments/daylight.png")).filePath();
    for (const char *name : {"studio", "deferred", "forward", "full"}) {
        ChainDescription chain = with(name, look);
        EXPECT_EQ(chain.findPass(QStringLiteral("background")), -1) << name;
        EXPECT_EQ(chain.findPass(QStringLiteral("sky")), -1) << name;
        EXPECT_EQ(passOf(chain, "over").connections[QStringLiteral("Kvz_KvzTexture*_Background")],
            ChainSource::output(QStringLiteral("backdrop"), frame))
            << name;
    }
    // The name of the pass may be taken.
    ChainDescription chain = ready("deferred");
    passOf(chain, "geometry").name = QStringLiteral("backdrop");
    QString error;
    ASSERT_TRUE(look.apply(&chain, &error));
    EXPECT_EQ(passOf(chain, "over").connections[QStringLiteral("Kvz_KvzTexture*_Background")],
        ChainSource::output(QStringLiteral("backdrop-2"), frame));
    // A chain that loses alpha would cover it.
    chain = ready("fxaa");
    const ChainDescription before = chain;
    EXPECT_FALSE(look.apply(&chain, &error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("the pass smooth"))) << qPrintable(error);
    EXPECT_EQ(chain, before);
}

TEST(ChainLookTest, anEnvironmentThatIsSeenTakesThePlaceOfTheBackground)
{
    ChainLook look;
    look.environmentAsBackground = true;
    ChainDescription chain = with("studio", look);
    EXPECT_EQ(chain.findPass(QStringLiteral("background")), -1);
    EXPECT_EQ(passOf(chain, "environment").values[QStringLiteral("Kvz_bool_ShowsEnvironment")], true);
    look.environmentAsBackground = false;
    chain = with("studio", look);
    EXPECT_GE(chain.findPass(QStringLiteral("background")), 0);
}

TEST(ChainLookTest, filesOfEnvironmentsCountFromTheChainsFolder)
{
    ChainDescription chain = ready("studio");
    chain.folder = QStringLiteral(KVZ_SOURCE_DIR "/Media/Lights");
    for (const QString &name : {QStringLiteral("studio.exr"), QStringLiteral("daylight")}) {
        passOf(chain, "environment").values[environmentPort] = name;
        EXPECT_EQ(ResolvedChain(chain).errors(), QStringList()) << qPrintable(name);
    }
    passOf(chain, "environment").values[environmentPort] = QStringLiteral("nothing.exr");
    const QStringList errors = ResolvedChain(chain).errors();
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.first().contains(QStringLiteral("Media/Lights/nothing.exr"))) << qPrintable(errors.first());
    EXPECT_TRUE(errors.first().contains(QStringLiteral("there is no such file"))) << qPrintable(errors.first());
}

} // namespace Velmora::Kvz
