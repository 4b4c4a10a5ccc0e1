#pragma once

#include <QtGlobal>

/// Marks what libtvnotify.so.1 offers to others; all else in it is hidden.
#ifdef TVNOTIFY_BUILD
#define TVNOTIFY_EXPORT Q_DECL_EXPORT
#else
#define TVNOTIFY_EXPORT Q_DECL_IMPORT
#endif
