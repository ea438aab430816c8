// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QObject>

#include <functional>

namespace Velmora::Kvz {

/// Calls `notify` when the current QOpenGLContext is about to be destroyed. An empty connection for a native context, whose
/// end its owner must announce itself.
///
/// This stands in a file of its own, since Qt's OpenGL headers and epoxy's do not go together.
QMetaObject::Connection onContextEnd(const std::function<void()> &notify);

} // namespace Velmora::Kvz
