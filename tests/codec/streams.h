// Streams for tests: written byte by byte, fed in blocks of any size, and collected again.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "frame/byte_order.h"
#include "support.h"
#include "vexalkit.h"

namespace streams {

inline constexpr VX_TRANSFER_SYNTAX kNative[] = {IMPLICIT_LITTLE_ENDIAN, IMPLICIT_BIG_ENDIAN,
                                                 EXPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN,
                                                 DEFLATED_EXPLICIT_LITTLE_ENDIAN};

// Writes the elements of a stream.
class Writer {
 public:
  explicit Writer(VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN)
      : big_(syntax == EXPLICIT_BIG_ENDIAN || syntax == IMPLICIT_BIG_ENDIAN),
        explicit_(syntax != IMPLICIT_LITTLE_ENDIAN && syntax != IMPLICIT_BIG_ENDIAN) {}
  Writer& tag(uint32_t t) {
    char bytes[4];
    vx::store_tag(bytes, t, big_);
    return raw({bytes, 4});
  }
  Writer& u16(uint32_t v) {
    char bytes[2];
    vx::store16(bytes, static_cast<uint16_t>(v), big_);
    return raw({bytes, 2});
  }
  Writer& u32(uint32_t v) {
    char bytes[4];
    vx::store32(bytes, v, big_);
    return raw({bytes, 4});
  }
  Writer& raw(std::string_view bytes) {
    bytes_ += bytes;
    return *this;
  }
  // The header alone; `long_form` as the letters ask for it.
  Writer& header(uint32_t t, std::string_view vr, uint32_t length) {
    tag(t);
    if (!explicit_) return u32(length);
    raw(vr);
    if (!is_long(vr)) return u16(length);
    return raw({"\0\0", 2}).u32(length);
  }
  Writer& element(uint32_t t, std::string_view vr, std::string_view value) {
    return header(t, vr, static_cast<uint32_t>(value.size())).raw(value);
  }
  Writer& item(uint32_t length = 0xFFFFFFFFU) { return tag(0xFFFEE000U).u32(length); }
  Writer& item_end() { return tag(0xFFFEE00DU).u32(0); }
  Writer& sequence_end() { return tag(0xFFFEE0DDU).u32(0); }
  const std::string& str() const { return bytes_; }
  operator const std::string&() const { return bytes_; }

 private:
  static bool is_long(std::string_view vr) {
    static constexpr std::string_view kShort[] = {"AE", "AS", "AT", "CS", "DA", "DS", "DT",
                                                  "FD", "FL", "IS", "LO", "LT", "PN", "SH",
                                                  "SL", "SS", "ST", "TM", "UI", "UL", "US"};
    return std::find(std::begin(kShort), std::end(kShort), vr) == std::end(kShort);
  }
  bool big_, explicit_;
  std::string bytes_;
};

struct Element {
  uint32_t tag;
  std::string_view vr, value;
};
inline std::string elements(std::initializer_list<Element> all,
                            VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN) {
  Writer writer(syntax);
  for (const Element& each : all) writer.element(each.tag, each.vr, each.value);
  return writer;
}
// A file of a data set, its meta group the syntax alone.
inline std::string file_of(const std::string& data_set, std::string syntax = "1.2.840.10008.1.2.1") {
  syntax.resize((syntax.size() + 1) & ~std::size_t{1}, '\0');
  return std::string(128, '\0') + "DICM" + elements({{0x00020010, "UI", syntax}}) + data_set;
}

// An input of given bytes. A block is copied, so that a pointer kept beyond the next call is found out.
struct Source {
  std::string bytes;
  std::size_t block = 0;  // 0: all at once
  std::size_t at = 0;
  std::string current{};
  bool late_last = false;  // the last flag comes with an empty block
  int calls = 0;

  VX_STATUS give(uint32_t* size, void** data, int32_t* last) {
    ++calls;
    const std::size_t part = std::min(block == 0 ? bytes.size() : block, bytes.size() - at);
    std::fill(current.begin(), current.end(), '\xEE');
    std::string(bytes.substr(at, part)).swap(current);
    at += part;
    *size = static_cast<uint32_t>(part);
    *data = current.data();
    *last = at == bytes.size() && (!late_last || part == 0) ? 1 : 0;
    return VX_NORMAL_COMPLETION;
  }
};
inline VX_STATUS message_input(int32_t, void* user, int32_t, uint32_t* size, void** data, int32_t* last) {
  return static_cast<Source*>(user)->give(size, data, last);
}
inline VX_STATUS text_input(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  return static_cast<Source*>(user)->give(size, data, last);
}
inline VX_STATUS file_input(const char*, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  return static_cast<Source*>(user)->give(size, data, last);
}

// An output that keeps the bytes and what every caller is promised.
struct Sink {
  std::string bytes;
  std::vector<uint32_t> sizes;
  int firsts = 0, lasts = 0;
  int refuse_at = -1;  // the call to refuse

