// SPDX-License-Identifier: MIT
#pragma once

#include "support/Cameras.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/VisibilityLists.h"

#include <RenderPasses/VisibilityBufferRenderPass.h>
#include <RenderPasses/VisibilityDeferredRenderPass.h>
#include <RenderPasses/VisibilitySortRenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

/// The three passes on a scene. Tests of suites with "Lists" in their names need a driver that has lists, those with
/// "SingleNode" one that has none, as tests/RenderPasses/CMakeLists.txt provides; all others hold on both.
class VisibilityFixture : public GLTest
{
protected:
    using Buffer = VisibilityBufferRenderPass;
    using Sort = VisibilitySortRenderPass;
    using Deferred = VisibilityDeferredRenderPass;

    void SetUp() override
    {
        GLTest::SetUp();
        const std::string suite = ::testing::UnitTest::GetInstance()->current_test_info()->test_suite_name();
        if (suite.find("Lists") != std::string::npos) {
            ASSERT_TRUE(hasVisibilityLists()) << "this driver has no lists";
        }
        if (suite.find("SingleNode") != std::string::npos) {
            ASSERT_FALSE(hasVisibilityLists()) << "hide an extension from the test: MESA_EXTENSION_OVERRIDE";
        }
    }

    /// Sets the viewport of the passes and, as a host does, of GL.
    void setViewport(const QSize &newSize)
    {
        size = newSize;
        buffer->setInput(Buffer::Viewport, QRect(QPoint(0, 0), size));
        sort->setInput(Sort::Viewport, QRect(QPoint(0, 0), size));
        deferred->setInput(Deferred::Viewport, QRect(QPoint(0, 0), size));
        glViewport(0, 0, size.width(), size.height());
    }

    void setCamera(const QMatrix4x4 &newCamera, const QMatrix4x4 &newProjection)
    {
        camera = newCamera;
        projection = newProjection;
        buffer->setInput(Buffer::CameraMatrix, camera);
        buffer->setInput(Buffer::ProjectionMatrix, projection);
        deferred->setInput(Deferred::CameraMatrix, camera);
        deferred->setInput(Deferred::ProjectionMatrix, projection);
    }

    void setModel(const QSharedPointer<GPUModel> &newModel)
    {
        model = newModel;
        buffer->setInput(Buffer::Geometry, QVariant::fromValue(model.data()));
        deferred->setInput(Deferred::Geometry, QVariant::fromValue(model.data()));
    }

    void runBuffer() { buffer->start(nullptr); }
    void runSort()
    {
        for (int i = 0; i < 3; ++i)
            sort->setInput(Sort::HeadPointersIn + i, buffer->output(i));
        sort->start(nullptr);
    }
    void runDeferred()
    {
        for (int i = 0; i < 3; ++i)
            deferred->setInput(Deferred::HeadPointers + i, sort->output(i));
        deferred->start(nullptr);
    }
    /// Runs all three passes, with the clear colour for pixels without fragments.
    Image runAll()
    {
        runBuffer();
        runSort();
        glClearColor(0, 0, 0, 1);
        runDeferred();
        return frame();
    }
    Image frame() const { return readTexture(deferred->output(Deferred::Frame).value<Texture *>()); }

    /// The image bound at an image unit; -1 if the driver has no image units.
    static int boundImage(unsigned int unit)
    {
        if (!hasVisibilityLists())
            return -1;
        GLint name = 0;
        glGetIntegeri_v(GL_IMAGE_BINDING_NAME, unit, &name);
        return name;
    }

    std::unique_ptr<Buffer> buffer = std::make_unique<Buffer>(0ull, 0ull);
    std::unique_ptr<Sort> sort = std::make_unique<Sort>();
    std::unique_ptr<Deferred> deferred = std::make_unique<Deferred>();
    QSharedPointer<GPUModel> model;
    QSize size;
    QMatrix4x4 camera;
    QMatrix4x4 projection;
};

} // namespace Velmora::Kvz
