// SPDX-License-Identifier: MIT
#include "support/GLTest.h"

#include <Chain/ChainDescription.h>
#include <Chain/ChainLibrary.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtGui/QColor>
#include <QtGui/QVector3D>

namespace Velmora::Kvz {

namespace {

QString errorOf(const QByteArray &json)
{
    ChainDescription chain;
    chain.name = QStringLiteral("untouched");
    QString error;
    EXPECT_FALSE(ChainDescription::fromJson(json, &chain, &error)) << json.constData();
    EXPECT_EQ(chain.name, QStringLiteral("untouched"));
    return error;
}

ChainDescription read(const QByteArray &json)
{
    ChainDescription chain;
    QString error;
    EXPECT_TRUE(ChainDescription::fromJson(json, &chain, &error)) << qPrintable(error);
    return chain;
}

} // namespace

TEST(ChainDescriptionTest, allPartsOfAChainAreRead)
{
    const ChainDescription chain = read(R"({
        "name": "n", "description": "d",
        "passes": [
            {"class": "GradientRenderPass"},
            {"name": "b", "class": "BlendRenderPass", "enabled": false,
                "options": {"mode": "SrcOver"},
                "values": {"brightness": 0.5, "Int_BlendMode": null},
                "connections": {
                    "Kvz_KvzTexture*_FrameA": "GradientRenderPass.Kvz_KvzTexture*_Frame",
                    "Kvz_KvzTexture*_FrameB": "none",
                    "x": "frame:Kvz_QRect_Viewport",
                    "y": "previous:b.z"}}],
        "exports": {"out": "b.Kvz_KvzTexture*_Frame"}})");
    EXPECT_EQ(chain.name, QStringLiteral("n"));
    EXPECT_EQ(chain.description, QStringLiteral("d"));
    ASSERT_EQ(chain.passes.size(), 2);
    EXPECT_EQ(chain.passes[0].name, QStringLiteral("GradientRenderPass"));
    EXPECT_TRUE(chain.passes[0].enabled);
    const ChainPass &pass = chain.passes[1];
    EXPECT_FALSE(pass.enabled);
    EXPECT_EQ(pass.options.value(QStringLiteral("mode")), QVariant(QStringLiteral("SrcOver")));
    EXPECT_EQ(pass.values.value(QStringLiteral("brightness")).toDouble(), 0.5);
    EXPECT_TRUE(pass.values.contains(QStringLiteral("Int_BlendMode")));
    EXPECT_FALSE(pass.values.value(QStringLiteral("Int_BlendMode")).isValid());
    const auto source = [&](const char *port) { return pass.connections.value(QString::fromUtf8(port)); };
    EXPECT_EQ(source("Kvz_KvzTexture*_FrameA"),
        ChainSource::output(QStringLiteral("GradientRenderPass"), QStringLiteral("Kvz_KvzTexture*_Frame")));
    EXPECT_EQ(source("Kvz_KvzTexture*_FrameB"), ChainSource::none());
    EXPECT_EQ(source("x"), ChainSource::frameValue(QStringLiteral("Kvz_QRect_Viewport")));
    EXPECT_EQ(source("y"), ChainSource::previous(QStringLiteral("b"), QStringLiteral("z")));
    EXPECT_EQ(chain.exports.value(QStringLiteral("out")),
        (ChainOutput{QStringLiteral("b"), QStringLiteral("Kvz_KvzTexture*_Frame")}));
}

TEST(ChainDescriptionTest, aWrittenChainIsReadAsTheSame)
{
    ChainDescription chain;
    chain.name = QStringLiteral("all");
    chain.description = QStringLiteral("Everything that a chain can say.");
    ChainPass first;
    first.name = QStringLiteral("first");
    first.className = QStringLiteral("PrimitiveBuilderRenderPass");
    first.options = {{QStringLiteral("primitives"),
        QVariantList{QVariantMap{{QStringLiteral("shape"), QStringLiteral("cube")}, {QStringLiteral("size"), 2.0}}}}};
    ChainPass second;
    second.name = QStringLiteral("second");
    second.className = QStringLiteral("GradientRenderPass");
    second.enabled = false;
    second.values = {{QStringLiteral("Kvz_QColor_ColorTop"), QStringLiteral("#10203040")},
        {QStringLiteral("Kvz_QColor_ColorBottom"), QVariant()}};
    second.connections = {{QStringLiteral("a"), ChainSource::output(QStringLiteral("first"), QStringLiteral("b"))},
        {QStringLiteral("c"), ChainSource::previous(QStringLiteral("second"), QStringLiteral("d"))},
        {QStringLiteral("e"), ChainSource::frameValue(QStringLiteral("f"))},
        {QStringLiteral("g"), ChainSource::none()}};
    chain.passes = {first, second};
    chain.exports = {{QStringLiteral("out"), {QStringLiteral("first"), QStringLiteral("b")}}};

    const ChainDescription again = read(chain.toJson());
    EXPECT_EQ(again, chain);
    EXPECT_EQ(again.toJson(), chain.toJson());
}

