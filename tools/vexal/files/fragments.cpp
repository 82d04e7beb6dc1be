#include "fragments.h"

#include <algorithm>
#include <cstring>

#include "files.h"

namespace vexal {
namespace {

// More items than this are no image.
constexpr std::size_t kMostFragments = std::size_t{1} << 24;

// The table, in steps: memory follows the bytes that are there.
bool read_table(const ValueReader& read, uint32_t length, std::vector<uint32_t>& table) {
  constexpr uint32_t kStep = 1 << 16;
  for (uint32_t done = 0; done < length / 4;) {
    const uint32_t step = std::min(length / 4 - done, kStep);
    table.resize(done + step);
    if (!read(8 + 4 * uint64_t{done}, table.data() + done, 4 * std::size_t{step})) return false;
    done += step;
  }
  return true;
}

// If the fragment begins a code stream of JPEG or JPEG 2000, a frame of RLE, or a stream of JPEG XL, and if
// it ends one; the latter two have no mark at their end.
struct Marks {
  bool begins;
  bool ends;
  bool is_rle;
  bool is_xl;
};
Marks read_marks(const Fragment& fragment, const ValueReader& read) {
  uint8_t first[8] = {};
  uint8_t last[3] = {};
  read(fragment.data, first, std::min<std::size_t>(fragment.length, sizeof first));
  const bool begins = first[0] == 0xFF && (first[1] == 0xD8 || first[1] == 0x4F);
  constexpr uint8_t kContainer[] = {0, 0, 0, 12, 'J', 'X', 'L', ' '};
  const bool is_xl =
      (first[0] == 0xFF && first[1] == 0x0A) || std::memcmp(first, kContainer, sizeof first) == 0;
  // The number of segments and the offset of the first one, in little endian.
  constexpr uint8_t kRest[] = {0, 0, 0, 64, 0, 0, 0};
  const bool is_rle = first[0] >= 1 && first[0] <= 15 && std::memcmp(first + 1, kRest, sizeof kRest) == 0;
  const bool has_end = fragment.length >= 3 && read(fragment.data + fragment.length - 3, last, sizeof last);
  const uint8_t* end = last[2] == 0 ? last : last + 1;
  return {begins, has_end && end[0] == 0xFF && end[1] == 0xD9, is_rle, is_xl};
}

}  // namespace

Encapsulated read_items(const ValueReader& read, uint64_t size) {
  Encapsulated value;
  value.sound = false;
  uint64_t at = 0;
  uint64_t begin = 0;
  while (size - at >= 8) {
    uint32_t header[2];
    if (!read(at, header, sizeof header)) return value;
    const uint32_t length = header[1];
    if (header[0] == kDelimiter) {
      value.sound = true;
      return value;
    }
    if (header[0] != kItem || length > size - at - 8 || value.fragments.size() == kMostFragments)
      return value;
    if (at == 0) {
      if (!read_table(read, length, value.table)) return value;
      begin = 8 + uint64_t{length};
    } else {
      value.fragments.push_back({at - begin, at + 8, length});
    }
    at += 8 + uint64_t{length};
  }
  return value;
}

// A frame begins with a fragment of its own. Where there are more fragments than frames, the marks of the
// code streams tell: behind an end, a beginning.
void find_frames(Encapsulated& value, uint32_t frames, const ValueReader& read) {
  const std::vector<Fragment>& fragments = value.fragments;
  std::vector<std::size_t>& starts = value.starts;
  if (fragments.empty()) return;
  if (fragments.size() == frames) {
    for (std::size_t i = 0; i < fragments.size(); ++i) starts.push_back(i);
    return;
  }
  if (fragments.size() < frames) return;
  const bool all_xl = read_marks(fragments[0], read).is_xl;
  bool ended = true;
  for (std::size_t i = 0; i < fragments.size(); ++i) {
    const Marks marks = read_marks(fragments[i], read);
    if (all_xl ? marks.is_xl : marks.is_rle || (marks.begins && ended)) starts.push_back(i);
    ended = marks.ends;
  }
  // The fragments of one frame are that, unless they tell of more.
  if (frames == 1 && starts.size() < 2) starts = {0};
  if (starts.size() != frames || starts[0] != 0) starts.clear();
}

void find_frames_by_table(Encapsulated& value, uint32_t frames) {
  if (!value.starts.empty() || value.table.size() != frames) return;
  std::size_t at = 0;
  for (const uint32_t entry : value.table) {
    while (at < value.fragments.size() && value.fragments[at].offset < entry) ++at;
    if (at == value.fragments.size() || value.fragments[at].offset != entry ||
        (value.starts.empty() ? at != 0 : at == value.starts.back())) {
      value.starts.clear();
      return;
    }
    value.starts.push_back(at);
  }
}

std::string copy_to_file(const ValueReader& read, uint64_t size, const std::string& path) {
  constexpr std::size_t kPiece = std::size_t{1} << 20;
  FileSink sink;
  if (std::string error = sink.open(path); !error.empty()) return error;
  Bytes piece;
  for (uint64_t at = 0; at < size; at += piece.size()) {
    piece.resize(static_cast<std::size_t>(std::min<uint64_t>(kPiece, size - at)));
    if (!read(at, piece.data(), piece.size())) return "what is written there can not be read to its end";
    if (!sink.write(piece.data(), piece.size())) return "it can not be written: " + sink.problem();
  }
  return sink.commit();
}

}  // namespace vexal
