#pragma once
// What the shared libraries export. They are built with hidden visibility:
// each public header opens its declarations with ORVANTE_API_BEGIN and
// closes them with ORVANTE_API_END, so the published interface and the
// second door are exported and nothing else.

#define ORVANTE_API_BEGIN _Pragma("GCC visibility push(default)")
#define ORVANTE_API_END _Pragma("GCC visibility pop")

// One declaration outside a public header that another library of the
// project calls.
#define ORVANTE_EXPORT __attribute__((visibility("default")))
