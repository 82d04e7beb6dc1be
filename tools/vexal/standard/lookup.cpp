// vexal lookup: what a tag, keyword, UID, service or item name stands for.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/commands.h"
#include "base/embedded.h"
#include "base/json.h"
#include "base/names.h"
#include "base/tables.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--json", nullptr, "one JSON object a word"},
};

struct Answer {
  const char* kind = "";
  std::string json;  // members of an object
  std::string text;
};

void add_member(Answer& answer, const char* name, std::string_view value) {
  answer.json += std::string(",\"") + name + "\":";
  append_json(answer.json, value);
}

bool look_up_tag(const std::string& word, Answer& answer) {
  uint32_t tag = 0;
  if (!parse_tag(word, tag)) return false;
  char name[128];
  VX_VR vr = 0;
  uint16_t low = 0;
  uint16_t high = 0;
  if (VX_Get_Tags_Dict_Info(tag, name, sizeof name, &vr, &low, &high) != VX_NORMAL_COMPLETION) return false;
  std::string vm = std::to_string(low);
  if (high == 255) {
    vm += "-n";
  } else if (high != low) {
    vm += "-" + std::to_string(high);
  }
  answer.kind = "attribute";
  answer.text = format_tag(tag) + " " + vr_letters(vr) + "  VM " + vm + "  " + std::string(tag_keyword(tag)) +
                "  \"" + name + "\"";
  add_member(answer, "tag", format_tag(tag));
  add_member(answer, "vr", vr_letters(vr));
  add_member(answer, "vm", vm);
  add_member(answer, "keyword", tag_keyword(tag));
  add_member(answer, "name", name);
  return true;
}

bool look_up_uid(const std::string& word, Answer& answer) {
  if (word.find_first_not_of("0123456789.") != std::string::npos) return false;
  std::string_view rows = uid_table();
  std::string_view row;
  bool found = false;
  while (!found && next_line(rows, row)) {
    if (next_cell(row) != word) continue;
    const std::string_view kind = next_cell(row);
    const std::string_view name = next_cell(row);
    const std::string_view retired = next_cell(row);
    answer.text = word + "  " + std::string(name) + "  (" + std::string(kind);
    answer.text += retired.empty() ? ")" : ", retired)";
    add_member(answer, "uid", word);
    add_member(answer, "name", name);
    add_member(answer, "sort", kind);
    found = true;
  }
  char service[64];
  if (VX_Get_VexalKit_Service(word.c_str(), service, sizeof service) == VX_NORMAL_COMPLETION) {
    answer.text += (found ? "  service " : word + "  service ") + std::string(service);
    if (!found) add_member(answer, "uid", word);
    add_member(answer, "service", service);
    found = true;
  }
  answer.kind = "uid";
  return found;
}

bool look_up_service(const std::string& word, Answer& answer) {
  char uid[128];
  if (VX_Get_UID_From_VexalKit_Service(word.c_str(), uid, sizeof uid) != VX_NORMAL_COMPLETION) return false;
  answer.kind = "service";
  answer.text = "service " + word + "  " + uid;
  add_member(answer, "service", word);
  add_member(answer, "uid", uid);
  return true;
}

bool look_up_item(const std::string& word, Answer& answer) {
  const bool known =
      std::any_of(std::begin(Items), std::end(Items), [&](const char* name) { return word == name; });
  if (!known) return false;
  answer.kind = "item";
  answer.text = "item " + word;
  add_member(answer, "item", word);
  return true;
}

std::vector<std::string> suggestions(const std::string& word) {
  std::vector<std::string> result = similar_keywords(word, 5);
  const std::size_t reach = std::max<std::size_t>(2, word.size() / 5);
  const auto consider = [&](const char* const* begin, const char* const* end) {
    for (const char* const* name = begin; name != end && result.size() < 8; ++name) {
      if (edit_distance(word, *name, reach) <= reach) result.emplace_back(*name);
    }
  };
  consider(std::begin(Services), std::end(Services));
  consider(std::begin(Items), std::end(Items));
  return result;
}

int run(const Args& args) {
  if (args.paths.empty()) {
    complain("lookup needs a word: a tag, keyword, UID, service or item name");
    return kUsage;
  }
  int exit = kSuccess;
  for (const std::string& word : args.paths) {
    bool found = false;
    for (const auto look_up : {look_up_tag, look_up_uid, look_up_service, look_up_item}) {
      Answer answer;
      if (!look_up(word, answer)) continue;
      found = true;
      if (args.has("--json")) {
        std::string line = "{\"word\":";
        append_json(line, word);
        line += std::string(",\"kind\":\"") + answer.kind + "\"" + answer.json + "}";
        std::printf("%s\n", line.c_str());
      } else {
        std::printf("%s\n", answer.text.c_str());
      }
    }
    if (found) continue;
    exit = kFindings;
    std::string line = "nothing is called " + word;
    const auto near = suggestions(word);
    for (std::size_t i = 0; i < near.size(); ++i) line += (i == 0 ? "; near: " : ", ") + near[i];
    complain("%s", line.c_str());
  }
  return exit;
}

}  // namespace

const Command kLookup = {"lookup",
                         "[OPTION...] WORD...",
                         "tell what a tag, keyword, UID, service or item is",
                         "Exit status 1 if a word is unknown; near misses are suggested.",
                         kOptions,
                         run};

}  // namespace vexal
