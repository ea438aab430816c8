// SPDX-License-Identifier: MIT
#pragma once

#include "SceneMath.h"

#include <GL/BufferObject.h>
#include <GL/GLObject.h>
#include <GL/VertexArrayObject.h>

#include <QtCore/QSharedPointer>

#include <functional>
#include <memory>
#include <vector>

namespace Velmora::Kvz {

class ShaderProgram;

/// Finds the hidden items of a model by drawing their boxes under occlusion queries, in one context: that of the first collect() or view().
///
/// collect() begins a round, which lasts until the next one. Draws with one camera are a view of the round; in a view each
/// item is tested at most once, by the first draw that can. An item is hidden when every view that it took part in
/// tested it and found nothing.
/// The verdicts of collect() come from the tests of the previous round alone, so a wrong "hidden" lasts one frame. A result that has not
/// arrived is never waited for: the GPU then decides by the query itself.
class OcclusionQueries
{
public:
    enum class Verdict : quint8 {
        Visible, ///< Or unknown.
        Hidden,
        Undecided ///< Was hidden, and the last result has not arrived: draw it under query().
    };

    explicit OcclusionQueries(int itemCount);
    /// Deletes the queries, or leaves them to their context when that is not current.
    ~OcclusionQueries();

    /// Whether they are those of the current context, or of none yet.
    bool isUsableHere() const { return !m_isClaimed || m_owner.isKnownToCurrentContext(); }
    /// Whether their context is gone.
    bool isLost() const { return m_owner.isLost(); }

    /// Begins a round, and gives the verdict of the last one for each item.
    void collect(const std::function<void(int item, Verdict verdict)> &report);
    /// Ends the round: no test until the next collect().
    void stop();
    /// The view that a draw belongs to, by the u_ProjectionMatrix and u_CameraMatrix that its program holds. -1 with no
    /// round, for a program that lacks these matrices, and for more views than are kept.
    int view(const ShaderProgram *program);
    /// Whether occlusion queries can tell what is visible in the current framebuffer and state: not without depth test or
    /// depth buffer, not into integer targets, and not while a query of the host is active.
    bool tellHere() const;
    /// The query of an item for glBeginConditionalRender in a view; 0 when the previous round made none for it. Views are known
    /// by their order: while results are late, a frame that draws its cameras in another order than the last may show an
    /// item one frame later.
    unsigned int query(int view, int item) const;

    /// Notes which items a draw of the view selected, as `takesPart` says, and, where `tells` is what tellHere() said, tests
    /// their boxes against the depth buffer as the draw left it. All GL state is restored. Items that no draw of the view
    /// tests count as visible.
    void testBoxes(int view, const std::vector<Bounds> &bounds, const std::function<bool(int)> &takesPart, bool tells);

private:
    /// What is known of an item in a view.
    struct Test
    {
        unsigned int query = 0;
        unsigned int drawnRound = 0; ///< The round of the last draw that it took part in; 0 for none.
        unsigned int round = 0; ///< The round of its last test; 0 for none.
        bool isPending = false; ///< The result of its query has not arrived.
        bool wasHidden = false; ///< What its last result said.
    };
    struct View
    {
        QMatrix4x4 projection;
        QMatrix4x4 camera;
        std::vector<Test> tests; ///< By item.
    };

    void fetchResult(Test &test) const;
    Verdict verdict(int item) const;
    bool isDue(const Test &test, int item) const;
    void claim();
    void createResources();
    void drawBox(Test &test, const Bounds &bounds);

    int m_itemCount;
    std::vector<View> m_views; ///< Those of this round first, in the order in which it met them.
    int m_viewCount = 0; ///< Of this round.
    bool m_hasUntestedViews = false; ///< There were more than are kept.
    unsigned int m_round = 0;
    bool m_running = false;
    int m_firstVisibleTested = 0; ///< Visible items are tested in turns when there are many.
    unsigned int m_queryTarget = 0;
    GLObject m_owner;
    bool m_isClaimed = false;
    std::unique_ptr<ShaderProgram> m_program;
    int m_boxLocation = -1;
    VertexArrayObject m_vao;
    BufferObject m_indices;
};

} // namespace Velmora::Kvz
