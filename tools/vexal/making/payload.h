// A large value that is put together from where its bytes lie, while it is written.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "files/files.h"
#include "files/fragments.h"
#include "files/temp_folder.h"
#include "vexalkit.h"

namespace vexal {

// Bytes in one place: what reads them holds on to it.
struct Stretch {
  ValueReader read{};
  std::string bytes{};  // where nothing reads
  uint64_t offset = 0;  // in that place
  uint64_t length = 0;
  uint64_t start = 0;  // in the whole
};

// One frame, stream or document.
class Payload {
 public:
  static Payload of(std::string bytes);
  static Payload of(std::shared_ptr<const FileSource> file, uint64_t offset, uint64_t length);
  static Payload of(std::shared_ptr<const Spill> spill, uint64_t offset, uint64_t length);
  void append(const Payload& other);
  uint64_t size() const { return size_; }
  // False if not all of that is there.
  bool read_at(uint64_t offset, void* buffer, std::size_t length) const;

 private:
  void add(Stretch stretch);

  std::vector<Stretch> stretches_;
  uint64_t size_ = 0;
};

// The value of an attribute, for as long as its object is written.
class PayloadValue {
 public:
  PayloadValue() = default;
  ~PayloadValue();
  PayloadValue(const PayloadValue&) = delete;
  PayloadValue& operator=(const PayloadValue&) = delete;

  // Native frames behind each other, or a document: padded to even length. An error text, empty on success.
  std::string set_native(const std::vector<Payload>& frames);
  // Each in an item of its own behind an offset table, which is empty unless `with_table` is set.
  std::string set_items(const std::vector<Payload>& frames, bool with_table);
  // The attribute is given this value. An error text, empty on success.
  std::string bind(int32_t object, uint32_t tag, VX_VR vr);
  const std::string& problem() const { return problem_; }

 private:
  static VX_STATUS callback(int32_t id, uint32_t tag, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                            void** data, int32_t first, int32_t* last);
  bool next(bool first);

  int32_t application_ = -1;
  Payload value_;
  bool items_ = false;
  uint64_t given_ = 0;
  Bytes piece_;
  std::string problem_;
};

}  // namespace vexal
