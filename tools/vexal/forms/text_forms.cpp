#include "text_forms.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "base/attributes.h"
#include "base/parallel.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/values.h"
#include "bulk_files.h"
#include "images/write_options.h"

namespace vexal {
namespace {

// What counts as read: values that break a rule of their VR are stored as they are.
bool is_stored(VX_STATUS status) {
  return status == VX_NORMAL_COMPLETION || status == VX_INVALID_VALUE_FOR_VR ||
         status == VX_INVALID_CHARS_IN_VALUE;
}

// The functions of the library that tell of losses on the way to a text and back.
bool is_text_function(std::string_view name) {
  return name.ends_with("_To_Message") || name.starts_with("VX_Message_To_");
}

// With one file, the text goes to standard output as it is made.
FileResult to_text(const std::string& path, const TextForm& form, bool only) {
  CurrentFile current(path);
  FileResult result;
  result.exit = kUsage;
  DicomFile file;
  VX_STATUS status = file.open(path, {});
  if (status != VX_NORMAL_COMPLETION) {
    report(path, file.problem());
    return result;
  }
  TextSink sink;
  only&& form.finish == nullptr ? static_cast<void>(sink.stream = stdout)
                                : static_cast<void>(sink.text = &result.output);
  const LogLines log(is_text_function);
  status = form.write(file.id(), sink);
  std::string problem = status != VX_NORMAL_COMPLETION ? VX_Error_Message(status) : "";
  if (problem.empty() && form.finish != nullptr) problem = form.finish(file, result.output);
  if (!problem.empty()) {
    result.output.clear();
    report(path, problem);
    return result;
  }
  result.output += form.end;
  result.exit = log.passed() == 0 && !values_were_lost() ? kSuccess : kFindings;
  return result;
}

// The first and the last bytes of a value.
struct ValueEnds {
  std::string head;
  std::string tail;

