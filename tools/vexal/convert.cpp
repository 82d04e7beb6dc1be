// vexal convert: the same object in another transfer syntax.
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "commands.h"
#include "files.h"
#include "parallel.h"
#include "session.h"
#include "write_options.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--to", "SYNTAX", "the target: a UID, or a name such as implicit, explicit, big-endian, deflated"},
    VEXAL_WRITE_OPTIONS,
    {"--threads", "N", "files converted at once (default: the processors)"},
};

struct ShortName {
  const char* name;
  VX_TRANSFER_SYNTAX syntax;
};
constexpr ShortName kShortNames[] = {
    {"implicit", IMPLICIT_LITTLE_ENDIAN},          {"explicit", EXPLICIT_LITTLE_ENDIAN},
    {"little-endian", EXPLICIT_LITTLE_ENDIAN},     {"big-endian", EXPLICIT_BIG_ENDIAN},
    {"deflated", DEFLATED_EXPLICIT_LITTLE_ENDIAN},
};

struct EnumName {
  const char* name;
  VX_TRANSFER_SYNTAX syntax;
};
constexpr EnumName kEnumNames[] = {
    {"IMPLICIT_LITTLE_ENDIAN", IMPLICIT_LITTLE_ENDIAN},
    {"EXPLICIT_LITTLE_ENDIAN", EXPLICIT_LITTLE_ENDIAN},
    {"EXPLICIT_BIG_ENDIAN", EXPLICIT_BIG_ENDIAN},
    {"DEFLATED_EXPLICIT_LITTLE_ENDIAN", DEFLATED_EXPLICIT_LITTLE_ENDIAN},
};

bool is_uncompressed(VX_TRANSFER_SYNTAX syntax) {
  return syntax >= IMPLICIT_LITTLE_ENDIAN && syntax <= DEFLATED_EXPLICIT_LITTLE_ENDIAN;
}

bool find_syntax(std::string text, VX_TRANSFER_SYNTAX& syntax) {
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  for (const ShortName& row : kShortNames) {
    if (lower == row.name) {
      syntax = row.syntax;
      return true;
    }
  }
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::toupper(c); });
  for (const EnumName& row : kEnumNames) {
    if (lower == row.name) {
      syntax = row.syntax;
      return true;
    }
  }
  return !text.empty() && VX_Get_Enum_From_Transfer_Syntax(text.data(), &syntax) == VX_NORMAL_COMPLETION;
}

bool has_compressed_pixels(const DicomFile& file) {
  return !is_uncompressed(file.syntax()) && file.syntax() != 0 &&
         VX_Get_Attribute_Info(file.id(), 0x7FE00010, nullptr, nullptr) == VX_NORMAL_COMPLETION;
}

FileResult convert_file(const std::string& in, const std::string& out, VX_TRANSFER_SYNTAX target,
                        const WriteOptions& options) {
  CurrentFile current(in);
  FileResult result;
  result.exit = kUsage;
  DicomFile file;
  VX_STATUS status = file.open(in, {});
  if (status != VX_NORMAL_COMPLETION) {
    report(in, file.problem());
    return result;
  }
  if (has_compressed_pixels(file) && file.syntax() != target) {
    report(in,
           "its pixel data is compressed, and this program can only change uncompressed transfer syntaxes");
    return result;
  }
  status = file.set_syntax(target);
  if (status != VX_NORMAL_COMPLETION) {
    report(in, VX_Error_Message(status));
    return result;
  }
  const std::string error = write_file(file, out, options);
  if (!error.empty()) {
    report(out, error);
    return result;
  }
  result.exit = kSuccess;
  return result;
}

int run(const Args& args) {
  VX_TRANSFER_SYNTAX target = 0;
  if (!args.has("--to") || !find_syntax(args.get("--to"), target)) {
    complain("--to %s: give a transfer syntax UID, or implicit, explicit, big-endian or deflated",
             args.get("--to").c_str());
    return kUsage;
  }
  WriteOptions options;
  long threads = default_threads();
  if (!options.read(args) || !args.number("--threads", 1, 256, threads)) return kUsage;
  if (args.paths.size() < 2) {
    complain("convert needs a file to read and one to write; --help tells more");
    return kUsage;
  }
  namespace fs = std::filesystem;
  const std::string out = args.paths.back();
  const std::vector<std::string> inputs(args.paths.begin(), args.paths.end() - 1);
  std::error_code ignored;
  if (inputs.size() == 1 && !fs::is_directory(inputs[0], ignored)) {
    const std::string target_path =
        fs::is_directory(out, ignored) ? (fs::path(out) / fs::path(inputs[0]).filename()).string() : out;
    return convert_file(inputs[0], target_path, target, options).exit;
  }
  // Folders keep their shape below the target folder.
  bool failed = false;
  std::vector<std::string> files;
  std::vector<std::string> targets;
  for (const std::string& input : inputs) {
    const bool folder = fs::is_directory(input, ignored);
    for (const std::string& path : expand_paths({input}, failed)) {
      const fs::path below = folder ? fs::path(path).lexically_relative(input) : fs::path(path).filename();
      files.push_back(path);
      targets.push_back((fs::path(out) / below).string());
    }
  }
  const int worst = for_each_file(files, static_cast<unsigned>(threads), [&](const std::string& path) {
    const auto at = static_cast<std::size_t>(&path - files.data());
    std::error_code error;
    fs::create_directories(fs::path(targets[at]).parent_path(), error);
    return convert_file(path, targets[at], target, options);
  });
  return failed ? static_cast<int>(kUsage) : worst;
}

}  // namespace

const Command kConvert = {
    "convert",
    "--to SYNTAX [OPTION...] IN OUT",
    "write files in another transfer syntax",
    "Any uncompressed syntax becomes any other, or deflated. Several files or a folder go into\n"
    "the folder OUT. The new file replaces an old one only when it is complete.",
    kOptions,
    run};

}  // namespace vexal
