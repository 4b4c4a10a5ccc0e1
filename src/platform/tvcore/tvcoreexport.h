#pragma once

#include <QtGlobal>

/// Marks what libtvcore offers to other programs; everything else in it is hidden.
#if defined(TVCORE_BUILD)
#define TVCORE_EXPORT Q_DECL_EXPORT
#else
#define TVCORE_EXPORT Q_DECL_IMPORT
#endif
