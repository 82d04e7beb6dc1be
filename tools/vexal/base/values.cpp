#include "values.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace vexal {

std::string text_of(int32_t object, uint32_t tag) {
  char room[256];  // most are short
  std::string text;
  VX_STATUS status = VX_Get_Value_To_String(object, tag, sizeof room, room);
  if (status == VX_NORMAL_COMPLETION) {
    text = room;
  } else if (status == VX_BUFFER_TOO_SMALL) {
    uint32_t length = 0;
    if (VX_Get_Value_Length(object, tag, 1, &length) != VX_NORMAL_COMPLETION || length > (1U << 30))
      return {};
    text.resize(length + 80U);
    status = VX_Get_Value_To_String(object, tag, static_cast<int32_t>(text.size()), text.data());
    text.resize(status == VX_NORMAL_COMPLETION ? text.find('\0') : 0);
  }
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

namespace {

// All values in a buffer that holds each of them; VX_BUFFER_TOO_SMALL if one does not fit.
VX_STATUS read_all_text(int32_t object, uint32_t tag, std::vector<char>& buffer, std::string& text) {
  const auto room = static_cast<int32_t>(buffer.size());
  VX_STATUS status = VX_Get_Value_To_String(object, tag, room, buffer.data());
  text.clear();
  // One value among others may be empty.
  for (bool first = true; status == VX_NORMAL_COMPLETION || status == VX_NULL_VALUE; first = false) {
    const std::string value = status == VX_NORMAL_COMPLETION ? buffer.data() : "";
    const std::size_t start = std::min(value.find_first_not_of(' '), value.size());
    std::size_t end = value.size();
    while (end > start && value[end - 1] == ' ') --end;
    if (!first) text += '\\';
    text.append(value, start, end - start);
    status = VX_Get_Next_Value_To_String(object, tag, room, buffer.data());
  }
  return status;
}

}  // namespace

std::string all_text_of(int32_t object, uint32_t tag) {
  constexpr std::size_t kMost = 1U << 30;
  std::string text;
  std::vector<char> buffer(2049);
  while (read_all_text(object, tag, buffer, text) == VX_BUFFER_TOO_SMALL && buffer.size() < kMost)
    buffer.resize(buffer.size() * 8);
  return text;
}

void set_all_text(int32_t object, uint32_t tag, const std::string& values) {
  if (values.empty()) {
    VX_Set_Value_To_NULL(object, tag);
    return;
  }
  bool first = true;
  for (std::size_t start = 0; start <= values.size();) {
    const std::size_t end = std::min(values.find('\\', start), values.size());
    const std::string piece = values.substr(start, end - start);
    first ? VX_Set_Value_From_String(object, tag, piece.c_str())
          : VX_Set_Next_Value_From_String(object, tag, piece.c_str());
    first = false;
    start = end + 1;
  }
}

std::string service_of_class(const std::string& sop_class) {
  char name[64] = "";
  const VX_STATUS status = VX_Get_VexalKit_Service(sop_class.c_str(), name, sizeof name);
  return status == VX_NORMAL_COMPLETION ? name : "";
}

std::string uid_of_syntax(VX_TRANSFER_SYNTAX syntax) {
  char uid[68] = "";
  VX_Get_Transfer_Syntax_From_Enum(syntax, uid, sizeof uid);
  return uid;
}

bool is_safe_name(std::string_view name) {
  return !name.empty() && name.size() <= 64 && std::isalnum(static_cast<unsigned char>(name[0])) != 0 &&
         std::all_of(name.begin(), name.end(), [](unsigned char c) {
           return std::isalnum(c) != 0 || c == '.' || c == '-' || c == '_';
         });
}

}  // namespace vexal
