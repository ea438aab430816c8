// SPDX-License-Identifier: MIT
#include "PhysicalFixture.h"
#include "support/PooledTextures.h"

#include <Scene/ShadowMapManager.h>

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtGui/QImage>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Light = ShadowMapManager::Light;

class EnvironmentLightRenderPassTest : public PassTest<EnvironmentLightRenderPass>
{
protected:
    void load(const QString &name)
    {
        pass->setInput(Port::Environment, name);
        pass->start(nullptr);
    }
    QVector3D coefficient(int number) const
    {
        return pass->output(Port::Irradiance).toList().value(number).value<QVector3D>();
    }
    Light *keyLight() const
    {
        const QVariantList lights = pass->output(Port::LightsOut).toList();
        return lights.isEmpty() ? nullptr : lights.first().value<ShadowMapManager::Light *>();
    }
    /// Level 0 of the filtered surroundings.
    Image surroundings() const { return readLayer(texture(Port::EnvironmentTexture), 0); }
    QStringList kept() const
    {
        QStringList files;
        QDirIterator all(caches.folder.path(QStringLiteral("kvz")), QDir::Files, QDirIterator::Subdirectories);
        while (all.hasNext())
            files.append(all.next());
        return files;
    }

    // The driver keeps shaders in the caches that it finds when it begins.
    const bool isContextThere = (context(), true);
    OwnCaches caches;
};

/// A grey world with a bright disc.
QVector3D disc(const QVector3D &direction)
{
    const QVector3D towards = QVector3D(0.6f, 0.5f, 0.4f).normalized();
    const bool isIn = QVector3D::dotProduct(direction, towards) > 0.97f;
    return isIn ? QVector3D(60, 50, 40) : QVector3D(0.3f, 0.4f, 0.5f) * (1.2f + direction.y());
}

/// All radiance of a function, by directions that are spread evenly (Fibonacci's spiral).
QVector3D totalOf(QVector3D (*radiance)(const QVector3D &))
{
    constexpr int count = 400000;
    double sum[3] = {};
    for (int i = 0; i < count; ++i) {
        const double y = 1 - (2 * i + 1.0) / count;
        const double turn = i * M_PI * (3 - std::sqrt(5.0));
        const double side = std::sqrt(1 - y * y);
        const QVector3D value =
            radiance(QVector3D(float(side * std::cos(turn)), float(y), float(side * std::sin(turn))));
        for (int c = 0; c < 3; ++c)
            sum[c] += double(value[c]);
    }
    return QVector3D(float(sum[0]), float(sum[1]), float(sum[2])) * float(4 * M_PI / count);
}

} // namespace

TEST_F(EnvironmentLightRenderPassTest, keyLightAndIrradianceAddUpToTheImage)
{
    load(caches.folder.write(QStringLiteral("disc.hdr"), radianceFile(1024, 512, disc)));
    ASSERT_TRUE(keyLight());
    EXPECT_TRUE(keyLight()->isPartOfEnvironment);
    EXPECT_GT(
        QVector3D::dotProduct(-keyLight()->direction.normalized(), QVector3D(0.6f, 0.5f, 0.4f).normalized()), 0.9999f);
    // Over all normals, irradiance is pi times the radiance of all directions, and that of a lamp pi times its illuminance.
    const QVector3D expected = totalOf(disc);
    const QVector3D lamp = keyLight()->intensity * keyLight()->colour;
    const QVector3D rest = coefficient(0) * float(0.282095 * 4 * M_PI);
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR((rest[i] + lamp[i]) / expected[i], 1, 0.01) << "channel " << i;
    EXPECT_GT(lamp.x(), rest.x()) << "the disc is the larger part";
    // Mirrors show it.
    const Image shown = surroundings();
    EXPECT_GT(*std::max_element(shown.data.begin(), shown.data.end()), 55);
}

TEST_F(EnvironmentLightRenderPassTest, irradianceIsThatOfTheFormula)
{
    // Radiance 1 + y gives an irradiance of pi + 2 pi / 3 y.
    load(caches.folder.write(QStringLiteral("slope.hdr"),
        radianceFile(512, 256, [](const QVector3D &d) { return (1 + d.y()) * QVector3D(1, 1, 1); })));
    EXPECT_FALSE(keyLight());
    EXPECT_NEAR(coefficient(0).x() * 0.282095, 1, 0.005);
    EXPECT_NEAR(coefficient(1).x() * 0.488603, 2.0 / 3, 0.005);
    for (int i = 2; i < 9; ++i)
        EXPECT_NEAR(coefficient(i).length(), 0, 0.01) << i;
}

