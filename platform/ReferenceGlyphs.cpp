#include "platform/ReferenceGlyphs.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <cmath>
#include <cstring>

namespace kvo {

namespace {

// The typefaces: for each, the file and family of its Simplified faces and
// of its Traditional ones. A face is chosen by family name, so that a
// collection laid out in another order still works.
struct Typeface {
  const char* simplifiedFile;
  const char* simplifiedFamily;
  const char* traditionalFile;
  const char* traditionalFamily;
};
constexpr Typeface kTypefaces[] = {
    {"opentype/noto/NotoSansCJK-Regular.ttc", "Noto Sans CJK SC", "opentype/noto/NotoSansCJK-Regular.ttc",
     "Noto Sans CJK TC"},
    {"opentype/noto/NotoSerifCJK-Regular.ttc", "Noto Serif CJK SC", "opentype/noto/NotoSerifCJK-Regular.ttc",
     "Noto Serif CJK TC"},
    {"truetype/arphic-gkai00mp/gkai00mp.ttf", "AR PL KaitiM GB", "truetype/arphic-bkai00mp/bkai00mp.ttf",
     "AR PL KaitiM Big5"},
};
using recognition::kLeastEm;
using recognition::kMostEm;

}  // namespace

struct ReferenceGlyphs::Library {
  FT_Library library = nullptr;
  // Pairs of faces, Simplified and Traditional, of the same typeface.
  std::vector<std::pair<FT_Face, FT_Face>> faces;
  ~Library() {
    for (auto& [simplified, traditional] : faces) {
      FT_Done_Face(simplified);
      FT_Done_Face(traditional);
    }
    if (library != nullptr) FT_Done_FreeType(library);
  }
  // The face of `file` whose family is `family`; null when there is none.
  FT_Face open(const std::string& file, const char* family) {
    FT_Face face = nullptr;
    if (FT_New_Face(library, file.c_str(), -1, &face) != 0) return nullptr;
    const FT_Long count = face->num_faces;
    FT_Done_Face(face);
    for (FT_Long i = 0; i < count; ++i) {
      if (FT_New_Face(library, file.c_str(), i, &face) != 0) continue;
      if (face->family_name != nullptr && std::strcmp(face->family_name, family) == 0) return face;
      FT_Done_Face(face);
    }
    return nullptr;
  }
};

std::string ReferenceGlyphs::defaultDirectory() { return "/usr/share/fonts"; }

ReferenceGlyphs::ReferenceGlyphs(std::string directory) : library_(std::make_unique<Library>()) {
  if (FT_Init_FreeType(&library_->library) != 0) {
    library_->library = nullptr;
    return;
  }
  for (const Typeface& t : kTypefaces) {
    FT_Face simplified = library_->open(directory + "/" + t.simplifiedFile, t.simplifiedFamily);
    FT_Face traditional =
        simplified != nullptr ? library_->open(directory + "/" + t.traditionalFile, t.traditionalFamily) : nullptr;
    if (traditional != nullptr) {
      library_->faces.emplace_back(simplified, traditional);
    } else if (simplified != nullptr) {
      FT_Done_Face(simplified);
    }
  }
}

ReferenceGlyphs::~ReferenceGlyphs() = default;

size_t ReferenceGlyphs::typefaces() const { return library_->faces.size(); }

std::vector<recognition::Plane> ReferenceGlyphs::draw(UChar32 c, bool traditional, int em) {
  if (em < kLeastEm || em > kMostEm) return {};
  const auto key = std::make_tuple(c, traditional, em);
  if (const auto found = drawn_.find(key); found != drawn_.end()) return found->second;
  std::vector<recognition::Plane> drawings;
  const int baseline = static_cast<int>(std::lround(recognition::kEmBaseline * em));
  for (const auto& [simplifiedFace, traditionalFace] : library_->faces) {
    FT_Face face = traditional ? traditionalFace : simplifiedFace;
    drawings.emplace_back();  // empty: the typeface does not draw `c`
    if (FT_Get_Char_Index(face, static_cast<FT_ULong>(c)) == 0) continue;
    if (FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(em)) != 0 ||
        FT_Load_Char(face, static_cast<FT_ULong>(c), FT_LOAD_RENDER) != 0)
      continue;
    const FT_GlyphSlot glyph = face->glyph;
    const FT_Bitmap& bitmap = glyph->bitmap;
    if (bitmap.pixel_mode != FT_PIXEL_MODE_GRAY) continue;
    recognition::Plane plane{em, em, std::vector<float>(static_cast<size_t>(em) * em, 0.0f)};
    const float levels = bitmap.num_grays > 1 ? static_cast<float>(bitmap.num_grays - 1) : 1.0f;
    for (unsigned row = 0; row < bitmap.rows; ++row) {
      const int y = baseline - glyph->bitmap_top + static_cast<int>(row);
      if (y < 0 || y >= em) continue;
      const unsigned char* line = bitmap.buffer + static_cast<ptrdiff_t>(row) * bitmap.pitch;
      for (unsigned column = 0; column < bitmap.width; ++column) {
        const int x = glyph->bitmap_left + static_cast<int>(column);
        if (x >= 0 && x < em) plane.values[static_cast<size_t>(y) * em + x] = line[column] / levels;
      }
    }
    drawings.back() = std::move(plane);
  }
  return drawn_.emplace(key, std::move(drawings)).first->second;
}

}  // namespace kvo
