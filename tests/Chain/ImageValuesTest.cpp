// SPDX-License-Identifier: MIT
// Image files named by values of a chain: where they are looked for and what validation says about them. No test here
// has an OpenGL context.
#include "support/ImageFiles.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/RenderChain.h>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

const QString texturePath = QStringLiteral("Kvz_QString_TexturePath");

ChainDescription chainOf(const QString &className, const QVariantMap &values)
{
    ChainPass pass;
    pass.name = QStringLiteral("loader");
    pass.className = className;
    pass.values = values;
    ChainDescription chain;
    chain.passes = {pass};
    return chain;
}

ChainDescription loaderOf(const QString &path)
{
    return chainOf(QStringLiteral("TextureLoaderRenderPass"), {{texturePath, path}});
}

QStringList linesOf(const ChainDescription &chain)
{
    QStringList lines;
    for (const ChainFinding &finding : validateChain(chain))
        lines.append(finding.toString());
    return lines;
}

/// The finding on the only pass of a chain, without the part that all lines begin with.
QString findingOf(const ChainDescription &chain, const QString &port)
{
    const QStringList lines = linesOf(chain);
    if (lines.size() != 1)
        return QStringLiteral("%1 lines").arg(lines.size());
    EXPECT_FALSE(lines[0].contains(QLatin1Char('\n')));
    const QString head = QStringLiteral("pass \"loader\", %1: expected ").arg(port);
    EXPECT_TRUE(lines[0].contains(head)) << qPrintable(lines[0]);
    return QString(lines[0]).remove(head);
}

QStringList facePorts()
{
    QStringList ports;
    for (const char *face : {"PosX", "NegX", "PosY", "NegY", "PosZ", "NegZ"})
        ports.append(QStringLiteral("Kvz_QString_CubemapPath") + QLatin1String(face));
    return ports;
}

class ImageValuesTest : public ::testing::Test
{
protected:
    TemporaryFolder folder;

    QString write(const QString &name, int width, int height, QImage::Format format = QImage::Format_ARGB32)
    {
        return writeImage(folder, name, distinctImage(width, height, QImage::Format_ARGB32).convertToFormat(format));
    }
    ChainDescription cubeOf(const QStringList &paths)
    {
        QVariantMap values;
        for (int face = 0; face < paths.size(); ++face)
            values.insert(facePorts()[face], paths[face]);
        return chainOf(QStringLiteral("CubemapLoaderRenderPass"), values);
    }
};

} // namespace

TEST_F(ImageValuesTest, aGoodImageHasNoFinding)
{
    EXPECT_EQ(linesOf(loaderOf(write("a.png", 4, 3))), QStringList());
    EXPECT_EQ(linesOf(loaderOf(write("b.png", 4, 3, QImage::Format_RGB32))), QStringList());
}

TEST_F(ImageValuesTest, whatIsNotAnImageIsNamedInOneLine)
{
    write("good.png", 64, 64);
    const QByteArray bytes = folder.read("good.png");
    const auto finding = [&](const QString &path) {
        const QString text = findingOf(loaderOf(path), texturePath);
        const QString head = QStringLiteral("error: an image file, found \"%1\", ").arg(path);
        EXPECT_TRUE(text.startsWith(head)) << qPrintable(text);
        return text.mid(head.size());
    };
    EXPECT_EQ(finding(folder.path("missing.png")), QStringLiteral("which is not there"));
    EXPECT_EQ(finding(QFileInfo(folder.path("x")).absolutePath()), QStringLiteral("which is not a file"));
    EXPECT_EQ(
        finding(folder.write("text.png", "no image")), QStringLiteral("which is no image: unsupported image format"));
    const QString truncated = finding(folder.write("short.png", bytes.left(bytes.size() / 2)));
    EXPECT_TRUE(truncated.startsWith(QStringLiteral("which is damaged or truncated: "))) << qPrintable(truncated);
}

TEST_F(ImageValuesTest, anImageWithoutThirtyTwoBitsIsNamedWhereItIsNotConverted)
{
    const struct
    {
        QImage::Format format;
        const char *text;
    } cases[] = {
        {QImage::Format_Grayscale8, "shades of grey"},
        {QImage::Format_Indexed8, "a palette"},
        {QImage::Format_Mono, "black and white"},
        {QImage::Format_RGBA64, "16 bits a channel"},
        {QImage::Format_RGBX64, "16 bits a channel"},
    };
    for (const auto &c : cases) {
        const QString path = write(QStringLiteral("%1.png").arg(c.format), 8, 8, c.format);
        const QString finding = QStringLiteral(
            "error: an image with 32 bits per pixel, found \"%1\" with %2, which would come out scrambled; "
            "save it with 8 bits each for red, green and blue")
                                    .arg(path, QLatin1String(c.text));
        EXPECT_EQ(findingOf(loaderOf(path), texturePath), finding);
        EXPECT_EQ(findingOf(cubeOf({path, path, path, path, path, path}), facePorts()[0]), QStringLiteral("6 lines"));
        const QStringList converted = linesOf(
            chainOf(QStringLiteral("BackgroundImageRenderPass"), {{QStringLiteral("Kvz_string_FadeImageUrl1"), path}}));
        for (const QString &line : converted)
            EXPECT_FALSE(line.contains(path)) << qPrintable(line);
    }
}

