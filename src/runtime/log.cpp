#include <orvante/log.hpp>

#include <syslog.h>

#include <memory>
#include <mutex>

namespace orvante {
namespace {

struct Sinks {
  std::mutex mutex;
  std::shared_ptr<const LogSink> log;
  std::shared_ptr<const NoticeHandler> notice;
};

Sinks& sinks() {
  static Sinks instance;
  return instance;
}

}  // namespace

void setLogSink(LogSink sink) {
  auto next = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
  std::lock_guard lock(sinks().mutex);
  sinks().log = std::move(next);
}

void setNoticeHandler(NoticeHandler handler) {
  auto next = handler ? std::make_shared<const NoticeHandler>(std::move(handler)) : nullptr;
  std::lock_guard lock(sinks().mutex);
  sinks().notice = std::move(next);
}

// The sink runs outside the lock, so a slow sink never blocks the setters.
void log(std::string_view line) {
  std::shared_ptr<const LogSink> sink;
  {
    std::lock_guard lock(sinks().mutex);
    sink = sinks().log;
  }
  if (sink) {
    (*sink)(line);
  } else {
    syslog(LOG_USER | LOG_NOTICE, "%.*s", static_cast<int>(line.size()), line.data());
  }
}

void showNotice(const Notice& notice) {
  std::shared_ptr<const NoticeHandler> handler;
  {
    std::lock_guard lock(sinks().mutex);
    handler = sinks().notice;
  }
  if (handler) {
    (*handler)(notice);
  } else {
    log(notice.title + ": " + notice.message);
  }
}

}  // namespace orvante
