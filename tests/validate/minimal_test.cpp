// For each storage class, and each other message, the smallest object that its template allows: it validates,
// and not without any of its attributes.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "config/services.h"
#include "model/message_info.h"
#include "model/object.h"
#include "model/vr.h"
#include "objects.h"
#include "support.h"

namespace {

constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;

struct Found {
  int32_t object;
  uint32_t tag;
  int32_t value;
  VX_STATUS status;
};

std::string describe(const Found& found) {
  char text[160];
  const vx::MsgObj* object = vx::find_object(found.object);
  std::snprintf(text, sizeof text, "%s (%04X,%04X) value %d: %s",
                object != nullptr ? object->ServiceName : "?", found.tag >> 16, found.tag & 0xFFFFU,
                found.value, VX_Error_Message(found.status));
  return text;
}

std::vector<Found> validate(int32_t id) {
  std::vector<Found> found;
  ValErrObj* finding = nullptr;
  const VX_STATUS status = VX_Validate_Message(id, &finding, VX_Errors_And_Warnings);
  EXPECT_TRUE(status == VX_MESSAGE_VALIDATES || status == VX_DOES_NOT_VALIDATE) << VX_Error_Message(status);
  for (; finding != nullptr; VX_Get_Next_Validate_Error(id, &finding)) {
    found.push_back({finding->MsgItemID, finding->Tag, finding->ValueNumber, finding->Status});
  }
  return found;
}

// The first value that the rules list for one place. Colour would bring palettes with it, which go when it
// goes.
const vx::ValidValueObj* first_listed(const vx::TagObj& rule, int number) {
  const vx::ValTagObj& rules = *rule.Template;
  constexpr uint32_t kPixelPresentation = 0x00089205;
  for (const vx::CNode* node = rules.ValidValues.Head; node != nullptr; node = node->Next) {
    const auto* entry = static_cast<const vx::ValidValueObj*>(node->Data);
    const std::string_view text(entry->Value, entry->Length);
    if (rule.Tag == kPixelPresentation && (text == "COLOR" || text == "MIXED")) continue;
    if (rules.MaxValueNumber <= 1 || entry->ValueNumber == number) return entry;
  }
  return nullptr;
}

const char* text_for(int32_t vr) {
  static const std::map<int32_t, const char*> kTexts = {
      {VX_VR_AS, "030Y"},     {VX_VR_DA, "20240131"}, {VX_VR_DT, "20240131101010"},
      {VX_VR_TM, "101010"},   {VX_VR_UI, "1.2.3"},    {VX_VR_UR, "http://host/path"},
      {VX_VR_PN, "Doe^Jane"}, {VX_VR_DS, "1"},        {VX_VR_IS, "1"}};
  const auto found = kTexts.find(vr);
  return found != kTexts.end() ? found->second : "A";
}

// The template of a message or an item.
const vx::MsgTemplate* template_of(int32_t id) {
  const vx::MsgObj& object = *vx::find_object(id);
  const bool item = object.ObjectKind == vx::Kind::Item;
  const vx::MsgTemplate* source = nullptr;
  EXPECT_EQ(vx::get_template(object.ServiceName, item ? uint16_t{0} : object.Command, source), kOk);
  return source;
}

const vx::TagObj* rule_of(int32_t id, uint32_t tag) {
  const vx::MsgTemplate* source = template_of(id);
  const vx::TagObj* rule = source != nullptr ? source->FirstTag : nullptr;
  while (rule != nullptr && rule->Tag != tag) rule = rule->Next;
  return rule;
}

template <class Number>
int32_t stored(const vx::ValidValueObj& entry) {
  Number value = 0;
  std::memcpy(&value, entry.Value, std::min<std::size_t>(sizeof value, entry.Length));
  return static_cast<int32_t>(value);
}

VX_STATUS set_number(int32_t id, const vx::TagObj& rule, const vx::ValidValueObj* listed, bool first) {
  if (rule.VR == VX_VR_AT) {
    const uint32_t tag = listed != nullptr ? static_cast<uint32_t>(stored<int32_t>(*listed)) : 0x00080018;
    return (first ? VX_Set_Value_From_ULongInt : VX_Set_Next_Value_From_ULongInt)(id, rule.Tag, tag);
  }
  int32_t value = 1;
  if (listed != nullptr) {
    value = rule.VR == VX_VR_SS   ? stored<int16_t>(*listed)
            : rule.VR == VX_VR_US ? stored<uint16_t>(*listed)
            : rule.VR == VX_VR_FL ? stored<float>(*listed)
            : rule.VR == VX_VR_FD ? stored<double>(*listed)
                                  : stored<int32_t>(*listed);
  }
  return (first ? VX_Set_Value_From_Int : VX_Set_Next_Value_From_Int)(id, rule.Tag, value);
}

void set_values(int32_t id, const vx::TagObj& rule) {
  char bytes[8] = {};
  if (vx::is_bulk_vr(rule.VR)) {
    ASSERT_EQ(VX_Set_Value_From_Buffer(id, rule.Tag, bytes, sizeof bytes), kOk);
    return;
  }
  int count = std::max<int>({1, rule.VMLow, rule.Template->MaxValueNumber});
  if (rule.VMHigh != 255) count = std::min<int>(count, rule.VMHigh);
  for (int number = 1; number <= count; ++number) {
    const vx::ValidValueObj* listed = first_listed(rule, number);
    VX_STATUS status = kOk;
    if (vx::is_numeric_vr(rule.VR)) {
      status = set_number(id, rule, listed, number == 1);
    } else {
      const char* text = listed != nullptr ? listed->Value : text_for(rule.VR);
      status = (number == 1 ? VX_Set_Value_From_String : VX_Set_Next_Value_From_String)(id, rule.Tag, text);
    }
    ASSERT_EQ(status, kOk) << describe({id, rule.Tag, number, status});
  }
}

bool always_required(const vx::TagObj& rule) {
  const int32_t type = rule.Template->AttributeType;
  return rule.Tag >= 0x00080000 && (type == vx::kType1 || type == vx::kType2);
}

void fill(int32_t id, int depth);

void add(int32_t id, const vx::TagObj& rule, int depth) {
  if (rule.VR != VX_VR_SQ) {
    set_values(id, rule);
    return;
  }
  int32_t item = -1;
  ASSERT_EQ(VX_Open_Empty_Item(&item), kOk);
  ASSERT_EQ(VX_Set_Value_From_Int(id, rule.Tag, item), kOk);
  const vx::ValidValueObj* type = first_listed(rule, 1);
  if (type == nullptr) return;
  ASSERT_EQ(vx::set_object_name(*vx::find_object(item), type->Value), kOk);
  fill(item, depth + 1);
}

void fill(int32_t id, int depth) {
  ASSERT_LT(depth, 20);
  const vx::MsgTemplate* source = template_of(id);
  ASSERT_NE(source, nullptr);
  for (const vx::TagObj* rule = source->FirstTag; rule != nullptr; rule = rule->Next) {
    if (always_required(*rule)) add(id, *rule, depth);
  }
}

// True if the condition of an attribute looks at another one.
bool depends_on(const vx::TagObj& rule, uint32_t tag) {
  char text[9];
  std::snprintf(text, sizeof text, "%08X", tag);
  return rule.Template->ConditionRule.find(text) != std::string_view::npos;
}

// What is found without an attribute: that it is missing, and what depends on it.
bool tells_of(const std::vector<Found>& found, int32_t object, const vx::TagObj& removed) {
  const auto right = [&](const Found& one) {
    if (one.object == object && one.tag == removed.Tag) return one.status == VX_REQUIRED_ATTRIBUTE_MISSING;
    const vx::TagObj* other = rule_of(one.object, one.tag);
    if (other == nullptr) return false;
    const bool looks_around = other->Template->ConditionRule.find_first_of("^~") != std::string_view::npos;
    return (looks_around && one.tag == removed.Tag) || depends_on(*other, removed.Tag);
  };
  const auto itself = [&](const Found& one) { return one.object == object && one.tag == removed.Tag; };
  return std::all_of(found.begin(), found.end(), right) &&
         std::count_if(found.begin(), found.end(), itself) == 1;
}

// Adds what the conditions demand, one attribute at a time, since one may settle the other.
void satisfy(int32_t id) {
  for (int rounds = 0; rounds < 500; ++rounds) {
    const std::vector<Found> found = validate(id);
    const auto missing = std::find_if(found.begin(), found.end(), [](const Found& one) {
      return one.status == VX_REQUIRED_ATTRIBUTE_MISSING || one.status == VX_REQUIRED_VALUE_MISSING;
    });
    if (missing == found.end()) return;
    const vx::TagObj* rule = rule_of(missing->object, missing->tag);
    ASSERT_NE(rule, nullptr);
    add(missing->object, *rule, 1);
  }
  FAIL() << "the conditions find no end";
}

class Minimal : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    VX_Set_VexalINI(VEXAL_BINARY_DIR "/share/vexalkit/vexal.ini");
    ASSERT_EQ(VX_Library_Initialization(nullptr, nullptr, nullptr), kOk);
    VX_Set_String_Config_Value(VX_CFG_LOG_FILE, "/dev/null");
    for (VX_LOG_KEY key = 0; key < VX_LOG_KEY_COUNT; ++key) VX_Set_Log_Destination(key, VX_LOG_OFF);
  }
  static void TearDownTestSuite() { VX_Library_Release(); }

  struct Message {
    std::string service;
    uint16_t command;
  };
  // Every message that has a template.
  static std::vector<Message> messages() {
    std::vector<Message> all;
    for (int number = 1; number < 1000; ++number) {
      const vx::SopObj* service = vx::find_service_by_number(number);
      if (service == nullptr || service->kind != vx::kBaseService) continue;
      for (const vx::CommandRow& row : vx::command_rows()) {
        const vx::MsgTemplate* source = nullptr;
        if (vx::check_service_command(service->name, row.field) != kOk) continue;
        if (vx::get_template(service->name, row.field, source) != kOk || source->FirstTag == nullptr)
          continue;
        all.push_back({service->name, row.field});
      }
    }
    return all;
  }
  static int32_t build(const Message& message) {
    int32_t id = -1;
    EXPECT_EQ(VX_Open_Empty_Message(&id), kOk);
    EXPECT_EQ(VX_Set_Service_Command(id, message.service.c_str(), message.command), kOk);
    fill(id, 0);
    satisfy(id);
    return id;
  }

  // Every object of the tree, the message first.
  static void walk(int32_t id, const std::function<void(int32_t)>& visit) {
    visit(id);
    std::vector<int32_t> items;
    for (const vx::TagObj* at = vx::find_object(id)->FirstTag; at != nullptr; at = at->Next) {
      if (at->VR != VX_VR_SQ) continue;
      for (const vx::ValueObj* value = at->FirstValue; value != nullptr; value = value->Next) {
        if (value->Data != nullptr) items.push_back(static_cast<vx::MsgObj*>(value->Data)->ID);
      }
    }
    for (const int32_t item : items) walk(item, visit);
  }
};

