// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QString>

#include <memory>

namespace Velmora::Kvz {

/// An OpenGL context without a window, created through EGL: on the display if there is one, else surfaceless, else on the
/// first usable of up to eight EGL devices. It works with hardware drivers and software GL.
///
/// With KHR_debug, the driver messages of a debug context go to the log under the category "kvz.gl": high severity as
/// critical, medium as warning, the rest as debug.
class KVZ_HOST_EXPORT HeadlessContext
{
public:
    struct Options
    {
        int majorVersion = 0; ///< The core version to request; 0: the newest that the driver has, at least 3.2.
        int minorVersion = 0;
        bool debug = true; ///< Requests a debug context and logs its driver's messages.
        HeadlessContext *shareWith = nullptr; ///< A context to share objects with.
    };

    /// A new context, current on this thread. Null when the system has none; `error`, if given, then holds the reason in one
    /// line.
    static std::unique_ptr<HeadlessContext> create(QString *error = nullptr);
    static std::unique_ptr<HeadlessContext> create(const Options &options, QString *error = nullptr);
    /// Makes the context current, announces its end, and destroys it. Another context that was current is made current again.
    ~HeadlessContext();

    /// False when EGL refuses.
    bool makeCurrent();
    void doneCurrent();
    bool isCurrent() const;

    /// GL_RENDERER and GL_VERSION of the context.
    QString renderer() const;
    QString version() const;
    /// How the context was created: "surfaceless", "display" or "device".
    QString platform() const;

private:
    HeadlessContext();
    Q_DISABLE_COPY(HeadlessContext)

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Velmora::Kvz
