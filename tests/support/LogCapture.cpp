// SPDX-License-Identifier: MIT
#include "LogCapture.h"

namespace Velmora::Kvz {

namespace {

LogCapture *active = nullptr;

} // namespace

LogCapture::LogCapture()
    : m_previous(active),
      m_previousHandler(qInstallMessageHandler(handle))
{
    active = this;
}

LogCapture::~LogCapture()
{
    active = m_previous;
    qInstallMessageHandler(m_previousHandler);
}

void LogCapture::handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    active->m_messages.append({type, QString::fromLatin1(context.category), text, QString::fromLatin1(context.file),
        context.line, QString::fromLatin1(context.function)});
}

QStringList LogCapture::take(QtMsgType type)
{
    QStringList texts;
    QVector<Message> others;
    for (const Message &message : qAsConst(m_messages)) {
        if (message.type == type)
            texts.append(message.text);
        else
            others.append(message);
    }
    m_messages = others;
    return texts;
}

QStringList LogCapture::takeCategory(const QString &category)
{
    QStringList texts;
    QVector<Message> others;
    for (const Message &message : qAsConst(m_messages)) {
        if (message.category == category)
            texts.append(message.text);
        else
            others.append(message);
    }
    m_messages = others;
    return texts;
}

} // namespace Velmora::Kvz
