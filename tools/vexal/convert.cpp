// vexal convert: the same object in another transfer syntax.
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "charset.h"
#include "commands.h"
#include "files.h"
#include "parallel.h"
#include "session.h"
#include "uid.h"
#include "write_options.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--to", "SYNTAX",
     "the target: a UID, or implicit, explicit, big-endian, deflated, rle, jpeg, jpeg-12, jpeg-lossless, "
     "jpeg-ls, "
     "jpeg-ls-near, jpeg2000, jpeg2000-lossy"},
    VEXAL_CHARSET_OPTIONS,
    VEXAL_WRITE_OPTIONS,
    {"--threads", "N", "files converted at once (default: the processors)"},
};

struct ShortName {
  const char* name;
  VX_TRANSFER_SYNTAX syntax;
};
constexpr ShortName kShortNames[] = {
    {"implicit", IMPLICIT_LITTLE_ENDIAN},
    {"explicit", EXPLICIT_LITTLE_ENDIAN},
    {"little-endian", EXPLICIT_LITTLE_ENDIAN},
    {"big-endian", EXPLICIT_BIG_ENDIAN},
    {"deflated", DEFLATED_EXPLICIT_LITTLE_ENDIAN},
    {"rle", RLE},
    {"jpeg", JPEG_BASELINE},
    {"jpeg-12", JPEG_EXTENDED_2_4},
    {"jpeg-lossless", JPEG_LOSSLESS_HIER_14},
    {"jpeg-ls", JPEG_LS_LOSSLESS},
    {"jpeg-ls-near", JPEG_LS_LOSSY},
    {"jpeg2000", JPEG_2000_LOSSLESS_ONLY},
    {"jpeg2000-lossy", JPEG_2000},
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

// What stands behind a compressed transfer syntax; both null where nothing does.
struct Codec {
  VX_COMPRESSION_CALLBACK compressor;
  VX_COMPRESSION_CALLBACK decompressor;
  bool lossy;
};
Codec codec_of(VX_TRANSFER_SYNTAX syntax) {
  switch (syntax) {
    case RLE:
      return {VX_RLE_Compressor, VX_RLE_Decompressor, false};
    case JPEG_BASELINE:
    case JPEG_EXTENDED_2_4:
    case JPEG_LS_LOSSY:
    case JPEG_2000:
      return {VX_Standard_Compressor, VX_Standard_Decompressor, true};
    case JPEG_LOSSLESS_NON_HIER_14:
    case JPEG_LOSSLESS_HIER_14:
    case JPEG_LS_LOSSLESS:
    case JPEG_2000_LOSSLESS_ONLY:
      return {VX_Standard_Compressor, VX_Standard_Decompressor, false};
    default:
      return {nullptr, nullptr, false};
  }
}

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

bool has_pixels(const DicomFile& file) {
  return VX_Get_Attribute_Info(file.id(), 0x7FE00010, nullptr, nullptr) == VX_NORMAL_COMPLETION;
}

// Pixels go from one form to another, frame by frame. An error text, empty on success.
std::string recode(DicomFile& file, VX_TRANSFER_SYNTAX target) {
  const Codec from = codec_of(file.syntax());
  const Codec to = codec_of(target);
  if (!is_uncompressed(file.syntax()) && from.decompressor == nullptr)
    return "its pixel data is compressed in a way that this program can not undo";
  if (!is_uncompressed(target) && to.compressor == nullptr)
    return "there is no compressor for this transfer syntax";
  if (from.decompressor != nullptr)
    VX_Register_Compression_Callbacks(file.id(), nullptr, VX_General_Decompressor);
  int32_t copy = -1;
  const VX_STATUS status = VX_Duplicate_Message(file.id(), &copy, target, to.compressor, to.decompressor);
  if (status != VX_NORMAL_COMPLETION) {
    if (copy >= 0) VX_Free_File(&copy);
    return VX_Error_Message(status);
  }
  file.adopt(copy);
  // An image that has lost something is another image (PS3.3 section C.7.6.1.1.5).
  if (to.lossy) {
    const std::string uid = new_uid();
    VX_Set_Value_From_String(file.id(), 0x00080018, uid.c_str());
    VX_Set_Value_From_String(file.id(), 0x00020003, uid.c_str());
  }
  return "";
}

// Without a target, the file keeps its transfer syntax.
FileResult convert_file(const std::string& in, const std::string& out, VX_TRANSFER_SYNTAX target,
                        const CharsetChange& charset, const WriteOptions& options) {
  CurrentFile current(in);
  FileResult result;
  result.exit = kUsage;
  DicomFile file;
  // Pixels that change their form have to be at hand.
  const bool keep_out = target == 0 || is_uncompressed(target);
  VX_STATUS status = file.open(in, {keep_out});
  if (target == 0) target = file.syntax();
  bool recoded = status == VX_NORMAL_COMPLETION && has_pixels(file) && file.syntax() != target &&
                 !(is_uncompressed(file.syntax()) && is_uncompressed(target));
  if (recoded && keep_out) status = file.open(in, {false});
  if (status != VX_NORMAL_COMPLETION) {
    report(in, file.problem());
    return result;
  }
  if (!file.has_meta() && recoded) file.set_syntax(file.syntax());
  const std::string problem = recoded ? recode(file, target) : "";
  if (problem.empty()) status = file.set_syntax(target);
  if (!problem.empty() || status != VX_NORMAL_COMPLETION) {
    report(in, problem.empty() ? VX_Error_Message(status) : problem);
    return result;
  }
  bool write = true;
  const Exit text = charset.apply(file, write);
  const std::string error = write ? write_file(file, out, options) : "";
  if (!error.empty()) {
    report(out, error);
    return result;
  }
  result.exit = text;
  return result;
}

int run(const Args& args) {
  VX_TRANSFER_SYNTAX target = 0;
  CharsetChange charset;
  if (!charset.read(args)) return kUsage;
  if (args.has("--to") ? !find_syntax(args.get("--to"), target) : !charset.wanted()) {
    complain("--to %s: give a transfer syntax UID, or a name that --help lists", args.get("--to").c_str());
    return kUsage;
  }
  VX_Set_Bool_Config_Value(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE, 1);
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
    return convert_file(inputs[0], target_path, target, charset, options).exit;
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
    return convert_file(path, targets[at], target, charset, options);
  });
  return failed ? static_cast<int>(kUsage) : worst;
}

}  // namespace

const Command kConvert = {
    "convert",
    "--to SYNTAX | --charset NAME [OPTION...] IN OUT",
    "write files in another transfer syntax or other character sets",
    "Any uncompressed syntax becomes any other, or deflated; pixel data is compressed and\n"
    "decompressed where the syntaxes ask for it, and a lossy image gets a new SOP Instance UID.\n"
    "With --charset NAME, text is written in other character sets, such as utf-8, ISO_IR 100 or\n"
    "'\\\\ISO 2022 IR 87'; exit status 1 tells that they could not express all of it.\n"
    "Several files or a folder go into the folder OUT. The new file replaces an old one only when\n"
    "it is complete.",
    kOptions,
    run};

}  // namespace vexal
