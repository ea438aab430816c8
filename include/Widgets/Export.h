// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#if defined(KVZ_WIDGETS_LIBRARY)
#define KVZ_WIDGETS_EXPORT Q_DECL_EXPORT
#else
#define KVZ_WIDGETS_EXPORT Q_DECL_IMPORT
#endif
