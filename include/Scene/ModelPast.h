// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/QtGlobal>

#include <memory>

namespace Velmora::Kvz {

/// What is remembered of a model from frame to frame by one who draws it: where its items were in the last frame, and what
/// culling found. Each RenderChain has one for each of its models; a model has one of its own for all other draws.
///
/// GPUModel::makePast() makes it and GPUModel::usePast() puts it in force. It may outlive its model, and be deleted at any time; with the
/// context of its occlusion queries current, they are deleted too.
class KVZ_GL_EXPORT ModelPast
{
public:
    ~ModelPast();

private:
    friend class GPUModel;
    explicit ModelPast(int itemCount);
    Q_DISABLE_COPY(ModelPast)

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Velmora::Kvz
