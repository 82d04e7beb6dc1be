// Where settings stand: file and line of each key of vexal.ini and the profiles that it names.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace vexal {

// The vexal.ini that the library will read: the one named, or what VEXAL_INI, PATH and /etc lead to. Empty if
// there is none.
std::string find_ini(const std::string& named);

class SettingPlaces {
 public:
  // Reads an ini file and its profiles, as far as they can be read.
  void read(const std::string& ini);
  // "FILE:LINE" of a key; empty for one that no file has.
  std::string find(std::string_view key) const;
  // The same for the key that a message of the library names; else `otherwise`.
  std::string of_message(const std::string& message, const std::string& otherwise) const;

 private:
  void read_file(const std::string& path);

  std::map<std::string, std::string, std::less<>> places_;  // by key
};

}  // namespace vexal
