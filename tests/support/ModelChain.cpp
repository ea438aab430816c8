// SPDX-License-Identifier: MIT
#include "ModelChain.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/FrameValues.h>
#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>

#include <gtest/gtest.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

ChainDescription readyChain(const QString &name)
{
    ChainDescription description;
    QString error;
    EXPECT_TRUE(loadChain(name, &description, &error)) << qPrintable(error);
    return description;
}

} // namespace

ModelChain::ModelChain(const QString &chainName, const QSharedPointer<GPUModel> &model, const QSize &size)
    : ModelChain(readyChain(chainName), model, size)
{
    for (const ChainFinding &finding : validateChain(chain.description()) + validateChainOnDriver(chain.description()))
        ADD_FAILURE() << qPrintable(finding.toString());
}

ModelChain::ModelChain(const ChainDescription &description, const QSharedPointer<GPUModel> &model, const QSize &size)
    : m_model(model),
      m_size(size),
      m_target(makeTexture(Image(size.width(), size.height()), GL_RGBA8))
{
    EXPECT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    m_framebuffer.bind();
    m_framebuffer.attach(m_target.get(), GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer.setDrawBuffers();
    m_framebuffer.unbind();
    chain.setViewport(QRect(QPoint(), size));
    chain.setFramebuffer(&m_framebuffer);
    chain.setModel(model.data());
    look(CameraView());
}

void ModelChain::look(const CameraView &view)
{
    camera = frameScene(m_model->sceneBounds(), view, m_size);
    chain.setCamera(camera.cameraMatrix, camera.projectionMatrix);
    chain.setFrameValue(FrameValues::nearPlane, camera.nearPlane);
    chain.setFrameValue(FrameValues::farPlane, camera.farPlane);
}

QVector<Image> ModelChain::render(const QVector<ChainOutput> &outputs)
{
    return renderOutputs(&chain, outputs);
}

void ModelChain::expectSteadyFrames()
{
    const int references = TextureManager::Instance()->poolStatistics().references;
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
    const qint64 bytes = TextureManager::Instance()->poolStatistics().bytes;
    const GLObjectCounts objects = glObjectCounts();
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().bytes, bytes);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, references);
    EXPECT_TRUE(glObjectCounts() == objects);
}

QVector<Image> renderOutputs(RenderChain *chain, const QVector<ChainOutput> &outputs)
{
    for (int i = 0; i < outputs.size(); ++i)
        EXPECT_TRUE(chain->addExport(QString::number(i), outputs[i])) << qPrintable(chain->errorString());
    EXPECT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
    QVector<Image> images;
    for (int i = 0; i < outputs.size(); ++i) {
        const Texture *const texture = chain->exportedTexture(QString::number(i));
        images.append(texture ? readTexture(texture) : Image());
        chain->removeExport(QString::number(i));
    }
    return images;
}

ImportedScene importScene(const QString &file)
{
    ImportedScene scene;
    QString error;
    EXPECT_TRUE(importModel(file, &scene, &error)) << qPrintable(error);
    EXPECT_EQ(scene.warnings, QStringList());
    return scene;
}

} // namespace Velmora::Kvz
