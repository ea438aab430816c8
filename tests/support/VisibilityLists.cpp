// SPDX-License-Identifier: MIT
#include "VisibilityLists.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/GLExtensions.h>
#include <GL/InternalFormat.h>

#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Velmora::Kvz {

bool hasVisibilityLists()
{
    return hasGLExtension("GL_ARB_shader_atomic_counters") && hasGLExtension("GL_ARB_shader_image_load_store")
        && hasGLExtension("GL_ARB_shading_language_420pack");
}

float ListNode::depth() const
{
    float value;
    std::memcpy(&value, &depthBits, sizeof(value));
    return value;
}

namespace {

/// The first rows of an integer texture.
QVector<quint32> readRows(const Texture *texture, int rows, GLenum format)
{
    const int width = texture->width(0);
    QVector<quint32> numbers(width * rows * (format == GL_RGBA_INTEGER ? 4 : 1));
    if (numbers.isEmpty())
        return numbers;
    FramebufferObject framebuffer;
    AutoBinder binder(&framebuffer);
    framebuffer.attach(const_cast<Texture *>(texture), GL_COLOR_ATTACHMENT0, 0);
    glReadBuffer(GL_COLOR_ATTACHMENT0);
    // Unconverted: signed texels are read as signed integers.
    const GLenum type = typeFromInternalFormat(GLenum(texture->internalFormat(0)));
    glReadPixels(0, 0, width, rows, format, type, numbers.data());
    return numbers;
}

} // namespace

VisibilityLists::VisibilityLists(const Texture *heads, const Texture *nodes, int nodeWidth)
    : m_width(heads->width(0)),
      m_height(heads->height(0)),
      m_nodeWidth(nodeWidth),
      m_heads(readRows(heads, m_height, GL_RED_INTEGER))
{
    EXPECT_EQ(nodes->width(0), nodeWidth);
    const quint32 last = m_heads.isEmpty() ? 0 : *std::max_element(m_heads.begin(), m_heads.end());
    const int rows = nodeWidth ? int((last + quint32(nodeWidth) - 1) / quint32(nodeWidth)) : 0;
    EXPECT_LE(rows, nodes->height(0));
    m_nodes = readRows(nodes, std::min(rows, nodes->height(0)), GL_RGBA_INTEGER);
}

VisibilityLists::VisibilityLists(const RenderPass &pass)
    : VisibilityLists(pass.output(0).value<Texture *>(), pass.output(1).value<Texture *>(), pass.output(2).toInt())
{ }

QVector<ListNode> VisibilityLists::at(int x, int y) const
{
    QVector<ListNode> list;
    for (quint32 pointer = head(x, y); pointer != 0;) {
        const auto place = qint64(pointer - 1) * 4;
        if (place + 4 > m_nodes.size() || list.size() > 100000) {
            ADD_FAILURE() << "the list of pixel " << x << ' ' << y << " has no end, or leads to no node";
            return list;
        }
        const quint32 *const node = m_nodes.constData() + place;
        list.append({pointer, node[0], node[1], node[2], node[3]});
        pointer = node[0];
    }
    return list;
}

int VisibilityLists::nodeCount() const
{
    int count = 0;
    for (int y = 0; y < m_height; ++y) {
        for (int x = 0; x < m_width; ++x)
            count += at(x, y).size();
    }
    return count;
}

ListShading::ListShading(const RayCastScene &scene, const QMatrix4x4 &camera)
    : m_scene(scene)
{
    for (const RayCastItem &item : scene.items())
        m_normalMatrices.append((DoubleMatrix(camera) * DoubleMatrix(item.modelMatrix)).inverted().transposed());
}

Vector3d ListShading::light(const RayHit &hit, const Vector4d &mapKd, const Vector4d &mapKs) const
{
    const MaterialData &material = m_scene.material(hit);
    const Vector3d normal = xyz(m_normalMatrices[hit.item] * withW(hit.normal, 1));
    const Vector3d towardsLight = normalized(Vector3d{100, 100, 100});
    const Vector3d halfway = normalized(towardsLight + Vector3d{0, 0, 1});
    const double lambert = std::max(0.0, dot(normal, towardsLight));
    const double highlight = std::pow(std::max(0.0, dot(normal, halfway)), double(material.ns));
    Vector3d color;
    for (size_t i = 0; i < 3; ++i) {
        color[i] =
            lambert * double(material.kd[int(i)]) * mapKd[i] + highlight * double(material.ks[int(i)]) * mapKs[i];
    }
    return color;
}

Vector4d ListShading::shade(const QVector<RayHit> &hits) const
{
    Vector4d result = {0, 0, 0, 1};
    for (const RayHit &hit : hits) {
        const MaterialData &material = m_scene.material(hit);
        const Vector3d color =
            light(hit, sampleRepeating(material.mapKd, hit.texCoord), sampleRepeating(material.mapKs, hit.texCoord));
        const auto alpha = double(material.d);
        for (size_t i = 0; i < 3; ++i)
            result[i] = result[i] * (1 - alpha) + color[i] * alpha;
        result[3] = std::min(std::max(alpha + (1 - alpha) * result[3], 0.0), 1.0);
        for (size_t i = 0; i < 3; ++i)
            result[i] = result[3] * alpha * color[i] + result[i];
        result[3] = (1 - alpha) * result[3];
        if (alpha >= 1)
            break;
    }
    return result;
}

QVector<RayHit> byDepth(QVector<RayHit> hits)
{
    std::sort(hits.begin(), hits.end(), [](const RayHit &a, const RayHit &b) { return a.depth < b.depth; });
    return hits;
}

QVector<int> quickSorted(const QVector<float> &depths)
{
    QVector<int> order(depths.size());
    for (int i = 0; i < order.size(); ++i)
        order[i] = i;
    const auto depth = [&](int place) { return depths[order[place]]; };
    QVector<int> begins = {0};
    QVector<int> ends = {depths.size()};
    while (!begins.isEmpty()) {
        int left = begins.last();
        int right = ends.last() - 1;
        if (left >= right) {
            begins.removeLast();
            ends.removeLast();
            continue;
        }
        const int pivot = order[left];
        while (left < right) {
            while (depth(right) > depths[pivot] && left < right)
                --right;
            if (left < right)
                order[left++] = order[right];
            while (depths[pivot] > depth(left) && left < right)
                ++left;
            if (left < right)
                order[right--] = order[left];
        }
        order[left] = pivot;
        const int end = ends.last();
        ends.last() = left;
        begins.append(left + 1);
        ends.append(end);
        const int top = begins.size() - 1;
        if (ends[top] - begins[top] > ends[top - 1] - begins[top - 1]) {
            std::swap(begins[top], begins[top - 1]);
            std::swap(ends[top], ends[top - 1]);
        }
    }
    return order;
}

} // namespace Velmora::Kvz
