// Choosing a face: the walk over synthetic family and face lists, then the
// fixture fonts through fontconfig.

#include <gtest/gtest.h>

#include <map>

#include "raster/face_choice.hpp"
#include "raster/fonts.hpp"
#include "test_session.hpp"

using namespace orvante;

namespace {

using Faces = std::map<std::string, std::vector<std::string>>;

std::string choose(const Faces& installed, const std::string& family, bool bold, bool italic) {
  std::vector<std::string> families;
  for (const auto& [name, faces] : installed) families.push_back(name);
  return text::chooseFace(family, bold, italic, families,
                          [&](const std::string& name) { return installed.at(name); });
}

}  // namespace

TEST(FaceChoice, TheFirstFaceWhoseFlagsMatchWinsAndMediumCountsAsBold) {
  const Faces installed{{"Ital", {"Ital-Regular", "Ital-BoldItalic", "Ital-BoldOblique"}},
                        {"Obl", {"Obl-Regular", "Obl-BoldOblique", "Obl-BoldItalic"}},
                        {"M", {"M-Book", "M-Regular", "M-Medium", "M-Bold", "M-MediumItalic"}}};
  EXPECT_EQ(choose(installed, "Ital", true, true), "Ital-BoldItalic");
  EXPECT_EQ(choose(installed, "Obl", true, true), "Obl-BoldOblique");
  EXPECT_EQ(choose(installed, "M", false, false), "M-Book");
  EXPECT_EQ(choose(installed, "M", true, false), "M-Medium");
  EXPECT_EQ(choose(installed, "M", true, true), "M-MediumItalic");
}

TEST(FaceChoice, WithoutAMatchTheLastPlainFaceThenTheNameItself) {
  const Faces installed{{"P", {"P-Light", "P-Bold", "P-Book"}}, {"B", {"B-Bold", "B-BoldItalic"}}};
  EXPECT_EQ(choose(installed, "P", false, true), "P-Book");
  EXPECT_EQ(choose(installed, "B", false, false), "B");
  EXPECT_EQ(choose(installed, "p", false, false), "p");  // families match exactly
  EXPECT_EQ(choose(installed, "", true, true), "");
}

TEST(InstalledFonts, FamiliesAreSortedAndEachStyleFindsItsFace) {
  EXPECT_EQ(text::familyNames(), (std::vector<std::string>{"DejaVu Sans", "DejaVu Serif",
                                                           "WenQuanYi Micro Hei",
                                                           "WenQuanYi Micro Hei Mono"}))
      << "fixture fonts missing: fonts-dejavu-core, fonts-dejavu-extra, fonts-wqy-microhei";
  EXPECT_EQ(text::faceNames("DejaVu Sans"),
            (std::vector<std::string>{"DejaVuSans", "DejaVuSans-Bold", "DejaVuSans-Oblique",
                                      "DejaVuSans-BoldOblique"}));
  EXPECT_TRUE(text::faceNames("dejavu sans").empty());

  orvante::testing::Rig rig;
  orvante::testing::TestSession session(rig.platform());
  EXPECT_EQ(session.fnFindFontWithName("DejaVu Sans", false, false), "DejaVuSans");
  EXPECT_EQ(session.fnFindFontWithName("DejaVu Sans", false, true), "DejaVuSans-Oblique");
  EXPECT_EQ(session.fnFindFontWithName("DejaVu Sans", true, true), "DejaVuSans-BoldOblique");
  EXPECT_EQ(session.fnFindFontWithName("DejaVu Serif", true, true), "DejaVuSerif");
  EXPECT_EQ(session.fnFindFontWithName("Helvetica", true, false), "Helvetica");
}
