#pragma once
// Work cut in parts, run side by side on the calling thread and on helper
// threads that are idle.

#include <cstddef>
#include <functional>

namespace orvante::lzss {

// Runs `work(k)` for every k from 0 to `count` - 1 and returns when all
// have returned. The calling thread takes parts itself, and helpers (one
// per further core, started at first use and kept) take the others; where
// the helpers serve another caller, or in a process forked from one that
// started them, the calling thread runs every part. The first exception
// a part throws is thrown here, once no part runs any more.
void runSideBySide(std::size_t count, const std::function<void(std::size_t)>& work);

}  // namespace orvante::lzss
