#pragma once
// Internal: the installed fonts, through fontconfig, and faces opened for
// Pango. Faces are named by their PostScript names ("DejaVuSans-Bold").

#include <pango/pango.h>

#include <memory>
#include <string>
#include <vector>

namespace orvante::text {

// The installed font families, each once, sorted by byte value. A font
// belongs to the first of its family names (its English one).
std::vector<std::string> familyNames();

// The PostScript names of the family's faces, the family's regular face
// first: normal width before condensed or expanded, upright before
// slanted, then weight nearest to regular, then name. For DejaVu Sans:
// DejaVuSans, DejaVuSans-Bold, DejaVuSans-Oblique, DejaVuSans-BoldOblique.
std::vector<std::string> faceNames(const std::string& family);

struct DescriptionReleaser {
  void operator()(PangoFontDescription* description) const {
    pango_font_description_free(description);
  }
};
using FontDescription = std::unique_ptr<PangoFontDescription, DescriptionReleaser>;

// A face at a size in points, as Pango asks for it. `name` is a PostScript
// name; an installed family name is also taken (its regular face); any
// other name gives the default sans-serif face at that size, so text is
// still printed rather than silently dropped.
FontDescription openFace(const std::string& name, double points);

}  // namespace orvante::text
