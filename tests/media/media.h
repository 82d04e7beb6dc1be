// Files and directories of tests: written, read, walked, and changed byte by byte.
#pragma once

#include "codec/streams.h"

namespace media {

using namespace streams;

class MediaTest : public support::LibraryTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(begin_with_full_data(), VX_NORMAL_COMPLETION);
    ASSERT_EQ(VX_Register_Application(&app_, "MEDIA"), VX_NORMAL_COMPLETION);
  }
  static int32_t new_directory() {
    int32_t id = -1;
    EXPECT_EQ(VX_Create_File(&id, "DICOMDIR", "DICOMDIR", 1), VX_NORMAL_COMPLETION);
    return id;
  }
  int32_t read(const std::string& bytes, VX_STATUS expected = VX_NORMAL_COMPLETION) const {
    const int32_t id = new_directory();
    EXPECT_EQ(read_file(app_, id, bytes), expected);
    return id;
  }
  // The tree as text: "PATIENT Zeta(STUDY(...))", by the walking functions alone; and its last root.
  static std::string whole_tree(int32_t id, int32_t* last_root = nullptr) {
    int32_t entity = 0, record = 0, last = 0;
    const char* name = nullptr;
    const VX_STATUS status = VX_Dir_Root_Entity(id, &entity, &record, &name, &last);
    return status == VX_NORMAL_COMPLETION ? entity_text(id, entity, record, name, last, last_root)
                                          : "no root";
  }
  int32_t app_ = -1;

 private:
  static std::string entity_text(int32_t id, int32_t entity, int32_t record, const char* name, int32_t last,
                                 int32_t* last_record = nullptr) {
    std::string out;
    for (int guard = 0; record != 0 && guard < 1000; ++guard) {
      if (last_record != nullptr) *last_record = record;
      out += std::string(name).substr(8);
      for (const uint32_t tag : {0x00100010U, 0x00200013U}) {
        char value[80] = "";
        if (VX_Get_Value_To_String(record, tag, sizeof value, value) == VX_NORMAL_COMPLETION)
          out += std::string(" ") + value;
      }
      int32_t below = 0, first = 0, is_last = 0;
      EXPECT_EQ(VX_Dir_Next_Entity(id, record, &below, &first, &name, &is_last), VX_NORMAL_COMPLETION);
      if (below != 0) out += "(" + entity_text(id, below, first, name, is_last) + ")";
      const bool was_last = last != 0;
      EXPECT_EQ(VX_Dir_Next_Record(id, entity, &record, &name, &last), VX_NORMAL_COMPLETION);
      EXPECT_EQ(was_last, record == 0);
      if (record != 0) out += ",";
    }
    return out;
  }
};

// A directory's bytes, its records by their place in the sequence, and the numbers of their elements.
class Forged {
 public:
  explicit Forged(std::string bytes) : bytes_(std::move(bytes)) {
    const std::string item("\xFE\xFF\x00\xE0", 4);
    for (std::size_t at = bytes_.find(item); at != std::string::npos; at = bytes_.find(item, at + 1))
      items_.push_back(at);
  }
  std::size_t size() const { return items_.size(); }
  uint32_t offset(std::size_t record) const { return static_cast<uint32_t>(items_[record]); }
  std::size_t record_at(uint32_t offset) const {
    return static_cast<std::size_t>(std::find(items_.begin(), items_.end(), offset) - items_.begin());
  }
  uint32_t get(std::size_t record, uint32_t tag) const {
    return vx::load32(bytes_.data() + value_of(record, tag), false);
  }
  void set(std::size_t record, uint32_t tag, uint32_t value) {
    vx::store32(bytes_.data() + value_of(record, tag), value, false);
  }
  const std::string& bytes() const { return bytes_; }
  static constexpr std::size_t kTop = ~std::size_t{0};

 private:
  std::size_t value_of(std::size_t record, uint32_t tag) const {
    return bytes_.find(Writer().tag(tag).str(), record == kTop ? 132 : items_[record]) + 8;
  }
  std::string bytes_;
  std::vector<std::size_t> items_;
};

}  // namespace media
