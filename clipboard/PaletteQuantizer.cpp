#include "clipboard/PaletteQuantizer.h"

#include <algorithm>
#include <limits>

namespace velmora {

namespace {

constexpr int kColours = 256;
constexpr int kRefinements = 2;
constexpr float kNearlyAsNear = 1.6f;
constexpr float kSlack = 4.0f;

// Colours are counted in cells of 4 x 4 x 4 shades (6 bits a channel): few enough to sort
// and refine quickly, fine enough that a cell's mean stands for all of its colours.
constexpr int kShift = 2;
constexpr int kSide = 256 >> kShift;
int cellOf(const uchar* pixel) {
  return ((pixel[0] >> kShift) * kSide + (pixel[1] >> kShift)) * kSide + (pixel[2] >> kShift);
}

struct Cell {
  uint64_t count = 0;
  uint64_t sum[3] = {0, 0, 0};
  uint32_t firstColour = 0;
  bool mixed = false;  // holds more than one exact colour
};

// A colour of the picture with its weight: a cell's mean.
struct Colour {
  float channel[3];
  double weight;
  int cell;
};

float distance(const float* a, const float* b) {
  const float d0 = a[0] - b[0], d1 = a[1] - b[1], d2 = a[2] - b[2];
  return d0 * d0 + d1 * d1 + d2 * d2;
}

struct Box {
  std::vector<Colour>::iterator begin, end;
  double error = 0;  // weighted squared distance of its colours to their mean
  int channel = 0;   // the channel along which they spread most
};

Box measure(std::vector<Colour>::iterator begin, std::vector<Colour>::iterator end) {
  double weight = 0, mean[3] = {0, 0, 0}, square[3] = {0, 0, 0};
  for (auto c = begin; c != end; ++c) {
    weight += c->weight;
    for (int k = 0; k < 3; ++k) {
      mean[k] += c->weight * c->channel[k];
      square[k] += c->weight * c->channel[k] * c->channel[k];
    }
  }
  Box box{begin, end};
  double widest = -1;
  for (int k = 0; k < 3; ++k) {
    const double spread = square[k] - mean[k] * mean[k] / weight;
    box.error += spread;
    if (spread > widest) widest = spread, box.channel = k;
  }
  return box;
}

// Splits the box whose colours are furthest from their mean, at the weighted median of its
// widest channel, until there are `colours` boxes or none can be split.
std::vector<Box> medianCut(std::vector<Colour>& colours) {
  std::vector<Box> boxes{measure(colours.begin(), colours.end())};
  while (int(boxes.size()) < kColours) {
    auto worst = std::max_element(boxes.begin(), boxes.end(), [](const Box& a, const Box& b) {
      return (a.end - a.begin > 1 ? a.error : -1) < (b.end - b.begin > 1 ? b.error : -1);
    });
    if (worst->end - worst->begin < 2 || worst->error <= 0) break;
    const int k = worst->channel;
    std::sort(worst->begin, worst->end, [k](const Colour& a, const Colour& b) { return a.channel[k] < b.channel[k]; });
    double total = 0;
    for (auto c = worst->begin; c != worst->end; ++c) total += c->weight;
    double seen = 0;
    auto middle = worst->begin;
    while (middle + 1 != worst->end && seen + middle->weight < total / 2) seen += (middle++)->weight;
    if (middle == worst->begin) ++middle;
    const Box upper = measure(middle, worst->end);
    *worst = measure(worst->begin, middle);
    boxes.push_back(upper);
  }
  return boxes;
}

std::vector<std::array<float, 3>> means(const std::vector<Box>& boxes) {
  std::vector<std::array<float, 3>> palette;
  for (const Box& box : boxes) {
    double weight = 0, sum[3] = {0, 0, 0};
    for (auto c = box.begin; c != box.end; ++c) {
      weight += c->weight;
      for (int k = 0; k < 3; ++k) sum[k] += c->weight * c->channel[k];
    }
    palette.push_back({float(sum[0] / weight), float(sum[1] / weight), float(sum[2] / weight)});
  }
  return palette;
}

int nearest(const float* colour, const std::vector<std::array<float, 3>>& palette) {
  int best = 0;
  float bestDistance = std::numeric_limits<float>::max();
  for (int i = 0; i < int(palette.size()); ++i) {
    const float d = distance(colour, palette[size_t(i)].data());
    if (d < bestDistance) bestDistance = d, best = i;
  }
  return best;
}

// Lloyd's rounds: each colour goes to its nearest entry, each entry moves to the mean of
// its colours. Answers each colour's entry.
std::vector<int> refine(const std::vector<Colour>& colours, std::vector<std::array<float, 3>>& palette) {
  std::vector<int> entry(colours.size());
  for (int round = 0;; ++round) {
    for (size_t i = 0; i < colours.size(); ++i) entry[i] = nearest(colours[i].channel, palette);
    if (round == kRefinements) return entry;
    std::vector<std::array<double, 4>> sums(palette.size(), {0, 0, 0, 0});
    for (size_t i = 0; i < colours.size(); ++i) {
      auto& sum = sums[size_t(entry[i])];
      for (int k = 0; k < 3; ++k) sum[size_t(k)] += colours[i].weight * colours[i].channel[k];
      sum[3] += colours[i].weight;
    }
    for (size_t e = 0; e < palette.size(); ++e)
      if (sums[e][3] > 0)
        palette[e] = {float(sums[e][0] / sums[e][3]), float(sums[e][1] / sums[e][3]), float(sums[e][2] / sums[e][3])};
  }
}

uint8_t toByte(float value) { return uint8_t(std::clamp(int(value + 0.5f), 0, 255)); }

}  // namespace

IndexedPicture quantize(const QImage& rgb) {
  std::vector<Cell> cells(size_t(kSide) * kSide * kSide);
  for (int y = 0; y < rgb.height(); ++y) {
    const uchar* pixel = rgb.constScanLine(y);
    for (int x = 0; x < rgb.width(); ++x, pixel += 3) {
      Cell& cell = cells[size_t(cellOf(pixel))];
      const uint32_t colour = (uint32_t(pixel[0]) << 16) | (uint32_t(pixel[1]) << 8) | pixel[2];
      if (cell.count == 0) cell.firstColour = colour;
      cell.mixed = cell.mixed || cell.firstColour != colour;
      ++cell.count;
      for (int k = 0; k < 3; ++k) cell.sum[k] += pixel[k];
    }
  }
  std::vector<Colour> colours;
  bool exact = true;
  for (int i = 0; i < int(cells.size()); ++i) {
    const Cell& cell = cells[size_t(i)];
    if (cell.count == 0) continue;
    exact = exact && !cell.mixed;
    const float n = float(cell.count);
    colours.push_back(
        {{float(cell.sum[0]) / n, float(cell.sum[1]) / n, float(cell.sum[2]) / n}, double(cell.count), i});
  }

  IndexedPicture out;
  std::vector<int> cellEntry(cells.size(), 0);
  if (exact && colours.size() <= size_t(kColours)) {
    for (size_t i = 0; i < colours.size(); ++i) {
      const uint32_t colour = cells[size_t(colours[i].cell)].firstColour;
      out.palette.push_back({uint8_t(colour >> 16), uint8_t(colour >> 8), uint8_t(colour)});
      cellEntry[size_t(colours[i].cell)] = int(i);
    }
  } else {
    std::vector<std::array<float, 3>> palette = means(medianCut(colours));
    const std::vector<int> entry = refine(colours, palette);
    for (size_t i = 0; i < colours.size(); ++i) cellEntry[size_t(colours[i].cell)] = entry[i];
    for (const auto& colour : palette) out.palette.push_back({toByte(colour[0]), toByte(colour[1]), toByte(colour[2])});
  }
  // A colour almost as near to the entry its left neighbour took keeps that entry: runs of
  // one entry make the file smaller at nearly no cost to the picture.
  std::vector<int> cellSecond(cells.size(), -1);
  {
    std::vector<std::array<float, 3>> palette;
    for (const auto& c : out.palette) palette.push_back({float(c[0]), float(c[1]), float(c[2])});
    for (const Colour& colour : colours) {
      const int best = cellEntry[size_t(colour.cell)];
      const float bestDistance = distance(colour.channel, palette[size_t(best)].data());
      int second = -1;
      float secondDistance = std::numeric_limits<float>::max();
      for (int i = 0; i < int(palette.size()); ++i) {
        if (i == best) continue;
        const float d = distance(colour.channel, palette[size_t(i)].data());
        if (d < secondDistance) secondDistance = d, second = i;
      }
      if (secondDistance <= kNearlyAsNear * bestDistance + kSlack) cellSecond[size_t(colour.cell)] = second;
    }
  }
  out.palette.resize(kColours, {0, 0, 0});  // GIF wants a power of two
  out.indices.resize(size_t(rgb.width()) * size_t(rgb.height()));
  uint8_t* index = out.indices.data();
  for (int y = 0; y < rgb.height(); ++y) {
    const uchar* pixel = rgb.constScanLine(y);
    int previous = -1;
    for (int x = 0; x < rgb.width(); ++x, pixel += 3) {
      const size_t cell = size_t(cellOf(pixel));
      previous = previous >= 0 && cellSecond[cell] == previous ? previous : cellEntry[cell];
      *index++ = uint8_t(previous);
    }
  }
  return out;
}

}  // namespace velmora
