// Writes the files that the comparisons run on: make_inputs FOLDER [MIB-OF-PIXELS | frames].
//
//   items.dcm    2,000 items of 100 elements each, explicit VR little endian
//   private.dcm  1,000 private blocks of 200 elements each at the top level
//   ct.dcm       a CT image of 512 by 512 pixels
//   small.dcm    an image of 33 KB
//   pixels.dcm   a multi-frame image with 16-bit pixels (200 MiB unless told otherwise)
//
// With "frames" instead those that codecs are compared on, 100 frames of 512 by 512 pixels of a body in air,
// with noise:
//
//   grey16.dcm   12 bits in 16
//   grey8.dcm    8 bits
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "ct_image.h"

namespace {

class Stream {
 public:
  void u16(uint32_t v) {
    bytes_.push_back(static_cast<char>(v & 0xFFU));
    bytes_.push_back(static_cast<char>((v >> 8) & 0xFFU));
  }
  void u32(uint32_t v) {
    u16(v & 0xFFFFU);
    u16(v >> 16);
  }
  void tag(uint32_t t) {
    u16(t >> 16);
    u16(t & 0xFFFFU);
  }
  void text(uint32_t t, const char* vr, std::string value) {
    const std::string letters = vr;
    if (value.size() % 2 != 0) value.push_back(letters == "UI" ? '\0' : ' ');
    tag(t);
    bytes_ += letters;
    u16(static_cast<uint32_t>(value.size()));
    bytes_ += value;
  }
  void us(uint32_t t, uint32_t value) {
    tag(t);
    bytes_ += "US";
    u16(2);
    u16(value);
  }
  void long_header(uint32_t t, const char* vr, uint32_t length) {
    tag(t);
    bytes_ += vr;
    u16(0);
    u32(length);
  }
  void append(const std::string& other) { bytes_ += other; }
  const std::string& bytes() const { return bytes_; }
  std::string take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

// Preamble and meta group.
std::string meta_header(const std::string& sop_class, const std::string& instance) {
  Stream meta;
  meta.long_header(0x00020001, "OB", 2);
  meta.append(std::string("\0\1", 2));
  meta.text(0x00020002, "UI", sop_class);
  meta.text(0x00020003, "UI", instance);
  meta.text(0x00020010, "UI", "1.2.840.10008.1.2.1");
  meta.text(0x00020012, "UI", "2.25.1");
  Stream file;
  file.append(std::string(128, '\0') + "DICM");
  file.tag(0x00020000);
  file.append("UL");
  file.u16(4);
  file.u32(static_cast<uint32_t>(meta.bytes().size()));
  file.append(meta.bytes());
  return file.take();
}

std::string header(const std::string& sop_class, const std::string& instance) {
  Stream data;
  data.text(0x00080016, "UI", sop_class);
  data.text(0x00080018, "UI", instance);
  data.text(0x00080060, "CS", "OT");
  return meta_header(sop_class, instance) + data.bytes();
}

std::string ct_file() {
  Stream file;
  file.append(meta_header("1.2.840.10008.5.1.4.1.1.2", "1.2.3.4.5.6.7.1"));
  for (const bench::ImageRow& row : bench::kCtImage) {
    if (std::string(row.vr) == "US") {
      file.us(row.tag, static_cast<uint32_t>(std::atoi(row.value)));
    } else {
      file.text(row.tag, row.vr, row.value);
    }
  }
  file.long_header(0x7FE00010, "OW", 512 * 512 * 2);
  return file.take() + std::string(512 * 512 * 2, '\0');
}

// 100 elements of the kinds that functional groups and structured reports are made of.
std::string item_body(int item) {
  struct Row {
    uint32_t tag;
    const char* vr;
    const char* value;
  };
  static const Row kRows[] = {
      {0x00080005, "CS", "ISO_IR 100"},
      {0x00080008, "CS", "ORIGINAL\\PRIMARY\\AXIAL"},
      {0x00080020, "DA", "20240102"},
      {0x00080030, "TM", "101112.5"},
      {0x00080060, "CS", "CT"},
      {0x00080070, "LO", "Maker of scanners"},
      {0x00081030, "LO", "Study"},
      {0x00100010, "PN", "Doe^John^^Dr"},
      {0x00100020, "LO", "12345"},
      {0x00180050, "DS", "1.25"},
      {0x00180060, "DS", "120"},
      {0x00181030, "LO", "Protocol"},
      {0x0020000D, "UI", "1.2.3.4.5.6.78"},
      {0x00200011, "IS", "3"},
      {0x00200013, "IS", "12"},
      {0x00200032, "DS", "-12.5\\3.25\\100"},
      {0x00200037, "DS", "1\\0\\0\\0\\1\\0"},
  };
  Stream body;
  uint32_t count = 0;
  for (const Row& row : kRows) {
    body.text(row.tag, row.vr, row.value);
    ++count;
  }
  for (uint32_t element = 0; count < 100; ++element, ++count) {
    const uint32_t tag = 0x00280000U + 0x1000U + element;
    if (element % 3 == 0) {
      body.us(tag, static_cast<uint32_t>(item) & 0xFFFFU);
    } else if (element % 3 == 1) {
      body.text(tag, "DS", std::to_string(item) + ".5");
    } else {
      body.text(tag, "LO", "value " + std::to_string(element));
    }
  }
  return body.take();
}

bool write(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return out.good();
}

std::string items_file() {
  Stream sequence;
  for (int item = 0; item < 2000; ++item) {
    const std::string body = item_body(item);
    sequence.tag(0xFFFEE000);
    sequence.u32(static_cast<uint32_t>(body.size()));
    sequence.append(body);
  }
  Stream file;
  file.append(header("1.2.840.10008.5.1.4.1.1.66", "1.2.3.4.1"));
  file.long_header(0x52009230, "SQ", static_cast<uint32_t>(sequence.bytes().size()));
  file.append(sequence.bytes());
  return file.take();
}

std::string private_file() {
  Stream file;
  file.append(header("1.2.840.10008.5.1.4.1.1.66", "1.2.3.4.2"));
  for (uint32_t g = 0; g < 100; ++g) {
    const uint32_t group = (0x1001U + 2 * g) << 16;
    for (uint32_t block = 0x10; block < 0x1A; ++block)
      file.text(group | block, "LO", "MAKER " + std::to_string(block));
    for (uint32_t block = 0x10; block < 0x1A; ++block) {
      for (uint32_t e = 0; e < 200; ++e) {
        const uint32_t tag = group | (block << 8) | e;
        if (e % 2 == 0) {
          file.us(tag, e);
        } else {
          file.text(tag, "LO", "value " + std::to_string(e));
        }
      }
    }
  }
  return file.take();
}

// 128 x 128 pixels of 16 bits.
std::string small_file() {
  Stream file;
  file.append(header("1.2.840.10008.5.1.4.1.1.7.3", "1.2.3.4.5.6.7.100000"));
  file.us(0x00280002, 1);
  file.text(0x00280004, "CS", "MONOCHROME2");
  file.us(0x00280010, 128);
  file.us(0x00280011, 128);
  file.us(0x00280100, 16);
  file.us(0x00280101, 16);
  file.us(0x00280102, 15);
  file.us(0x00280103, 0);
  file.long_header(0x7FE00010, "OW", 32768);
  file.append(std::string(32768, '\x5A'));
  return file.take();
}

// One frame of a slice through a body: air around it, tissue with fibres, two lungs and a spine, under noise.
void draw_frame(std::vector<uint16_t>& pixels, int frame, uint32_t& seed) {
  struct Ellipse {
    int x, y, half_width, half_height, level;
  };
  const Ellipse ellipses[] = {{256, 256, 240, 200, 1040},
                              {150, 240, 80 - frame / 4, 110, 180},
                              {362, 240, 80 - frame / 4, 110, 170},
                              {256, 380, 24, 28, 1700 + 4 * frame}};
  for (int y = 0; y < 512; ++y) {
    for (int x = 0; x < 512; ++x) {
      int level = 0;
      for (const Ellipse& e : ellipses) {
        const int dx = (x - e.x) * 1024 / e.half_width;
        const int dy = (y - e.y) * 1024 / e.half_height;
        if (dx * dx + dy * dy <= 1 << 20) level = e.level + (dx * dx + dy * dy) / 16384;
      }
      if (level != 0) {
        level += ((x + frame) / 7 * 37 + y / 5 * 61) % 53;
        // Four rolls are near enough to a bell.
        for (int i = 0; i < 4; ++i) {
          seed = seed * 1664525U + 1013904223U;
          level += static_cast<int>(seed >> 28) - 8;
        }
      }
      pixels[static_cast<std::size_t>(y * 512 + x)] = static_cast<uint16_t>(level < 0 ? 0 : level);
    }
  }
}

bool frames_file(const std::string& path, uint32_t bits) {
  constexpr int kFrames = 100;
  Stream file;
  file.append(header("1.2.840.10008.5.1.4.1.1.7.3", "1.2.3.4.4"));
  file.us(0x00280002, 1);
  file.text(0x00280004, "CS", "MONOCHROME2");
  file.text(0x00280008, "IS", std::to_string(kFrames));
  file.us(0x00280010, 512);
  file.us(0x00280011, 512);
  file.us(0x00280100, bits);
  file.us(0x00280101, bits == 16 ? 12 : 8);
  file.us(0x00280102, bits == 16 ? 11 : 7);
  file.us(0x00280103, 0);
  file.long_header(0x7FE00010, bits == 16 ? "OW" : "OB", kFrames * 512 * 512 * bits / 8);
  std::ofstream out(path, std::ios::binary);
  out << file.bytes();
  std::vector<uint16_t> pixels(std::size_t{512} * 512);
  std::string bytes;
  uint32_t seed = 1;
  for (int frame = 0; frame < kFrames; ++frame) {
    draw_frame(pixels, frame, seed);
    bytes.clear();
    for (const uint16_t pixel : pixels) {
      bytes.push_back(static_cast<char>(bits == 16 ? pixel : pixel >> 3));
      if (bits == 16) bytes.push_back(static_cast<char>(pixel >> 8));
    }
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  return out.good();
}

bool pixel_file(const std::string& path, uint32_t mib) {
  Stream file;
  file.append(header("1.2.840.10008.5.1.4.1.1.7.3", "1.2.3.4.3"));
  const uint32_t frames = mib * 2;  // 512 x 512 x 2 bytes are half a mebibyte
  file.us(0x00280002, 1);
  file.text(0x00280004, "CS", "MONOCHROME2");
  file.text(0x00280008, "IS", std::to_string(frames));
  file.us(0x00280010, 512);
  file.us(0x00280011, 512);
  file.us(0x00280100, 16);
  file.us(0x00280101, 16);
  file.us(0x00280102, 15);
  file.us(0x00280103, 0);
  file.long_header(0x7FE00010, "OW", mib * 1048576U);
  std::ofstream out(path, std::ios::binary);
  out << file.bytes();
  std::vector<char> block(1048576);
  uint32_t seed = 1;
  for (char& byte : block) {
    seed = seed * 1664525U + 1013904223U;
    byte = static_cast<char>(seed >> 24);
  }
  for (uint32_t i = 0; i < mib; ++i) out.write(block.data(), static_cast<std::streamsize>(block.size()));
  return out.good();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: make_inputs FOLDER [MIB-OF-PIXELS | frames]\n";
    return 2;
  }
  const std::string folder = argv[1];
  if (argc > 2 && std::string(argv[2]) == "frames")
    return frames_file(folder + "/grey16.dcm", 16) && frames_file(folder + "/grey8.dcm", 8) ? 0 : 2;
  const uint32_t mib = argc > 2 ? static_cast<uint32_t>(std::atoi(argv[2])) : 200;
  const bool good = write(folder + "/items.dcm", items_file()) &&
                    write(folder + "/private.dcm", private_file()) && write(folder + "/ct.dcm", ct_file()) &&
                    write(folder + "/small.dcm", small_file()) && pixel_file(folder + "/pixels.dcm", mib);
  if (!good) std::cerr << "make_inputs: could not write to " << folder << "\n";
  return good ? 0 : 2;
}
