#include "storage.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "embedded.h"
#include "network.h"
#include "recode.h"
#include "session.h"
#include "tables.h"

namespace vexal {
namespace {

constexpr uint16_t kOutOfResources = 0xA700;
constexpr uint16_t kInvalidInstance = 0x0117;
constexpr uint16_t kTooLarge = 0xA702;

// Takes the meta group as it is encoded.
VX_STATUS append_bytes(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

// The data set of a request that is no object, decoded in memory once it is known to be of a sane size.
VX_STATUS append_identifier(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  constexpr std::size_t kMost = 16U << 20;
  auto& bytes = *static_cast<std::string*>(user);
  if (size > kMost - bytes.size()) return VX_CANNOT_COMPLY;
  bytes.append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

VX_STATUS give_identifier(int32_t, void* user, int32_t, uint32_t* size, void** data, int32_t* last) {
  auto& bytes = *static_cast<std::string*>(user);
  *size = static_cast<uint32_t>(bytes.size());
  *data = bytes.data();
  *last = 1;
  return VX_NORMAL_COMPLETION;
}

// Preamble, prefix and meta group of a file (PS3.10 section 7.1); the library writes all three for a file's
// group 0002.
VX_STATUS encode_head(const StoredObject& object, VX_TRANSFER_SYNTAX syntax, const std::string& calling_title,
                      std::string& out) {
  int32_t id = -1;
  VX_STATUS status = VX_Create_Empty_File(&id, "");
  if (status != VX_NORMAL_COMPLETION) return status;
  char text[68] = "";
  const unsigned char version[2] = {0, 1};
  VX_Add_Standard_Attribute(id, 0x00020000);
  VX_Set_Value_From_Buffer(id, 0x00020001, version, 2);
  VX_Set_Value_From_String(id, 0x00020002, object.sop_class.c_str());
  VX_Set_Value_From_String(id, 0x00020003, object.instance.c_str());
  VX_Set_Value_From_String(id, 0x00020010, uid_of_syntax(syntax).c_str());
  VX_Get_String_Config_Value(VX_CFG_IMPLEMENTATION_CLASS_UID, sizeof text, text);
  VX_Set_Value_From_String(id, 0x00020012, text);
  VX_Get_String_Config_Value(VX_CFG_IMPLEMENTATION_VERSION, sizeof text, text);
  if (*text != '\0') VX_Set_Value_From_String(id, 0x00020013, text);
  if (!calling_title.empty()) VX_Set_Value_From_String(id, 0x00020016, calling_title.c_str());
  out.clear();
  status = VX_Message_To_Stream(id, 0x00020000, 0x0002FFFF, EXPLICIT_LITTLE_ENDIAN, &out, append_bytes);
  VX_Free_File(&id);
  return status;
}

}  // namespace

std::vector<std::string> storage_classes(bool with_retired) {
  std::vector<std::string> classes;
  std::string_view text = uid_table();
  std::string_view line;
  while (next_line(text, line)) {
    const std::string uid(next_cell(line));
    const std::string_view kind = next_cell(line);
    // Storage classes have "Storage" in their names (PS3.4 section B.5); directories and commitment are not
    // stored.
    const std::string_view name = next_cell(line);
    if (kind != "SOP class" || name.find("Storage") == std::string_view::npos ||
        uid.starts_with("1.2.840.10008.1."))
      continue;
    const bool retired = next_cell(line) == "retired";
    if ((with_retired || !retired) && !service_of_class(uid).empty()) classes.push_back(uid);
  }
  return classes;
}

std::vector<Proposal> storage_services(bool prefer_compressed) {
  std::vector<VX_TRANSFER_SYNTAX> plain = {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN,
                                           EXPLICIT_BIG_ENDIAN, DEFLATED_EXPLICIT_LITTLE_ENDIAN};
  std::vector<VX_TRANSFER_SYNTAX> syntaxes;
  for (VX_TRANSFER_SYNTAX syntax = RLE; syntax <= JPIP_REFERENCED_DEFLATE; ++syntax) {
    if (!uid_of_syntax(syntax).empty()) syntaxes.push_back(syntax);
  }
  syntaxes.insert(prefer_compressed ? syntaxes.end() : syntaxes.begin(), plain.begin(), plain.end());
  // Verification is left out: the library answers it by itself.
  std::vector<Proposal> proposals;
  for (const std::string& sop_class : storage_classes(true)) proposals.push_back({sop_class, syntaxes});
  return proposals;
}

bool StorageOptions::read(const Args& args) {
  folder = args.get("--dir", ".");
  tree = args.has("--tree");
  std::error_code failure;
  std::filesystem::create_directories(folder, failure);
  if (!failure) return true;
  complain("--dir %s: %s", folder.c_str(), failure.message().c_str());
  return false;
}

std::string ObjectWriter::start(int32_t, VX_TRANSFER_SYNTAX syntax, const StoredObject& stored) {
  std::string head;
  if (encode_head(stored, syntax, calling_title_, head) != VX_NORMAL_COMPLETION)
    return "can not make its meta group";
  const std::string path = options_.folder + "/" + stored.instance + ".dcm";
  std::string error = sink_.open(path);
  if (error.empty() && !sink_.write(head.data(), head.size())) error = "can not write";
  return error;
}

VX_STATUS ObjectWriter::take_bytes(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& writer = *static_cast<ObjectWriter*>(user);
  writer.bytes_ += size;
  if (writer.options_.most_bytes != 0 && writer.bytes_ > writer.options_.most_bytes) {
    writer.too_large_ = true;
    return VX_CANNOT_COMPLY;
  }
  if (!writer.failed_ && !writer.sink_.write(data, size)) writer.failed_ = true;
  return VX_NORMAL_COMPLETION;
}

std::string place_object(FileSink& sink, const StorageOptions& options, StoredObject& stored) {
  const std::string error =
      sink.place([&](const std::string& temporary, std::string& final_path) -> std::string {
        std::string folder = options.folder;
        if (options.tree) {
          DicomFile file;
          if (file.open(temporary, {true, 0x0020000E}) != VX_NORMAL_COMPLETION && !file.readable())
            return file.problem();
          stored.study = text_of(file.id(), 0x0020000D);
          stored.series = text_of(file.id(), 0x0020000E);
          // Palettes and the like belong to no study.
          if (!is_safe_name(stored.study)) stored.study = "no-study";
          if (!is_safe_name(stored.series)) stored.series = "no-series";
          folder += "/" + stored.study + "/" + stored.series;
          std::error_code failure;
          std::filesystem::create_directories(folder, failure);
          if (failure) return folder + ": " + failure.message();
        }
        final_path = folder + "/" + stored.instance + ".dcm";
        return "";
      });
  if (!error.empty()) return error;
  stored.path = sink.path();
  const std::string failure = sink.commit(options.durable);
  if (!failure.empty()) stored.path.clear();
  return failure;
}

// The object in the syntax that was asked for. False, and a line on standard error where that is a problem:
// it stays as it came.
bool ObjectWriter::convert(FileSink& converted, const StoredObject& stored) {
  std::string problem;
  bool there = false;  // already, or soon
  const std::string failure = sink_.place([&](const std::string& temporary, std::string&) -> std::string {
    const CurrentFile current(stored.instance);
    DicomFile file;
    RecodedPixels pixels;
    VX_STATUS status = file.open(temporary, {});
    if (status != VX_NORMAL_COMPLETION) {
      problem = file.problem();
      return "";
    }
    there = file.syntax() == options_.syntax;
    if (there) return "";
    if (RecodedPixels::needed(file, options_.syntax))
      problem = pixels.attach(file, options_.syntax, 1, RecodedPixels::When::AsWritten);
    if (problem.empty()) problem = converted.open(sink_.path());
    if (problem.empty()) status = file.set_syntax(options_.syntax);
    if (problem.empty() && status != VX_NORMAL_COMPLETION) problem = VX_Error_Message(status);
    if (problem.empty()) problem = pixels.write(file, converted, 0);
    if (problem.empty()) problem = pixels.finding();
    return "";
  });
  if (!failure.empty()) return false;  // placing it tells
  if (!problem.empty()) report(stored.instance, "is stored as it came: " + problem);
  return problem.empty() && !there;
}

int32_t ObjectWriter::take(int32_t association, int32_t message, StoredObject& stored) {
  stored = {};
  stored.sop_class = text_of(message, 0x00000002);
  stored.instance = text_of(message, 0x00001000);
  bytes_ = 0;
  too_large_ = false;
  VX_TRANSFER_SYNTAX syntax = 0;
  VX_Get_Message_Transfer_Syntax(message, &syntax);
  int32_t answer = 0;
  std::string error;
  if (!is_safe_name(stored.instance)) {
    error = "its SOP Instance UID can not be a name: " + stored.instance;
    answer = kInvalidInstance;
  } else {
    error = start(message, syntax, stored);
    if (!error.empty()) answer = kOutOfResources;
  }
  failed_ = !error.empty();
  // Whatever the answer will be, the data set has to be read.
  const VX_STATUS status = VX_Continue_Read_Message_To_Stream(association, &message, this, take_bytes);
  if (message >= 0) VX_Free_Message(&message);
  stored.bytes = bytes_;
  if (status != VX_NORMAL_COMPLETION) {
    sink_.drop();
    report(stored.instance,
           too_large_ ? std::string("is larger than --max-size allows") : VX_Error_Message(status));
    return too_large_ && status == VX_NORMAL_COMPLETION ? kTooLarge : -1;
  }
  if (error.empty()) {
    FileSink converted;
    if (failed_) {
      error = "can not write";
    } else if (options_.syntax != 0 && convert(converted, stored)) {
      error = place_object(converted, options_, stored);
      sink_.drop();
    } else {
      error = place_object(sink_, options_, stored);
    }
    if (!error.empty()) answer = kOutOfResources;
  }
  if (!error.empty()) {
    sink_.drop();
    report(stored.instance, error);
  }
  return answer;
}

VX_STATUS read_rest(int32_t association, int32_t& message) {
  uint32_t kind = 0x0101;
  VX_Get_Value_To_UInt(message, 0x00000800, &kind);
  if (kind == 0x0101) return VX_NORMAL_COMPLETION;
  std::string bytes;
  VX_STATUS status = VX_Continue_Read_Message_To_Stream(association, &message, &bytes, append_identifier);
  if (status != VX_NORMAL_COMPLETION) return status;
  VX_TRANSFER_SYNTAX syntax = 0;
  VX_Get_Message_Transfer_Syntax(message, &syntax);
  uint32_t tag = 0;
  return VX_Stream_To_Message(message, 0x00010000, 0xFFFFFFFF, syntax, &tag, &bytes, give_identifier);
}

bool send_response(int32_t association, const char* service, uint16_t command, uint32_t request_id,
                   uint16_t status) {
  Message response;
  if (response.make(service, command) != VX_NORMAL_COMPLETION) return false;
  VX_Set_Value_From_UInt(response.id, 0x00000120, request_id);
  return VX_Send_Response_Message(association, status, response.id) == VX_NORMAL_COMPLETION;
}

}  // namespace vexal
