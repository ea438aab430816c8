// SPDX-License-Identifier: MIT
#include "CoverageStencil.h"

#include <Scene/GPUModel.h>

#include "steps/TargetFramebuffer.h"

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

void remakeDepthStencilTarget(TargetFramebuffer &framebuffer, const QSize &size)
{
    framebuffer.remakeTarget(
        GL_DEPTH_STENCIL_ATTACHMENT, GL_DEPTH24_STENCIL8, size, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8);
}

void drawWithCoverage(GPUModel *model, ShaderProgram *program, const QSize &size)
{
    glViewport(0, 0, size.width(), size.height());
    glDisable(GL_BLEND);
    glDisable(GL_CULL_FACE);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    glStencilMask(0xff);
    glClearColor(0, 0, 0, 0);
    glClearDepth(1);
    glClearStencil(0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    if (!model)
        return;

    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
    glEnable(GL_STENCIL_TEST);
    glStencilFunc(GL_ALWAYS, 1, 0xff);
    glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);
    // Without a manager: these programs read no images of materials.
    model->draw(program, nullptr, 0, 0);
    glDisable(GL_STENCIL_TEST);
}

} // namespace Velmora::Kvz
