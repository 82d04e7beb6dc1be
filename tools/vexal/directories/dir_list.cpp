// vexal dir list: the records, for people and for programs.
#include <cstdio>

#include "base/args.h"
#include "base/json.h"
#include "base/printable.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "dir.h"
#include "files/charset.h"

namespace vexal {
namespace {

namespace fs = std::filesystem;

// What tells records of a type apart, for people.
std::string describe_record(int32_t id, const std::string& type) {
  constexpr uint32_t kTags[] = {tags::kPatientName,      tags::kPatientID, tags::kStudyDate,
                                tags::kStudyDescription, tags::kModality,  tags::kSeriesNumber,
                                tags::kInstanceNumber};
  std::string text;
  for (const uint32_t tag : kTags) {
    const std::string value = utf8_text_of(id, tag);
    if (!value.empty()) text += "  " + shown(value);
  }
  const std::string file_id = file_id_of(id);
  if (!file_id.empty()) text += "  " + shown(file_id);
  return shown(type) + text;
}

void print_record(int32_t id, int depth, const std::string& type, bool json) {
  if (!json) {
    std::printf("%*s%s\n", depth * 2, "", describe_record(id, type).c_str());
    return;
  }
  std::string line = "{\"depth\":" + std::to_string(depth) + ",\"type\":";
  append_json(line, type);
  const auto member = [&line](const char* name, const std::string& value) {
    if (value.empty()) return;
    line += std::string(",\"") + name + "\":";
    append_json(line, value);
  };
  member("file", file_id_of(id));
  member("class", text_of(id, tags::kReferencedSOPClassUIDInFile));
  member("instance", text_of(id, tags::kReferencedSOPInstanceUIDInFile));
  member("syntax", text_of(id, tags::kReferencedTransferSyntaxUIDInFile));
  member("patient", utf8_text_of(id, tags::kPatientID));
  member("name", utf8_text_of(id, tags::kPatientName));
  member("study", text_of(id, tags::kStudyInstanceUID));
  member("series", text_of(id, tags::kSeriesInstanceUID));
  std::printf("%s}\n", line.c_str());
}

// Record by record from the disk: a directory of any size takes little memory. No more records than the file
// has room for: where offsets lead to one on many ways, there would be no end.
class Listing {
 public:
  Listing(uintmax_t file_size, bool json) : left_(file_size / kLeastRecord), json_(json) {}
  VX_STATUS below(int32_t parent, int depth);

 private:
  static constexpr uintmax_t kLeastRecord = 16;
  uintmax_t left_;
  const bool json_;
};

VX_STATUS Listing::below(int32_t parent, int depth) {
  int32_t id = 0;
  VX_STATUS status = VX_DDH_Get_First_Lower_Record(parent, &id);
  while (status == VX_NORMAL_COMPLETION && id != 0) {
    if (left_-- == 0) return VX_INVALID_DIRECTORY_RECORD_OFFSET;
    print_record(id, depth, text_of(id, tags::kDirectoryRecordType), json_);
    status = below(id, depth + 1);
    if (status != VX_NORMAL_COMPLETION) break;
    int32_t next = 0;
    status = VX_DDH_Get_Next_Record(id, &next);
    VX_DDH_Release_Record(id);
    id = next;
  }
  return status;
}

}  // namespace

int list_records(const std::string& path, bool json) {
  const CurrentFile current(path);
  int32_t id = -1;
  VX_STATUS status = VX_NORMAL_COMPLETION;
  {
    const MutedWarnings muted;
    status = VX_DDH_Open(path.c_str(), &id);
  }
  if (status == VX_NORMAL_COMPLETION) {
    std::error_code error;
    const uintmax_t size = fs::file_size(path, error);
    status = Listing(error ? 0 : size, json).below(id, 0);
    VX_Free_File(&id);
    if (status == VX_NORMAL_COMPLETION) return kSuccess;
    report(path, VX_Error_Message(status));
    return kFindings;
  }
  // Big endian, and what else is not read in place.
  Directory directory;
  if (!directory.open(path, true)) return kUsage;
  for (const Record& record : directory.records()) print_record(record.id, record.depth, record.type, json);
  return directory.problem().empty() ? kSuccess : kFindings;
}

}  // namespace vexal
