#include "changes.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "base/names.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/typed_numbers.h"
#include "base/uid.h"
#include "files/charset.h"

namespace vexal {
namespace {

using Verb = Change::Verb;

struct VerbRow {
  const char* option;
  Verb verb;
  bool has_value;
};
constexpr VerbRow kVerbs[] = {{"--set", Verb::Set, true},
                              {"--add", Verb::Add, true},
                              {"--clear", Verb::Clear, false},
                              {"--delete", Verb::Delete, false},
                              {"--new-uid", Verb::NewUid, false}};

constexpr std::string_view kBulk[] = {"UN", "OB", "OW", "OL", "OD", "OF", "OV"};
constexpr std::string_view kOneValue[] = {"LT", "ST", "UT", "UR"};

template <std::size_t N>
bool is_one_of(const std::string& letters, const std::string_view (&row)[N]) {
  return std::find(std::begin(row), std::end(row), letters) != std::end(row);
}

VX_STATUS set_bulk(const Place& place, const std::string& letters, const std::string& value,
                   std::string& error) {
  if (value.empty() || value[0] != '@') {
    error = "a bulk value comes from a file: give @FILE";
    return VX_INCOMPATIBLE_VR;
  }
  std::ifstream in(value.substr(1), std::ios::binary);
  if (!in) {
    error = "can not open " + value.substr(1);
    return VX_INVALID_FILE;
  }
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (bytes.size() % 2 != 0) bytes.push_back('\0');
  const VX_STATUS status =
      VX_Set_Value_From_Buffer(place.object, place.tag, bytes.data(), static_cast<uint32_t>(bytes.size()));
  return status == VX_NORMAL_COMPLETION && letters == "OV"
             ? VX_Set_VR_Letters(place.object, place.tag, letters.c_str())
             : status;
}

VX_STATUS set_values(const Place& place, const std::string& value, bool keep_old, std::string& error) {
  const std::string letters = letters_of(place.object, place.tag);
  if (letters.empty()) {
    error = "no such attribute in the dictionary; a private one is added as {CREATOR}gggg,ee:VR";
    return VX_INVALID_TAG;
  }
  if (letters == "SQ") {
    error = "is a sequence: name an attribute of an item, such as [0].PatientID";
    return VX_INCOMPATIBLE_VR;
  }
  if (is_one_of(letters, kBulk)) return set_bulk(place, letters, value, error);
  const bool whole = is_one_of(letters, kOneValue);
  VX_STATUS worst = VX_NORMAL_COMPLETION;
  bool first = !keep_old;
  std::size_t start = 0;
  while (start <= value.size()) {
    std::size_t end = whole ? std::string::npos : value.find('\\', start);
    if (end == std::string::npos) end = value.size();
    const std::string piece = value.substr(start, end - start);
    VX_STATUS status = VX_NORMAL_COMPLETION;
    if (!set_typed_text(place.object, place.tag, piece, first, status)) {
      error = "SpecificCharacterSet names no set that holds all of this text; see vexal convert --charset";
      return VX_INVALID_CHARS_IN_VALUE;
    }
    if (status != VX_NORMAL_COMPLETION) {
      worst = status;
      if (const std::string range = range_of(letters); !range.empty())
        error = "\"" + piece + "\" is not " + range;
    }
    first = false;
    start = end + 1;
  }
  return worst;
}

VX_STATUS set_or_clear(const Place& place, const std::string& value, std::string& error) {
  return value.empty() ? VX_Set_Value_To_NULL(place.object, place.tag)
                       : set_values(place, value, false, error);
}

// What a refused value is told with.
std::string told(const Place& place, VX_STATUS status, const std::string& error) {
  return describe_tag(place.tag) + ": " + (error.empty() ? VX_Error_Message(status) : error.c_str());
}

VX_STATUS apply_at(const Place& place, const Change& change, std::string& error) {
  switch (change.verb) {
    case Verb::Set:
      return set_or_clear(place, change.value, error);
    case Verb::Add:
      return set_values(place, change.value, true, error);
    case Verb::Clear:
      return VX_Set_Value_To_NULL(place.object, place.tag);
    case Verb::Delete: {
      const VX_STATUS status = VX_Delete_Attribute(place.object, place.tag);
      return status == VX_INVALID_TAG ? VX_NORMAL_COMPLETION : status;  // gone already
    }
    case Verb::NewUid:
      return VX_Set_Value_From_String(place.object, place.tag, new_uid().c_str());
  }
  return VX_NORMAL_COMPLETION;
}

}  // namespace

bool read_changes(const Args& args, std::vector<Change>& changes) {
  for (const auto& given : args.in_order()) {
    const std::string& option = given.first;
    const std::string& text = given.second;
    const auto row = std::find_if(std::begin(kVerbs), std::end(kVerbs),
                                  [&](const VerbRow& r) { return option == r.option; });
    if (row == std::end(kVerbs)) continue;
    Change change;
    change.verb = row->verb;
    change.text = option + " " + text;
    std::string_view path = text;
    if (row->has_value) {
      const std::size_t equals = text.find('=');
      if (equals == std::string::npos) {
        complain("%s: give PATH=VALUE", change.text.c_str());
        return false;
      }
      path = path.substr(0, equals);
      change.value = text.substr(equals + 1);
    }
    const std::string error = parse_path(path, change.path);
    if (!error.empty()) {
      complain("%s: %s", change.text.c_str(), error.c_str());
      return false;
    }
    changes.push_back(std::move(change));
  }
  return true;
}

bool apply_change(int32_t object, const std::string& path, const Change& change) {
  std::vector<Place> places;
  const bool create = change.verb != Verb::Delete;
  std::string error = resolve_path(object, change.path, create, places);
  if (!error.empty()) {
    report(path, change.text + ": " + error);
    return false;
  }
  for (const Place& place : places) {
    if (place.tag == tags::kTransferSyntaxUID) {
      report(path, change.text + ": use vexal convert to change the transfer syntax");
      return false;
    }
    if (is_record_reference(place.tag) || place.tag == tags::kDirectoryRecordSequence) {
      report(path, change.text + ": the places of directory records follow from what is written");
      return false;
    }
    const VX_STATUS status = apply_at(place, change, error);
    if (status == VX_NORMAL_COMPLETION) continue;
    report(path, change.text + ": " + told(place, status, error));
    return false;
  }
  return true;
}

void bring_meta_in_line(int32_t object, const std::vector<Change>& changes, WriteOptions& options) {
  const auto changed = [&](uint32_t tag) {
    return std::any_of(changes.begin(), changes.end(), [&](const Change& change) {
      return change.path.size() == 1 && change.path[0].tag == tag;
    });
  };
  for (const Change& change : changes) {
    if (change.path.size() == 1 && change.path[0].tag <= tags::kLastOfMeta)
      options.given.push_back(change.path[0].tag);
  }
  for (const auto& pair : tags::kNamesInMeta) {
    if (changed(pair.own) && !changed(pair.meta)) VX_Set_Value_To_Empty(object, pair.meta);
  }
}

std::string set_text_at(const Place& place, const std::string& value) {
  std::string error;
  const VX_STATUS status = set_or_clear(place, value, error);
  return status == VX_NORMAL_COMPLETION ? "" : told(place, status, error);
}

}  // namespace vexal