TEST_F(EnvironmentLightRenderPassTest, rotationTurnsTheKeyLight)
{
    const QString file = caches.folder.write(QStringLiteral("disc.hdr"), radianceFile(256, 128, disc));
    load(file);
    const QVector3D before = keyLight()->direction;
    pass->setInput(Port::EnvironmentRotation, 90.0f);
    load(file);
    EXPECT_LT((keyLight()->direction - QVector3D(before.z(), before.y(), -before.x())).length(), 1e-4f);
    EXPECT_EQ(pass->output(Port::EnvironmentRotationOut).toFloat(), 90);
    pass->setInput(Port::EnvironmentRotation, std::nanf(""));
    load(file);
    EXPECT_EQ(pass->output(Port::EnvironmentRotationOut).toFloat(), 0);
}

TEST_F(EnvironmentLightRenderPassTest, lightsOfTheHostTakeThePlaceOfTheKeyLight)
{
    Light own;
    own.intensity = 0;
    pass->setInput(Port::Lights, QVariantList{QVariant::fromValue<ShadowMapManager::Light *>(&own)});
    load(QStringLiteral("daylight"));
    EXPECT_EQ(keyLight(), &own);
    pass->setInput(Port::Lights, QVariantList());
    load(QStringLiteral("daylight"));
    ASSERT_TRUE(keyLight());
    EXPECT_NE(keyLight(), &own);
    EXPECT_GT(keyLight()->intensity, 1);
}

TEST_F(EnvironmentLightRenderPassTest, builtInEnvironmentsAreThere)
{
    for (const QString &name : EnvironmentLightRenderPass::builtInNames()) {
        SCOPED_TRACE(qPrintable(name));
        EXPECT_EQ(EnvironmentLightRenderPass::problemWith(name), QString());
        load(name);
        ASSERT_TRUE(texture(Port::EnvironmentTexture));
        EXPECT_EQ(keyLight() != nullptr, name != QLatin1String("white"));
        EXPECT_GT(coefficient(0).x(), 0.3f);
    }
    EXPECT_EQ(kept(), QStringList()) << "nothing of them is kept";
    load(QStringLiteral("white"));
    for (const float value : surroundings().data)
        ASSERT_EQ(value, 1);
}

TEST_F(EnvironmentLightRenderPassTest, whatIsFilteredIsKeptAndReadAgain)
{
    const QString file = caches.folder.write(QStringLiteral("disc.hdr"), radianceFile(256, 128, disc));
    load(file);
    const Image first = surroundings();
    const QVector3D direction = keyLight()->direction;
    ASSERT_EQ(kept().size(), 1);
    const auto again = [&] {
        pass = std::make_unique<EnvironmentLightRenderPass>();
        load(file);
        EXPECT_EQ(maximumDifference(surroundings(), first), 0);
        EXPECT_LT((keyLight()->direction - direction).length(), 1e-6f);
        EXPECT_EQ(kept().size(), 1);
    };
    again();
    // One that is damaged is made again.
    const QString path = kept().first();
    QFile damaged(path);
    ASSERT_TRUE(damaged.open(QIODevice::ReadWrite));
    const qint64 size = damaged.size();
    damaged.resize(size / 2);
    damaged.close();
    again();
    EXPECT_EQ(QFileInfo(path).size(), size);
    // Another content has a file of its own, whatever it is called.
    caches.folder.write(QStringLiteral("disc.hdr"), radianceFile(128, 64, disc));
    pass = std::make_unique<EnvironmentLightRenderPass>();
    load(file);
    EXPECT_EQ(kept().size(), 2);
}

TEST_F(EnvironmentLightRenderPassTest, badFilesAreOneLine)
{
    const QByteArray whole = radianceFile(64, 32, disc);
    const QString cut = caches.folder.write(QStringLiteral("cut.hdr"), whole.left(whole.size() - 100));
    const QString text = caches.folder.write(QStringLiteral("text.hdr"), "no image");
    const QString exr = caches.folder.write(QStringLiteral("cut.exr"), QByteArray("\x76\x2f\x31\x01\x02\0\0\0", 8));
    const QString none = caches.folder.path(QStringLiteral("none.hdr"));
    const QPair<QString, const char *> cases[] = {{cut, "it is damaged or cut short"},
        {text, "it is no image that can be read"}, {exr, "it is damaged or cut short"},
        {none, "there is no such file, and the environments built in are daylight, studio, white"}};
    for (const auto &bad : cases) {
        const QString line = EnvironmentLightRenderPass::problemWith(bad.first);
        EXPECT_TRUE(line.startsWith(QLatin1String(bad.second))) << qPrintable(line);
        EXPECT_FALSE(line.contains(QLatin1Char('\n')));
        load(bad.first);
        const QStringList warnings = log.takeWarnings();
        EXPECT_TRUE(warnings.size() == 1
            && warnings.first().endsWith(QStringLiteral("Environment \"%1\" cannot be used: %2").arg(bad.first, line)))
            << qPrintable(warnings.join(QLatin1Char('|')));
        EXPECT_FALSE(texture(Port::EnvironmentTexture));
        EXPECT_FALSE(keyLight());
        pass->start(nullptr);
        EXPECT_EQ(log.takeWarnings(), QStringList()) << "said once";
    }
    EXPECT_EQ(kept(), QStringList());
}

