#pragma once
// The services profile as the compiler needs it: names, numbers, commands.

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "text.h"

namespace vxdata {

struct Service {
  std::string name;
  int number = 0;
  int line = 0;  // of its section
  std::string uid;
  bool meta = false;
  std::vector<uint16_t> commands;
  std::vector<int> members;  // of a meta service
};

struct Item {
  std::string name;
  int number = 0;
  int line = 0;
};

class Profile {
 public:
  void read(const std::string& path, Problems& problems);

  const std::string& path() const { return path_; }
  const std::vector<Service>& services() const { return services_; }  // in order of their sections
  const std::vector<Item>& items() const { return items_; }
  const Service* service(std::string_view name) const;
  const Item* item(std::string_view name) const;
  const Service* service_of(int number) const;
  const Item* item_of(int number) const;

 private:
  void read_service_key(Service& service, const std::string& key, const std::string& value, int line,
                        Problems& problems);
  void check(Problems& problems);

  std::string path_;
  std::vector<Service> services_;
  std::vector<Item> items_;
  std::unordered_map<std::string, size_t> service_index_;
  std::unordered_map<std::string, size_t> item_index_;
  std::unordered_map<int, std::string> numbers_;  // SERVICE_TABLE
  int service_count_ = -1;
  int item_count_ = -1;
};

// An entry of any of the four profile files, read as the library reads them.
struct ProfileEntry {
  int line = 0;
  std::string section;
  std::string key;
  std::string value;
};
std::vector<ProfileEntry> read_profile(const std::string& path);

// "C_STORE_RQ" and so on; every C_CANCEL name gives 0x0FFF. 0 for an unknown name.
uint16_t command_value(std::string_view name);
std::string_view command_name(uint16_t value);
uint32_t command_bit(uint16_t value);
// Commands of which the library never asks for a template's contents, or whose message has no data set.
bool has_no_contents(uint16_t command);

}  // namespace vxdata
