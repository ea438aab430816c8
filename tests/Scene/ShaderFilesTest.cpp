// SPDX-License-Identifier: MIT
#include "SceneFixtures.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/OpenGLDeviceContext.h>
#include <Scene/InstanceDataRegistry.h>

#include <QtCore/QFile>

#include <epoxy/gl.h>

#include <cmath>
#include <cstring>
#include <random>

namespace Velmora::Kvz {

namespace {

const QString quadVertexSource = QStringLiteral("#version 150\nin vec3 va_Vertex;\n"
                                                "void main() { gl_Position = vec4(va_Vertex, 1.0); }\n");

class ShaderFilesTest : public GLTest
{
protected:
    /// The results that the fragment source writes for these inputs, each in u_Input at the pixel's texel.
    QVector<QVector4D> compute(const QString &fragmentSource, const QVector<QVector4D> &inputs)
    {
        const auto program = makeProgram({
            {GL_VERTEX_SHADER, quadVertexSource},
            {GL_FRAGMENT_SHADER, fragmentSource},
            {GL_FRAGMENT_SHADER, QStringLiteral("@KvzUtilities.glslc")},
        });
        Image texels(inputs.size(), 1);
        for (int i = 0; i < inputs.size(); ++i)
            texels.setPixel(i, 0, inputs[i]);
        const auto texture = makeTexture(texels, GL_RGBA32F);
        const auto quad = OpenGLDeviceContext::current()->createScreenQuad();
        RenderTarget target(inputs.size(), 1, GL_RGBA32F, false);
        AutoBinder programBinder(program.get());
        AutoBinder textureBinder(texture.get());
        AutoBinder quadBinder(quad);
        program->setUniform(QStringLiteral("u_Input"), texture->unit());
        EXPECT_TRUE(quad->draw());
        const Image image = target.read();
        QVector<QVector4D> results;
        for (int i = 0; i < inputs.size(); ++i)
            results.append(image.pixel(i, 0));
        return results;
    }