TEST_F(EnvironmentLightRenderPassTest, imagesOfEightBitsAreDecoded)
{
    QImage image(8, 4, QImage::Format_RGB32);
    image.fill(QColor(188, 188, 188));
    const QString file = caches.folder.path(QStringLiteral("grey.png"));
    ASSERT_TRUE(image.save(file));
    load(file);
    EXPECT_NEAR(surroundings().data[0], 0.5029, 0.0011) << "to eight digits";
}

TEST_F(EnvironmentLightRenderPassTest, theBackgroundShowsTheImageWhereItLies)
{
    const auto quarters = [](const QVector3D &d) {
        return QVector3D(d.x() > 0 ? 1 : 0, d.y() > 0 ? 1 : 0, d.z() < 0 ? 1 : 0);
    };
    const QString file = caches.folder.write(QStringLiteral("quarters.hdr"), radianceFile(128, 64, quarters));
    setViewport(QSize(8, 8));
    load(file);
    EXPECT_FALSE(texture(Port::Background)) << "not asked for";
    pass->setInput(Port::ShowsEnvironment, true);
    pass->setInput(Port::ProjectionMatrix, perspective(QSize(8, 8), 0.1f, 10));
    for (const QString &name : {file, QStringLiteral("white")}) {
        load(name);
        const Image shown = image(Port::Background);
        const bool isWhite = name != file;
        EXPECT_EQ(shown.pixel(7, 7), QVector4D(1, 1, 1, 1)) << "to the right, above, ahead";
        EXPECT_EQ(shown.pixel(0, 0), isWhite ? QVector4D(1, 1, 1, 1) : QVector4D(0, 0, 1, 1)) << "to the left, below";
    }
    QMatrix4x4 back;
    back.rotate(180, 0, 1, 0);
    pass->setInput(Port::CameraMatrix, back);
    load(file);
    EXPECT_EQ(image(Port::Background).pixel(7, 7), QVector4D(0, 1, 0, 1)) << "the other way";
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(PooledTextures::allReferences(), 0);
    // The size is the same, the target is another.
    pass->teardownContextData(nullptr);
    load(file);
    EXPECT_EQ(image(Port::Background).pixel(7, 7), QVector4D(0, 1, 0, 1));
}

TEST_F(EnvironmentLightRenderPassTest, thePolesShowNothingOfEachOther)
{
    const QString file = caches.folder.write(QStringLiteral("halves.hdr"),
        radianceFile(64, 32, [](const QVector3D &d) { return d.y() > 0 ? QVector3D(1, 1, 1) : QVector3D(); }));
    const QSize square(9, 9);
    setViewport(square);
    pass->setInput(Port::ShowsEnvironment, true);
    QMatrix4x4 narrow;
    narrow.perspective(2, 1, 0.1f, 10);
    pass->setInput(Port::ProjectionMatrix, narrow);
    for (const bool isUp : {true, false}) {
        QMatrix4x4 camera;
        camera.rotate(isUp ? -90 : 90, 1, 0, 0);
        pass->setInput(Port::CameraMatrix, camera);
        load(file);
        const Image shown = image(Port::Background);
        for (int i = 0; i < 9; ++i)
            EXPECT_EQ(shown.pixel(i, i).x(), isUp ? 1 : 0) << i;
    }
}

TEST_F(EnvironmentLightRenderPassTest, takesItsObjectsAlong)
{
    const GLObjectCounts before = glObjectCounts();
    load(QStringLiteral("white"));
    EXPECT_EQ(glObjectCounts().textures, before.textures + 1);
    load(QString());
    EXPECT_FALSE(texture(Port::EnvironmentTexture)) << "no name, no surroundings";
    load(QStringLiteral("white"));
    pass->teardownContextData(nullptr);
    EXPECT_TRUE(glObjectCounts() == before);
    load(QStringLiteral("white"));
    EXPECT_TRUE(texture(Port::EnvironmentTexture)) << "it loads again";
}

} // namespace Velmora::Kvz
