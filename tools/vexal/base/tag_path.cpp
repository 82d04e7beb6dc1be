#include "tag_path.h"

#include <charconv>

#include "attributes.h"
#include "names.h"
#include "typed_numbers.h"

namespace vexal {
namespace {

constexpr VX_VR kVrCodes = VX_VR_SQ + 1;

std::string unknown_word(std::string_view word) {
  std::string text = "no attribute is called " + std::string(word);
  const auto near = similar_keywords(word, 3);
  for (std::size_t i = 0; i < near.size(); ++i) text += (i == 0 ? "; near: " : ", ") + near[i];
  return text;
}

std::string parse_index(std::string_view text, int& index) {
  if (text == "*") {
    index = PathStep::kEveryItem;
  } else if (text == "+") {
    index = PathStep::kNewItem;
  } else {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
    if (error != std::errc() || end != text.data() + text.size() || index < 0) {
      return "[" + std::string(text) + "] is no item: give a number from 0, * or +";
    }
  }
  return "";
}

// The code of two letters; of OV, SV and UV, which have none, that of UN.
bool find_vr_code(const std::string& letters, VX_VR& code) {
  if (letters == "OV" || letters == "SV" || letters == "UV") {
    code = VX_VR_UN;
    return true;
  }
  for (code = 0; code < kVrCodes; ++code) {
    if (letters == vr_letters(code)) return true;
  }
  return false;
}

std::string parse_step(std::string_view text, PathStep& step) {
  if (!text.empty() && text.back() == ']') {
    const std::size_t open = text.rfind('[');
    if (open == std::string_view::npos) return "] without [";
    const std::string error = parse_index(text.substr(open + 1, text.size() - open - 2), step.index);
    if (!error.empty()) return error;
    text = text.substr(0, open);
  }
  if (!text.empty() && text.front() == '{') {
    const std::size_t close = text.find('}');
    if (close == std::string_view::npos) return "{ without }";
    step.creator = std::string(text.substr(1, close - 1));
    text = text.substr(close + 1);
    if (const std::size_t colon = text.find(':'); colon != std::string_view::npos) {
      step.vr = std::string(text.substr(colon + 1));
      text = text.substr(0, colon);
      VX_VR code = 0;
      if (!find_vr_code(step.vr, code)) return "\"" + step.vr + "\" is no VR";
    }
    if (step.creator.empty() || !parse_tag(text, step.tag) || (step.tag & 0xFFFFU) > 0xFFU) {
      return "a private attribute is written {CREATOR}gggg,ee, or {CREATOR}gggg,ee:VR to add it";
    }
    return "";
  }
  if (!parse_tag(text, step.tag)) return unknown_word(text);
  return step.tag >> 16 != 0xFFFE ? "" : format_tag(step.tag) + " stands between attributes and is none";
}

std::string failed(const char* what, uint32_t tag, VX_STATUS status) {
  return std::string(what) + " " + describe_tag(tag) + ": " + VX_Error_Message(status);
}

// Makes the private attribute of a step, whose tag is known, with the VR of a dictionary or of the step.
std::string add_private(int32_t object, const PathStep& step, uint32_t tag) {
  if (VX_Get_Attribute_Info(object, tag, nullptr, nullptr) != VX_NORMAL_COMPLETION) {
    VX_VR code = kVrCodes;  // what no dictionary knows is refused
    if (!step.vr.empty()) find_vr_code(step.vr, code);
    const VX_STATUS status =
        VX_Add_Private_Attribute(object, step.creator.c_str(), static_cast<uint16_t>(step.tag >> 16),
                                 static_cast<uint8_t>(step.tag), code);
    if (status == VX_INVALID_VR_CODE)
      return "no dictionary has " + describe_tag(tag) + ": give its VR, as in {CREATOR}gggg,ee:LO";
    if (status != VX_NORMAL_COMPLETION) return failed("can not add", tag, status);
    if (code == VX_VR_UN) VX_Set_VR_Letters(object, tag, step.vr.c_str());
  }
  const std::string letters = letters_of(object, tag);
  return step.vr.empty() || step.vr == letters ? "" : describe_tag(tag) + " has the VR " + letters;
}

// The tag of a step in this object; 0 if the private block is not there and may not be made.
std::string step_tag(int32_t object, const PathStep& step, bool create, uint32_t& tag) {
  tag = step.tag;
  if (step.creator.empty()) return "";
  const auto group = static_cast<uint16_t>(step.tag >> 16);
  tag = 0;
  if (create) {
    const VX_STATUS status = VX_Add_Private_Block(object, step.creator.c_str(), group);
    if (status != VX_NORMAL_COMPLETION) return failed("can not add the private block of", step.tag, status);
  }
  for (uint32_t block = 0x10; block <= 0xFF; ++block) {
    char text[520];
    const uint32_t creator_tag = (static_cast<uint32_t>(group) << 16) | block;
    if (VX_Get_Value_To_String(object, creator_tag, sizeof text, text) != VX_NORMAL_COMPLETION) continue;
    std::string_view code = text;
    while (!code.empty() && code.back() == ' ') code.remove_suffix(1);
    if (code == step.creator) {
      tag = (static_cast<uint32_t>(group) << 16) | (block << 8) | (step.tag & 0xFFU);
      return create ? add_private(object, step, tag) : "";
    }
  }
  return "";
}

std::string new_item(int32_t object, uint32_t tag, int32_t& item) {
  VX_STATUS status = VX_Open_Empty_Item(&item);
  if (status != VX_NORMAL_COMPLETION) return failed("can not make an item for", tag, status);
  status = VX_Set_Next_Value_From_Int(object, tag, item);
  if (status != VX_NORMAL_COMPLETION) {
    VX_Free_Item(&item);
    return failed("can not add an item to", tag, status);
  }
  return "";
}

// The items that a step names.
std::string step_items(int32_t object, uint32_t tag, int index, bool create, std::vector<int32_t>& items) {
  items = sequence_items(object, tag);
  if (index == PathStep::kEveryItem) return "";
  if (index == PathStep::kNewItem) {
    items.clear();
    if (!create) return "";
    items.resize(1);
    return new_item(object, tag, items[0]);
  }
  const auto wanted = static_cast<std::size_t>(index < 0 ? 0 : index);
  if (create && wanted == items.size()) {
    items.assign(1, -1);
    return new_item(object, tag, items[0]);
  }
  if (wanted >= items.size()) {
    items.clear();
    return create ? "there is no item " + std::to_string(wanted) + " in " + describe_tag(tag) : "";
  }
  items = {items[wanted]};
  return "";
}

}  // namespace

std::string parse_path(std::string_view text, std::vector<PathStep>& path) {
  path.clear();
  std::size_t start = 0;
  int depth = 0;  // points inside {} belong to the creator
  for (std::size_t i = 0; i <= text.size(); ++i) {
    if (i < text.size() && text[i] == '{') ++depth;
    if (i < text.size() && text[i] == '}') --depth;
    if (i < text.size() && (text[i] != '.' || depth > 0)) continue;
    PathStep step;
    std::string error = parse_step(text.substr(start, i - start), step);
    if (!error.empty()) return error;
    path.push_back(std::move(step));
    start = i + 1;
  }
  return "";
}

std::string resolve_path(int32_t object, const std::vector<PathStep>& path, bool create,
                         std::vector<Place>& places) {
  std::vector<int32_t> objects{object};
  for (std::size_t i = 0; i < path.size(); ++i) {
    const bool last = i + 1 == path.size();
    std::vector<int32_t> next;
    for (const int32_t id : objects) {
      uint32_t tag = 0;
      std::string error = step_tag(id, path[i], create, tag);
      if (!error.empty()) return error;
      if (tag == 0) continue;
      if (last) {
        places.push_back({id, tag});
        continue;
      }
      std::vector<int32_t> items;
      error = step_items(id, tag, path[i].index, create, items);
      if (!error.empty()) return error;
      next.insert(next.end(), items.begin(), items.end());
    }
    objects = std::move(next);
  }
  return "";
}

bool read_paths(const Args& args, const char* option, std::vector<std::vector<PathStep>>& paths) {
  for (const std::string& text : args.all(option)) {
    const std::string error = parse_path(text, paths.emplace_back());
    if (error.empty()) continue;
    complain("%s %s: %s", option, text.c_str(), error.c_str());
    return false;
  }
  return true;
}

std::vector<uint32_t> sequences_of(int32_t object) {
  std::vector<uint32_t> sequences;
  for_each_attribute(object, [&](uint32_t tag, VX_VR vr, int32_t) {
    if (vr == VX_VR_SQ) sequences.push_back(tag);
  });
  return sequences;
}

std::vector<int32_t> sequence_items(int32_t object, uint32_t tag) {
  std::vector<int32_t> items;
  VX_VR vr = 0;
  if (VX_Get_Attribute_Info(object, tag, &vr, nullptr) != VX_NORMAL_COMPLETION || vr != VX_VR_SQ)
    return items;
  int32_t item = -1;
  VX_STATUS status = VX_Get_Value_To_Int(object, tag, &item);
  while (status == VX_NORMAL_COMPLETION || status == VX_NULL_VALUE) {
    if (status == VX_NORMAL_COMPLETION) items.push_back(item);
    status = VX_Get_Next_Value_To_Int(object, tag, &item);
  }
  return items;
}

}  // namespace vexal
