// Message Info Files that tests make, record by record.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace support {

inline std::string number(uint64_t value, int bytes) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) text += static_cast<char>(value >> shift);
  return text;
}

// The records of one message or item.
class Body {
 public:
  Body() { record(0xF002F002, 0, ""); }
  Body& record(uint32_t tag, int parameter, const std::string& data) {
    bytes_ += number(tag, 4) + number(static_cast<uint64_t>(parameter), 2) + number(data.size(), 2) + data;
    return *this;
  }
  // An attribute with its type, and its VR where one is given.
  Body& add(uint32_t tag, const std::string& type, const std::string& vr = "") {
    tag_ = tag;
    if (!vr.empty()) record(tag, 9500, vr);
    return record(tag, 9999, type);
  }
  Body& with(int parameter, const std::string& data) { return record(tag_, parameter, data); }
  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
  uint32_t tag_ = 0;
};

class InfoBuilder {
 public:
  InfoBuilder& service(int service, uint16_t command, const Body& body) {
    commands_[service][command] = place(body);
    return *this;
  }
  InfoBuilder& item(int item, const Body& body) {
    items_[item] = place(body);
    return *this;
  }
  std::string bytes() const {
    std::string services;
    std::string tables;
    for (int i = 1; i <= last(commands_); ++i) {
      services += number(static_cast<uint64_t>(i), 2) + number(tables.size(), 4);
      const auto at = commands_.find(i);
      if (at != commands_.end()) {
        for (const auto& [command, offset] : at->second) tables += number(command, 2) + number(offset, 4);
      }
      tables += number(0, 2);
    }
    std::string items;
    for (int i = 1; i <= last(items_); ++i) {
      const auto at = items_.find(i);
      items += number(static_cast<uint64_t>(i), 2) + number(at == items_.end() ? 0 : at->second, 4);
    }
    const std::size_t service_offset = 28;
    const std::size_t item_offset = service_offset + services.size();
    const std::size_t table_offset = item_offset + items.size();
    return number(0xF003F003, 4) + number(0, 4) + number(service_offset, 4) +
           number(static_cast<uint64_t>(last(commands_)), 2) + number(table_offset, 4) +
           number(item_offset, 4) + number(static_cast<uint64_t>(last(items_)), 2) +
           number(table_offset + tables.size(), 4) + services + items + tables + bodies_;
  }

 private:
  template <typename Map>
  static int last(const Map& map) {
    return map.empty() ? 0 : map.rbegin()->first;
  }
  uint64_t place(const Body& body) {
    const uint64_t offset = bodies_.size();
    bodies_ += body.bytes();
    return offset;
  }
  std::map<int, std::map<uint16_t, uint64_t>> commands_;
  std::map<int, uint64_t> items_;
  std::string bodies_;
};

}  // namespace support
