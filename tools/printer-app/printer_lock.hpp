#pragma once
// One job at a time per printer. PAPPL 1.3 can start a second job on a
// printer while the first is still printing when jobs arrive back to back;
// both would then write into the same device. Every job callback takes the
// printer's lock, so the second waits for the first to finish.

#include <mutex>

#include <pappl/pappl.h>

namespace orvante::app {

// Recursive: the image filter holds it while PAPPL calls the raster
// callbacks, which take it too, on the same thread.
std::recursive_mutex& printerLock(pappl_job_t* job);

}  // namespace orvante::app
