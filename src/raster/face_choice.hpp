#pragma once
// Internal: choosing a face within a font family by its name alone.

#include <functional>
#include <string>
#include <vector>

namespace orvante::text {

using FacesOf = std::function<std::vector<std::string>(const std::string& family)>;

// The first family exactly equal to `family` (case-sensitive) is searched;
// when there is none, `family` comes back unchanged. A face counts as bold
// when its name contains "Bold" or "Medium", as italic when it contains
// "Italic" or "Oblique"; the first face whose two flags equal the request
// wins. Failing that, the last face that is neither; failing that, the
// family name itself.
std::string chooseFace(const std::string& family, bool bold, bool italic,
                       const std::vector<std::string>& families, const FacesOf& facesOf);

}  // namespace orvante::text
