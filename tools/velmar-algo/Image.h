// A small RGB canvas for the tool's pictures: filled rectangles, single pixels, text in a
// built-in 5x7 font, and PNG output through stb_image_write.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_IMAGE_H
#define VELMAR_TOOLS_VELMAR_ALGO_IMAGE_H

#include <cstdint>
#include <string>
#include <vector>

namespace velmar {
namespace tools {

struct Color {
  uint8_t r, g, b;
};

// The font's cell: 5x7 glyphs on a 6x9 grid, times the scale.
constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;
constexpr int kCharAdvance = 6;
constexpr int kLineAdvance = 9;

class Image {
 public:
  Image(int width, int height, Color background);

  int Width() const { return width_; }
  int Height() const { return height_; }
  // Pixels outside the canvas are ignored, so callers may draw without clipping.
  void Set(int x, int y, Color color);
  Color Get(int x, int y) const;
  void FillRect(int x, int y, int width, int height, Color color);
  // Draws `text` with its top-left corner at (x, y); letters are drawn upper-case, characters
  // the font lacks as a box.
  void DrawText(int x, int y, const std::string& text, Color color, int scale = 1);
  // Writes a PNG; false when the file cannot be written.
  bool WritePng(const std::string& path) const;

 private:
  int width_;
  int height_;
  std::vector<uint8_t> pixels_;  // RGB, row after row
};

// Width in pixels of `text` drawn at `scale`.
int TextWidth(const std::string& text, int scale = 1);

// The 7 rows of a glyph, each a 5-bit mask with the leftmost pixel in bit 4; nullptr when the
// font has no glyph for the character.
const uint8_t* Glyph(char c);

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_IMAGE_H
