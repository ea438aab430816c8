// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Bindable.h>

#include <QtCore/QSharedPointer>

namespace Velmora::Kvz {

/// Binds an object for a scope and restores the previous binding at its end.
///
/// A null object is accepted and does nothing. Binders may be nested, even on one object; they end in reverse order.
class KVZ_GL_EXPORT AutoBinder
{
public:
    explicit AutoBinder(Bindable *object);
    explicit AutoBinder(const QSharedPointer<Bindable> &object);
    ~AutoBinder();

private:
    Q_DISABLE_COPY(AutoBinder)

    QSharedPointer<Bindable> m_keepAlive;
    Bindable *m_object;
};

} // namespace Velmora::Kvz
