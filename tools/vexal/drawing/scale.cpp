#include "scale.h"

#include <algorithm>
#include <cmath>

namespace vexal {
namespace {

constexpr double kNearlySquare = 1.001;
constexpr double kMostStretch = 16;
constexpr uint64_t kMostPixels = uint64_t{1} << 29;

// What pixels along a side are made of: `count` of the old ones from `first` on, each with its share.
struct Mix {
  uint32_t first = 0;
  std::vector<double> shares;
};

std::vector<Mix> mixes(uint32_t from, uint32_t to) {
  std::vector<Mix> all(to);
  const double step = static_cast<double>(from) / to;
  for (uint32_t i = 0; i < to; ++i) {
    Mix& mix = all[i];
    if (step <= 1) {
      const double at = std::clamp((i + 0.5) * step - 0.5, 0.0, from - 1.0);
      mix.first = static_cast<uint32_t>(at);
      const double rest = at - mix.first;
      mix.shares = {1 - rest};
      if (rest > 0) mix.shares.push_back(rest);
      continue;
    }
    const double low = i * step;
    const double high = std::min((i + 1) * step, static_cast<double>(from));
    mix.first = static_cast<uint32_t>(low);
    for (uint32_t k = mix.first; k < from && k < high; ++k)
      mix.shares.push_back((std::min(k + 1.0, high) - std::max<double>(k, low)) / (high - low));
  }
  return all;
}

// Rows in another length, then columns, so that only a few rows are held as fractions.
template <typename Sample>
void scale(const Picture& from, Picture& to) {
  const auto across = mixes(from.width, to.width);
  const auto down = mixes(from.height, to.height);
  const auto* source = reinterpret_cast<const Sample*>(from.bytes.data());
  auto* target = reinterpret_cast<Sample*>(to.bytes.data());
  const std::size_t samples = from.samples;
  std::vector<double> sums(to.width * samples);
  for (uint32_t y = 0; y < to.height; ++y) {
    std::fill(sums.begin(), sums.end(), 0.0);
    for (std::size_t v = 0; v < down[y].shares.size(); ++v) {
      const Sample* row = source + (down[y].first + v) * from.width * samples;
      for (uint32_t x = 0; x < to.width; ++x) {
        for (std::size_t u = 0; u < across[x].shares.size(); ++u) {
          const double share = down[y].shares[v] * across[x].shares[u];
          for (std::size_t c = 0; c < samples; ++c)
            sums[x * samples + c] += share * row[(across[x].first + u) * samples + c];
        }
      }
    }
    for (const double sum : sums) *target++ = static_cast<Sample>(std::lround(sum));
  }
}

}  // namespace

Picture scaled(const Picture& from, uint32_t width, uint32_t height) {
  Picture to;
  to.width = width;
  to.height = height;
  to.samples = from.samples;
  to.bits = from.bits;
  to.across = from.across * from.width / width;
  to.down = from.down * from.height / height;
  to.bytes.resize(std::size_t{width} * height * to.samples * (to.bits / 8));
  if (to.bits == 8) {
    scale<uint8_t>(from, to);
  } else {
    scale<uint16_t>(from, to);
  }
  return to;
}

void make_square(Picture& picture, double across, double down) {
  if (!(across > 0) || !(down > 0)) return;
  const double stretch = std::max(across, down) / std::min(across, down);
  if (!(stretch > kNearlySquare) || stretch > kMostStretch) return;
  uint64_t width = picture.width;
  uint64_t height = picture.height;
  uint64_t& side = across > down ? width : height;
  side = static_cast<uint64_t>(std::llround(static_cast<double>(side) * stretch));
  if (width * height > kMostPixels || width * height * picture.samples == picture.bytes.size()) return;
  picture = scaled(picture, static_cast<uint32_t>(width), static_cast<uint32_t>(height));
}

}  // namespace vexal
