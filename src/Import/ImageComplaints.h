// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QtGlobal>

namespace Velmora::Kvz {

/// Keeps, while it lives, what image libraries say of an image that this thread reads: libtiff writes it to standard error, and Qt's
/// readers log it without a word on which image it is. Other threads' messages go where they went.
class ImageComplaints
{
public:
    ImageComplaints();
    ~ImageComplaints();
    Q_DISABLE_COPY(ImageComplaints)

    /// The first complaint of an image's data that changes how it looks; empty where there is none.
    QString damage() const { return m_damage; }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message);

    QString m_damage;
};

} // namespace Velmora::Kvz
