#include "face_choice.hpp"

#include <algorithm>
#include <optional>

namespace orvante::text {
namespace {

bool contains(const std::string& name, const char* part) {
  return name.find(part) != std::string::npos;
}

}  // namespace

std::string chooseFace(const std::string& family, bool bold, bool italic,
                       const std::vector<std::string>& families, const FacesOf& facesOf) {
  if (std::find(families.begin(), families.end(), family) == families.end()) return family;
  std::optional<std::string> plain;
  for (const auto& face : facesOf(family)) {
    const bool isBold = contains(face, "Bold") || contains(face, "Medium");
    const bool isItalic = contains(face, "Italic") || contains(face, "Oblique");
    if (!isBold && !isItalic) plain = face;
    if (isBold == bold && isItalic == italic) return face;
  }
  return plain.value_or(family);
}

}  // namespace orvante::text
