#pragma once
// Where the library's diagnostics and notices go.
//
// Diagnostic lines (stream events, "block", BLE traces) go to the log sink;
// the default sink is syslog. The version notice of about() goes to the
// notice handler; by default it is logged.

#include <functional>
#include <string>
#include <string_view>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

using LogSink = std::function<void(std::string_view line)>;

// Replaces the process-wide log sink; an empty function restores syslog.
// The sink may be called from any of the library's threads.
void setLogSink(LogSink sink);

// A modal notice, such as the version shown by about().
struct Notice {
  std::string title;
  std::string message;
  std::string cancelButton;
};

using NoticeHandler = std::function<void(const Notice& notice)>;

// Replaces the process-wide notice handler; an empty function restores the
// default, which logs "<title>: <message>".
void setNoticeHandler(NoticeHandler handler);

// Writes one line through the current log sink.
void log(std::string_view line);

}  // namespace orvante

ORVANTE_API_END
