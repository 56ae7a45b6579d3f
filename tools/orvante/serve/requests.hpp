#pragma once
// What the service reads from requests itself, apart from HTTP: the query
// of a preview, the JSON bodies of template previews and template jobs,
// the bearer token and the listening address. Every function refuses bad
// input with HttpError (400) or std::invalid_argument, never crashes: the
// fuzz target serve_requests feeds them hostile input.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orvante/records.hpp>
#include <orvante/template.hpp>

namespace orvante::serve {

struct PreviewQuery {
  int dpi = 203;
  std::size_t index = 0;  // the label asked for, from 0
};

// From the values of the query's "dpi" and "index", absent when not given.
PreviewQuery parsePreviewQuery(std::optional<std::string_view> dpi,
                               std::optional<std::string_view> index);

// {"template": {...}, "record": {...}}: a template and the one record to fill.
struct TemplatePreview {
  Template labels;
  Record record;
};
TemplatePreview parseTemplatePreview(std::string_view body);

// {"template": {...}, "records": [{...}, ...]}: a template and its records,
// numbered from 1 in their order.
struct TemplateJob {
  Template labels;
  std::vector<Record> records;
};
TemplateJob parseTemplateJob(std::string_view body);

// Whether an Authorization header carries "Bearer TOKEN"; its time does
// not depend on where the header and the token differ.
bool bearerMatches(std::string_view authorization, std::string_view token);

struct ListenAddress {
  std::string host;
  int port = 0;
};
// "HOST:PORT", "[IPv6]:PORT"; std::invalid_argument when it is not that.
ListenAddress parseListen(std::string_view text);
// Whether the host is this computer alone: localhost, 127.0.0.0/8, ::1.
bool isLoopback(std::string_view host);

// "NAME=URI" of --printer; std::invalid_argument when it is not that.
std::pair<std::string, std::string> parsePrinterOption(std::string_view text);

}  // namespace orvante::serve
