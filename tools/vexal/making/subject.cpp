// Whom and what a new object is about.
#include <algorithm>
#include <iterator>
#include <vector>

#include "base/attributes.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "files/charset.h"
#include "forms/changes.h"
#include "making.h"

namespace vexal {
namespace {

// Attributes of the modules of patient and study (PS3.3 sections C.7.1 and C.7.2), but for those of groups
// 0010 and 0012, which are theirs as a whole without the rows of kOfSeries.
constexpr uint32_t kOfStudy[] = {0x00080005, 0x00080020, 0x00080030, 0x00080050, 0x00080051, 0x00080090,
                                 0x00080096, 0x0008009C, 0x0008009D, 0x00081030, 0x00081032, 0x00081048,
                                 0x00081049, 0x00081060, 0x00081062, 0x00081080, 0x00081084, 0x00081110,
                                 0x00081120, 0x0020000D, 0x00200010, 0x00321033, 0x00321034, 0x00321066,
                                 0x00321067, 0x00380010, 0x00380011, 0x00380014, 0x00380060, 0x00380062,
                                 0x00380064, 0x00380500, 0x00401012, 0x0040E020};
constexpr uint32_t kOfSeries[] = {0x00102210, 0x00120060, 0x00120071, 0x00120072, 0x00120073};
constexpr uint32_t kOfOrder[] = {0x00081050, 0x00400275};  // the series has them
constexpr uint32_t kLastOfSubject = 0x0040E020;

bool is_of_subject(uint32_t tag) {
  const uint32_t group = tag >> 16;
  return group == 0x0010 || group == 0x0012
             ? !std::binary_search(std::begin(kOfSeries), std::end(kOfSeries), tag)
             : std::binary_search(std::begin(kOfStudy), std::end(kOfStudy), tag);
}

// Deletes what is not of patient and study, nor was made of an order.
void keep_subject(int32_t object, bool order) {
  std::vector<uint32_t> others;
  for_each_attribute(object, [&](uint32_t tag, VX_VR, int32_t) {
    const bool made = order && std::find(std::begin(kOfOrder), std::end(kOfOrder), tag) != std::end(kOfOrder);
    if (tag > tags::kLastOfMeta && !made && !is_of_subject(tag)) others.push_back(tag);
  });
  for (const uint32_t tag : others) VX_Delete_Attribute(object, tag);
}

// What the worklist (PS3.4 table K.6-1) says of an order, and what the new object has of it.
struct Ordered {
  const char* from;
  const char* to;
};
constexpr Ordered kOrdered[] = {
    {"RequestedProcedureID", "StudyID"},
    {"RequestedProcedureDescription", "StudyDescription"},
    {"RequestedProcedureID", "RequestAttributesSequence[0].RequestedProcedureID"},
    {"RequestedProcedureDescription", "RequestAttributesSequence[0].RequestedProcedureDescription"},
    {"ReasonForTheRequestedProcedure", "RequestAttributesSequence[0].ReasonForTheRequestedProcedure"},
    {"StudyInstanceUID", "RequestAttributesSequence[0].StudyInstanceUID"},
    {"AccessionNumber", "RequestAttributesSequence[0].AccessionNumber"},
    {"ScheduledProcedureStepSequence[0].ScheduledProcedureStepID",
     "RequestAttributesSequence[0].ScheduledProcedureStepID"},
    {"ScheduledProcedureStepSequence[0].ScheduledProcedureStepDescription",
     "RequestAttributesSequence[0].ScheduledProcedureStepDescription"},
    {"ScheduledProcedureStepSequence[0].ScheduledPerformingPhysicianName", "PerformingPhysicianName"},
};
constexpr Ordered kOrderedCodes[] = {
    {"RequestedProcedureCodeSequence", "ProcedureCodeSequence"},
    {"RequestedProcedureCodeSequence", "RequestAttributesSequence[0].RequestedProcedureCodeSequence"},
    {"ScheduledProcedureStepSequence[0].ScheduledProtocolCodeSequence",
     "RequestAttributesSequence[0].ScheduledProtocolCodeSequence"},
};

// The place that a path names; without an object if it is not there.
Place place_of(int32_t object, const char* path, bool create) {
  std::vector<PathStep> steps;
  std::vector<Place> places;
  if (!parse_path(path, steps).empty() || !resolve_path(object, steps, create, places).empty() ||
      places.empty())
    return {};
  return places[0];
}

constexpr char kRefused[] = "the library refuses what the order says";

std::string take_order(int32_t object) {
  if (sequence_items(object, tags::kScheduledProcedureStepSequence).empty())
    return "is no worklist entry: it has no scheduled procedure step";
  for (const Ordered& row : kOrdered) {
    const Place from = place_of(object, row.from, false);
    const std::string text = from.object < 0 ? "" : utf8_text_of(from.object, from.tag);
    if (text.empty()) continue;
    if (std::string problem = give(object, row.to, text); !problem.empty()) return problem;
  }
  for (const Ordered& row : kOrderedCodes) {
    const Place from = place_of(object, row.from, false);
    if (from.object < 0) continue;
    const std::vector<int32_t> codes = sequence_items(from.object, from.tag);
    if (codes.empty()) continue;
    const Place to = place_of(object, row.to, true);
    bool first = true;
    for (const int32_t code : codes) {
      const VX_STATUS status = first ? VX_Set_Value_From_Int(to.object, to.tag, code)
                                     : VX_Set_Next_Value_From_Int(to.object, to.tag, code);
      if (status != VX_NORMAL_COMPLETION) return kRefused;
      first = false;
    }
  }
  return "";
}

std::string open_subject(const std::string& path, bool order, DicomFile& file) {
  const CurrentFile current(path);
  if (file.open(path, {.last_tag = kLastOfSubject}) != VX_NORMAL_COMPLETION) return file.problem();
  if (has_attribute(file.id(), tags::kDirectoryRecordSequence))
    return "is a directory: name one of the objects that it lists";
  if (make_utf8(file) != 0) return "has text that is no text in its character set";
  if (order) {
    for (const uint32_t tag : kOfOrder) VX_Delete_Attribute(file.id(), tag);
    if (std::string problem = take_order(file.id()); !problem.empty()) return problem;
  }
  keep_subject(file.id(), order);
  return "";
}

}  // namespace

std::string give(int32_t object, const std::string& path, const std::string& value) {
  const Place place = place_of(object, path.c_str(), true);
  if (place.object < 0) return path + ": no such attribute";
  uint32_t length = 0;
  if (VX_Get_Value_Length(place.object, place.tag, 1, &length) == VX_NORMAL_COMPLETION) return "";
  return set_text_at(place, value);
}

std::string begin_object(const Args& args, const std::string& sop_class, DicomFile& file) {
  const bool order = args.has("--worklist");
  if (order || args.has("--from")) {
    const std::string path = args.get(order ? "--worklist" : "--from");
    if (std::string problem = open_subject(path, order, file); !problem.empty()) return path + ": " + problem;
  } else {
    int32_t id = -1;
    if (VX_Create_Empty_File(&id, "") != VX_NORMAL_COMPLETION) return "there is no memory for it";
    file.adopt(id);
  }
  const VX_STATUS status = file.become_message(service_of_class(sop_class).c_str(), C_STORE_RQ);
  if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  return give(file.id(), "SOPClassUID", sop_class);
}

}  // namespace vexal