  static VX_STATUS take(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
    constexpr std::size_t kMost = 8;
    auto& ends = *static_cast<ValueEnds*>(user);
    const std::string_view bytes(static_cast<const char*>(data), size);
    if (ends.head.size() < kMost) ends.head += bytes.substr(0, kMost - ends.head.size());
    ends.tail += bytes.substr(bytes.size() - std::min(bytes.size(), kMost));
    ends.tail.erase(0, ends.tail.size() - std::min(ends.tail.size(), kMost));
    return VX_NORMAL_COMPLETION;
  }
};

// The transfer syntax that the text names, or explicit VR little endian, if the pixel data that came with it
// can be written in it. An error text, empty on success.
std::string settle_syntax(DicomFile& file) {
  ValueEnds pixels;
  VX_Get_Value_To_Function(file.id(), tags::kPixelData, &pixels, guarded<ValueEnds::take>);
  const bool begins = pixels.head.starts_with(std::string_view("\xFE\xFF\x00\xE0", 4));
  const bool fragments = begins && pixels.tail == std::string_view("\xFE\xFF\xDD\xE0\0\0\0\0", 8);
  char uid[80] = "";
  VX_Get_Value_To_String(file.id(), tags::kTransferSyntaxUID, sizeof uid, uid);
  VX_TRANSFER_SYNTAX syntax = 0;
  if (VX_Get_Message_Transfer_Syntax(file.id(), &syntax) != VX_NORMAL_COMPLETION) {
    syntax = EXPLICIT_LITTLE_ENDIAN;
    if (*uid != '\0') {
      adopt_unknown_syntax(uid, fragments);
      if (VX_Get_Message_Transfer_Syntax(file.id(), &syntax) != VX_NORMAL_COMPLETION)
        return std::string("its transfer syntax ") + uid + " can not be written";
    } else if (!fragments) {
      file.set_syntax(syntax);
    }
  }
  const bool demanded = !is_uncompressed(syntax) && *uid != '\0';
  if (fragments && !demanded)
    return "its pixel data is compressed, and no transfer syntax in the text says how; see --own";
  const bool known = syntax != PRIVATE_SYNTAX_1 && syntax != PRIVATE_SYNTAX_2;
  if (!begins && !pixels.head.empty() && demanded && known)
    return "its pixel data is not compressed, as its transfer syntax demands";
  return "";
}

// Where a document goes: to the name that was given, or by its UID into the folder of that name.
std::string path_of(const DicomFile& file, const std::string& out, bool folder, std::size_t number) {
  if (!folder) return out;
  char uid[80] = "";
  VX_Get_Value_To_String(file.id(), tags::kSOPInstanceUID, sizeof uid, uid);
  const std::string name = is_safe_name(uid) ? std::string(uid) : "document-" + std::to_string(number);
  return out + "/" + name + ".dcm";
}

bool has_data_set(int32_t id) {
  bool found = false;
  for_each_attribute(id, [&](uint32_t tag, VX_VR, int32_t) {
    found = tag > tags::kLastOfMeta;
    return !found;
  });
  return found;
}

// Texts also list what the meta group of their file did not have: what is empty there is not written, or
// filled in.
void drop_empty_meta(int32_t id) {
  std::vector<uint32_t> empty;
  for_each_attribute(id, [&](uint32_t tag, VX_VR, int32_t) {
    uint32_t length = 0;
    VX_Get_Value_Length(id, tag, 1, &length);
    if (tag <= tags::kLastOfMeta && length == 0) empty.push_back(tag);
    return tag <= tags::kLastOfMeta;
  });
  for (const uint32_t tag : empty) VX_Set_Value_To_Empty(id, tag);
}

// Reads one document. kUsage, told: there is nothing to write.
int read_document(DicomFile& file, TextDocuments& documents, const std::string& in, const std::string& out,
                  const TextForm& form) {
  int32_t id = -1;
  std::string problem;
  VX_STATUS status = VX_Create_Empty_File(&id, out.c_str());
  if (status == VX_NORMAL_COMPLETION) {
    file.adopt(id);
    const LogLines log(is_text_function);
    status = form.read(id, documents, problem);
    if (problem.empty() && status != VX_CALLBACK_CANNOT_COMPLY && status != VX_SYSTEM_ERROR) {
      drop_empty_meta(id);
      problem = has_data_set(id) ? settle_syntax(file) : "holds no attribute";
      if (problem.empty() && !sequence_items(id, tags::kDirectoryRecordSequence).empty())
        problem = "holds the records of a directory, which refer to places in another file; see vexal dir";
      if (problem.empty()) return log.passed() == 0 && is_stored(status) ? kSuccess : kFindings;
    }
  }
  report(in, !problem.empty() ? problem : VX_Error_Message(status));
  return kUsage;
}

int from_text(const std::string& in, const std::string& out, const WriteOptions& write,
              const TextForm& form) {
  namespace fs = std::filesystem;
  CurrentFile current(in);
  FileSource source;
  std::string problem = source.open(in);
  TextDocuments documents(source, form.documents);
  std::error_code error;
  if (problem.empty() && fs::equivalent(in, out, error))
    problem = "is what the object is made of: not replaced";
  bool folder = fs::is_directory(out, error);
  std::set<std::string> written;
  int worst = kSuccess;
  for (bool more = problem.empty() && documents.next(problem); more && problem.empty();) {
    DicomFile file;
    const int exit = read_document(file, documents, in, out, form);
    if (exit == kUsage) return kUsage;
    worst = std::max(worst, exit);
    more = documents.next(problem);
    if (!problem.empty()) break;
    if (more && !folder) folder = fs::create_directory(out, error);
    if (more && !folder) {
      problem = "holds more than one object: " + out + " has to be a folder";
      break;
    }
    const std::string path = path_of(file, out, folder, written.size() + 1);
    if (!written.insert(path).second) {
      problem = "holds two objects of one UID: " + path;
      break;
    }
    // An object without a class, such as a query, has nothing to say in the meta group.
    const MutedWarnings muted(true);
    const Written done = write_file(file, path, write);
    if (!done.problem.empty()) problem = path + ": " + done.problem;
    if (done.corrected) worst = std::max<int>(worst, kFindings);
  }
  if (problem.empty()) return worst;
  report(in, problem);
  return kUsage;
}

}  // namespace

bool TextSink::put(std::string_view bytes) const {
  if (stream != nullptr) return std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
  text->append(bytes);
  return true;
}

VX_STATUS TextSink::take(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& sink = *static_cast<TextSink*>(user);
  std::string_view bytes(static_cast<const char*>(data), size);
  if (bytes.empty()) return VX_NORMAL_COMPLETION;
  bool good = !sink.blank || sink.put(" ");
  sink.blank = bytes.back() == ' ';
  if (sink.blank) bytes.remove_suffix(1);
  good = good && sink.put(bytes);
  return good ? VX_NORMAL_COMPLETION : VX_CANNOT_COMPLY;
}

int run_text_form(const Args& args, const char* name, const TextForm& form) {
  // Without ICU, texts of other sets than UTF-8 and ISO_IR 100 come out by the values of their bytes.
  VX_Enable_Unicode_Conversion(1);
  WriteOptions write;
  long threads = default_threads();
  if (!write.read(args) || !args.number("--threads", 1, 256, threads)) return kUsage;
  if (args.has("--back")) {
    if (args.paths.size() == 2) return from_text(args.paths[0], args.paths[1], write, form);
    complain("%s --back needs a file to read and one to write; --help tells more", name);
    return kUsage;
  }
  if (args.paths.empty()) {
    complain("%s needs at least one file; --help tells more", name);
    return kUsage;
  }
  bool failed = false;
  const std::vector<std::string> files = expand_paths(args.paths, failed);
  const bool only = files.size() == 1;
  const int worst = for_each_file(files, static_cast<unsigned>(threads),
                                  [&](const std::string& path) { return to_text(path, form, only); });
  return failed ? static_cast<int>(kUsage) : worst;
}

}  // namespace vexal
