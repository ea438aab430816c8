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
#include <random>

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
    constexpr int fewRows = 512;
    const quint32 last = m_heads.isEmpty() ? 0 : *std::max_element(m_heads.begin(), m_heads.end());
    const int rows = nodeWidth ? int((last + quint32(nodeWidth) - 1) / quint32(nodeWidth)) : 0;
    EXPECT_LE(rows, nodes->height(0));
    m_nodes = readRows(nodes, nodes->height(0) <= fewRows ? nodes->height(0) : rows, GL_RGBA_INTEGER);
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

QVector<quint32> UploadedLists::readNodes() const
{
    return readRows(nodes.get(), nodes->height(0), GL_RGBA_INTEGER);
}

void UploadedLists::feed(RenderPass &pass, int headInput) const
{
    pass.setInput(headInput, QVariant::fromValue(heads.get()));
    pass.setInput(headInput + 1, QVariant::fromValue(nodes.get()));
    pass.setInput(headInput + 2, nodeWidth);
}

namespace {

std::unique_ptr<Texture> uploadIntegers(
    int internalFormat, GLenum format, const QSize &size, const QVector<quint32> &numbers)
{
    auto texture = std::make_unique<Texture>(GL_TEXTURE_2D, internalFormat, size.width(), size.height(), 0, nullptr);
    AutoBinder binder(texture.get());
    glTexImage2D(
        GL_TEXTURE_2D, 0, internalFormat, size.width(), size.height(), 0, format, GL_UNSIGNED_INT, numbers.constData());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    return texture;
}

} // namespace

UploadedLists uploadLists(const QSize &viewport, const QVector<QVector<ListNode>> &lists)
{
    UploadedLists made;
    made.nodeWidth = 64;
    int count = 0;
    for (const QVector<ListNode> &list : lists)
        count += list.size();
    QVector<quint32> places(count);
    for (int i = 0; i < count; ++i)
        places[i] = quint32(i + 1);
    std::mt19937 random(7);
    std::shuffle(places.begin(), places.end(), random);

    const int rows = count / made.nodeWidth + 1;
    QVector<quint32> nodes(rows * made.nodeWidth * 4, 0);
    QVector<quint32> headPointers;
    int next = 0;
    for (const QVector<ListNode> &list : lists) {
        headPointers.append(list.isEmpty() ? 0 : places[next]);
        for (int i = 0; i < list.size(); ++i, ++next) {
            quint32 *const node = nodes.data() + 4 * (places[next] - 1);
            node[0] = i + 1 < list.size() ? places[next + 1] : 0;
            node[1] = list[i].primitive;
            node[2] = list[i].depthBits;
            node[3] = list[i].draw;
        }
    }
    made.heads = uploadIntegers(GL_R32UI, GL_RED_INTEGER, viewport, headPointers);
    made.nodes = uploadIntegers(GL_RGBA32UI, GL_RGBA_INTEGER, QSize(made.nodeWidth, rows), nodes);
    return made;
}

ListNode listNode(quint32 primitive, float depth, quint32 draw)
{
    ListNode node = {0, 0, primitive, 0, draw};
    std::memcpy(&node.depthBits, &depth, sizeof(depth));
    return node;
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
