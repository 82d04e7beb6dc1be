// vexal sr build: a report from JSON.
#include <jansson.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <map>
#include <memory>
#include <new>

#include "args.h"
#include "charset.h"
#include "names.h"
#include "network.h"
#include "session.h"
#include "sr_document.h"
#include "uid.h"

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

const char* text_of(const json_t* object, const char* key) {
  return json_string_value(json_object_get(object, key));
}

struct CodeText {
  explicit CodeText(const json_t* object)
      : value(text_of(object, "code")),
        scheme(text_of(object, "scheme")),
        meaning(text_of(object, "meaning")) {}
  const char* value;
  const char* scheme;
  const char* meaning;
};

double number_at(const json_t* data, std::size_t index) {
  const json_t* value = json_array_get(data, index);
  const char* text = json_string_value(value);
  return text != nullptr ? std::strtod(text, nullptr) : json_number_value(value);
}
float float_at(const json_t* data, std::size_t index) {
  return static_cast<float>(number_at(data, index));
}

// Text that the reader of JSON asks for.
struct JsonText {
  char* text;
  static VX_STATUS give(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
    char* text = static_cast<JsonText*>(user)->text;
    *size = static_cast<uint32_t>(std::strlen(text));
    *data = text;
    *last = 1;
    return VX_NORMAL_COMPLETION;
  }
};

// What has no member of its own goes into the object as it stands, in the DICOM JSON Model.
VX_STATUS add_more(int32_t id, const json_t* more) {
  if (more == nullptr) return VX_NORMAL_COMPLETION;
  if (!json_is_object(more)) return VX_INCOMPATIBLE_VALUE;
  JsonText source{json_dumps(more, JSON_COMPACT)};
  if (source.text == nullptr) return VX_SYSTEM_ERROR;
  const VX_STATUS status = VX_Json_To_Message_With_Options(id, &source, VX_JSON_STANDARD, &JsonText::give);
  std::free(source.text);
  // Values that break a rule of their VR are stored all the same, as they were in the report shown.
  const bool stored = status == VX_INVALID_VALUE_FOR_VR || status == VX_INVALID_CHARS_IN_VALUE;
  return stored ? VX_NORMAL_COMPLETION : status;
}

// Makes the free node of one object; its children come later.
class NodeMaker {
 public:
  explicit NodeMaker(const json_t* object)
      : object_(object),
        data_(json_object_get(object, "data")),
        more_(json_object_get(object, "more")),
        concept_(json_object_get(more_, "0040A043") == nullptr ? json_object_get(object, "concept")
                                                               : nullptr) {}

