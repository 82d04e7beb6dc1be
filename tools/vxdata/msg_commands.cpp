// msg, unmsg: templates to the binary Message Info File and back.

#include <iostream>

#include "bytes.h"
#include "commands.h"
#include "message_file.h"
#include "tables.h"

namespace vxdata {

int run_msg(int argc, char** argv) {
  const Arguments arguments(argc, argv, {"--services", "--dict", "-o"});
  const std::string output = arguments.required("-o");
  Problems problems;
  Tables tables(arguments, problems);
  if (problems.errors() != 0) return 1;
  MessageFile file;
  for (const Service& service : tables.profile.services()) {
    std::vector<std::pair<uint16_t, std::string>> bodies;
    for (const uint16_t command : service.commands) {
      const Block* block = tables.message(service.name, command);
      const Body& body = block == nullptr ? Body() : tables.templates.expand(*block, problems);
      bodies.emplace_back(command, encode_body(body, tables.dictionary, problems));
    }
    file.add_service(service.number, bodies);
  }
  for (const Item& item : tables.profile.items()) {
    const Block* block = tables.templates.find(item.name);
    const Body& body = block == nullptr ? Body() : tables.templates.expand(*block, problems);
    file.add_item(item.number, encode_body(body, tables.dictionary, problems));
  }
  if (problems.errors() != 0) return 1;
  write_file(output, file.to_binary());
  return 0;
}

int run_unmsg(int argc, char** argv) {
  const Arguments arguments(argc, argv, {"--services", "--dict", "-o"});
  const std::string& path = arguments.inputs(1, 1).front();
  Problems problems;
  Dictionary dictionary;
  for (const auto& table : split(arguments.required("--dict"), ',')) dictionary.read_text(table, problems);
  dictionary.sort(problems);
  Profile profile;
  profile.read(arguments.required("--services"), problems);
  if (problems.errors() != 0) return 1;
  std::string text;
  const std::string bytes = read_file(path);
  const MessageDirectory file(path, bytes);
  for (const MessageDirectory::Entry& entry : file.entries()) {
    const AttributeList attributes = file.decode(entry, dictionary);
    if (attributes.empty()) continue;
    if (entry.command != 0) {
      const Service* service = profile.service_of(entry.number);
      if (service == nullptr)
        throw Unusable{path + format(": service %d is not in the profile", entry.number)};
      text += "message\t" + service->name + "\t" + std::string(command_name(entry.command)) + "\n";
    } else {
      const Item* item = profile.item_of(entry.number);
      if (item == nullptr) throw Unusable{path + format(": item %d is not in the profile", entry.number)};
      text += "item\t" + item->name + "\n";
    }
    for (const Attribute& attribute : attributes) text += attribute_line(attribute) + "\n";
    text += "\n";
  }
  if (const std::string output = arguments.option("-o"); !output.empty()) {
    write_file(output, text);
  } else {
    std::cout << text;
  }
  return 0;
}

}  // namespace vxdata