    QVector<QVector4D> latLong(const QVector<QVector4D> &directions)
    {
        return compute(QStringLiteral(R"(#version 150
#include "KvzUtilities.glslh"
uniform sampler2D u_Input;
out vec4 out_FragColor;
void main()
{
    vec3 direction = texelFetch(u_Input, ivec2(gl_FragCoord.xy), 0).xyz;
    out_FragColor = vec4(directionToLatLong_Tavo(direction), 0.0, 1.0);
}
)"),
            directions);
    }
};

TEST_F(ShaderFilesTest, panoramaFacesNegativeZAndTurnsRight)
{
    struct Case
    {
        QVector3D direction;
        QVector2D expected;
    };
    const QVector<Case> cases = {
        {{0, 0, -1}, {0.5f, 0.5f}}, // Ahead: the centre.
        {{1, 0, 0}, {0.75f, 0.5f}}, // Right.
        {{-1, 0, 0}, {0.25f, 0.5f}}, // Left.
        {{0, 1, 0}, {0.5f, 1}}, // Up: the upper edge.
        {{0, -1, 0}, {0.5f, 0}},
        {{1e-6f, 0, 1}, {1, 0.5f}}, // Behind, a little to the right: the right edge.
        {{-1e-6f, 0, 1}, {0, 0.5f}},
        {{0, 1, -1}, {0.5f, 0.75f}},
        {{1, 0, -1}, {0.625f, 0.5f}},
        {{0, 0, 0}, {0.5f, 0.5f}},
        // The length of a direction has no effect.
        {{3e-30f, 0, -3e-30f}, {0.625f, 0.5f}},
        {{3e30f, 0, -3e30f}, {0.625f, 0.5f}},
        {{0, -3e38f, 0}, {0.5f, 0}},
        // Close to the poles.
        {{1e-7f, 1, 0}, {0.75f, 1}},
        {{0, -1, -1e-7f}, {0.5f, 0}},
    };
    QVector<QVector4D> directions;
    for (const Case &c : cases)
        directions.append(QVector4D(c.direction, 0));
    const QVector<QVector4D> results = latLong(directions);
    for (int i = 0; i < cases.size(); ++i)
        EXPECT_LT((results[i].toVector2D() - cases[i].expected).length(), 1e-5f) << i;
}

TEST_F(ShaderFilesTest, panoramaAtManyDirections)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> angle(-float(M_PI), float(M_PI));
    QVector<QVector4D> directions;
    QVector<QVector2D> expected;
    for (int i = 0; i < 500; ++i) {
        const float longitude = angle(random) * 0.999f;
        const float latitude = angle(random) * 0.499f;
        const float length = std::exp(angle(random));
        directions.append(length
            * QVector4D(std::sin(longitude) * std::cos(latitude), std::sin(latitude),
                -std::cos(longitude) * std::cos(latitude), 0));
        expected.append(QVector2D(0.5f + longitude / (2 * float(M_PI)), 0.5f + latitude / float(M_PI)));
    }
    const QVector<QVector4D> results = latLong(directions);
    for (int i = 0; i < directions.size(); ++i)
        EXPECT_LT((results[i].toVector2D() - expected[i]).length(), 1e-4f) << i;
}

TEST_F(ShaderFilesTest, panoramaOverTheWholeSphere)
{
    // Every five degrees, seam and poles included, each direction computed in doubles.
    QVector<QVector4D> directions;
    QVector<QVector2D> degrees;
    for (int latitude = -90; latitude <= 90; latitude += 5) {
        for (int longitude = -180; longitude <= 180; longitude += 5) {
            const double across = latitude % 90 == 0 && latitude != 0 ? 0 : std::cos(latitude * M_PI / 180);
            directions.append(QVector4D(float(across * std::sin(longitude * M_PI / 180)),
                float(std::sin(latitude * M_PI / 180)), float(-across * std::cos(longitude * M_PI / 180)), 0));
            degrees.append(QVector2D(float(longitude), float(latitude)));
        }
    }
    const QVector<QVector4D> results = latLong(directions);
    int poles = 0;
    int seam = 0;
    for (int i = 0; i < directions.size(); ++i) {
        const float longitude = degrees[i].x();
        const float latitude = degrees[i].y();
        EXPECT_NEAR(results[i].y(), 0.5f + latitude / 180, 1e-5f) << longitude << ", " << latitude;
        if (std::abs(latitude) == 90) {
            EXPECT_EQ(results[i].x(), 0.5f) << "at a pole every longitude is the same place";
            ++poles;
        } else if (std::abs(longitude) == 180) {
            // Either edge of the image; they meet there.
            EXPECT_NEAR(std::abs(results[i].x() - 0.5f), 0.5f, 1e-5f) << longitude << ", " << latitude;
            ++seam;
        } else {
            EXPECT_NEAR(results[i].x(), 0.5f + longitude / 360, 1e-5f) << longitude << ", " << latitude;
        }
    }
    EXPECT_EQ(poles, 2 * 73);
    EXPECT_EQ(seam, 2 * 35);
}

TEST_F(ShaderFilesTest, gammaCorrectKeepsAlpha)
{
    const QVector<QVector4D> results = compute(QStringLiteral(R"(#version 150
#include "KvzUtilities.glslh"
uniform sampler2D u_Input;
out vec4 out_FragColor;
void main() { out_FragColor = gammaCorrect(texelFetch(u_Input, ivec2(gl_FragCoord.xy), 0), 2.2); }
)"),
        {{0.5f, 1, 4, 0.3f}, {-1, 0, 0.2f, 1}});
    EXPECT_LT((results[0] - QVector4D(std::pow(0.5f, 1 / 2.2f), 1, std::pow(4.0f, 1 / 2.2f), 0.3f)).length(), 1e-4f);
    EXPECT_LT((results[1] - QVector4D(0, 0, std::pow(0.2f, 1 / 2.2f), 1)).length(), 1e-4f);
}

TEST_F(ShaderFilesTest, floatsSurviveTheRoundTripThroughBits)
{
    // The way sources use it: before their own #extension lines.
    const QString source = QStringLiteral(R"(#version 150
#include "ShaderBitEncoding.glslh"
#ifdef GL_ARB_shading_language_420pack
#extension GL_ARB_shading_language_420pack : enable
#endif
uniform sampler2D u_Input;
out vec4 out_FragColor;
void main()
{
    float value = texelFetch(u_Input, ivec2(gl_FragCoord.xy), 0).x;
    uint bits = floatBitsToUint(value);
    out_FragColor = vec4(uintBitsToFloat(bits), float(bits >> 16u), float(bits & 65535u), 1.0);
}
)");
    const float values[] = {0, 1, -1, 0.1f, 1e30f, -3.5e-20f, 0.99999994f};
    QVector<QVector4D> inputs;
    for (const float value : values)
        inputs.append(QVector4D(value, 0, 0, 0));
    const QVector<QVector4D> results = compute(source, inputs);
    for (int i = 0; i < inputs.size(); ++i) {
        quint32 bits = 0;
        std::memcpy(&bits, &values[i], sizeof(bits));
        EXPECT_EQ(results[i].x(), values[i]);
        EXPECT_EQ(results[i].y(), float(bits >> 16)) << values[i];
        EXPECT_EQ(results[i].z(), float(bits & 0xffff)) << values[i];
    }
}

TEST_F(ShaderFilesTest, bitEncodingHoldsDirectivesOnly)
{
    QFile file(QStringLiteral(":/Media/Shaders/ShaderBitEncoding.glslh"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    for (const QString &line : lines)
        EXPECT_TRUE(line.isEmpty() || line.startsWith(QLatin1Char('#')) || line.startsWith(QLatin1String("//")))
            << qPrintable(line);
}

TEST_F(ShaderFilesTest, utilitiesLinkIntoVertexAndGeometryStages)
{
    const InstanceDataRegistry &registry = InstanceDataRegistry::Instance();
    const QString plan = registry.getPlan(QStringLiteral("TavoInstance")).glslc();
    const auto program = makeProgram({
        {GL_VERTEX_SHADER, QStringLiteral(R"(#version 150
#instancedata "TavoInstance"
in vec3 va_Vertex;
out VarVert { vec4 fragPos; } varVert;
void main() { varVert.fragPos = getModelMatrix() * vec4(va_Vertex, 1.0); }
)")},
        {GL_VERTEX_SHADER, plan},
        {GL_VERTEX_SHADER, QStringLiteral("@KvzUtilities.glslc")},
        {GL_VERTEX_SHADER, QStringLiteral("@KvzUtilities.vert")},
        {GL_GEOMETRY_SHADER, QStringLiteral(R"(#version 150
#instancedata "TavoInstance"
layout(triangles) in;
layout(triangle_strip, max_vertices = 3) out;
in VarVert { vec4 fragPos; } varVert[3];
out float vo_Item;
void main()
{
    for (int i = 0; i < 3; ++i) {
        gl_Position = vec4(varVert[i].fragPos.xy * 2.0 - 1.0, 0.0, 1.0);
        vo_Item = getModelMatrix()[3].z;
        EmitVertex();
    }
    EndPrimitive();
}
)")},
        {GL_GEOMETRY_SHADER, plan},
        {GL_GEOMETRY_SHADER, QStringLiteral("@KvzUtilities.glslc")},
        {GL_FRAGMENT_SHADER,
            QStringLiteral("#version 150\nin float vo_Item;\nout vec4 out_FragColor;\n"
                           "void main() { out_FragColor = vec4(vo_Item); }\n")},
    });
    GPUModelBuilder builder;
    builder.addMesh(unitSquare());
    builder.addMaterial({});
    builder.addItem(0, 0, placed(0, 0, 3, 0.5f));
    builder.addItem(0, 0, placed(0.5f, 0.5f, 4, 0.5f));
    const QSharedPointer<GPUModel> model = builder.build();
    RenderTarget target(2, 2, GL_RGBA32F);
    model->draw(program.get(), nullptr, 0, 0);
    EXPECT_EQ(target.read().pixel(0, 0).x(), 3.0f);
    EXPECT_EQ(target.read().pixel(1, 1).x(), 4.0f);
    EXPECT_EQ(target.read().pixel(1, 0).x(), 0.0f);
}

} // namespace

} // namespace Velmora::Kvz
