#include "film.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "film_units.h"

namespace vexal {
namespace {

constexpr std::size_t kBlock = 188 * 1394;  // whole packets of a transport stream

// Numbers of a film of `size` bytes, a block at a time.
class FilmBytes {
 public:
  FilmBytes(const ValueReader& read, uint64_t at, uint64_t size) : read_(read), at_(at), size_(size) {}
  uint64_t at() const { return at_; }
  bool good() const { return good_; }
  void go_to(uint64_t at) { at_ = at; }
  uint64_t big(int bytes) {
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = value << 8 | byte();
    return value;
  }

 private:
  unsigned byte() {
    if (at_ < begin_ || at_ >= end_) {
      begin_ = at_;
      end_ = at_ + std::min<uint64_t>(sizeof block_, size_ - std::min(at_, size_));
      if (begin_ == end_ || !read_(begin_, block_, static_cast<std::size_t>(end_ - begin_))) {
        end_ = begin_;
        good_ = false;
        return 0;
      }
    }
    return block_[at_++ - begin_];
  }

  const ValueReader& read_;
  uint64_t at_;
  uint64_t size_;
  uint64_t begin_ = 0;  // of the block
  uint64_t end_ = 0;
  bool good_ = true;
  unsigned char block_[1024];
};

constexpr uint64_t box_name(const char (&name)[5]) {
  uint64_t value = 0;
  for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(name[i]);
  return value;
}

// --- MP4 (ISO/IEC 14496-12) ---

constexpr uint64_t kMostBoxes = 1000000;

class Mp4 {
 public:
  Mp4(const ValueReader& read, uint64_t size, Film& film) : read_(read), size_(size), film_(film) {}
  std::string run();

 private:
  struct Track {
    bool is_video = false;
    uint64_t scale = 0;
    uint64_t samples = 0;
    uint64_t duration = 0;
    Film film{};
    bool known = false;
  };
  bool walk(uint64_t begin, uint64_t end, int depth, Track* track);
  bool take(uint64_t name, uint64_t content, uint64_t end, int depth, Track* track);
  void read_description(uint64_t content, uint64_t end, Track& track);
  void read_codec(uint64_t begin, uint64_t end, Track& track);
  void read_times(uint64_t content, uint64_t end, Track& track);

