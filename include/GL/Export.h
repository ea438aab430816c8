// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#if defined(KVZ_GL_LIBRARY)
#define KVZ_GL_EXPORT Q_DECL_EXPORT
#else
#define KVZ_GL_EXPORT Q_DECL_IMPORT
#endif
