// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/PassInfo.h>

#include <QtCore/QString>
#include <QtCore/QVector>

namespace Velmora::Kvz {

class ShaderProgram;

/// An input of a pass and the uniform that it sets.
struct UniformPort
{
    QString port;
    QString uniform;
    ValueType type;
    bool isOptional = false; ///< The pass uses the input even where no shader reads it.
};

/// Compares the uniforms that a linked program reads with the inputs of its pass: inputs that set none, types that cannot be
/// set, and uniforms that nothing feeds and that stay 0. Needs the program's context.
void checkUniforms(const ShaderProgram &program, const QVector<UniformPort> &ports, const PassUse &use,
    QVector<OptionProblem> *problems);

} // namespace Velmora::Kvz
