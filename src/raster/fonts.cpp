#include "fonts.hpp"

#include <fontconfig/fontconfig.h>
#include <pango/pangofc-fontmap.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <tuple>

namespace orvante::text {
namespace {

struct PatternReleaser {
  void operator()(FcPattern* pattern) const { FcPatternDestroy(pattern); }
};
struct FontSetReleaser {
  void operator()(FcFontSet* set) const { FcFontSetDestroy(set); }
};
using Pattern = std::unique_ptr<FcPattern, PatternReleaser>;
using FontSet = std::unique_ptr<FcFontSet, FontSetReleaser>;

// Every installed font matching the pattern, with what Pango needs to
// describe it and what the face order needs.
FontSet listFonts(FcPattern* match) {
  FcObjectSet* objects = FcObjectSetBuild(FC_FAMILY, FC_POSTSCRIPT_NAME, FC_STYLE, FC_WEIGHT,
                                          FC_SLANT, FC_WIDTH, nullptr);
  FontSet fonts(FcFontList(nullptr, match, objects));
  FcObjectSetDestroy(objects);
  return fonts;
}

std::string text(FcPattern* font, const char* object) {
  FcChar8* value = nullptr;
  if (FcPatternGetString(font, object, 0, &value) != FcResultMatch || !value) return {};
  return reinterpret_cast<const char*>(value);
}

double number(FcPattern* font, const char* object, double otherwise) {
  double value = otherwise;
  return FcPatternGetDouble(font, object, 0, &value) == FcResultMatch ? value : otherwise;
}

Pattern patternWith(const char* object, const std::string& value) {
  Pattern pattern(FcPatternCreate());
  FcPatternAddString(pattern.get(), object, reinterpret_cast<const FcChar8*>(value.c_str()));
  return pattern;
}

std::vector<FcPattern*> fontsOf(const FontSet& set) {
  if (!set) return {};
  return std::vector<FcPattern*>(set->fonts, set->fonts + set->nfont);
}

}  // namespace

std::vector<std::string> familyNames() {
  Pattern all(FcPatternCreate());
  const FontSet fonts = listFonts(all.get());
  std::vector<std::string> names;
  for (FcPattern* font : fontsOf(fonts)) {
    std::string family = text(font, FC_FAMILY);
    if (!family.empty()) names.push_back(std::move(family));
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

std::vector<std::string> faceNames(const std::string& family) {
  const Pattern match = patternWith(FC_FAMILY, family);
  const FontSet fonts = listFonts(match.get());
  using Key = std::tuple<double, double, double, std::string>;
  std::vector<Key> faces;
  for (FcPattern* font : fontsOf(fonts)) {
    // fontconfig matches any of a font's family names, ignoring case.
    std::string name = text(font, FC_POSTSCRIPT_NAME);
    if (text(font, FC_FAMILY) != family || name.empty()) continue;
    faces.emplace_back(std::abs(number(font, FC_WIDTH, FC_WIDTH_NORMAL) - FC_WIDTH_NORMAL),
                       number(font, FC_SLANT, FC_SLANT_ROMAN),
                       std::abs(number(font, FC_WEIGHT, FC_WEIGHT_REGULAR) - FC_WEIGHT_REGULAR),
                       std::move(name));
  }
  std::sort(faces.begin(), faces.end());
  std::vector<std::string> names;
  for (auto& face : faces) {
    if (names.empty() || names.back() != std::get<3>(face)) names.push_back(std::get<3>(face));
  }
  return names;
}

FontDescription openFace(const std::string& name, double points) {
  const Pattern match = patternWith(FC_POSTSCRIPT_NAME, name);
  const FontSet fonts = listFonts(match.get());
  FontDescription description;
  for (FcPattern* font : fontsOf(fonts)) {
    if (text(font, FC_POSTSCRIPT_NAME) == name) {
      description.reset(pango_fc_font_description_from_pattern(font, FALSE));
      break;
    }
  }
  if (!description) {
    const auto families = familyNames();
    const bool family = std::binary_search(families.begin(), families.end(), name);
    description.reset(pango_font_description_new());
    pango_font_description_set_family(description.get(), family ? name.c_str() : "sans-serif");
  }
  // Text is drawn at 72 dots per inch, where a point is a pixel.
  pango_font_description_set_absolute_size(description.get(), points * PANGO_SCALE);
  return description;
}

}  // namespace orvante::text