  const ValueReader& read_;
  uint64_t size_;
  Film& film_;
  std::vector<Track> tracks_{};
  bool has_movie_ = false;
  bool fragmented_ = false;
  uint64_t cut_at_ = 0;
  uint64_t boxes_ = 0;
};

bool Mp4::walk(uint64_t begin, uint64_t end, int depth, Track* track) {
  FilmBytes bytes(read_, begin, size_);
  while (bytes.at() + 8 <= end) {
    const uint64_t start = bytes.at();
    uint64_t length = bytes.big(4);
    const uint64_t name = bytes.big(4);
    if (length == 1) length = bytes.big(8);
    if (length == 0) length = end - start;
    // A last byte of even length is no box.
    if (!bytes.good() || length < bytes.at() - start || length > end - start || ++boxes_ > kMostBoxes) {
      cut_at_ = start;
      return false;
    }
    if (!take(name, bytes.at(), start + length, depth, track)) return false;
    if (depth == 0) film_.length = start + length;
    bytes.go_to(start + length);
  }
  return true;
}

bool Mp4::take(uint64_t name, uint64_t content, uint64_t end, int depth, Track* track) {
  if (depth > 8) return true;
  if (name == box_name("moov")) {
    has_movie_ = true;
    return walk(content, end, depth + 1, nullptr);
  }
  if (name == box_name("mvex")) fragmented_ = true;
  if (name == box_name("trak")) {
    Track found;
    const bool whole = walk(content, end, depth + 1, &found);
    tracks_.push_back(found);
    return whole;
  }
  if (track == nullptr) return true;
  FilmBytes bytes(read_, content, size_);
  if (name == box_name("mdia") || name == box_name("minf") || name == box_name("stbl"))
    return walk(content, end, depth + 1, track);
  if (name == box_name("mdhd")) {
    const uint64_t version = bytes.big(1);
    bytes.go_to(content + (version == 1 ? 20 : 12));
    track->scale = bytes.big(4);
  } else if (name == box_name("hdlr")) {
    bytes.go_to(content + 8);
    track->is_video = bytes.big(4) == box_name("vide");
  } else if (name == box_name("stsd")) {
    read_description(content, end, *track);
  } else if (name == box_name("stts")) {
    read_times(content, end, *track);
  }
  return true;
}

void Mp4::read_times(uint64_t content, uint64_t end, Track& track) {
  FilmBytes bytes(read_, content + 4, size_);
  const uint64_t count = std::min<uint64_t>(bytes.big(4), (end - content) / 8);
  for (uint64_t i = 0; i < count && bytes.good(); ++i) {
    const uint64_t samples = bytes.big(4);
    const uint64_t each = bytes.big(4);
    track.samples += samples;
    track.duration += samples * each;
    // No more than that is in a file of DICOM, and what follows can be counted.
    if (track.samples > INT32_MAX || track.duration > INT64_MAX) {
      track.samples = track.duration = 0;
      return;
    }
  }
}

void Mp4::read_description(uint64_t content, uint64_t end, Track& track) {
  constexpr uint64_t kEntry = 78;  // bytes of a picture's description in front of its boxes
  FilmBytes bytes(read_, content + 8, size_);
  const uint64_t length = bytes.big(4);
  const uint64_t name = bytes.big(4);
  if (name == box_name("avc1") || name == box_name("avc3")) track.film.codec = FilmCodec::H264;
  if (name == box_name("hvc1") || name == box_name("hev1")) track.film.codec = FilmCodec::Hevc;
  if (name == box_name("mp4v")) track.film.codec = FilmCodec::Mpeg2;
  const uint64_t inner = content + 16 + kEntry;
  const uint64_t stop = std::min(end, content + 8 + length);
  if (track.film.codec != FilmCodec::None && inner < stop) read_codec(inner, stop, track);
}

// The parameters of the stream, which stand beside it.
void Mp4::read_codec(uint64_t begin, uint64_t end, Track& track) {
  constexpr std::size_t kMost = 4096;
  FilmBytes bytes(read_, begin, size_);
  while (bytes.at() + 8 <= end) {
    const uint64_t start = bytes.at();
    const uint64_t length = bytes.big(4);
    const uint64_t name = bytes.big(4);
    if (!bytes.good() || length < 8 || length > end - start) return;
    std::string text(static_cast<std::size_t>(std::min<uint64_t>(kMost, length - 8)), '\0');
    if (!read_(start + 8, text.data(), text.size())) return;
    const auto at = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    if (name == box_name("avcC") && (at(5) & 31) != 0)
      track.known = read_h264_parameters(std::string_view(text).substr(std::min<std::size_t>(8, text.size())),
                                         track.film);
    if (name == box_name("hvcC")) {
      std::size_t place = 23;
      for (unsigned arrays = at(22); arrays > 0 && place < text.size(); --arrays) {
        const unsigned kind = at(place) & 63;
        unsigned units = at(place + 1) << 8 | at(place + 2);
        place += 3;
        for (; units > 0 && place < text.size(); --units) {
          const std::size_t size = at(place) << 8 | at(place + 1);
          const std::string_view unit = std::string_view(text).substr(std::min(place + 2, text.size()), size);
          if (kind == 33 && !track.known) track.known = read_hevc_parameters(unit, track.film);
          place += 2 + size;
        }
      }
    }
    bytes.go_to(start + length);
  }
}

std::string Mp4::run() {
  film_.container = FilmContainer::Mp4;
  const bool whole = walk(0, size_, 0, nullptr);
  // What a pad adds to a file is no box.
  if (boxes_ > kMostBoxes) return "has more than a million boxes";
  if (!whole && film_.length + 1 != size_)
    return "offset " + std::to_string(cut_at_) + ": is cut short: a box ends behind the end of the file";
  if (!has_movie_) return "has no description of its tracks: it is cut short";
  if (fragmented_) return "is an MP4 in fragments, which is not read: join them without coding them anew";
  const auto is_video = [](const Track& track) { return track.is_video; };
  const auto video = std::find_if(tracks_.begin(), tracks_.end(), is_video);
  if (video == tracks_.end()) return "has no video track";
  if (std::count_if(tracks_.begin(), tracks_.end(), is_video) > 1) return "has several video tracks";
  if (video->film.codec == FilmCodec::None || !video->known)
    return "has a video of another kind than H.264 and HEVC, which are those that an MP4 is read with";
  const uint64_t length = film_.length;
  film_ = video->film;
  film_.container = FilmContainer::Mp4;
  film_.length = length;
  film_.frames = video->samples;
  film_.rate = 0;
  if (video->duration != 0) {
    film_.rate = video->scale * video->samples;
    film_.rate_base = video->duration;
  }
  return film_.frames != 0 ? "" : "has no frames, or more than can be counted";
}

// --- Transport and program streams (ISO/IEC 13818-1) ---

// The bytes of the first video stream of its packets.
class TransportStream {
 public:
  explicit TransportStream(FilmUnits& units) : units_(units) {}
  bool packet(const unsigned char* p) {
    if (p[0] != 'G') return false;
    const unsigned id = (p[1] & 31U) << 8 | p[2];
    const bool starts = (p[1] & 0x40) != 0;
    std::size_t at = 4;
    if ((p[3] & 0x20) != 0) at += 1U + p[4];
    if ((p[3] & 0x10) == 0 || at >= kPacket) return true;
    if (video_ == 0 && starts && at + 9 < kPacket && p[at] == 0 && p[at + 1] == 0 && p[at + 2] == 1 &&
        (p[at + 3] & 0xF0) == 0xE0)
      video_ = id;
    if (id != video_ || video_ == 0) return true;
    if (starts && at + 9 < kPacket) at += 9U + p[at + 8];
    if (at < kPacket) units_.take(reinterpret_cast<const char*>(p) + at, kPacket - at);
    return true;
  }
  static constexpr std::size_t kPacket = 188;

