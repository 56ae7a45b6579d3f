// POST /v1/preview and /v1/preview/template: a label as PNG (or every
// label as PDF), drawn when a renderer is free.

#include <nlohmann/json.hpp>

#include "requests.hpp"
#include "responses.hpp"
#include "routes.hpp"

namespace orvante::serve {
namespace {

std::optional<std::string_view> parameter(const httplib::Request& request, const char* name) {
  const auto found = request.params.find(name);
  if (found == request.params.end()) return std::nullopt;
  return found->second;
}

// Holds a renderer for the time of one preview; 503 when none is free
// within the preview's time limit.
class Renderer {
 public:
  explicit Renderer(Context& context) : gate_(*context.renderers) {
    if (!gate_.enter(context.options.preview.timeLimit)) {
      throw HttpError(503, "the service is busy drawing other previews; try again");
    }
  }
  ~Renderer() { gate_.leave(); }
  Renderer(const Renderer&) = delete;
  Renderer& operator=(const Renderer&) = delete;

 private:
  RenderGate& gate_;
};

void answerPng(httplib::Response& response, const vprinter::PrintedLabel& label) {
  const Bytes png = label.png();
  response.set_content(reinterpret_cast<const char*>(png.data()), png.size(), "image/png");
}

void previewCommands(Context& context, const httplib::Request& request, httplib::Response& response) {
  const PreviewQuery query = parsePreviewQuery(parameter(request, "dpi"), parameter(request, "index"));
  const bool pdf = request.get_header_value("Accept").find("application/pdf") != std::string::npos;
  RenderedPreview preview;
  {
    Renderer renderer(context);
    preview = renderPreview(viewOf(request.body), query.dpi, context.options.preview,
                            pdf ? KeptLabels{} : KeptLabels{query.index, 1});
  }
  const std::string warnings = warningsHeader(preview.warnings);
  if (!warnings.empty()) response.set_header("X-Warnings", warnings);
  response.set_header("X-Label-Count", std::to_string(preview.printed));
  if (preview.printed == 0) throw HttpError(400, "the commands printed no label (is PRINT missing?)");
  if (pdf) {
    const Bytes document = pdfOf(preview.kept, query.dpi);
    response.set_content(reinterpret_cast<const char*>(document.data()), document.size(),
                         "application/pdf");
    return;
  }
  if (preview.kept.empty()) {
    throw HttpError(404, "the commands printed " + std::to_string(preview.printed) +
                             (preview.printed == 1 ? " label" : " labels") + ", none at index " +
                             std::to_string(query.index) + " (labels count from 0)");
  }
  answerPng(response, preview.kept.front());
}

void previewTemplate(Context& context, const httplib::Request& request, httplib::Response& response) {
  const TemplatePreview asked = parseTemplatePreview(request.body);
  const int dpi = asked.labels.dpi();
  if (dpi != 203 && dpi != 300) {
    throw HttpError(400, "a preview is drawn at 203 or 300 dpi, not the template's " + std::to_string(dpi));
  }
  Bytes commands;
  try {
    commands = asked.labels.fill(asked.record).bytes();
  } catch (const RecordError& refused) {
    throw HttpError(400, std::string("record: ") + refused.reason());
  }
  RenderedPreview preview;
  {
    Renderer renderer(context);
    preview = renderPreview(commands, dpi, context.options.preview, KeptLabels{0, 1});
  }
  const std::string warnings = warningsHeader(preview.warnings);
  if (!warnings.empty()) response.set_header("X-Warnings", warnings);
  response.set_header("X-Label-Count", std::to_string(preview.printed));
  if (preview.kept.empty()) throw HttpError(400, "the template printed no label (copies 0?)");
  answerPng(response, preview.kept.front());
}

}  // namespace

void addPreviewRoutes(httplib::Server& server, Context& context) {
  server.Post("/v1/preview", guarded([&context](const httplib::Request& request, httplib::Response& response) {
    previewCommands(context, request, response);
  }));
  server.Post("/v1/preview/template",
              guarded([&context](const httplib::Request& request, httplib::Response& response) {
                previewTemplate(context, request, response);
              }));
}

}  // namespace orvante::serve
