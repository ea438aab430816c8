// SPDX-License-Identifier: MIT
#pragma once

#include "support/GLTest.h"

#include <GL/ShaderProgram.h>

#include <QtCore/QPair>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <memory>

namespace Velmora::Kvz {

/// The vertex source for screen quads: `va_Vertex` as the position, `vo_TexCoord` passed through.
extern const QString quadVertexSource;

/// A linked program of sources given as stage and text. Fails the test when it does not link.
std::unique_ptr<ShaderProgram> makeProgram(const QVector<QPair<unsigned int, QString>> &sources,
    const QStringList &outputs = {QStringLiteral("out_FragColor")});
/// A program with quadVertexSource and this fragment source.
std::unique_ptr<ShaderProgram> makeQuadProgram(const QString &fragmentSource);
/// A program that fills with the uniform `u_Color`.
std::unique_ptr<ShaderProgram> makeColorProgram();

/// Draws a screen quad with the program into the bound framebuffer and returns the result of DrawBuffers::draw().
bool drawQuad(ShaderProgram *program);

/// A texture of zeros.
std::unique_ptr<Texture> makeBlankTexture(int width, int height, int internalFormat);

} // namespace Velmora::Kvz
