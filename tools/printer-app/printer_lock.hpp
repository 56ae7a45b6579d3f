#pragma once
// One job at a time per printer, each job printed once. PAPPL 1.3 can start
// a second job on a printer while the first is still printing when jobs
// arrive back to back, can start the same job from two threads, and can
// start a job before its document has been stored. The filters hold the
// printer's lock for the whole job and every label is written under it;
// every job entry point claims the job and waits for its file.

#include <mutex>

#include <pappl/pappl.h>

namespace orvante::app {

// Recursive: the filters hold it while PAPPL calls the raster callbacks,
// whose writes take it too, on the same thread.
std::recursive_mutex& printerLock(pappl_job_t* job);

// True for the thread that first got here for this job (and on later calls
// from that thread); false on any other thread, which must print nothing.
bool claimJob(pappl_job_t* job);

// The job's document file, once PAPPL has stored it; nullptr after 30 s.
const char* jobFile(pappl_job_t* job);

// What a filter prints from: whether this thread claimed the job, and then
// the job's document (nullptr, with the job's message set, when it never
// arrived).
struct ClaimedDocument {
  bool mine = false;
  const char* file = nullptr;
};
ClaimedDocument claimDocument(pappl_job_t* job);

}  // namespace orvante::app