TEST(ChainDescriptionTest, lightsAreReadAndWritten)
{
    const ChainDescription chain =
        read(R"({"lights": ["directional:30,60", "spot:position=0,2,0:cone=30"], "passes": []})");
    ASSERT_EQ(chain.lights.size(), 2u);
    EXPECT_EQ(chain.lights[0].elevation, 60);
    EXPECT_EQ(chain.lights[1].type, ShadowMapManager::Light::Spot);
    EXPECT_EQ(chain.lights[1].coneAngle, 30);
    EXPECT_EQ(read(chain.toJson()), chain);
    ChainDescription other = chain;
    other.lights[1].coneAngle = 31;
    EXPECT_NE(other, chain);
    EXPECT_FALSE(read(R"({"passes": []})").toJson().contains("lights"));
    EXPECT_EQ(errorOf(R"({"lights": "sun", "passes": []})"), QStringLiteral("lights: expected a list, found a text"));
    EXPECT_EQ(errorOf(R"({"lights": ["directional", 3], "passes": []})"),
        QStringLiteral("lights[1]: expected a text, found a number"));
    EXPECT_EQ(errorOf(R"({"lights": ["directional", "spot:cone=0"], "passes": []})"),
        QStringLiteral("lights[1]: \"cone=0\": cone must be above 0 and below 180 degrees"));
}

TEST(ChainDescriptionTest, typedValuesAreWrittenInTheirForms)
{
    ChainDescription chain;
    ChainPass pass;
    pass.name = pass.className = QStringLiteral("A");
    pass.values = {{QStringLiteral("color"), QColor(255, 0, 0, 128)}, {QStringLiteral("vector"), QVector3D(1, 2, 3)},
        {QStringLiteral("float"), 0.1f}};
    chain.passes = {pass};
    const QByteArray json = chain.toJson();
    EXPECT_TRUE(json.contains("\"#ff000080\"")) << json.constData();
    EXPECT_TRUE(json.contains("\"float\": 0.1,")) << json.constData();
    EXPECT_EQ(read(json).passes[0].values.value(QStringLiteral("vector")).toList(), (QVariantList{1.0, 2.0, 3.0}));
}

TEST(ChainDescriptionTest, aSyntaxErrorHasItsLineAndColumn)
{
    const QString error = errorOf("{\n  \"passes\": [\n    {\"class\": \"A\",}\n  ]\n}\n");
    EXPECT_TRUE(error.startsWith(QStringLiteral("line 3, column "))) << qPrintable(error);
    EXPECT_TRUE(errorOf("").startsWith(QStringLiteral("line 1, column 1"))) << qPrintable(errorOf(""));
    EXPECT_TRUE(errorOf("{\"passes\": [}").startsWith(QStringLiteral("line 1, column 13")))
        << qPrintable(errorOf("{\"passes\": [}"));
}

TEST(ChainDescriptionTest, aWrongStructureIsNamedByItsPlace)
{
    const struct
    {
        const char *json;
        const char *error;
    } cases[] = {
        {"[]", "the chain: expected an object, found a list"},
        {"{}", "passes: expected a list, found nothing"},
        {R"({"passes": {}})", "passes: expected a list, found an object"},
        {R"({"passes": [3]})", "passes[0]: expected an object, found a number"},
        {R"({"passes": [{"class": "A"}, {}]})", "passes[1].class: expected the name of a pass class, found nothing"},
        {R"({"passes": [{"class": 3}]})", "passes[0].class: expected a text, found a number"},
        {R"({"passes": [{"class": "A", "enabled": 1}]})", "passes[0].enabled: expected true or false, found a number"},
        {R"({"passes": [{"class": "A", "options": []}]})", "passes[0].options: expected an object, found a list"},
        {R"({"passes": [{"class": "A", "optoins": {}}]})", "passes[0].optoins: unknown key; did you mean \"options\"?"},
        {R"({"passes": [{"class": "A", "connections": {"x": "y"}}]})",
            "passes[0].connections.x: expected \"pass.port\", \"previous:pass.port\", \"frame:port\" or \"none\", "
            "found "
            "\"y\""},
        {R"({"passes": [{"class": "A", "connections": {"x": null}}]})",
            "passes[0].connections.x: expected \"pass.port\", \"previous:pass.port\", \"frame:port\" or \"none\", "
            "found "
            "null"},
        {R"({"passes": [], "exports": {"x": "none"}})", "exports.x: expected \"pass.port\", found \"none\""},
        {R"({"passes": [], "name": []})", "name: expected a text, found a list"},
    };
    for (const auto &wrong : cases)
        EXPECT_EQ(errorOf(wrong.json), QString::fromUtf8(wrong.error));
}

