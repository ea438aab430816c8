// SPDX-License-Identifier: MIT
#pragma once

#include <Core/Export.h>

#include <QtCore/QString>

namespace Velmora::Kvz {

/// Logs through Qt's message logger under the category "default", with no file, line or function in the message
/// context. The text goes out as "[file:line] text", the file without directory and suffix.
KVZ_CORE_EXPORT void logDebug(const char *file, int line, const QString &text);
KVZ_CORE_EXPORT void logWarning(const char *file, int line, const QString &text);
KVZ_CORE_EXPORT void logCritical(const char *file, int line, const QString &text);

/// Logs a text as it stands at debug level, for reports of modes that hosts read by their text alone.
KVZ_CORE_EXPORT void logDebug(const QString &text);

/// Logs a failed assertion at critical level as "[ !! ] Assertion 'condition' failed: message" and lets the code run
/// on. Each "\%" in the condition's source text stands for "%".
KVZ_CORE_EXPORT void logAssertion(const char *file, int line, const QString &condition, const QString &message);

} // namespace Velmora::Kvz

#define KVZ_DEBUG(text) ::Velmora::Kvz::logDebug(__FILE__, __LINE__, (text))
#define KVZ_WARNING(text) ::Velmora::Kvz::logWarning(__FILE__, __LINE__, (text))
#define KVZ_CRITICAL(text) ::Velmora::Kvz::logCritical(__FILE__, __LINE__, (text))

/// Checks a condition; when it fails, logs it with a message in printf form, and goes on.
#define KVZ_ASSERT(condition, ...)                                                                                     \
    do {                                                                                                               \
        if (!(condition))                                                                                              \
            ::Velmora::Kvz::logAssertion(                                                                              \
                __FILE__, __LINE__, QStringLiteral(#condition), QString::asprintf(__VA_ARGS__));                       \
    } while (false)
