// Rendering a preview. The engine calls back for every command (its
// journal line) and every printed label: the limits are checked there, and
// a breach leaves the engine by an exception of its own, which the
// engine's handlers (they catch std::exception, to turn a command's
// failure into a warning) let pass.

#include "preview.hpp"

#include <string_view>

#include <nlohmann/json.hpp>
#include <orvante/vprinter/engine.hpp>

#include "http_error.hpp"

namespace orvante::serve {
namespace {

struct Breach {
  int status;
  std::string reason;
};

constexpr std::size_t kMaxWarnings = 20;
constexpr std::size_t kMaxWarningsHeader = 2000;

// The journal lines that say something went wrong, in words.
void noteWarning(std::string_view line, std::vector<std::string>& warnings, std::size_t& more) {
  const bool unknown = line.find("\"outcome\":\"unknown\"") != std::string_view::npos;
  if (!unknown && line.find("\"outcome\":\"warning\"") == std::string_view::npos) return;
  if (warnings.size() == kMaxWarnings) {
    ++more;
    return;
  }
  const auto entry = nlohmann::json::parse(line, nullptr, false);
  if (entry.is_discarded()) return;
  const std::string command = entry.value("command", "");
  if (unknown) {
    warnings.push_back("unknown command " + command);
  } else {
    const std::string reason = entry.value("reason", "");
    warnings.push_back(command.empty() ? reason : command + ": " + reason);
  }
}

}  // namespace

RenderedPreview renderPreview(ByteView commands, int dpi, const PreviewLimits& limits,
                              KeptLabels kept) {
  RenderedPreview out;
  const auto deadline = std::chrono::steady_clock::now() + limits.timeLimit;
  const auto inTime = [&] {
    if (std::chrono::steady_clock::now() > deadline) {
      throw Breach{503, "the preview took longer than " + std::to_string(limits.timeLimit.count()) +
                            " ms and was stopped"};
    }
  };
  long long pixels = 0;
  std::size_t moreWarnings = 0;

  vprinter::Options options;
  options.dpi = dpi;
  // One PRINT may not ask for more labels than a preview draws.
  options.maxCopiesPerPrint = static_cast<int>(limits.maxLabels + 1);
  options.clock = [] { return std::chrono::system_clock::time_point{}; };
  options.onJournal = [&](std::string_view line) {
    inTime();
    noteWarning(line, out.warnings, moreWarnings);
  };
  options.onPrinted = [&](const vprinter::PrintedLabel& label) -> std::string {
    if (out.printed == limits.maxLabels) {
      throw Breach{413, "the commands print more than " + std::to_string(limits.maxLabels) +
                            " labels; a preview draws at most " + std::to_string(limits.maxLabels)};
    }
    pixels += static_cast<long long>(label.width()) * label.height();
    if (pixels > limits.maxPixels) {
      throw Breach{413, "the labels hold more than " + std::to_string(limits.maxPixels) +
                            " dots together, more than a preview draws"};
    }
    if (out.printed >= kept.first && out.printed - kept.first < kept.count) out.kept.push_back(label);
    ++out.printed;
    inTime();
    return "#" + std::to_string(out.printed);
  };
  try {
    vprinter::Engine engine(std::move(options));
    engine.feed(1, commands);
    // A payload the bytes leave unfinished prints nothing, and says so.
    engine.disconnect(1);
  } catch (const Breach& breach) {
    throw HttpError(breach.status, breach.reason);
  }
  if (moreWarnings > 0) out.warnings.push_back("and " + std::to_string(moreWarnings) + " more");
  return out;
}

std::string warningsHeader(const std::vector<std::string>& warnings) {
  std::string out;
  for (const std::string& warning : warnings) {
    if (!out.empty()) out += "; ";
    for (const char c : warning) {
      // Header values carry visible ASCII and spaces; anything else, line
      // ends included, would break the response or forge headers.
      out += (c >= 0x20 && c < 0x7F) ? c : '?';
    }
    if (out.size() > kMaxWarningsHeader) {
      out.resize(kMaxWarningsHeader);
      out += "...";
      break;
    }
  }
  return out;
}

}  // namespace orvante::serve