  VX_STATUS make(int32_t& id) const {
    const char* type = text_of(object_, "type");
    if (type == nullptr && more_ == nullptr) return VX_NULL_POINTER_PARM;
    const Row* row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& candidate) {
      return type != nullptr && std::strcmp(candidate.type, type) == 0;
    });
    // Content that has no members stands in "more".
    const bool known = row != std::end(kRows) && json_object_get(more_, row->content) == nullptr;
    if (!known && more_ == nullptr) return VX_INCOMPATIBLE_VALUE;
    VX_STATUS status = known ? (this->*row->make)(id) : bare(type, id);
    // Only some of the makers take a concept name; the others get it here.
    if (status == VX_NORMAL_COMPLETION && (!known || row->name_later) && concept_.value != nullptr) {
      status = VX_SRH_Set_Concept_Name(id, concept_.value, concept_.scheme, concept_.meaning);
    }
    return status == VX_NORMAL_COMPLETION ? add_more(id, more_) : status;
  }

 private:
  struct Row {
    const char* type;
    VX_STATUS (NodeMaker::*make)(int32_t& id) const;
    bool name_later;
    const char* content;  // the attribute that makes the value
  };
  static const Row kRows[15];

  static VX_STATUS bare(const char* type, int32_t& id) {
    const VX_STATUS status = VX_Open_Empty_Item(&id);
    return status != VX_NORMAL_COMPLETION || type == nullptr ? status
                                                             : VX_Set_Value_From_String(id, 0x0040A040, type);
  }

  using Simple = VX_STATUS (*)(const char*, const char*, const char*, const char*, int32_t*);
  template <Simple Create>
  VX_STATUS simple(int32_t& id) const {
    const char* text = text_of(object_, "value");
    return Create(concept_.value, concept_.scheme, concept_.meaning, text != nullptr ? text : "", &id);
  }
  VX_STATUS code(int32_t& id) const {
    const CodeText code(json_object_get(object_, "code"));
    return VX_SRH_Create_CODE_Node(concept_.value, concept_.scheme, concept_.meaning, code.value, code.scheme,
                                   code.meaning, &id);
  }
  VX_STATUS number(int32_t& id) const {
    const CodeText unit(json_object_get(object_, "unit"));
    const json_t* value = json_object_get(object_, "value");
    char digits[32];
    const char* text = json_string_value(value);
    if (json_is_number(value)) {
      std::snprintf(digits, sizeof digits, "%.10g", json_number_value(value));
      text = digits;
    }
    VX_STATUS status = VX_SRH_Create_NUM_Node(concept_.value, concept_.scheme, concept_.meaning, text,
                                              unit.value, unit.scheme, unit.meaning, &id);
    const CodeText qualifier(json_object_get(object_, "qualifier"));
    if (status == VX_NORMAL_COMPLETION && qualifier.value != nullptr) {
      status = VX_SRH_Set_NUM_Qualifier(id, qualifier.value, qualifier.scheme, qualifier.meaning);
    }
    return status;
  }
  VX_STATUS region(int32_t& id) const {
    VX_STATUS status = VX_SRH_Create_SCOORD_Node(float_at(data_, 0), float_at(data_, 1), spatial(), &id);
    for (std::size_t i = 2; i + 1 < json_array_size(data_) && status == VX_NORMAL_COMPLETION; i += 2) {
      status = VX_SRH_Set_SCOORD_Next_Data(id, float_at(data_, i), float_at(data_, i + 1));
    }
    return status;
  }
  SRH_XYZ point(std::size_t index) const {
    return {float_at(data_, index), float_at(data_, index + 1), float_at(data_, index + 2)};
  }
  VX_STATUS region_3d(int32_t& id) const {
    VX_STATUS status =
        VX_SRH_Create_SCOORD3D_Node(text_of(object_, "frame_of_reference"), point(0), spatial(), &id);
    for (std::size_t i = 3; i + 2 < json_array_size(data_) && status == VX_NORMAL_COMPLETION; i += 3) {
      status = VX_SRH_Set_SCOORD3D_Next_Data(id, point(i));
    }
    return status;
  }
  VX_STATUS times(int32_t& id) const {
    const char* by = text_of(object_, "by");
    const int32_t kind = term(SRH_TCOORD_D);
    const bool offset = by != nullptr && std::strcmp(by, "offset") == 0;
    const bool datetime = by != nullptr && std::strcmp(by, "datetime") == 0;
    VX_STATUS status = json_array_size(data_) == 0 ? VX_EMPTY_VALUE : VX_NORMAL_COMPLETION;
    for (std::size_t i = 0; i < json_array_size(data_) && status == VX_NORMAL_COMPLETION; ++i) {
      const char* text = json_string_value(json_array_get(data_, i));
      const auto position = static_cast<uint32_t>(std::min(std::max(number_at(data_, i), 0.0), 4294967295.0));
      if (datetime) {
        status =
            i == 0 ? VX_SRH_Create_TCOORD_D_Node(text, kind, &id) : VX_SRH_Set_TCOORD_D_Next_Data(id, text);
      } else if (offset) {
        status =
            i == 0 ? VX_SRH_Create_TCOORD_O_Node(text, kind, &id) : VX_SRH_Set_TCOORD_O_Next_Data(id, text);
      } else {
        status = i == 0 ? VX_SRH_Create_TCOORD_R_Node(position, kind, &id)
                        : VX_SRH_Set_TCOORD_R_Next_Data(id, position);
      }
    }
    return status;
  }
  VX_STATUS composite(int32_t& id) const {
    return VX_SRH_Create_COMPOSITE_Node(text_of(object_, "class"), text_of(object_, "instance"), &id);
  }
  template <typename Number>
  std::vector<Number> numbers() const {
    std::vector<Number> found;
    for (std::size_t i = 0; i < json_array_size(data_); ++i) {
      found.push_back(static_cast<Number>(std::min(std::max(number_at(data_, i), 0.0), 65535.0)));
    }
    return found;
  }
  VX_STATUS image(int32_t& id) const {
    const VX_STATUS status =
        VX_SRH_Create_IMAGE_Node(text_of(object_, "class"), text_of(object_, "instance"), &id);
    const auto frames = numbers<int32_t>();
    if (status != VX_NORMAL_COMPLETION || frames.empty()) return status;
    return VX_SRH_Set_IMAGE_Frames(id, frames.data(), static_cast<int32_t>(frames.size()));
  }
  VX_STATUS waveform(int32_t& id) const {
    const VX_STATUS status =
        VX_SRH_Create_WAVEFORM_Node(text_of(object_, "class"), text_of(object_, "instance"), &id);
    const auto channels = numbers<uint16_t>();
    if (status != VX_NORMAL_COMPLETION || channels.empty()) return status;
    return VX_SRH_Set_WAVEFORM_Channels(id, channels.data(), static_cast<int32_t>(channels.size()));
  }
  VX_STATUS container(int32_t& id) const {
    return VX_SRH_Create_CONTAINER_Node(continuity(object_), text_of(object_, "template"), &id);
  }
  int32_t term(int32_t type) const {
    const char* kind = text_of(object_, "kind");
    return kind != nullptr ? sr_term(type, kind) : -1;
  }
  int32_t spatial() const { return term(SRH_SCOORD); }

 public:
  static int32_t continuity(const json_t* object) {
    const char* kind = text_of(object, "kind");
    return kind == nullptr ? SRH_SEPARATE : sr_term(SRH_CONTAINER, kind);
  }

 private:
  const json_t* object_;
  const json_t* data_;
  const json_t* more_;
  CodeText concept_;
};

