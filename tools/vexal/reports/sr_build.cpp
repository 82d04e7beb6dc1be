// vexal sr build: a report from JSON.
#include <jansson.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <new>

#include "base/args.h"
#include "base/names.h"
#include "base/printable.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/uid.h"
#include "base/values.h"
#include "files/charset.h"
#include "sr_document.h"
#include "sr_form.h"
#include "sr_node.h"

namespace vexal {
namespace {

// A document that is only read. Its values lie one behind another in blocks that go all at once: a report has
// hundreds of thousands of them.
class Document {
 public:
  // The document, or null.
  const json_t* parse(const std::string& text, json_error_t& error) {
    reading_ = this;
    json_set_alloc_funcs(&take, [](void*) {});
    const json_t* root = json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, &error);
    json_set_alloc_funcs(&std::malloc, &std::free);
    reading_ = nullptr;
    return root;
  }

 private:
  static void* take(std::size_t size) {
    constexpr std::size_t kBlock = std::size_t{1} << 20;
    Document& document = *reading_;
    size = (size + alignof(std::max_align_t) - 1) / alignof(std::max_align_t) * alignof(std::max_align_t);
    if (size > document.left_) {
      document.left_ = std::max(size, kBlock);
      document.blocks_.emplace_back(new (std::nothrow) char[document.left_]);
      document.next_ = document.blocks_.back().get();
      if (document.next_ == nullptr) {
        document.left_ = 0;
        return nullptr;
      }
    }
    document.left_ -= size;
    document.next_ += size;
    return document.next_ - size;
  }

  static inline Document* reading_ = nullptr;
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* next_ = nullptr;
  std::size_t left_ = 0;
};

// The whole of a file; false where it can not be read.
bool read_file(const std::string& path, std::string& text) {
  std::FILE* file = std::fopen(path.c_str(), "rbe");
  if (file == nullptr) return false;
  char block[65536];
  for (std::size_t size = 0; (size = std::fread(block, 1, sizeof block, file)) != 0;)
    text.append(block, size);
  const bool good = std::ferror(file) == 0;
  std::fclose(file);
  return good;
}

// What it makes is dropped with all else at the end of the library.
class Builder {
 public:
  // An error text, empty on success.
  std::string build(const json_t* document, const std::string& path);
  std::string write(const std::string& path);

 private:
  struct Level {
    int32_t id;
    const json_t* content;
    std::size_t next;
    std::string location;
  };
  struct Reference {
    int32_t item;
    std::string location;
    const json_t* node;
  };
  std::string make_root(const json_t* report, const std::string& sop_class);
  std::string add_nodes(const json_t* report);
  std::string add_node(const Level& level, const json_t* node, const std::string& location, int32_t& id);
  std::string link_node(const Level& level, const json_t* node, int32_t id) const;
  std::string settle_references() const;
  void note_referred(int32_t id, const json_t* node, const std::string& location);
  void set_defaults(const std::string& sop_class);
  std::string set_head(const json_t* attributes, const json_t* report);