TEST_F(ImageValuesTest, aCmykImageIsAWarning)
{
    const QString path = folder.write("cmyk.jpg", cmykJpeg());
    EXPECT_EQ(findingOf(loaderOf(path), texturePath),
        QStringLiteral(
            "warning: an image in red, green and blue, found \"%1\" in CMYK, whose colours are converted without "
            "its profile; convert it with a colour-managed program")
            .arg(path));
    QImage plain = distinctImage(8, 8);
    ASSERT_TRUE(plain.save(folder.path("plain.jpg"), "JPG"));
    EXPECT_EQ(linesOf(loaderOf(folder.path("plain.jpg"))), QStringList());
}

TEST_F(ImageValuesTest, aChangedFileIsReadAgain)
{
    const QString path = folder.path("a.png");
    EXPECT_EQ(linesOf(loaderOf(path)).size(), 1);
    write("a.png", 4, 4);
    EXPECT_EQ(linesOf(loaderOf(path)), QStringList());
    write("a.png", 40, 40, QImage::Format_Grayscale8);
    EXPECT_EQ(linesOf(loaderOf(path)).size(), 1);
    ASSERT_TRUE(QFile::remove(path));
    EXPECT_EQ(findingOf(loaderOf(path), texturePath),
        QStringLiteral("error: an image file, found \"%1\", which is not there").arg(path));
}

TEST_F(ImageValuesTest, facesAreSquaresOfOneSize)
{
    QStringList paths;
    for (int face = 0; face < 6; ++face)
        paths.append(write(QStringLiteral("%1.png").arg(face), 4, 4));
    EXPECT_EQ(linesOf(cubeOf(paths)), QStringList());
    QStringList changed = paths;
    changed[4] = write("large.png", 8, 8);
    EXPECT_EQ(findingOf(cubeOf(changed), facePorts()[4]),
        QStringLiteral("error: 4 by 4 pixels like Kvz_QString_CubemapPathPosX, found \"%1\" of 8 by 8 pixels; give all "
                       "faces one size")
            .arg(changed[4]));
    changed[5] = changed[4];
    EXPECT_EQ(linesOf(cubeOf(changed)).size(), 1);
    changed = paths;
    changed[2] = write("wide.png", 8, 4);
    EXPECT_EQ(findingOf(cubeOf(changed), facePorts()[2]),
        QStringLiteral("error: a square face, found \"%1\" of 8 by 4 pixels; make its sides equal").arg(changed[2]));
    EXPECT_EQ(findingOf(cubeOf(paths.mid(0, 5)), facePorts()[0]),
        QStringLiteral(
            "warning: an image file for each of the six faces, found fewer: the cube map is black; set all six "
            "paths"));
}

TEST_F(ImageValuesTest, relativeNamesAreResolvedAgainstTheFolderOfTheChainFile)
{
    ASSERT_TRUE(QDir(folder.path(QString())).mkpath("pictures"));
    write("pictures/a.png", 4, 4);
    ChainDescription chain;
    QString error;
    folder.write("chain.json",
        R"({"passes": [{"name": "loader", "class": "TextureLoaderRenderPass", "values": {"Kvz_QString_TexturePath": "pictures/a.png"}}]})");
    ASSERT_TRUE(loadChain(folder.path("chain.json"), &chain, &error)) << qPrintable(error);
    EXPECT_EQ(linesOf(chain), QStringList());
    chain.passes[0].values[texturePath] = QStringLiteral("a.png");
    EXPECT_EQ(findingOf(chain, texturePath),
        QStringLiteral("error: an image file, found \"%1\", which is not there; relative names are resolved against "
                       "the folder of the "
                       "chain file")
            .arg(folder.path("a.png")));
}

TEST_F(ImageValuesTest, aChainInAnotherFolderFindsItsImages)
{
    ASSERT_TRUE(QDir(folder.path(QString())).mkpath("pictures"));
    write("pictures/a.png", 4, 4);
    ChainDescription chain = loaderOf(QStringLiteral("a.png"));
    chain.folder = folder.path("pictures");
    QString error;
    ASSERT_TRUE(saveChain(chain, folder.path("moved.json"), &error)) << qPrintable(error);
    ASSERT_TRUE(loadChain(folder.path("moved.json"), &chain, &error)) << qPrintable(error);
    EXPECT_EQ(chain.passes[0].values[texturePath], QVariant(QStringLiteral("pictures/a.png")));
    EXPECT_EQ(linesOf(chain), QStringList());

    // No relative path leads to a resource.
    ASSERT_TRUE(loadChain(QStringLiteral("skybox-panorama"), &chain, &error)) << qPrintable(error);
    chain = movedToFolder(chain, folder.path(QString()));
    EXPECT_EQ(chain.passes[0].values[texturePath], QVariant(QStringLiteral(":/Media/Environments/sky.png")));
    EXPECT_EQ(linesOf(chain), QStringList());
}