const NodeMaker::Row NodeMaker::kRows[15] = {
    {"TEXT", &NodeMaker::simple<VX_SRH_Create_TEXT_Node>, false, "0040A160"},
    {"CODE", &NodeMaker::code, false, "0040A168"},
    {"NUM", &NodeMaker::number, false, "0040A300"},
    {"DATETIME", &NodeMaker::simple<VX_SRH_Create_DATETIME_Node>, false, "0040A120"},
    {"DATE", &NodeMaker::simple<VX_SRH_Create_DATE_Node>, false, "0040A121"},
    {"TIME", &NodeMaker::simple<VX_SRH_Create_TIME_Node>, false, "0040A122"},
    {"UIDREF", &NodeMaker::simple<VX_SRH_Create_UIDREF_Node>, false, "0040A124"},
    {"PNAME", &NodeMaker::simple<VX_SRH_Create_PNAME_Node>, false, "0040A123"},
    {"SCOORD", &NodeMaker::region, true, "00700022"},
    {"SCOORD3D", &NodeMaker::region_3d, true, "00700022"},
    {"TCOORD", &NodeMaker::times, true, "0040A130"},
    {"COMPOSITE", &NodeMaker::composite, true, "00081199"},
    {"IMAGE", &NodeMaker::image, true, "00081199"},
    {"WAVEFORM", &NodeMaker::waveform, true, "00081199"},
    {"CONTAINER", &NodeMaker::container, true, "0040A050"},
};

int32_t relationship_of(const json_t* object) {
  const char* text = text_of(object, "relationship");
  for (int32_t i = SRH_CONTAINS; text != nullptr && i <= SRH_SELECTED_FROM; ++i) {
    if (std::strcmp(sr_relationship_name(i), text) == 0) return i;
  }
  return -1;
}

void set_text(int32_t id, uint32_t tag, const std::string& text) {
  if (text.empty()) {
    VX_Set_Value_To_NULL(id, tag);
    return;
  }
  std::size_t from = 0;
  for (bool first = true; from <= text.size(); first = false) {
    const std::size_t end = std::min(text.find('\\', from), text.size());
    const std::string part = text.substr(from, end - from);
    (first ? VX_Set_Value_From_String : VX_Set_Next_Value_From_String)(id, tag, part.c_str());
    from = end + 1;
  }
}

// What it makes is dropped with all else at the end of the library.
class Builder {
 public:
  // An error text, empty on success.
  std::string build(const json_t* document, const std::string& path);
  std::string write(const std::string& path);

 private:
  std::string add_nodes(const json_t* report);
  void set_defaults(const std::string& sop_class);
  void set_head(const json_t* attributes);

  int32_t root_ = 0;
};

std::string Builder::build(const json_t* document, const std::string& path) {
  const MutedWarnings quiet;  // of the library, about UTF-8 in items that name no character set
  const json_t* report = json_object_get(document, "report");
  const json_t* attributes = json_object_get(document, "attributes");
  if (!json_is_object(report)) return "there is no \"report\"";
  const char* named = text_of(attributes, "SOPClassUID");
  const std::string sop_class = named != nullptr ? named : "1.2.840.10008.5.1.4.1.1.88.33";
  const json_t* more = json_object_get(report, "more");
  CodeText title(json_object_get(report, "concept"));
  // One in "more" takes its place.
  if (json_object_get(more, "0040A043") != nullptr) title.value = title.scheme = title.meaning = "1";
  const VX_STATUS status =
      VX_SRH_Create_SR(service_of_class(sop_class).c_str(), text_of(report, "template"),
                       NodeMaker::continuity(report), title.value, title.scheme, title.meaning, &root_);
  if (status != VX_NORMAL_COMPLETION)
    return std::string("the title of the report: ") + VX_Error_Message(status);
  std::string error = add_nodes(report);
  VX_SR_To_Message(root_);
  if (!error.empty()) return error;
  // What has its UID is whole, as show wrote it.
  const bool whole = text_of(attributes, "SOPInstanceUID") != nullptr;
  if (!whole) set_defaults(sop_class);
  VX_Set_Value_From_String(root_, kSpecificCharacterSet, "ISO_IR 192");
  set_head(attributes);
  const VX_STATUS added = add_more(root_, more);
  if (added != VX_NORMAL_COMPLETION) return std::string("the head of the report: ") + VX_Error_Message(added);
  const char* charset = text_of(attributes, "SpecificCharacterSet");
  return leave_utf8(root_, path, charset != nullptr ? charset : whole ? "" : "ISO_IR 192");
}

