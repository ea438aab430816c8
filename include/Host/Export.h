// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#if defined(KVZ_HOST_LIBRARY)
#define KVZ_HOST_EXPORT Q_DECL_EXPORT
#else
#define KVZ_HOST_EXPORT Q_DECL_IMPORT
#endif
