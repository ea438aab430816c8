// SPDX-License-Identifier: MIT
#pragma once

#include "SurfaceProgram.h"

#include <Core/NamedValue.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtCore/QVariant>
#include <QtGui/QMatrix4x4>

#include <functional>
#include <memory>
#include <vector>

namespace Velmora::Kvz {

class BufferObject;
class DrawBuffers;
class FramebufferObject;
class GPUModel;
class ShaderProgram;
class Texture;

/// Shades lists of fragments, as LitListRenderPass describes it, with surfaces and light of either kind.
class ListShading
{
public:
    explicit ListShading(SurfaceKind kind);
    ~ListShading();

    struct Lists
    {
        QSize size;
        QMatrix4x4 projection;
        QMatrix4x4 camera;
        Texture *heads;
        Texture *nodes;
        int nodeBufferWidth;
        GPUModel *model;
    };

    /// Writes the layers, a pooled image, to an output with so many users, and gives the images of the lists back. `prepare` sets what
    /// the bound program has of light, and `finish` undoes what it bound.
    void draw(const Lists &lists, NamedValue<QVariant> &output, int users,
        const std::function<void(ShaderProgram &)> &prepare, const std::function<void()> &finish = {});

private:
    bool canShow(const GPUModel &model);
    void showBuffers();
    void shade(const Lists &lists, const std::function<void(ShaderProgram &)> &prepare);

    SurfaceKind m_kind;
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::vector<QSharedPointer<BufferObject>>
        m_buffers; ///< Of vertices, texture coordinates, normals, indices and vertex extras.
    std::vector<std::unique_ptr<Texture>> m_bufferTextures;
    std::unique_ptr<SurfaceProgramVariants> m_programs;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    int m_maximumTexels = 0; ///< Of a buffer texture.
    bool m_isModelRefused = false;
};

} // namespace Velmora::Kvz
