// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

// Steps through the words of a line of text, without copies.
namespace Velmora::Kvz {

inline bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

inline const char *skipSpaces(const char *at, const char *end)
{
    while (at != end && isSpace(*at))
        ++at;
    return at;
}

inline const char *skipWord(const char *at, const char *end)
{
    while (at != end && !isSpace(*at))
        ++at;
    return at;
}

/// The number at `at`, which is moved behind it; 0 where there is none. Numbers of any length are read, those too large as a
/// large one.
inline qint64 readInteger(const char **at, const char *end)
{
    const bool negative = *at != end && **at == '-';
    if (*at != end && (**at == '-' || **at == '+'))
        ++*at;
    qint64 value = 0;
    for (; *at != end && **at >= '0' && **at <= '9'; ++*at) {
        if (value < qint64(1) << 48)
            value = value * 10 + (**at - '0');
    }
    return negative ? -value : value;
}

} // namespace Velmora::Kvz