// A service and an item type may share a name; what was read for the one is not taken for the other.
TEST_F(Minimal, ServicesAndItemsOfOneNameHaveRulesOfTheirOwn) {
  constexpr char kName[] = "REAL_WORLD_VALUE_MAPPING";
  const vx::MsgTemplate* message = nullptr;
  const vx::MsgTemplate* item = nullptr;
  ASSERT_EQ(vx::get_template(kName, C_STORE_RQ, message), kOk);
  ASSERT_EQ(vx::get_template(kName, 0, item), kOk);
  EXPECT_NE(message, item);
  EXPECT_EQ(item->FirstTag->Tag >> 16, 0x0028U);
}

// An item of an answer or of a query holds what is known or asked for; a newer way of saying it replaces the
// old one.
TEST_F(Minimal, PartsMayBeLeftOut) {
  const struct {
    const char* service;
    uint16_t command;
    const char* added;
    const char* removed = "";
  } rows[] = {
      {"UPS_PULL_SOP", N_GET_RSP, "00741210*UPS_CONTENT_ITEM_GET;00741210/0040A040=TEXT;00741210/0040A160=x"},
      {"UPS_PULL_SOP", N_GET_RSP, "00741002*UPS_PROGRESS_INFO_GET;00741002/00741004=50"},
      {"UPS_PUSH_SOP", N_GET_RSP, "00741216*UPS_PERF_PROC_GET;00741216/00404050=20240131",
       "00741216/-00404051"},
      {"UPS_WATCH_SOP", N_GET_RSP,
       "00404070*OUTPUT_DESTINATION_GET;00404070/00404071*DICOM_STORAGE_GET;00404070/00404071/21000140=AE"},
      {"UPS_QUERY_SOP", C_FIND_RQ, "0040A370*1;0040A370/00080050=7;0040A370/00401001="},
      {"UPS_WATCH_SOP", C_FIND_RQ,
       "00404021*UPS_REF_SOP_ACCESS_GET;00404021/0020000D=1.2;00404021/0020000E="},
      {"UPS_WATCH_SOP", N_ACTION_RQ, "00741204=x;00100020=x"},
      {"UPS_PUSH_SOP", N_CREATE_RQ, "00102110=x;00380500=x;00404008=20240131"},
      {"HANGING_PROTOCOL_FIND", C_FIND_RQ, "0072000C*1;0072000C/00080060=CT;0072000C/00180015="},
      {"DEFINED_PROTOCOL_FIND", C_FIND_RQ, "00189912*MODEL_SPECIFICATION_KEYS;00189912/00080070=x"},
      {"STANDARD_RT_STRUCTURE_SET", C_STORE_RQ,
       "30060039/30060040*CONTOUR_ITEM;30060039/30060040/30060042=CLOSEDPLANAR_XOR;"
       "30060039/30060040/30060046=1;30060039/30060040/30060050=1\\2\\3"},
      {"STANDARD_RT_BEAMS_TREAT", C_STORE_RQ,
       "30080020/300800A3=YES;30080020/300800A1*RT_BEAM_LIMITING_DEVICE_DEFINITION;"
       "30080020/30080040/300C00F0=0",
       "30080020/-300800A0"},
      {"STANDARD_RT_BEAMS_TREAT", C_STORE_RQ, "300A0709=X", "-30080020;-300A00B3;-300A0078"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.service) + " " + row.added);
    int32_t id = build({row.service, row.command});
    objects::edit(id, row.added);
    if (*row.removed != '\0') satisfy(id);
    objects::edit(id, row.removed);
    for (const Found& found : validate(id)) ADD_FAILURE() << describe(found);
    VX_Free_Message(&id);
  }
}

