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
// (recognition/GlyphForms): a sans (Noto Sans CJK), a Ming/Song (Noto Serif
// CJK) and a Kai (Arphic's KaitiM), the styles Chinese text is mostly set
// in. Simplified forms come from each typeface's faces for the mainland
// (Noto's SC faces, KaitiM GB) and Traditional ones from those for Taiwan
// (Noto's TC faces, KaitiM Big5), as Debian's fonts-noto-cjk,
// fonts-arphic-gkai00mp and fonts-arphic-bkai00mp install them.
class ReferenceGlyphs {
 public:
  // The directory the font packages install into.
  static std::string defaultDirectory();

  // Opens the typefaces found under `directory`; one whose files are
  // missing or unreadable is left out, and with none there are no drawings.
  explicit ReferenceGlyphs(std::string directory = defaultDirectory());
  ~ReferenceGlyphs();
  ReferenceGlyphs(const ReferenceGlyphs&) = delete;
  ReferenceGlyphs& operator=(const ReferenceGlyphs&) = delete;

  // How many typefaces draw each script's forms.
  size_t typefaces() const;

  // `c` drawn by each typeface in its faces for `c`'s script
  // (`traditional`), in the typefaces' order, em pixels square with the
  // baseline recognition::kEmBaseline of the em down; an empty plane for a
  // typeface without `c` (recognition::FormDrawer). None at all for an em
  // outside 4..512 pixels. Drawings are kept for the engine's life.
  std::vector<recognition::Plane> draw(UChar32 c, bool traditional, int em);

 private:
  struct Library;
  std::unique_ptr<Library> library_;
  std::map<std::tuple<UChar32, bool, int>, std::vector<recognition::Plane>> drawn_;
};

}  // namespace kvo
