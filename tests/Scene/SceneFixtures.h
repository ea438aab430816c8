// SPDX-License-Identifier: MIT
#pragma once

#include "support/GLTest.h"

#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QPair>
#include <QtCore/QVector>

#include <memory>

namespace Velmora::Kvz {

/// A bound and cleared framebuffer with a colour texture and, if requested, a 32-bit depth texture; the viewport covers
/// it.
class RenderTarget
{
public:
    RenderTarget(int width, int height, int colorFormat, bool withDepth = true);
    ~RenderTarget();

    /// Clears colour to transparent black and depth to 1.
    void clear();
    Image read() const;
    Image readDepth() const;

private:
    FramebufferObject m_framebuffer;
    std::unique_ptr<Texture> m_color;
    std::unique_ptr<Texture> m_depth;
};

/// A program of sources given as pairs of stage and text; a text that starts with '@' names a shader file. The output
/// "out_FragColor" is colour 0. Fails the test when it does not link.
std::unique_ptr<ShaderProgram> makeProgram(const QVector<QPair<unsigned int, QString>> &sources);

/// A vertex source with the getters of a plan ("InstanceInfo" or "TavoInstance") that transforms by u_ProjectionMatrix,
/// u_CameraMatrix and the model matrix and passes `vo_TexCoord` on.
QString itemVertexSource(const QString &plan);
/// A program with itemVertexSource("InstanceInfo") and a fragment stage with the getters of "OBJMaterial" and
/// managedTexture(); `color` is the GLSL expression of the output.
std::unique_ptr<ShaderProgram> makeItemProgram(const QString &color);

/// The square from (0, 0) to (1, 1) at z = 0, facing +z; texture coordinates equal positions.
MeshData unitSquare();
/// The cube from -1 to 1, facing outwards, without normals and texture coordinates.
MeshData cube();

/// A matrix that moves by (x, y, z) and scales by `scale`.
QMatrix4x4 placed(float x, float y, float z = 0, float scale = 1);
/// The projection for which world x and y are pixels of a target and z runs from -1 (far) to 1 (near).
QMatrix4x4 pixelProjection(int width, int height);

} // namespace Velmora::Kvz
