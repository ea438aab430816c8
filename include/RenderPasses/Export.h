// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#if defined(KVZ_RENDERPASSES_LIBRARY)
#define KVZ_RENDERPASSES_EXPORT Q_DECL_EXPORT
#else
#define KVZ_RENDERPASSES_EXPORT Q_DECL_IMPORT
#endif