  VX_STATUS take(uint32_t size, const void* data, int32_t first, int32_t last) {
    EXPECT_EQ(size % 2, 0U) << "odd block";
    EXPECT_EQ(lasts, 0) << "a call behind the last";
    EXPECT_EQ(first != 0, sizes.empty());
    if (static_cast<int>(sizes.size()) == refuse_at) return VX_CANNOT_COMPLY;
    sizes.push_back(size);
    firsts += first;
    lasts += last;
    bytes.append(static_cast<const char*>(data), size);
    return VX_NORMAL_COMPLETION;
  }
};
inline VX_STATUS message_output(int32_t, void* user, uint32_t size, void* data, int32_t first, int32_t last) {
  return static_cast<Sink*>(user)->take(size, data, first, last);
}
inline VX_STATUS file_output(const char*, void* user, uint32_t size, void* data, int32_t first,
                             int32_t last) {
  return static_cast<Sink*>(user)->take(size, data, first, last);
}

struct Decoded {
  VX_STATUS status = 0;
  uint32_t error_tag = 0, offset = 0;
};
inline Decoded decode(int32_t id, std::string bytes, VX_TRANSFER_SYNTAX syntax, std::size_t block = 0,
                      uint32_t first = 0, uint32_t last = 0xFFFFFFFFU) {
  Source source{std::move(bytes), block};
  Decoded result;
  result.status = VX_Stream_To_Message_With_Offset(id, first, last, syntax, &result.error_tag, &result.offset,
                                                   &source, &message_input);
  return result;
}
inline std::string encode(int32_t id, VX_TRANSFER_SYNTAX syntax, VX_STATUS expected = VX_NORMAL_COMPLETION,
                          uint32_t first = 0, uint32_t last = 0xFFFFFFFFU) {
  Sink sink;
  const VX_STATUS status = VX_Message_To_Stream(id, first, last, syntax, &sink, &message_output);
  EXPECT_EQ(status, expected) << VX_Error_Message(status);
  EXPECT_EQ(sink.lasts, expected == VX_NORMAL_COMPLETION ? 1 : 0);
  return sink.bytes;
}

// Explicit little endian, from one tag to another.
inline std::string encode_range(int32_t id, uint32_t first, uint32_t last = 0xFFFFFFFFU) {
  return encode(id, EXPLICIT_LITTLE_ENDIAN, VX_NORMAL_COMPLETION, first, last);
}

inline VX_STATUS read_file(int32_t app, int32_t id, std::string bytes, std::size_t block = 0) {
  Source source{std::move(bytes), block};
  return VX_Open_File(app, id, &source, &file_input);
}
inline std::string write_file(int32_t id, int32_t pad = 0, VX_STATUS expected = VX_NORMAL_COMPLETION) {
  Sink sink;
  EXPECT_EQ(VX_Write_File(id, pad, &sink, &file_output), expected);
  return sink.bytes;
}
inline VX_STATUS new_file(int32_t* id) {
  return VX_Create_Empty_File(id, "x");
}

// A message, or what a function opens, freed with the scope.
class Object {
 public:
  explicit Object(VX_STATUS (*open)(int32_t*) = VX_Open_Empty_Message) {
    EXPECT_EQ(open(&id_), VX_NORMAL_COMPLETION);
  }
  // A message that comes whole out of a stream.
  explicit Object(const std::string& stream, VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN,
                  std::size_t block = 0, uint32_t first = 0)
      : Object() {
    EXPECT_EQ(decode(id_, stream, syntax, block, first).status, VX_NORMAL_COMPLETION);
  }
  explicit Object(int32_t id) : id_(id) {}
  ~Object() { VX_Free_Message(&id_); }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  operator int32_t() const { return id_; }

 private:
  int32_t id_ = -1;
};

inline std::string text(int32_t id, uint32_t tag) {
  std::string all;
  char buffer[4096];
  VX_STATUS status = VX_Get_Value_To_String(id, tag, sizeof buffer, buffer);
  if (status != VX_NORMAL_COMPLETION && status != VX_NULL_VALUE) return VX_Error_Message(status);
  while (status == VX_NORMAL_COMPLETION || status == VX_NULL_VALUE) {
    all += all.empty() ? "" : "\\";
    all += status == VX_NULL_VALUE ? "<null>" : buffer;
    status = VX_Get_Next_Value_To_String(id, tag, sizeof buffer, buffer);
  }
  return all;
}
inline VX_STATUS append_piece(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}
inline std::string bytes(int32_t id, uint32_t tag) {
  std::string value;
  VX_Get_Value_To_Function(id, tag, &value, &append_piece);
  return value;
}
inline VX_VR vr(int32_t id, uint32_t tag) {
  VX_VR vr = -1;
  VX_Get_Attribute_Info(id, tag, &vr, nullptr);
  return vr;
}
inline int32_t item(int32_t id, uint32_t tag, int number = 0) {
  int32_t item = -1;
  VX_Get_Value_To_Int(id, tag, &item);
  for (int i = 0; i < number; ++i) VX_Get_Next_Value_To_Int(id, tag, &item);
  return item;
}
inline int32_t count(int32_t id, uint32_t tag) {
  int32_t number = -1;
  VX_Get_Value_Count(id, tag, &number);
  return number;
}
inline bool has(int32_t id, uint32_t tag) {
  return VX_Get_Attribute_Info(id, tag, nullptr, nullptr) == VX_NORMAL_COMPLETION;
}

}  // namespace streams