 private:
  FilmUnits& units_;
  unsigned video_ = 0;
};

std::string read_transport(const ValueReader& read, uint64_t size, FilmUnits& units, Film& film) {
  film.container = FilmContainer::TransportStream;
  TransportStream stream(units);
  std::vector<unsigned char> block(kBlock);
  const uint64_t whole = size - size % TransportStream::kPacket;
  for (uint64_t at = 0; at < whole; at += block.size()) {
    const auto part = static_cast<std::size_t>(std::min<uint64_t>(block.size(), whole - at));
    if (!read(at, block.data(), part)) return "can not be read to its end";
    for (std::size_t i = 0; i < part; i += TransportStream::kPacket) {
      if (!stream.packet(block.data() + i))
        return "offset " + std::to_string(at + i) + ": no packet of a transport stream";
    }
  }
  film.length = whole;
  return size - whole > 1 ? "is cut short: its last packet is not whole" : "";
}

std::string read_program(const ValueReader& read, uint64_t size, FilmUnits& units, Film& film) {
  film.container = FilmContainer::ProgramStream;
  std::string content;
  FilmBytes bytes(read, 0, size);
  while (bytes.at() + 4 <= size) {
    const uint64_t start = bytes.at();
    const uint64_t code = bytes.big(4);
    if (code == 0x1B9) {
      film.length = bytes.at();
      return size - film.length <= 1 ? "" : "goes on behind its end";
    }
    if (code < 0x1BA || code > 0x1FF)
      return "offset " + std::to_string(start) + ": no packet of a program stream";
    if (code == 0x1BA) {
      if ((bytes.big(1) & 0xC0) != 0x40) return "is a program stream of MPEG-1, which no transfer syntax has";
      bytes.go_to(start + 13);
      bytes.go_to(start + 14 + (bytes.big(1) & 7));
      continue;
    }
    const uint64_t length = bytes.big(2);
    if (!bytes.good() || length > size - bytes.at()) return "is cut short: its last packet is not whole";
    const uint64_t content_at = bytes.at();
    if ((code & 0x1F0) == 0x1E0 && length > 3) {
      content.resize(length);
      if (!read(content_at, content.data(), length)) return "can not be read to its end";
      const std::size_t head = 3U + static_cast<unsigned char>(content[2]);
      if (head < length) units.take(content.data() + head, length - head);
    }
    bytes.go_to(content_at + length);
  }
  return "";
}

std::string read_stream(const ValueReader& read, uint64_t size, FilmUnits& units) {
  std::vector<char> block(kBlock);
  for (uint64_t at = 0; at < size; at += block.size()) {
    const auto part = static_cast<std::size_t>(std::min<uint64_t>(block.size(), size - at));
    if (!read(at, block.data(), part)) return "can not be read to its end";
    units.take(block.data(), part);
  }
  return "";
}

std::string profile_name(const Film& film) {
  struct Row {
    FilmCodec codec;
    uint32_t profile;
    const char* name;
  };
  constexpr Row kRows[] = {{FilmCodec::Mpeg2, 5, "Simple"},       {FilmCodec::Mpeg2, 4, "Main"},
                           {FilmCodec::Mpeg2, 1, "High"},         {FilmCodec::H264, 66, "Baseline"},
                           {FilmCodec::H264, 77, "Main"},         {FilmCodec::H264, 88, "Extended"},
                           {FilmCodec::H264, 100, "High"},        {FilmCodec::H264, 110, "High 10"},
                           {FilmCodec::H264, 122, "High 4:2:2"},  {FilmCodec::H264, 244, "High 4:4:4"},
                           {FilmCodec::H264, 128, "Stereo High"}, {FilmCodec::Hevc, 1, "Main"},
                           {FilmCodec::Hevc, 2, "Main 10"},       {FilmCodec::Hevc, 4, "Range Extensions"}};
  const auto* row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& r) {
    return r.codec == film.codec && r.profile == film.profile;
  });
  return (row != std::end(kRows) ? row->name : std::to_string(film.profile)) + std::string(" profile");
}

}  // namespace

