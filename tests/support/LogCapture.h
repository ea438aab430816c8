// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// Captures all messages of Qt's logger while it lives, and prints none.
class LogCapture
{
public:
    struct Message
    {
        QtMsgType type;
        QString category;
        QString text;
        QString file; ///< From the message context, as line and function; empty when the context has none.
        int line;
        QString function;
    };

    LogCapture();
    ~LogCapture();

    /// All messages since construction or the last take.
    const QVector<Message> &messages() const { return m_messages; }
    /// Removes the messages of one type from the capture and returns their texts.
    QStringList takeDebug() { return take(QtDebugMsg); }
    QStringList takeWarnings() { return take(QtWarningMsg); }
    QStringList takeCriticals() { return take(QtCriticalMsg); }
    /// Removes the messages of one category, of any type, from the capture and returns their texts.
    QStringList takeCategory(const QString &category);
    void clear() { m_messages.clear(); }

private:
    Q_DISABLE_COPY(LogCapture)
    QStringList take(QtMsgType type);
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text);

    QVector<Message> m_messages;
    LogCapture *m_previous;
    QtMessageHandler m_previousHandler;
};

} // namespace Velmora::Kvz