TEST(ChainDescriptionTest, sourcesHaveAWrittenForm)
{
    for (const char *text : {"none", "a.b", "previous:a.b", "frame:Kvz_QRect_Viewport"}) {
        ChainSource source;
        ASSERT_TRUE(ChainSource::fromString(QString::fromUtf8(text), &source)) << text;
        EXPECT_EQ(source.toString(), QString::fromUtf8(text));
    }
    for (const char *text : {"", "a", ".b", "a.", "frame:", "previous:", "previous:a"}) {
        ChainSource source = ChainSource::output(QStringLiteral("un"), QStringLiteral("touched"));
        EXPECT_FALSE(ChainSource::fromString(QString::fromUtf8(text), &source)) << text;
        EXPECT_EQ(source.pass, QStringLiteral("un"));
    }
}

TEST(ChainLibraryTest, readyChainsAreFoundByName)
{
    EXPECT_TRUE(readyChainNames().contains(QStringLiteral("deferred")));
    EXPECT_TRUE(readyChainNames().contains(QStringLiteral("primitives")));
    for (const QString &name : readyChainNames()) {
        ChainDescription chain;
        QString error;
        ASSERT_TRUE(loadChain(name, &chain, &error)) << qPrintable(error);
        EXPECT_EQ(chain.name, name);
        EXPECT_FALSE(chain.description.isEmpty());
    }
}

TEST(ChainLibraryTest, anUnknownNameOffersTheNearest)
{
    ChainDescription chain;
    QString error;
    EXPECT_FALSE(loadChain(QStringLiteral("defered"), &chain, &error));
    EXPECT_EQ(error, QStringLiteral("no chain named \"defered\"; did you mean \"deferred\"?"));

    // A file that lies there, and is taken for a name.
    const QTemporaryDir folder;
    const QString before = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(folder.path()));
    QFile file(QStringLiteral("deferred.txt"));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_FALSE(loadChain(QStringLiteral("deferred.txt"), &chain, &error));
    EXPECT_TRUE(QDir::setCurrent(before));
    EXPECT_EQ(error, QStringLiteral("no chain named \"deferred.txt\"; the file of this name is \"./deferred.txt\""));
}

TEST(ChainLibraryTest, filesAreWrittenAndRead)
{
    const QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("chain.json"));
    ChainDescription chain;
    QString error;
    ASSERT_TRUE(loadChain(QStringLiteral("primitives"), &chain, &error)) << qPrintable(error);
    ASSERT_TRUE(saveChain(chain, file, &error)) << qPrintable(error);
    ChainDescription again;
    ASSERT_TRUE(loadChain(file, &again, &error)) << qPrintable(error);
    EXPECT_EQ(again, chain);

    EXPECT_FALSE(saveChain(chain, folder.filePath(QStringLiteral("no/such/folder.json")), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("no/such/folder.json"))) << qPrintable(error);
    EXPECT_FALSE(loadChain(folder.filePath(QStringLiteral("missing.json")), &again, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("missing.json: No such file"))) << qPrintable(error);
    EXPECT_FALSE(loadChain(folder.path() + QLatin1Char('/'), &again, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("directory"))) << qPrintable(error);

    QFile broken(folder.filePath(QStringLiteral("broken.json")));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("{\n\"passes\": nothing}");
    broken.close();
    EXPECT_FALSE(loadChain(broken.fileName(), &again, &error));
    EXPECT_TRUE(error.startsWith(broken.fileName() + QStringLiteral(": line 2, column "))) << qPrintable(error);
    EXPECT_EQ(again, chain);
}

} // namespace Velmora::Kvz
