// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QTextCodec>

namespace Velmora::Kvz {

/// Whether a text starts with the mark of UTF-16.
inline bool isUtf16(const QByteArray &text)
{
    return text.startsWith("\xff\xfe") || text.startsWith("\xfe\xff");
}

/// Text as UTF-8 without a mark; unchanged where it has no mark.
inline QByteArray withoutByteOrderMark(const QByteArray &text)
{
    if (text.startsWith("\xef\xbb\xbf"))
        return text.mid(3);
    if (!isUtf16(text))
        return text;
    return QTextCodec::codecForUtfText(text, QTextCodec::codecForName("UTF-8"))->toUnicode(text).toUtf8();
}

} // namespace Velmora::Kvz
