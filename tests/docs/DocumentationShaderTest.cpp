// SPDX-License-Identifier: MIT
// The shaders that docs/shaders.md shows compile, and its plan does what the page says.
#include "examples/Highlight.h"
#include "support/GLTest.h"

#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <Scene/GPUModelBuilder.h>
#include <Scene/InstanceDataCollection.h>

#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtGui/QVector4D>

namespace Velmora::Kvz {

using DocumentationShaderTest = GLTest;

TEST_F(DocumentationShaderTest, theShadersOfThePagesCompile)
{
    // Separate blocks in one page, a string literal in the other.
    const QPair<QString, QString> places[] = {
        {QStringLiteral("shaders.md"), QStringLiteral("^```glsl\\n(.*?)^```$")},
        {QStringLiteral("passes/ShaderRenderPass.md"), QStringLiteral("R\"\\((#version.*?)\\)\"")},
    };
    int compiled = 0;
    for (const auto &place : places) {
        QFile file(QStringLiteral(KVZ_SOURCE_DIR "/docs/") + place.first);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QRegularExpression source(
            place.second, QRegularExpression::MultilineOption | QRegularExpression::DotMatchesEverythingOption);
        auto matches = source.globalMatch(QString::fromUtf8(file.readAll()));
        while (matches.hasNext()) {
            ShaderProgram program;
            program.addShader(GL_FRAGMENT_SHADER, matches.next().captured(1), place.first);
            EXPECT_TRUE(program.compile()) << qPrintable(program.log());
            ++compiled;
        }
    }
    EXPECT_EQ(compiled, 4);
}

TEST_F(DocumentationShaderTest, theVignetteDarkensTowardsTheCorners)
{
    ChainDescription description;
    QString error;
    const QString file = QStringLiteral(KVZ_SOURCE_DIR "/docs/examples/vignette.json");
    ASSERT_TRUE(loadChain(file, &description, &error)) << qPrintable(error);
    MeshData square;
    square.positions = {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}};
    square.normals.fill(QVector3D(1, 1, 1).normalized(), 4); // Straight to the light.
    square.indices = {0, 1, 2, 0, 2, 3};
    MaterialData grey;
    grey.kd = QVector3D(0.8f, 0.8f, 0.8f);
    grey.ks = QVector3D();
    GPUModelBuilder builder;
    builder.addItem(builder.addMesh(square), builder.addMaterial(grey));
    const QSharedPointer<GPUModel> model = builder.build();
    ASSERT_TRUE(model);

    RenderChain chain;
    ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    ASSERT_TRUE(chain.setEnabled(QStringLiteral("screen"), false)); // There is no screen.
    chain.setViewport(QRect(0, 0, 64, 64));
    chain.setCamera(QMatrix4x4(), QMatrix4x4());
    chain.setModel(model.data());
    ASSERT_TRUE(chain.requestCapture({QStringLiteral("vignette"), QStringLiteral("Kvz_KvzTexture*_Frame")}));
    ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
    const QImage image = chain.takeCaptures().value(0).image;
    ASSERT_EQ(image.size(), QSize(64, 64));
    EXPECT_NEAR(image.pixelColor(32, 32).redF(), 0.8, 0.01);
    EXPECT_NEAR(image.pixelColor(0, 0).redF(), 0.8 * (1 - 0.8), 0.03);
    EXPECT_NEAR(image.pixelColor(63, 32).redF(), 0.8 * (1 - 0.4), 0.03);
}

TEST_F(DocumentationShaderTest, theHighlightTintsItsItemAlone)
{
    ASSERT_TRUE(addHighlightPlan());
    MeshData square;
    square.positions = {{-0.9f, -0.4f, 0}, {-0.1f, -0.4f, 0}, {-0.1f, 0.4f, 0}, {-0.9f, 0.4f, 0}};
    square.normals.fill(QVector3D(0, 0, 1), 4);
    square.indices = {0, 1, 2, 0, 2, 3};
    MaterialData blue;
    blue.kd = QVector3D(0, 0, 1);
    GPUModelBuilder builder;
    const int mesh = builder.addMesh(square);
    const int material = builder.addMaterial(blue);
    QMatrix4x4 right;
    right.translate(1, 0, 0);
    builder.addItem(mesh, material);
    builder.addItem(mesh, material, right);
    const QSharedPointer<GPUModel> model = builder.build();
    ASSERT_TRUE(model);

    ChainDescription description;
    ChainPass pass;
    pass.name = QStringLiteral("geometry");
    pass.className = QStringLiteral("HighlightModelPass");
    description.passes.append(pass);
    PassRegistry registry = PassRegistry::standard();
    registry.add(highlightModelPass());
    RenderChain chain(registry);
    ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    chain.setViewport(QRect(0, 0, 40, 20));
    chain.setCamera(QMatrix4x4(), QMatrix4x4());
    chain.setModel(model.data());

    InstanceDataCollection rows(QStringLiteral("Highlight"));
    rows.setRowCount(model->itemCount());
    const auto coloursOfBoth = [&] {
        chain.requestCapture({QStringLiteral("geometry"), QStringLiteral("Kvz_KvzTexture*_Diffuse")});
        rows.bind(nullptr, nullptr);
        EXPECT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
        rows.unbind(nullptr, nullptr);
        const QImage image = chain.takeCaptures().value(0).image;
        return QVector<QColor>{image.pixelColor(10, 10), image.pixelColor(30, 10)};
    };
    const QColor plain(0, 0, 255);
    EXPECT_EQ(coloursOfBoth(), (QVector<QColor>{plain, plain}));

    ASSERT_TRUE(rows.setValue(1, QStringLiteral("getHighlight"), QVector4D(1, 0.5f, 0, 1)));
    const QVector<QColor> tinted = coloursOfBoth();
    EXPECT_EQ(tinted[0], plain);
    EXPECT_EQ(tinted[1].red(), 255);
    EXPECT_NEAR(tinted[1].green(), 128, 1);
    EXPECT_EQ(tinted[1].blue(), 0);
}

} // namespace Velmora::Kvz