std::string Builder::add_nodes(const json_t* report) {
  struct Level {
    int32_t id;
    const json_t* content;
    std::size_t next;
    std::string location;
  };
  struct Reference {
    int32_t item;
    std::string target;
  };
  std::vector<Level> levels = {{root_, json_object_get(report, "content"), 0, "1"}};
  std::vector<Reference> references;
  while (!levels.empty()) {
    Level& level = levels.back();
    if (level.next >= json_array_size(level.content)) {
      levels.pop_back();
      continue;
    }
    const json_t* object = json_array_get(level.content, level.next++);
    const std::string location = level.location + "." + std::to_string(level.next);
    VX_STATUS status = VX_NORMAL_COMPLETION;
    int32_t id = 0;
    if (const char* target = text_of(object, "target"); target != nullptr) {
      // Its place is kept by an item; where it leads is known at the end.
      status = VX_Open_Empty_Item(&id);
      references.push_back({id, target});
    } else {
      status = NodeMaker(object).make(id);
    }
    if (status == VX_NORMAL_COMPLETION) {
      status = VX_SRH_Add_Child(level.id, relationship_of(object), &id);
    }
    if (status != VX_NORMAL_COMPLETION) {
      if (id > 0) VX_Free_Item(&id);
      return "content " + location + ": " + VX_Error_Message(status);
    }
    levels.push_back({id, json_object_get(object, "content"), 0, location});
  }
  for (const Reference& reference : references) {
    bool first = true;
    for (std::size_t from = 0; from <= reference.target.size(); first = false) {
      const std::size_t end = std::min(reference.target.find('.', from), reference.target.size());
      (first ? VX_Set_Value_From_String : VX_Set_Next_Value_From_String)(
          reference.item, 0x0040DB73, reference.target.substr(from, end - from).c_str());
      from = end + 1;
    }
    int32_t target = 0;
    if (VX_SRH_Get_Reference(reference.item, &target) != VX_NORMAL_COMPLETION) {
      return "the reference to " + reference.target + " leads nowhere";
    }
  }
  return {};
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
      {0x00080016, sop_class},  {0x00080018, new_uid()}, {0x00080020, date},        {0x00080023, date},
      {0x00080030, time_text},  {0x00080033, time_text}, {0x00080050, ""},          {0x00080060, "SR"},
      {0x00080070, "VexalKit"}, {0x00080090, ""},        {0x00081111, ""},          {0x00100010, ""},
      {0x00100020, ""},         {0x00100030, ""},        {0x00100040, ""},          {0x0020000D, new_uid()},
      {0x0020000E, new_uid()},  {0x00200010, ""},        {0x00200011, "1"},         {0x00200013, "1"},
      {0x0040A372, ""},         {0x0040A491, "PARTIAL"}, {0x0040A493, "UNVERIFIED"}};
  for (const auto& [tag, text] : defaults) set_text(root_, tag, text);
}

void Builder::set_head(const json_t* attributes) {
  const char* key = nullptr;
  json_t* value = nullptr;
  json_object_foreach(const_cast<json_t*>(attributes), key, value) {
    uint32_t tag = 0;
    // The character set comes last: until then all text is UTF-8.
    if (json_is_string(value) && parse_tag(key, tag) && tag != kSpecificCharacterSet)
      set_text(root_, tag, json_string_value(value));
  }
}

std::string Builder::write(const std::string& path) {
  VX_STATUS status = VX_Message_To_File(root_, path.c_str());
  if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  VX_Set_Value_From_String(root_, 0x00020002, sr_text_of(root_, 0x00080016).c_str());
  VX_Set_Value_From_String(root_, 0x00020003, sr_text_of(root_, 0x00080018).c_str());
  VX_Set_Value_From_String(root_, 0x00020010, "1.2.840.10008.1.2.1");
  FileSink sink;
  const std::string error = sink.open(path);
  if (!error.empty()) return error;
  status = VX_Write_File(root_, 0, &sink, FileSink::file_output);
  return status == VX_NORMAL_COMPLETION ? sink.commit() : VX_Error_Message(status);
}

}  // namespace

int build_report(const std::string& input, const std::string& output) {
  std::string text;
  if (!read_file(input, text)) {
    report(input, std::strerror(errno));
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
