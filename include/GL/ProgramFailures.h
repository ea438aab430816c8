// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/QString>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// A program that did not compile or did not link.
struct ProgramFailure
{
    QString log; ///< ShaderProgram::log() at that time: the driver's words, lines mapped to file and line as written.
};

/// The programs that failed in the current context's share group since the last call, oldest first. The first 16 are kept;
/// those that come after them are dropped until the next call. Empty with no current context.
///
/// A program counts once for each ShaderProgram::compile(): one that did not compile does not count again when it is
/// linked. It does count again each time it is bound, so that a frame that draws with it can be told from one that does
/// not. Passes ignore the results of compile() and link(), so this is how a host learns of a shader that the driver
/// refused. Code that tries a program which may fail takes the failure from here, so that nobody else reports it.
KVZ_GL_EXPORT QVector<ProgramFailure> takeProgramFailures();

/// Whether takeProgramFailures() would give any. Cheap enough for every pass of every frame: while no context has failures
/// it compares one counter.
KVZ_GL_EXPORT bool hasProgramFailures();

} // namespace Velmora::Kvz
