// The service's own parsing of requests: numbers from the query, JSON
// bodies (nesting bounded, image files refused), the bearer token and the
// listening address.

#include "requests.hpp"

#include <arpa/inet.h>

#include <charconv>
#include <nlohmann/json.hpp>

#include "http_error.hpp"

namespace orvante::serve {
namespace {

using nlohmann::json;

// Templates nest three deep; anything far deeper is hostile, and would
// make the recursive parts of the JSON library recurse as deep.
constexpr int kMaxJsonDepth = 32;

std::size_t wholeNumber(std::string_view text, std::string_view name, std::size_t most) {
  std::size_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || value > most) {
    throw HttpError(400, std::string(name) + " must be a whole number from 0 to " +
                             std::to_string(most) + ", not \"" +
                             std::string(text.substr(0, 32)) + "\"");
  }
  return value;
}

json parseBody(std::string_view body) {
  try {
    return json::parse(body, [](int depth, json::parse_event_t, json&) {
      if (depth > kMaxJsonDepth) {
        throw HttpError(400, "the JSON nests deeper than " + std::to_string(kMaxJsonDepth) + " levels");
      }
      return true;
    });
  } catch (const json::exception& bad) {
    throw HttpError(400, std::string("the body is not JSON: ") + bad.what());
  }
}

const json& member(const json& body, const char* key) {
  if (!body.is_object()) throw HttpError(400, "the body must be a JSON object");
  const auto found = body.find(key);
  if (found == body.end()) throw HttpError(400, std::string("the body has no \"") + key + "\"");
  return *found;
}

// Images name files on the server's disk: a web user must not make the
// service read them, so templates sent over HTTP may not hold any.
void refuseFiles(const json& layout) {
  const auto elements = layout.find("elements");
  if (elements == layout.end() || !elements->is_array()) return;  // the template's own check says so
  for (std::size_t i = 0; i < elements->size(); ++i) {
    const json& element = (*elements)[i];
    if (!element.is_object()) continue;
    const auto type = element.find("type");
    const bool image = type != element.end() && type->is_string() && *type == "image";
    if (image || element.contains("path")) {
      throw HttpError(400, "template: elements[" + std::to_string(i) +
                               "]: image elements read files on the server and are refused here");
    }
  }
}

Template templateOf(const json& layout) {
  if (!layout.is_object()) throw HttpError(400, "template: must be a JSON object");
  refuseFiles(layout);
  try {
    // A folder that holds nothing: no element may name a file in it anyway.
    return Template::parse(layout.dump(), "/nonexistent");
  } catch (const std::invalid_argument& bad) {
    throw HttpError(400, std::string("template: ") + bad.what());
  }
}

// One record from a JSON object: its strings, numbers and booleans, as
// JSON lines give them.
Record recordOf(const json& fields, std::size_t number, const std::string& where) {
  if (!fields.is_object()) throw HttpError(400, where + ": must be a JSON object");
  std::vector<Record> read;
  try {
    read = readJsonLines(fields.dump());
  } catch (const std::invalid_argument& bad) {
    std::string why = bad.what();
    if (why.rfind("line 1: ", 0) == 0) why.erase(0, 8);
    throw HttpError(400, where + ": " + why);
  }
  Record record(number, number);
  if (!read.empty()) {
    for (auto& [name, value] : read.front().fields()) record.set(name, value);
  }
  return record;
}

}  // namespace

PreviewQuery parsePreviewQuery(std::optional<std::string_view> dpi,
                               std::optional<std::string_view> index) {
  PreviewQuery query;
  if (dpi) {
    const std::size_t value = wholeNumber(*dpi, "dpi", 1000);
    if (value != 203 && value != 300) {
      throw HttpError(400, "dpi must be 203 or 300, not " + std::to_string(value));
    }
    query.dpi = static_cast<int>(value);
  }
  if (index) query.index = wholeNumber(*index, "index", 1'000'000);
  return query;
}

TemplatePreview parseTemplatePreview(std::string_view body) {
  const json request = parseBody(body);
  Template labels = templateOf(member(request, "template"));
  const auto found = request.find("record");
  Record record = found == request.end() ? Record(1, 1) : recordOf(*found, 1, "record");
  return {std::move(labels), std::move(record)};
}

TemplateJob parseTemplateJob(std::string_view body) {
  const json request = parseBody(body);
  Template labels = templateOf(member(request, "template"));
  const json& list = member(request, "records");
  if (!list.is_array() || list.empty()) {
    throw HttpError(400, "records: must be a list of one or more JSON objects");
  }
  std::vector<Record> records;
  records.reserve(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    records.push_back(recordOf(list[i], i + 1, "records[" + std::to_string(i) + "]"));
  }
  return {std::move(labels), std::move(records)};
}

bool bearerMatches(std::string_view authorization, std::string_view token) {
  constexpr std::string_view kScheme = "Bearer ";
  if (token.empty() || authorization.size() < kScheme.size() ||
      authorization.substr(0, kScheme.size()) != kScheme) {
    return false;
  }
  const std::string_view given = authorization.substr(kScheme.size());
  // Every byte of the token is compared whatever the others were.
  unsigned difference = given.size() == token.size() ? 0 : 1;
  for (std::size_t i = 0; i < token.size(); ++i) {
    const unsigned char offered = i < given.size() ? static_cast<unsigned char>(given[i]) : 0;
    difference |= offered ^ static_cast<unsigned char>(token[i]);
  }
  return difference == 0;
}

ListenAddress parseListen(std::string_view text) {
  const auto colon = text.rfind(':');
  if (colon == std::string_view::npos || colon == 0) {
    throw std::invalid_argument("--listen takes HOST:PORT, not \"" + std::string(text) + "\"");
  }
  ListenAddress address;
  address.host = std::string(text.substr(0, colon));
  if (address.host.size() >= 2 && address.host.front() == '[' && address.host.back() == ']') {
    address.host = address.host.substr(1, address.host.size() - 2);
  }
  const std::string_view port = text.substr(colon + 1);
  const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
  if (port.empty() || error != std::errc() || end != port.data() + port.size() ||
      address.port < 0 || address.port > 65535 || address.host.empty()) {
    throw std::invalid_argument("--listen takes HOST:PORT with a port from 0 to 65535, not \"" +
                                std::string(text) + "\"");
  }
  return address;
}

bool isLoopback(std::string_view host) {
  if (host == "localhost") return true;
  const std::string text(host);
  in_addr v4{};
  if (inet_pton(AF_INET, text.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
  in6_addr v6{};
  if (inet_pton(AF_INET6, text.c_str(), &v6) == 1) return IN6_IS_ADDR_LOOPBACK(&v6);
  return false;
}

std::pair<std::string, std::string> parsePrinterOption(std::string_view text) {
  const auto equals = text.find('=');
  if (equals == std::string_view::npos || equals == 0 || equals + 1 == text.size()) {
    throw std::invalid_argument("--printer takes NAME=URI, not \"" + std::string(text) + "\"");
  }
  std::string name(text.substr(0, equals));
  for (const char c : name) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '-' || c == '_' || c == '.';
    if (!plain) {
      throw std::invalid_argument("a printer's name holds letters, digits, '-', '_' and '.' only: \"" +
                                  name + "\"");
    }
  }
  return {std::move(name), std::string(text.substr(equals + 1))};
}

}  // namespace orvante::serve