  int32_t root_ = 0;
  std::vector<Reference> references_;
  std::vector<SrReferred> referred_;
};

std::string Builder::build(const json_t* document, const std::string& path) {
  const MutedWarnings quiet;  // of the library, about UTF-8 in items that name no character set
  std::string error = sr_check_document(document);
  if (!error.empty()) return error;
  const json_t* report = json_object_get(document, "report");
  const json_t* attributes = json_object_get(document, "attributes");
  const std::string named = sr_member(attributes, "SOPClassUID");
  const std::string sop_class = named.empty() ? "1.2.840.10008.5.1.4.1.1.88.33" : named;
  error = make_root(report, sop_class);
  if (!error.empty()) return "report: " + error;
  error = add_nodes(report);
  VX_SR_To_Message(root_);
  if (!error.empty()) return error;
  // What has its UID is whole, as show wrote it.
  const bool whole =
      !sr_member(attributes, "SOPInstanceUID").empty() || sr_more_has(report, tags::kSOPInstanceUID);
  if (!whole) set_defaults(sop_class);
  VX_Set_Value_From_String(root_, tags::kSpecificCharacterSet, "ISO_IR 192");
  error = set_head(attributes, report);
  if (error.empty()) error = sr_add_evidence(root_, referred_, !whole);
  if (!error.empty()) return error;
  const std::string charset = sr_member(attributes, "SpecificCharacterSet");
  return leave_utf8(root_, path, !charset.empty() || whole ? charset : "ISO_IR 192");
}

std::string Builder::make_root(const json_t* report, const std::string& sop_class) {
  std::string error = sr_check_node(report, true);
  if (!error.empty()) return error;
  VX_STATUS status = VX_Open_Empty_Message(&root_);
  if (status == VX_NORMAL_COMPLETION) {
    VX_Set_Service_Command(root_, service_of_class(sop_class).c_str(), C_STORE_RQ);
    status = VX_SR_Add_Root(root_, &root_);
  }
  if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  error = sr_fill_node(root_, report);
  return error.empty() ? sr_check_repeated(root_, report) : error;
}

std::string Builder::add_nodes(const json_t* report) {
  std::vector<Level> levels = {{root_, json_object_get(report, "content"), 0, "1"}};
  while (!levels.empty()) {
    Level& level = levels.back();
    if (level.next >= json_array_size(level.content)) {
      levels.pop_back();
      continue;
    }
    const json_t* node = json_array_get(level.content, level.next++);
    const std::string location = level.location + "." + std::to_string(level.next);
    int32_t id = -1;
    const std::string error = add_node(level, node, location, id);
    if (!error.empty()) return "content " + location + ": " + error;
    levels.push_back({id, json_object_get(node, "content"), 0, location});
  }
  return settle_references();
}

std::string Builder::add_node(const Level& level, const json_t* node, const std::string& location,
                              int32_t& id) {
  std::string error = sr_check_node(node, false);
  if (!error.empty()) return error;
  const VX_STATUS status = VX_Open_Empty_Item(&id);
  if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  error = link_node(level, node, id);
  if (error.empty()) error = sr_fill_node(id, node);
  if (error.empty()) error = sr_check_repeated(id, node);
  // Where it leads is known when all are there.
  if (error.empty() && json_object_get(node, "target") != nullptr)
    references_.push_back({id, location, node});
  if (error.empty()) note_referred(id, node, location);
  return error;
}

std::string Builder::link_node(const Level& level, const json_t* node, int32_t id) const {
  const std::string relationship = sr_member(node, "relationship");
  if (relationship.empty()) {
    if (!sr_is_bare(node)) return "there is no \"relationship\"";
  } else if (sr_relationship(relationship) < 0) {
    return "\"relationship\": \"" + shown(relationship) + "\" is none";
  } else if (sr_more_has(node, tags::kRelationshipType)) {
    return "\"relationship\" is in \"more\", too";
  } else {
    VX_Set_Value_From_String(id, tags::kRelationshipType, relationship.c_str());
  }
  const VX_STATUS status = VX_SR_Add_Child(level.id, id);
  if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  const std::string asked = sr_member(node, "location");
  char location[81] = "";
  VX_SR_Get_Location(id, sizeof location, location);
  if (asked.empty() || asked == location) return {};
  return "\"location\": " + shown(asked) + " is another place";
}

std::string Builder::settle_references() const {
  for (const Reference& reference : references_) {
    const std::string target = sr_member(reference.node, "target");
    bool first = true;
    for (std::size_t from = 0; !sr_is_bare(reference.node) && from <= target.size(); first = false) {
      const std::size_t end = std::min(target.find('.', from), target.size());
      (first ? VX_Set_Value_From_String : VX_Set_Next_Value_From_String)(
          reference.item, tags::kReferencedContentItemIdentifier, target.substr(from, end - from).c_str());
      from = end + 1;
    }
    int32_t id = 0;
    char location[81] = "";
    const bool found = VX_SRH_Get_Reference(reference.item, &id) == VX_NORMAL_COMPLETION &&
                       VX_SR_Get_Location(id, sizeof location, location) == VX_NORMAL_COMPLETION;
    if (!found || target != location)
      return "content " + reference.location + ": \"target\": there is no node at \"" + shown(target) + "\"";
  }
  return {};
}

void Builder::note_referred(int32_t id, const json_t* node, const std::string& location) {
  const std::string type = sr_member(node, "type");
  if (type != "COMPOSITE" && type != "IMAGE" && type != "WAVEFORM") return;
  for (const int32_t item : sequence_items(id, tags::kReferencedSOPSequence)) {
    referred_.push_back({location, text_of(item, tags::kReferencedSOPClassUID),
                         text_of(item, tags::kReferencedSOPInstanceUID), sr_member(node, "study"),
                         sr_member(node, "series")});
  }
}

// What the JSON does not have and a report must.
void Builder::set_defaults(const std::string& sop_class) {
  char date[16];
  char time_text[16];
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::strftime(date, sizeof date, "%Y%m%d", &local);
  std::strftime(time_text, sizeof time_text, "%H%M%S", &local);
  const std::map<uint32_t, std::string> defaults = {
      {tags::kSOPClassUID, sop_class},
      {tags::kSOPInstanceUID, new_uid()},
      {tags::kStudyDate, date},
      {tags::kContentDate, date},
      {tags::kStudyTime, time_text},
      {tags::kContentTime, time_text},
      {tags::kAccessionNumber, ""},
      {tags::kModality, sop_class.ends_with(".88.59") ? "KO" : "SR"},
      {tags::kManufacturer, "VexalKit"},
      {tags::kReferringPhysicianName, ""},
      {tags::kReferencedPerformedProcedureStepSequence, ""},
      {tags::kPatientName, ""},
      {tags::kPatientID, ""},
      {tags::kPatientBirthDate, ""},
      {tags::kPatientSex, ""},
      {tags::kStudyInstanceUID, new_uid()},
      {tags::kSeriesInstanceUID, new_uid()},
      {tags::kStudyID, ""},
      {tags::kSeriesNumber, "1"},
      {tags::kInstanceNumber, "1"},
      {tags::kPerformedProcedureCodeSequence, ""},
      {tags::kCompletionFlag, "PARTIAL"},
      {tags::kVerificationFlag, "UNVERIFIED"}};
  for (const auto& [tag, text] : defaults) {
    if (VX_Get_Attribute_Info(root_, tag, nullptr, nullptr) != VX_NORMAL_COMPLETION)
      set_all_text(root_, tag, text);
  }
}

std::string Builder::set_head(const json_t* attributes, const json_t* report) {
  const char* key = nullptr;
  json_t* value = nullptr;
  json_object_foreach(const_cast<json_t*>(attributes), key, value) {
    const std::string name = "\"attributes\": \"" + shown(key) + "\"";
    const std::string text = json_string_value(value);
    uint32_t tag = 0;
    if (!parse_tag(key, tag)) return name + " is no attribute";
    if (!sr_is_head_text(tag, standard_vr(tag)))
      return name + " is not told here, but in \"more\" of the report";
    if (sr_more_has(report, tag)) return name + " is in \"more\" of the report, too";
    if (!sr_all_fit(tag, text)) return name + ": \"" + shown(text.substr(0, 80)) + "\" is no value of it";
    // The character set comes last: until then all text is UTF-8.
    if (tag != tags::kSpecificCharacterSet) set_all_text(root_, tag, text);
  }
  return {};
}

std::string Builder::write(const std::string& path) {
  VX_STATUS status = VX_Message_To_File(root_, path.c_str());
  if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  VX_Set_Value_From_String(root_, tags::kMediaStorageSOPClassUID, text_of(root_, tags::kSOPClassUID).c_str());
  VX_Set_Value_From_String(root_, tags::kMediaStorageSOPInstanceUID,
                           text_of(root_, tags::kSOPInstanceUID).c_str());
  VX_Set_Value_From_String(root_, tags::kTransferSyntaxUID, "1.2.840.10008.1.2.1");
  FileSink sink;
  const std::string error = sink.open(path);
  if (!error.empty()) return error;
  status = VX_Write_File(root_, 0, &sink, guarded<FileSink::file_output>);
  if (status == VX_NORMAL_COMPLETION) return sink.commit();
  return sink.problem().empty() ? VX_Error_Message(status) : sink.problem();
}

}  // namespace

int build_report(const std::string& input, const std::string& output) {
  std::string text;
  std::error_code error_code;
  if (!read_file(input, text)) {
    report(input, std::strerror(errno));
    return kUsage;
  }
  if (std::filesystem::equivalent(input, output, error_code)) {
    report(output, "is what the report is made of: not replaced");
    return kUsage;
  }
  json_error_t error;
  Document document;
  const json_t* root = document.parse(text, error);
  if (root == nullptr) {
    report(input, "line " + std::to_string(error.line) + ": " + error.text);
    return kUsage;
  }
  Builder builder;
  const std::string problem = builder.build(root, input);
  if (!problem.empty()) {
    report(input, problem);
    return kUsage;
  }
  const std::string failure = builder.write(output);
  if (failure.empty()) return kSuccess;
  report(output, failure);
  return kUsage;
}

}  // namespace vexal
