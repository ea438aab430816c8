// SPDX-License-Identifier: MIT
#pragma once

#include "GLCallRecorder.h"
#include "GLTest.h"
#include "Image.h"

#include <Core/RenderPass.h>
#include <GL/GLStatistics.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>

#include <QtCore/QPointer>
#include <QtCore/QRect>
#include <QtCore/QSharedPointer>
#include <QtCore/QVector>

#include <epoxy/gl.h>

#include <memory>

namespace Velmora::Kvz {

/// Holds one object of a default-constructible pass, made before the test and deleted after it. `Port` names its inputs
/// and outputs, as in `Port::Viewport`.
template <typename Pass> class PassTest : public GLTest
{
protected:
    using Port = Pass;

    std::unique_ptr<Pass> pass = std::make_unique<Pass>();

    /// Sets the viewport of the pass, at the origin, and, as a host does, of GL.
    void setViewport(const QSize &size)
    {
        pass->setInput(Port::Viewport, QRect(QPoint(), size));
        glViewport(0, 0, size.width(), size.height());
    }
    void setTexture(int input, Texture *texture) { pass->setInput(input, QVariant::fromValue(texture)); }
    /// `model` must outlive the frames that draw it.
    void setModel(const QSharedPointer<GPUModel> &model)
    {
        pass->setInput(Port::Geometry, QVariant::fromValue(model.data()));
    }

    Texture *texture(int output) const { return pass->output(output).template value<Texture *>(); }
    Image image(int output) const { return readTexture(texture(output)); }

    /// Checks that the first `outputs` outputs are textures of the pass: kept while the viewport has the same size,
    /// deleted when either side changes. `deleted` counts the deleted textures, unpublished ones included.
    void expectTexturesFollowTheViewport(int outputs, size_t deleted)
    {
        setViewport(QSize(16, 8));
        pass->start(nullptr);
        const GLObjectCounts before = glObjectCounts();
        QVector<QPointer<Texture>> old;
        for (int i = 0; i < outputs; ++i)
            old.append(texture(i));
        pass->start(nullptr);
        for (int i = 0; i < outputs; ++i)
            EXPECT_EQ(texture(i), old[i]) << "an unchanged size keeps the textures";
        for (const QSize &other : {QSize(16, 9), QSize(15, 9)}) {
            GLCallRecorder<&epoxy_glDeleteTextures> deletions;
            setViewport(other);
            pass->start(nullptr);
            EXPECT_EQ(deletions.calls.size(), deleted);
            for (int i = 0; i < outputs; ++i) {
                EXPECT_TRUE(old[i].isNull()) << i;
                EXPECT_EQ(QSize(texture(i)->width(0), texture(i)->height(0)), other);
                old[i] = texture(i);
            }
            EXPECT_TRUE(glObjectCounts() == before);
        }
    }
};

} // namespace Velmora::Kvz
