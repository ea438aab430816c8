// SPDX-License-Identifier: MIT
#pragma once

class QString;
class QVariant;

namespace Velmora::Kvz {

class ShaderProgram;
class Texture;

/// The unit of a bound texture. For null unit 0, which has no texture: a sampler that reads it gets opaque black.
int unitOf(const Texture *texture);

/// Points a sampler of a bound program at a bound texture, or, for null, at the empty unit 0.
void setSampler(ShaderProgram &program, const QString &name, const Texture *texture);

/// Sets a uniform if the program has one of that name.
void setIfPresent(ShaderProgram &program, const QString &name, const QVariant &value);

} // namespace Velmora::Kvz
