// vexal modify: change attributes of a file.
#include <fcntl.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "charset.h"
#include "commands.h"
#include "files.h"
#include "names.h"
#include "session.h"
#include "tag_path.h"
#include "uid.h"
#include "write_options.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--set", "PATH=VALUE", "set an attribute, adding it if it is not there; values are split at \\"},
    {"--add", "PATH=VALUE", "add one value behind those that are there"},
    {"--clear", "PATH", "leave the attribute without a value"},
    {"--delete", "PATH", "take the attribute out"},
    {"--new-uid", "PATH", "give a UID attribute a new UID"},
    VEXAL_WRITE_OPTIONS,
};

enum class Verb { Set, Add, Clear, Delete, NewUid };

struct Change {
  Verb verb = Verb::Set;
  std::string text;  // as given, for messages
  std::vector<PathStep> path;
  std::string value;
};

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

bool is_bulk(VX_VR vr) {
  return vr >= VX_VR_UN && vr <= VX_VR_OF;
}
bool is_one_value(VX_VR vr) {
  return vr == VX_VR_LT || vr == VX_VR_ST || vr == VX_VR_UT || vr == VX_VR_UR;
}

VX_STATUS set_bulk(const Place& place, const std::string& value, std::string& error) {
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
  return VX_Set_Value_From_Buffer(place.object, place.tag, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

// The VR of an attribute that is there or that the dictionary knows.
bool find_vr(const Place& place, VX_VR& vr) {
  if (VX_Get_Attribute_Info(place.object, place.tag, &vr, nullptr) == VX_NORMAL_COMPLETION) return true;
  char name[128];
  uint16_t low = 0;
  uint16_t high = 0;
  return VX_Get_Tags_Dict_Info(place.tag, name, sizeof name, &vr, &low, &high) == VX_NORMAL_COMPLETION;
}

VX_STATUS set_values(const Place& place, const std::string& value, bool keep_old, std::string& error) {
  VX_VR vr = VX_VR_UN;
  if (!find_vr(place, vr)) {
    error = "no such attribute in the dictionary; a private one must be in the file already";
    return VX_INVALID_TAG;
  }
  if (vr == VX_VR_SQ) {
    error = "is a sequence: name an attribute of an item, such as [0].PatientID";
    return VX_INCOMPATIBLE_VR;
  }
  if (is_bulk(vr)) return set_bulk(place, value, error);
  VX_STATUS worst = VX_NORMAL_COMPLETION;
  bool first = !keep_old;
  std::size_t start = 0;
  while (start <= value.size()) {
    std::size_t end = is_one_value(vr) ? std::string::npos : value.find('\\', start);
    if (end == std::string::npos) end = value.size();
    const std::string piece = value.substr(start, end - start);
    VX_STATUS status = VX_NORMAL_COMPLETION;
    if (!set_typed_text(place.object, place.tag, piece, first, status)) {
      error = "SpecificCharacterSet names no set that holds all of this text; see vexal convert --charset";
      return VX_INVALID_CHARS_IN_VALUE;
    }
    if (status != VX_NORMAL_COMPLETION) worst = status;
    first = false;
    start = end + 1;
  }
  return worst;
}

VX_STATUS apply_at(const Place& place, const Change& change, std::string& error) {
  switch (change.verb) {
    case Verb::Set:
      if (change.value.empty()) return VX_Set_Value_To_NULL(place.object, place.tag);
      return set_values(place, change.value, false, error);
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

bool apply(DicomFile& file, const Change& change) {
  std::vector<Place> places;
  const bool create = change.verb != Verb::Delete;
  std::string error = resolve_path(file.id(), change.path, create, places);
  if (!error.empty()) {
    report(file.path(), change.text + ": " + error);
    return false;
  }
  for (const Place& place : places) {
    if (place.tag == 0x00020010U) {
      report(file.path(), change.text + ": use vexal convert to change the transfer syntax");
      return false;
    }
    const VX_STATUS status = apply_at(place, change, error);
    if (status == VX_NORMAL_COMPLETION) continue;
    report(file.path(), change.text + ": " + describe_tag(place.tag) + ": " +
                            (error.empty() ? VX_Error_Message(status) : error.c_str()));
    return false;
  }
  return true;
}

int run(const Args& args) {
  std::vector<Change> changes;
  WriteOptions options;
  if (!read_changes(args, changes) || !options.read(args)) return kUsage;
  if (args.paths.empty() || args.paths.size() > 2) {
    complain("modify needs a file to read and may have one to write; --help tells more");
    return kUsage;
  }
  const std::string& in = args.paths[0];
  const std::string& out = args.paths.back();
  CurrentFile current(in);
  DicomFile file;
  const VX_STATUS status = file.open(in, {});
  if (status != VX_NORMAL_COMPLETION) {
    report(in, file.problem());
    return kUsage;
  }
  for (const Change& change : changes) {
    if (!apply(file, change)) return kUsage;
  }
  if (!file.has_meta() && file.set_syntax(file.syntax()) != VX_NORMAL_COMPLETION) {
    report(in, "can not be written as a file: its transfer syntax has no UID");
    return kUsage;
  }
  const std::string error = write_file(file, out, options);
  if (error.empty()) return kSuccess;
  report(out, error);
  return kUsage;
}

}  // namespace

const Command kModify = {
    "modify",
    "[OPTION...] IN [OUT]",
    "change attributes of a file",
    "Without OUT the file itself is replaced, once the new one is complete. A PATH is a keyword or\n"
    "tag, or a way through sequences: ReferencedSeriesSequence[0].SeriesInstanceUID; [*] stands for\n"
    "every item, [+] for a new one. {CREATOR}gggg,ee names a private attribute. Changes are made in\n"
    "the order given; a value that breaks the rules of its VR is refused and nothing is written.",
    kOptions,
    run};

}  // namespace vexal
