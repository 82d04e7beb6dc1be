// vexal convert: the same object in another transfer syntax.
#include <algorithm>
#include <filesystem>

#include "charset.h"
#include "commands.h"
#include "files.h"
#include "parallel.h"
#include "recode.h"
#include "session.h"
#include "write_options.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--to", "SYNTAX", "the target: " VEXAL_SYNTAX_NAMES},
    VEXAL_CHARSET_OPTIONS,
    VEXAL_WRITE_OPTIONS,
    {"--threads", "N", "files, or frames of one file, converted at once (default: the processors)"},
};

// Without a target, the file keeps its transfer syntax.
FileResult convert_file(const std::string& in, const std::string& out, VX_TRANSFER_SYNTAX target,
                        const CharsetChange& charset, const WriteOptions& options, unsigned threads) {
  const CurrentFile current(in);
  FileResult result;
  result.exit = kUsage;
  DicomFile file;
  RecodedPixels pixels;
  VX_STATUS status = file.open(in, {});
  if (status != VX_NORMAL_COMPLETION) {
    report(in, file.problem());
    return result;
  }
  if (target == 0) target = file.syntax();
  std::string problem;
  const KeptValue* kept = file.kept(file.id(), 0x7FE00010);
  if (kept != nullptr && kept->length != 0xFFFFFFFFU && !is_uncompressed(file.syntax()))
    problem = "its pixel data is not encapsulated, as its transfer syntax demands";
  else if (RecodedPixels::needed(file, target))
    problem = pixels.attach(file, target, threads, RecodedPixels::When::AsWritten);
  if (problem.empty()) status = file.set_syntax(target);
  if (!problem.empty() || status != VX_NORMAL_COMPLETION) {
    report(in, problem.empty() ? VX_Error_Message(status) : problem);
    return result;
  }
  bool write = true;
  const Exit text = charset.apply(file, write);
  const std::string error = write ? write_file(file, out, options, &pixels) : "";
  if (!error.empty()) {
    report(pixels.problem().empty() ? out : in, error);
    return result;
  }
  result.exit = text;
  if (const std::string finding = pixels.finding(); !finding.empty()) {
    report(in, finding);
    result.exit = std::max(result.exit, static_cast<int>(kFindings));
  }
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
  WriteOptions options;
  long threads = default_threads();
  if (!options.read(args) || !args.number("--threads", 1, 256, threads)) return kUsage;
  if (args.paths.size() < 2) {
    complain("convert needs a file to read and one to write; --help tells more");
    return kUsage;
  }
  prepare_recoding();
  namespace fs = std::filesystem;
  const std::string out = args.paths.back();
  const std::vector<std::string> inputs(args.paths.begin(), args.paths.end() - 1);
  std::error_code ignored;
  if (inputs.size() == 1 && !fs::is_directory(inputs[0], ignored)) {
    const std::string target_path =
        fs::is_directory(out, ignored) ? (fs::path(out) / fs::path(inputs[0]).filename()).string() : out;
    return convert_file(inputs[0], target_path, target, charset, options, static_cast<unsigned>(threads))
        .exit;
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
  // Threads that files leave over go to their frames.
  const auto at_once =
      std::max<std::size_t>(1, std::min<std::size_t>(files.size(), static_cast<unsigned>(threads)));
  const auto each = static_cast<unsigned>(static_cast<std::size_t>(threads) / at_once);
  const int worst = for_each_file(files, static_cast<unsigned>(threads), [&](const std::string& path) {
    const auto at = static_cast<std::size_t>(&path - files.data());
    std::error_code error;
    fs::create_directories(fs::path(targets[at]).parent_path(), error);
    return convert_file(path, targets[at], target, charset, options, each);
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