std::string read_film(const ValueReader& read, uint64_t size, Film& film) {
  unsigned char head[377] = {};
  if (!read(0, head, static_cast<std::size_t>(std::min<uint64_t>(sizeof head, size)))) return "can not read";
  const auto word = [&](std::size_t at) {
    return uint64_t{head[at]} << 24 | uint64_t{head[at + 1]} << 16 | uint64_t{head[at + 2]} << 8 |
           head[at + 3];
  };
  if (word(4) == box_name("ftyp")) return Mp4(read, size, film).run();
  FilmUnits units(film);
  std::string problem;
  if (head[0] == 'G' && head[188] == 'G' && head[376] == 'G') {
    problem = read_transport(read, size, units, film);
  } else if (word(0) == 0x1BA) {
    problem = read_program(read, size, units, film);
  } else {
    problem = read_stream(read, size, units);
  }
  units.end();
  return problem.empty() ? units.fault() : problem;
}

std::string describe_codec(const Film& film) {
  constexpr const char* kNames[] = {"", "MPEG-2", "H.264", "HEVC"};
  char level[32];
  if (film.codec == FilmCodec::Mpeg2) {
    constexpr struct {
      uint32_t level;
      const char* name;
    } kLevels[] = {{10, "Low"}, {8, "Main"}, {6, "High-1440"}, {4, "High"}};
    const auto* row = std::find_if(std::begin(kLevels), std::end(kLevels),
                                   [&](const auto& r) { return r.level == film.level; });
    std::snprintf(level, sizeof level, "%s", row != std::end(kLevels) ? row->name : "unknown");
  } else {
    std::snprintf(level, sizeof level, "%.1f", film.level / (film.codec == FilmCodec::H264 ? 10.0 : 30.0));
  }
  return std::string(kNames[static_cast<std::size_t>(film.codec)]) + " " + profile_name(film) + ", level " +
         level;
}

}  // namespace vexal
