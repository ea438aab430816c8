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

/// Finds the items of a model that nothing of shows, by drawing their boxes under occlusion queries.
///
/// collect() begins a round, which lasts until the next one; in a round each item is tested at most once, by the first draw
/// that can. What collect() says rests on tests of the round before alone, so a wrong "hidden" lasts one frame. A result
/// that has not arrived is never waited for: the GPU then decides by the query itself.
class OcclusionQueries
{
public:
    enum class Verdict : quint8 {
        Visible, ///< Or not known.
        Hidden,
        Undecided ///< Was hidden and the last result has not arrived: draw it on condition of query().
    };

    explicit OcclusionQueries(int itemCount);
    /// Deletes the queries, or drops them when their context is not current.
    ~OcclusionQueries();

    /// Begins a round, and gives the verdict of the last one for each item.
    void collect(const std::function<void(int item, Verdict verdict)> &report);
    /// Ends the round: no test until the next collect().
    void stop();
    /// Whether a round is on and its queries are of the current context.
    bool isRunning() const;
    /// The query of an item for glBeginConditionalRender; 0 when it has none in the current context.
    unsigned int query(int item) const;

    /// Tests the boxes of items against the depth buffer as `program` with its present u_ProjectionMatrix and
    /// u_CameraMatrix left it. All GL state comes back. Does nothing where a test would tell nothing: without depth test
    /// or depth buffer, into integer targets, or with a program that lacks these matrices.
    ///
    /// `takesPart` says which items the draw selected.
    void test(
        const ShaderProgram *program, const std::vector<Bounds> &bounds, const std::function<bool(int)> &takesPart);

private:
    struct Item
    {
        unsigned int query = 0;
        unsigned int round = 0; ///< The round of its last test; 0 for none.
        bool isPending = false; ///< The result of its query has not arrived.
        bool wasHidden = false; ///< What its last result said.
    };

    bool isDue(int item) const;
    void createResources();
    void drawBox(Item &item, const Bounds &bounds);

    std::vector<Item> m_items;
    unsigned int m_round = 0;
    bool m_running = false;
    int m_firstVisibleTested = 0; ///< Visible items are tested in turns when there are many.
    unsigned int m_queryTarget = 0;
    GLObject m_owner;
    std::unique_ptr<ShaderProgram> m_program;
    int m_boxLocation = -1;
    VertexArrayObject m_vao;
    BufferObject m_indices;
};

} // namespace Velmora::Kvz
