#pragma once
#include <QImage>
#include <array>
#include <cstdint>
#include <vector>

namespace velmora {

// A picture in at most 256 colours chosen from the picture itself, as GIF keeps it.
struct IndexedPicture {
  std::vector<std::array<uint8_t, 3>> palette;  // red, green, blue
  std::vector<uint8_t> indices;                 // one per pixel, row after row
};

// Chooses the palette by median cut over the picture's colours (each counted as often as it
// occurs), refined by a few rounds of k-means, and gives each pixel its nearest entry, or
// its left neighbour's when that is almost as near (runs make the GIF smaller). A picture
// of 256 colours or fewer keeps them exactly. `rgb` is a picture in RGB888.
IndexedPicture quantize(const QImage& rgb);

}  // namespace velmora
