#include "tables.h"

#include <algorithm>

namespace vxdata {

Tables::Tables(const Arguments& arguments, Problems& problems) {
  for (const auto& path : split(arguments.required("--dict"), ',')) dictionary.read_text(path, problems);
  dictionary.sort(problems);
  profile.read(arguments.required("--services"), problems);
  for (const auto& path : arguments.inputs(1, 1000)) templates.read(path, problems);
  templates.join_extensions(problems);
  index_messages(problems);
  check_items(problems);
}

void Tables::index_messages(Problems& problems) {
  for (const Block& block : templates.blocks()) {
    if (block.kind != BlockKind::kMessage) continue;
    const auto fault = [&](const std::string& text) {
      problems.error(*block.place.file, block.place.line, text);
    };
    const Service* service = profile.service(block.name);
    if (service == nullptr) {
      fault("no service of the name " + block.name);
      continue;
    }
    for (const uint16_t command : block.commands) {
      const std::string name(command_name(command));
      if (std::find(service->commands.begin(), service->commands.end(), command) == service->commands.end()) {
        fault(block.name + " has no command " + name);
      }
      if (!messages_.emplace(std::pair(block.name, command), &block).second) {
        fault(block.name + " " + name + " has contents already");
      }
    }
  }
}

void Tables::check_items(Problems& problems) const {
  for (const Block& block : templates.blocks()) {
    if (block.kind == BlockKind::kItem && profile.item(block.name) == nullptr) {
      problems.error(*block.place.file, block.place.line, "no item of the name " + block.name);
    }
    for (const auto& row : block.rows) {
      const auto* attribute = std::get_if<Attribute>(&row);
      if (attribute == nullptr) continue;
      for (const auto& item : attribute->items) {
        if (profile.item(item) != nullptr) continue;
        problems.error(*attribute->place.file, attribute->place.line, "no item of the name " + item);
      }
    }
  }
}

const Block* Tables::message(const std::string& service, uint16_t command) const {
  const auto at = messages_.find(std::pair(service, command));
  return at == messages_.end() ? nullptr : at->second;
}

}  // namespace vxdata
