#include "Image.h"

#include <algorithm>

#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image_write.h>

namespace velmar {
namespace tools {
namespace {

constexpr int kChannels = 3;
// A box for characters the font lacks, so that a missing glyph shows rather than vanishes.
constexpr uint8_t kMissingGlyph[kGlyphHeight] = {0x1F, 0x11, 0x11, 0x11, 0x11, 0x11, 0x1F};

}  // namespace

Image::Image(int width, int height, Color background)
    : width_(std::max(width, 0)), height_(std::max(height, 0)) {
  pixels_.resize(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * kChannels);
  FillRect(0, 0, width_, height_, background);
}

void Image::Set(int x, int y, Color color) {
  if (x < 0 || y < 0 || x >= width_ || y >= height_) {
    return;
  }
  std::size_t at = (static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                    static_cast<std::size_t>(x)) *
                   kChannels;
  pixels_[at] = color.r;
  pixels_[at + 1] = color.g;
  pixels_[at + 2] = color.b;
}

Color Image::Get(int x, int y) const {
  if (x < 0 || y < 0 || x >= width_ || y >= height_) {
    return Color{0, 0, 0};
  }
  std::size_t at = (static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                    static_cast<std::size_t>(x)) *
                   kChannels;
  return Color{pixels_[at], pixels_[at + 1], pixels_[at + 2]};
}

void Image::FillRect(int x, int y, int width, int height, Color color) {
  int left = std::max(x, 0);
  int top = std::max(y, 0);
  int right = std::min(x + width, width_);
  int bottom = std::min(y + height, height_);
  for (int row = top; row < bottom; ++row) {
    for (int column = left; column < right; ++column) {
      Set(column, row, color);
    }
  }
}

void Image::DrawText(int x, int y, const std::string& text, Color color, int scale) {
  for (char c : text) {
    const uint8_t* rows = Glyph(c);
    if (rows == nullptr) {
      rows = kMissingGlyph;
    }
    for (int row = 0; row < kGlyphHeight; ++row) {
      for (int column = 0; column < kGlyphWidth; ++column) {
        if ((rows[row] >> (kGlyphWidth - 1 - column)) & 1u) {
          FillRect(x + column * scale, y + row * scale, scale, scale, color);
        }
      }
    }
    x += kCharAdvance * scale;
  }
}

bool Image::WritePng(const std::string& path) const {
  if (width_ == 0 || height_ == 0) {
    return false;
  }
  return stbi_write_png(path.c_str(), width_, height_, kChannels, pixels_.data(),
                        width_ * kChannels) != 0;
}

int TextWidth(const std::string& text, int scale) {
  return static_cast<int>(text.size()) * kCharAdvance * scale;
}

}  // namespace tools
}  // namespace velmar
