#include "stored_fonts.hpp"

#include <cairo-ft.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <memory>

#include "render_error.hpp"

namespace orvante::vprinter {

namespace {

// One FreeType library for the process: Cairo may keep faces in its
// caches after their engine is gone, and they must stay usable.
FT_Library library() {
  static FT_Library shared = [] {
    FT_Library made = nullptr;
    if (FT_Init_FreeType(&made) != 0) made = nullptr;
    return made;
  }();
  return shared;
}

struct LoadedFace {
  Bytes bytes;
  FT_Face face = nullptr;
  ~LoadedFace() {
    if (face) FT_Done_Face(face);
  }
};

const cairo_user_data_key_t kLoadedKey{};

}  // namespace

StoredFonts::~StoredFonts() {
  for (auto& [name, face] : faces_) cairo_font_face_destroy(face);
}

void StoredFonts::forget(const std::string& name) {
  const auto found = faces_.find(name);
  if (found == faces_.end()) return;
  cairo_font_face_destroy(found->second);
  faces_.erase(found);
}

cairo_font_face_t* StoredFonts::face(const std::string& name, const Bytes& file) {
  if (const auto found = faces_.find(name); found != faces_.end()) return found->second;
  auto loaded = std::make_unique<LoadedFace>();
  loaded->bytes = file;
  if (!library() || FT_New_Memory_Face(library(), loaded->bytes.data(),
                                       static_cast<FT_Long>(loaded->bytes.size()), 0,
                                       &loaded->face) != 0) {
    throw CommandWarning("\"" + name + "\" is not a font");
  }
  cairo_font_face_t* face = cairo_ft_font_face_create_for_ft_face(loaded->face, 0);
  if (cairo_font_face_set_user_data(face, &kLoadedKey, loaded.get(), [](void* data) {
        delete static_cast<LoadedFace*>(data);
      }) != CAIRO_STATUS_SUCCESS) {
    cairo_font_face_destroy(face);
    throw CommandWarning("no memory for font \"" + name + "\"");
  }
  loaded.release();
  faces_[name] = face;
  return face;
}

}  // namespace orvante::vprinter
