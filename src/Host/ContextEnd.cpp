// SPDX-License-Identifier: MIT
#include <Host/ContextEnd.h>

#include <QtGui/QOpenGLContext>

namespace Velmora::Kvz {

QMetaObject::Connection onContextEnd(const std::function<void()> &notify)
{
    QOpenGLContext *context = QOpenGLContext::currentContext();
    if (!context)
        return QMetaObject::Connection();
    return QObject::connect(context, &QOpenGLContext::aboutToBeDestroyed, notify);
}

} // namespace Velmora::Kvz
