// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QPoint>
#include <QtCore/QRect>
#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

#include <functional>
#include <memory>

namespace Velmora::Kvz {

class GPUModel;

/// What is seen at a place of a picture.
struct ScenePick
{
    int item = -1; ///< Its number in the model, as GPUModel counts; -1: nothing is there, and the rest says nothing.
    int mesh = -1; ///< The numbers of its mesh and material, as GPUModelBuilder gave them.
    int material = -1;
    int triangle = -1; ///< Within the item, from 0.
    QPoint pixel; ///< Where it was found.
    QVector3D position; ///< Of the surface at the middle of that pixel, in world space.
    QVector3D
        normal; ///< Of the triangle, in world space, of length 1, on the side that is seen. Null where the triangle has no area.

    bool isHit() const { return item >= 0; }
};

/// Says what is seen at a place of a picture, without waiting for the GPU. A question draws the ids of the pixels around that place, and
/// nothing else of the picture; the answer comes from poll(), one or two frames later.
///
/// ```cpp
/// picker.setModel(model);
/// picker.setView(camera.cameraMatrix, camera.projectionMatrix, viewport.size());
/// picker.pick(position, 4, [](const ScenePick &pick) { select(pick.item); });
/// // In each frame:
/// picker.poll();
/// ```
///
/// Masks cut holes through which the items behind are found. pick(), pickArea(), poll() and wait() need a context in which the model may be
/// drawn, the same each time; GL state is restored.
class KVZ_HOST_EXPORT ScenePicker
{
public:
    using Answer = std::function<void(const ScenePick &)>;
    using AreaAnswer = std::function<void(const QVector<int> &items)>;

    ScenePicker();
    /// Questions that are open are not answered.
    ~ScenePicker();

    /// The model of the next questions, not owned; null for none. Open questions about another model are answered with no hit.
    void setModel(GPUModel *model);
    /// The camera of the picture, its projection without jitter, and its size in pixels.
    void setView(const QMatrix4x4 &camera, const QMatrix4x4 &projection, const QSize &size);
    /// Whether items with GPUModel::Transparent are looked through; false unless set.
    void setOpaqueOnly(bool isOpaqueOnly);

    /// Asks for what is nearest to a pixel within a radius in pixels, from 0 to 64; of several at one distance what is nearest to
    /// the eye. (0, 0) is at the upper left. False, with errorString(), for a place outside of the picture, without a context, and
    /// when the ids cannot be drawn; `answer` is not called then.
    bool pick(const QPoint &pixel, int radius, const Answer &answer);
    /// Asks for the items that are seen in an area of the picture, in ascending order. False as for pick(), and for an area that does not
    /// touch the picture.
    bool pickArea(const QRect &area, const AreaAnswer &answer);
    QString errorString() const;

    /// Questions without an answer.
    int pendingCount() const;
    /// Answers what has arrived, in the order of the questions, and returns how many are left. Does not wait.
    int poll();
    /// Waits for all answers, for programs that draw no further frame.
    void wait();
    /// Deletes what it keeps on the GPU, with the context current, and answers open questions with no hit.
    void releaseContext();

private:
    Q_DISABLE_COPY(ScenePicker)

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Velmora::Kvz
