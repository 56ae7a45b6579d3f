#pragma once
// What the shared library exports: the published interface and the second
// door. Everything else stays inside it.

#if defined(ORVANTE_STATIC)
#define ORVANTE_EXPORT
#else
#define ORVANTE_EXPORT __attribute__((visibility("default")))
#endif
