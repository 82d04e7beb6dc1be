// What the services and applications profiles hold, in the form in which the Configuration Record points at
// it.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "frame/status.h"

namespace vx {

// Texts with a common lifetime.
class TextArena {
 public:
  const char* add(std::string_view text);

 private:
  static constexpr std::size_t kChunk = 16U * 1024U;
  std::vector<std::unique_ptr<char[]>> chunks_;
  std::size_t left_ = 0;
  char* next_ = nullptr;
};

struct ProfileTables {
  TextArena texts;
  std::vector<const char*> service_names;
  std::vector<const char*> service_uids;
  std::vector<uint32_t> service_commands;
  std::vector<int32_t> service_numbers;
  std::vector<int32_t> service_kinds;
  std::vector<int32_t> sop_class_counts;
  std::vector<std::vector<int32_t>> members;
  std::vector<const int32_t*> sop_classes;
  std::vector<const char*> item_names;
  std::vector<int32_t> item_numbers;
  std::vector<const char*> applications;  // ended by a null pointer
};

// Points the record at the tables.
void publish_tables(const ProfileTables& tables, ConfigRecord& record);

}  // namespace vx
