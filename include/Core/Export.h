// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#if defined(KVZ_CORE_LIBRARY)
#define KVZ_CORE_EXPORT Q_DECL_EXPORT
#else
#define KVZ_CORE_EXPORT Q_DECL_IMPORT
#endif
