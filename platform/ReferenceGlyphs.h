#pragma once

#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <unicode/umachine.h>

#include "recognition/GlyphForms.h"

namespace kvo {

// Han characters drawn in reference typefaces with FreeType, for comparing
// a glyph on a page with the two forms two models read it in
// (recognition/GlyphForms): Noto Sans CJK and Noto Serif CJK, Simplified
// forms from their SC faces and Traditional ones from their TC faces, as
// Debian's fonts-noto-cjk installs them.
class ReferenceGlyphs {
 public:
  // The directory holding NotoSansCJK-Regular.ttc and NotoSerifCJK-Regular.ttc.
  static std::string defaultDirectory();

  // Opens the typefaces found in `directory`; a missing or unreadable one is
  // left out, and with none every drawing is empty.
  explicit ReferenceGlyphs(std::string directory = defaultDirectory());
  ~ReferenceGlyphs();
  ReferenceGlyphs(const ReferenceGlyphs&) = delete;
  ReferenceGlyphs& operator=(const ReferenceGlyphs&) = delete;

  // How many typefaces draw each script's forms.
  size_t typefaces() const;

  // `c` drawn in each typeface of its script (`traditional`) that has it,
  // em pixels square with the baseline recognition::kEmBaseline of the em
  // down (recognition::FormDrawer); none for an em outside 4..512 pixels.
  // Drawings are kept for the engine's life.
  std::vector<recognition::Plane> draw(UChar32 c, bool traditional, int em);

 private:
  struct Library;
  std::unique_ptr<Library> library_;
  std::map<std::tuple<UChar32, bool, int>, std::vector<recognition::Plane>> drawn_;
};

}  // namespace kvo