TEST_F(ImageValuesTest, aRunningChainRefusesAPathWithoutAnImage)
{
    RenderChain chain;
    ASSERT_TRUE(chain.setDescription(loaderOf(write("a.png", 4, 4)))) << qPrintable(chain.errorString());
    EXPECT_FALSE(chain.setValue("loader", texturePath, folder.path("missing.png")));
    EXPECT_EQ(chain.errorString(),
        QStringLiteral(
            "pass \"loader\", Kvz_QString_TexturePath: expected an image file, found \"%1\", which is not there")
            .arg(folder.path("missing.png")));
    EXPECT_EQ(chain.description().passes[0].values[texturePath], QVariant(folder.path("a.png")));
    EXPECT_TRUE(chain.setValue("loader", texturePath, write("b.png", 4, 4))) << qPrintable(chain.errorString());
    const QString grey = write("grey.png", 4, 4, QImage::Format_Grayscale8);
    EXPECT_FALSE(chain.setValue("loader", texturePath, grey));
    EXPECT_TRUE(chain.errorString().contains("would come out scrambled")) << qPrintable(chain.errorString());
    EXPECT_EQ(chain.description().passes[0].values[texturePath], QVariant(folder.path("b.png")));
    EXPECT_TRUE(chain.setValue("loader", texturePath, QString())) << "no path is no fault";
}

TEST_F(ImageValuesTest, aRunningChainRefusesAFaceOfAnotherSize)
{
    QStringList paths;
    for (int face = 0; face < 6; ++face)
        paths.append(write(QStringLiteral("%1.png").arg(face), 4, 4));
    RenderChain chain;
    ASSERT_TRUE(chain.setDescription(cubeOf(paths))) << qPrintable(chain.errorString());
    EXPECT_FALSE(chain.setValue("loader", facePorts()[3], write("large.png", 8, 8)));
    EXPECT_TRUE(chain.errorString().contains("give all faces one size")) << qPrintable(chain.errorString());
    EXPECT_EQ(chain.description().passes[0].values[facePorts()[3]], QVariant(paths[3]));
    EXPECT_FALSE(hasErrors(chain.findings()));
}

TEST_F(ImageValuesTest, wiringOfSurroundingsIsChecked)
{
    const auto chainWith = [&](const QByteArray &sky) {
        ChainDescription chain;
        QString error;
        const QString image = write("a.png", 4, 4);
        const QByteArray file = "\"" + image.toUtf8() + "\"";
        QByteArray faces;
        for (const QString &port : facePorts())
            faces += (faces.isEmpty() ? "" : ", ") + ("\"" + port.toUtf8() + "\": ") + file;
        EXPECT_TRUE(ChainDescription::fromJson(R"({"passes": [
            {"name": "image", "class": "TextureLoaderRenderPass", "values": {"Kvz_QString_TexturePath": )"
                + file + R"(}},
            {"name": "cube", "class": "CubemapLoaderRenderPass", "values": {)"
                + faces + R"(}},
            {"name": "geometry", "class": "ModelRenderPass"},
            {"name": "shading", "class": "ModelDeferredPass"},
            {"name": "loader", "class": "SkyboxRenderPass", "connections": {)"
                + sky + "}}]}",
            &chain, &error))
            << qPrintable(error);
        return chain;
    };
    const QByteArray noDepth = R"("Kvz_KvzTexture*_Depth": "none")";
    EXPECT_EQ(linesOf(chainWith(noDepth)), QStringList()) << "the cube map by its name";
    EXPECT_EQ(findingOf(chainWith(""), "Kvz_KvzTexture*_Depth"),
        QStringLiteral(
            "error: depth with stencil, found GL_DEPTH_COMPONENT32F from "
            "\"geometry.Kvz_KvzTexture*_Depth\", with which every stencil test passes; connect a depth image with "
            "stencil, or \"none\""));
    EXPECT_EQ(findingOf(chainWith(noDepth + R"(, "Kvz_KvzTexture*_Cubemap": "image.Kvz_KvzTexture*_Texture")"),
                  "Kvz_KvzTexture*_Cubemap"),
        QStringLiteral(
            "warning: environment, found colour from \"image.Kvz_KvzTexture*_Texture\"; connect another output"));
    EXPECT_EQ(findingOf(chainWith(noDepth + R"(, "Kvz_KvzTexture*_Cubemap": "none")"), "Kvz_KvzTexture*_Cubemap"),
        QStringLiteral(
            "warning: a cube map, a panorama or a flat image, found none: nothing is drawn; connect one of the "
            "three"));
    EXPECT_EQ(findingOf(chainWith(noDepth + R"(, "Kvz_KvzTexture*_LatLongMap": "image.Kvz_KvzTexture*_Texture")"),
                  "Kvz_KvzTexture*_LatLongMap"),
        QStringLiteral("warning: one source of surroundings, found several: the flat image takes precedence over the "
                       "cube map, and that over the panorama; connect \"none\" to the others"));
}

} // namespace Velmora::Kvz
