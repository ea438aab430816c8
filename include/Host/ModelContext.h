// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QString>

#include <memory>

namespace Velmora::Kvz {

class GPUModel;

/// A hidden context of Qt in which models live, so that viewports may come and go: it shares its objects with all widgets and items of the
/// program, if QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts) was called before the application was made.
///
/// The context is made when it is first asked for, on that thread, and ends with the application. All functions need a QGuiApplication.
class KVZ_HOST_EXPORT ModelContext
{
public:
    /// Makes it current for a scope, and then what was current before.
    class KVZ_HOST_EXPORT Scope
    {
    public:
        Scope();
        ~Scope();
        /// Whether it is current; errorString() says why not.
        bool isCurrent() const { return m_isCurrent; }

    private:
        Q_DISABLE_COPY(Scope)

        struct Before;
        std::unique_ptr<Before> m_before;
        bool m_isCurrent = false;
    };

    /// Has a model that was built in this context deleted in it, wherever the last pointer goes away. Null for null.
    static QSharedPointer<GPUModel> keep(const QSharedPointer<GPUModel> &model);
    /// Why there is no such context, in one line that says what to do; empty where there is one.
    static QString errorString();
};

} // namespace Velmora::Kvz
