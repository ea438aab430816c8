// SPDX-License-Identifier: MIT

// own-shader MODEL FOLDER: a ready chain with a shader of the program's own behind it, whose inputs change from frame to frame.
#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/RenderChain.h>
#include <Host/Camera.h>
#include <Host/HeadlessContext.h>
#include <Host/ImageWriter.h>
#include <Import/ModelImporter.h>

using namespace Velmora::Kvz;

static const char fragmentSource[] = R"(#version 150

uniform sampler2D u_Frame;
uniform vec4 u_Scan;     // Colour of the line; its strength in alpha.
uniform float u_Height;  // Where the line is, from 0 at the bottom to 1.
in vec2 vo_TexCoord;
out vec4 o_Frame;

void main()
{
    vec4 frame = texture(u_Frame, vo_TexCoord);
    float near = 1.0 - smoothstep(0.0, 0.05, abs(vo_TexCoord.y - u_Height));
    o_Frame = vec4(mix(frame.rgb, u_Scan.rgb, u_Scan.a * near), frame.a);
}
)";

/// The pass, as a chain file would have it: the first input is an image, the others are uniforms.
static ChainPass scanPass()
{
    const QVariantMap image{{"name", "Kvz_KvzTexture*_Frame"}, {"kind", "colour"}};
    const QVariantMap colour{{"name", "u_Scan"}, {"type", "QColor"}, {"value", "#40ffa0"}};
    const QVariantMap height{{"name", "u_Height"}, {"type", "float"}, {"value", 0.5}};
    ChainPass pass;
    pass.name = "scan";
    pass.className = "ShaderRenderPass";
    pass.options = {{"fragment", QString(fragmentSource)}, // Or the name of a file.
        {"inputs", QVariantList{image, colour, height}},
        {"outputs", QVariantList{QVariantMap{{"name", "Kvz_KvzTexture*_Frame"}}}}};
    return pass;
}

int main(int argc, char **argv)
{
    if (argc != 3)
        qFatal("usage: own-shader MODEL FOLDER");
    QString error;
    const auto context = HeadlessContext::create(&error);
    ImportedScene scene;
    ChainDescription description;
    if (!context || !importModel(argv[1], &scene, &error) || !loadChain("deferred", &description, &error))
        qFatal("%s", qPrintable(error));

    // Before the pass that presents, which then takes its frame.
    const QString texture = "Kvz_KvzTexture*_Texture";
    description.passes.insert(description.findPass("screen"), scanPass());
    description.passes.last().connections[texture] = ChainSource::output("scan", "Kvz_KvzTexture*_Frame");
    // What kvz check --driver says: misspelt uniforms, inputs that nothing feeds, shaders that do not compile.
    for (const ChainFinding &finding : validateChain(description) + validateChainOnDriver(description))
        qWarning("%s", qPrintable(finding.toString()));

    const QSharedPointer<GPUModel> model = scene.build();
    const QSize size(320, 240);
    const Camera camera = frameScene(model->sceneBounds(), CameraView(), size);
    RenderChain chain;
    if (!chain.setDescription(description))
        qFatal("%s", qPrintable(chain.errorString()));
    chain.setEnabled("screen", false); // There is none.
    chain.setViewport(QRect(QPoint(), size));
    chain.setCamera(camera.cameraMatrix, camera.projectionMatrix);
    chain.setModel(model.data());
    for (int frame = 0; frame < 3; ++frame) {
        chain.setValue("scan", "u_Height", 0.25f * float(frame + 1));
        chain.requestCapture({"scan", "Kvz_KvzTexture*_Frame"});
        const QString file = QStringLiteral("%1/scan-%2.png").arg(argv[2]).arg(frame);
        if (!chain.renderFrame() || !writeImage(chain.takeCaptures().first().image, file, &error))
            qFatal("%s", qPrintable(chain.errorString() + error));
    }
    return 0;
}
