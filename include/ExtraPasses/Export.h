// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#if defined(KVZ_EXTRAPASSES_LIBRARY)
#define KVZ_EXTRAPASSES_EXPORT Q_DECL_EXPORT
#else
#define KVZ_EXTRAPASSES_EXPORT Q_DECL_IMPORT
#endif
