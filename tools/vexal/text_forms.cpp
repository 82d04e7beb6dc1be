#include "text_forms.h"

#include "parallel.h"
#include "session.h"
#include "write_options.h"

namespace vexal {
namespace {

// What counts as read: values that break a rule of their VR are stored as they are.
bool is_stored(VX_STATUS status) {
  return status == VX_NORMAL_COMPLETION || status == VX_INVALID_VALUE_FOR_VR ||
         status == VX_INVALID_CHARS_IN_VALUE;
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
  status = form.write(file.id(), sink);
  std::string problem = status != VX_NORMAL_COMPLETION ? VX_Error_Message(status) : "";
  if (problem.empty() && form.finish != nullptr) problem = form.finish(file, result.output);
  if (!problem.empty()) {
    result.output.clear();
    report(path, problem);
    return result;
  }
  result.output += form.end;
  result.exit = kSuccess;
  // A loss is something that a caller has to hear of.
  const std::string lost = form.loss != nullptr ? form.loss(file) : "";
  if (lost.empty()) return result;
  report(path, lost);
  result.exit = kFindings;
  return result;
}

int from_text(const std::string& in, const std::string& out, const WriteOptions& write,
              const TextForm& form) {
  CurrentFile current(in);
  FileSource source;
  std::string problem = source.open(in);
  DicomFile file;
  int32_t id = -1;
  int exit = kSuccess;
  if (problem.empty()) {
    VX_STATUS status = VX_Create_Empty_File(&id, out.c_str());
    if (status == VX_NORMAL_COMPLETION) {
      file.adopt(id);
      status = form.read(id, source, problem);
    }
    if (problem.empty() && !is_stored(status)) {
      report(in, VX_Error_Message(status));
      if (status == VX_CALLBACK_CANNOT_COMPLY || status == VX_SYSTEM_ERROR) return kUsage;
      exit = kFindings;  // what could be read is written
    }
  }
  if (!problem.empty()) {
    report(in, problem);
    return kUsage;
  }
  VX_TRANSFER_SYNTAX syntax = 0;
  if (VX_Get_Message_Transfer_Syntax(id, &syntax) != VX_NORMAL_COMPLETION)
    file.set_syntax(EXPLICIT_LITTLE_ENDIAN);
  problem = write_file(file, out, write);
  if (problem.empty()) return exit;
  report(out, problem);
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

VX_STATUS give_text(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  return static_cast<FileSource*>(user)->next(size, data, last);
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
