// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QString>

#include <memory>

namespace Velmora::Kvz {

/// An OpenGL context without a window, made through EGL: on the display where there is one, else surfaceless, else on the
/// first of up to eight EGL devices that serves. A driver and software GL serve alike.
///
/// Driver messages of a debug context go to the log under the category "kvz.gl" where it offers KHR_debug: high severity as
/// critical, medium as warning, the rest as debug.
class KVZ_HOST_EXPORT HeadlessContext
{
public:
    struct Options
    {
        int majorVersion = 0; ///< A core version to ask for; 0: the newest that the driver gives, at least 3.2.
        int minorVersion = 0;
        bool debug = true; ///< Asks for a debug context, and logs what its driver says.
        HeadlessContext *shareWith = nullptr; ///< A context to share objects with.
    };

    /// A new context, current on this thread. Null when the system has none to give; `error`, where given, then holds the
    /// reason in one line.
    static std::unique_ptr<HeadlessContext> create(QString *error = nullptr);
    static std::unique_ptr<HeadlessContext> create(const Options &options, QString *error = nullptr);
    /// Makes the context current, announces its end, and destroys it. Another context that was current comes back.
    ~HeadlessContext();

    /// False when EGL refuses.
    bool makeCurrent();
    void doneCurrent();
    bool isCurrent() const;

    /// GL_RENDERER and GL_VERSION of the context.
    QString renderer() const;
    QString version() const;
    /// How the context was made: "surfaceless", "display" or "device".
    QString platform() const;

private:
    HeadlessContext();
    Q_DISABLE_COPY(HeadlessContext)

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Velmora::Kvz
