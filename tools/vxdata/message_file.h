#pragma once
// The binary Message Info File.

#include <string>
#include <string_view>
#include <vector>

#include "dictionary.h"
#include "profile.h"
#include "templates.h"

namespace vxdata {

// Attributes of a message or an item, in ascending order of tag.
using AttributeList = std::vector<Attribute>;

// A file under construction. Bodies that are equal are stored once.
class MessageFile {
 public:
  // Services and items are named by their numbers in the profile; an entry without attributes is legal.
  void add_service(int number, const std::vector<std::pair<uint16_t, std::string>>& bodies);
  void add_item(int number, std::string body);
  std::string to_binary() const;

 private:
  struct ServiceBodies {
    int number = 0;
    std::vector<std::pair<uint16_t, std::string>> bodies;
  };
  struct ItemBody {
    int number = 0;
    std::string body;
  };
  std::vector<ServiceBodies> services_;
  std::vector<ItemBody> items_;
};

// The records of a body, the marker in front included. The dictionary supplies the VR that the values of an
// attribute are converted by. Faults name the line of the attribute.
std::string encode_body(const Body& body, const Dictionary& dictionary, Problems& problems);

// A file to look things up in: the directories are read at once, a body when it is asked for. Throws
// Unusable.
class MessageDirectory {
 public:
  struct Entry {
    int number = 0;
    uint16_t command = 0;  // 0 for an item
    size_t body = 0;       // where it starts; bodies that are equal share it
  };
  // `path` is for what is thrown; `bytes` have to outlive the object.
  MessageDirectory(std::string path, std::string_view bytes);
  // Services first, in the order of the directories.
  const std::vector<Entry>& entries() const { return entries_; }
  bool has_attributes(const Entry& entry) const;
  AttributeList decode(const Entry& entry, const Dictionary& dictionary) const;

 private:
  [[noreturn]] void fail(const std::string& text) const;

  std::string path_;
  std::string_view bytes_;
  std::vector<Entry> entries_;
};

}  // namespace vxdata
