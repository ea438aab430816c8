// SPDX-License-Identifier: MIT
#pragma once

#include "ComparisonScene.h"

#include <QtCore/QSize>
#include <QtGui/QMatrix4x4>

#include <epoxy/gl.h>

#include <vector>

namespace Velmora::Kvz {

/// The least that shows a scene as the ready chains do: a gradient, and over it each item with one draw call, lit by a headlight and an
/// ambient share in the plainest shader that is right. In raw GL, with nothing of the library but its matrices.
class PlainFloor
{
public:
    PlainFloor(const ComparisonScene &scene, const QMatrix4x4 &camera, const QMatrix4x4 &projection, const QSize &size);
    ~PlainFloor();
    PlainFloor(const PlainFloor &) = delete;
    PlainFloor &operator=(const PlainFloor &) = delete;

    /// Draws a frame into a framebuffer of its own, of 8-bit colour and 24-bit depth.
    void draw() const;
    /// The picture, RGBA, rows from below.
    std::vector<unsigned char> picture() const;

private:
    struct Item
    {
        GLuint vertexArray;
        GLsizei indices;
        QMatrix4x4 modelView;
        QMatrix4x4 modelViewProjection;
        QMatrix3x3 normal;
        QVector3D colour;
    };

    QSize m_size;
    GLuint m_framebuffer = 0;
    GLuint m_colour = 0;
    GLuint m_depth = 0;
    GLuint m_background = 0; ///< Program.
    GLuint m_surface = 0; ///< Program.
    GLuint m_noVertices = 0;
    std::vector<Item> m_items;
    std::vector<GLuint> m_buffers;
};

} // namespace Velmora::Kvz