TEST_F(Minimal, ValidatesAndNotWithoutAnyOfItsAttributes) {
  const std::vector<Message> all = messages();
  const auto stored = [](const Message& message) { return message.command == C_STORE_RQ; };
  EXPECT_GE(std::count_if(all.begin(), all.end(), stored), 140);
  EXPECT_GE(all.size(), 350U);
  int removals = 0;
  for (const Message& message : all) {
    SCOPED_TRACE(message.service + " " + vx::command_name(message.command));
    int32_t id = build(message);
    for (const Found& found : validate(id)) ADD_FAILURE() << describe(found);

    std::set<std::string> seen;  // item types: each is taken apart once a class
    std::vector<std::pair<int32_t, uint32_t>> parts;
    walk(id, [&](int32_t object) {
      const vx::MsgObj& record = *vx::find_object(object);
      if (object != id && !seen.insert(record.ServiceName).second) return;
      for (const vx::TagObj* at = record.FirstTag; at != nullptr; at = at->Next) {
        if (at->Tag >= 0x00080000) parts.emplace_back(object, at->Tag);
      }
    });
    for (const auto& [object, tag] : parts) {
      if (vx::find_object(object) == nullptr) continue;  // its sequence was made anew
      const vx::TagObj* rule = rule_of(object, tag);
      ASSERT_NE(rule, nullptr);
      ASSERT_EQ(VX_Delete_Attribute(object, tag), kOk);
      ++removals;
      const std::vector<Found> found = validate(id);
      if (!tells_of(found, object, *rule)) {
        std::string told;
        for (const Found& one : found) told += "\n  " + describe(one);
        ADD_FAILURE() << "without " << describe({object, tag, 0, kOk}) << ":" << told;
      }
      add(object, *rule, 1);
      satisfy(id);
    }
    VX_Free_Message(&id);
  }
  EXPECT_GT(removals, 4000);
}

}  // namespace
