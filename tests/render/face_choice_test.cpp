// Choosing a face: the walk over synthetic family and face lists, then the
// installed fixture fonts through fontconfig.

#include <gtest/gtest.h>

#include <map>

#include "raster/face_choice.hpp"
#include "raster/fonts.hpp"
#include "test_session.hpp"

using namespace orvante;
using orvante::testing::Rig;
using orvante::testing::TestSession;

namespace {

using Faces = std::map<std::string, std::vector<std::string>>;

std::string choose(const Faces& installed, const std::string& family, bool bold, bool italic) {
  std::vector<std::string> families;
  for (const auto& [name, faces] : installed) families.push_back(name);
  return text::chooseFace(family, bold, italic, families,
                          [&](const std::string& name) { return installed.at(name); });
}

}  // namespace

TEST(FaceChoice, TheFirstFaceWhoseFlagsMatchWinsInTheFamilysOrder) {
  const Faces installed{{"Ital", {"Ital-Regular", "Ital-BoldItalic", "Ital-BoldOblique"}},
                        {"Obl", {"Obl-Regular", "Obl-BoldOblique", "Obl-BoldItalic"}}};
  EXPECT_EQ(choose(installed, "Ital", true, true), "Ital-BoldItalic");
  EXPECT_EQ(choose(installed, "Obl", true, true), "Obl-BoldOblique");
  EXPECT_EQ(choose(installed, "Ital", false, false), "Ital-Regular");
}

TEST(FaceChoice, MediumCountsAsBold) {
  const Faces installed{{"M", {"M-Regular", "M-Medium", "M-Bold", "M-MediumItalic"}}};
  EXPECT_EQ(choose(installed, "M", true, false), "M-Medium");
  EXPECT_EQ(choose(installed, "M", true, true), "M-MediumItalic");
}

TEST(FaceChoice, WithoutAMatchTheLastPlainFaceThenTheFamilyName) {
  const Faces installed{{"P", {"P-Light", "P-Bold", "P-Book"}}, {"B", {"B-Bold", "B-BoldItalic"}}};
  EXPECT_EQ(choose(installed, "P", false, true), "P-Book");
  EXPECT_EQ(choose(installed, "B", false, false), "B");
  EXPECT_EQ(choose(installed, "B", false, true), "B");
}

TEST(FaceChoice, AFamilyIsFoundOnlyByItsExactName) {
  const Faces installed{{"Sans", {"Sans-Regular"}}};
  EXPECT_EQ(choose(installed, "sans", false, false), "sans");
  EXPECT_EQ(choose(installed, "Sans ", false, false), "Sans ");
  EXPECT_EQ(choose(installed, "", true, true), "");
}

TEST(InstalledFonts, FamiliesAreSortedAndFacesComeRegularFirst) {
  EXPECT_EQ(text::familyNames(), (std::vector<std::string>{"DejaVu Sans", "DejaVu Serif",
                                                           "WenQuanYi Micro Hei",
                                                           "WenQuanYi Micro Hei Mono"}))
      << "the fixture fonts are not all installed (fonts-dejavu-core, fonts-dejavu-extra, "
         "fonts-wqy-microhei)";
  EXPECT_EQ(text::faceNames("DejaVu Sans"),
            (std::vector<std::string>{"DejaVuSans", "DejaVuSans-Bold", "DejaVuSans-Oblique",
                                      "DejaVuSans-BoldOblique"}));
  EXPECT_TRUE(text::faceNames("dejavu sans").empty());
  EXPECT_TRUE(text::faceNames("Nowhere").empty());
}

TEST(InstalledFonts, TheSessionFindsEachStyleOfAFamily) {
  Rig rig;
  TestSession session(rig.platform());
  EXPECT_EQ(session.fnFindFontWithName("DejaVu Sans", false, false), "DejaVuSans");
  EXPECT_EQ(session.fnFindFontWithName("DejaVu Sans", false, true), "DejaVuSans-Oblique");
  EXPECT_EQ(session.fnFindFontWithName("DejaVu Sans", true, false), "DejaVuSans-Bold");
  EXPECT_EQ(session.fnFindFontWithName("DejaVu Sans", true, true), "DejaVuSans-BoldOblique");
  // The fixture has no italic serif: the plain face stands in.
  EXPECT_EQ(session.fnFindFontWithName("DejaVu Serif", true, true), "DejaVuSerif");
  EXPECT_EQ(session.fnFindFontWithName("WenQuanYi Micro Hei", true, false), "WenQuanYiMicroHei");
  EXPECT_EQ(session.fnFindFontWithName("Helvetica", true, false), "Helvetica");
}
