// vexal convert: the same object in another transfer syntax.
#include <algorithm>
#include <filesystem>
#include <map>

#include "base/commands.h"
#include "base/parallel.h"
#include "base/session.h"
#include "files/charset.h"
#include "files/files.h"
#include "images/recode.h"
#include "images/write_options.h"

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
  const Turn turn(in, out);
  FileResult result;
  result.exit = kUsage;
  DicomFile file;
  RecodedPixels pixels;
  VX_STATUS status = file.open(in, {.link_records = true});
  if (status != VX_NORMAL_COMPLETION) {
    report(in, file.problem());
    return result;
  }
  if (target == 0) target = file.syntax();
  std::string problem = file.write_fault(target);
  if (problem.empty() && RecodedPixels::needed(file, target))
    problem = pixels.attach(file, target, threads, RecodedPixels::When::AsWritten);
  if (problem.empty()) status = file.set_syntax(target);
  if (!problem.empty() || status != VX_NORMAL_COMPLETION) {
    report(in, problem.empty() ? VX_Error_Message(status) : problem);
    return result;
  }
  bool write = true;
  const Exit text = charset.apply(file, write);
  const Written written = write ? write_file(file, turn.path(), options, &pixels) : Written();
  if (!written.problem.empty()) {
    report(pixels.problem().empty() ? out : in, written.problem);
    return result;
  }
  result.exit = values_were_lost() || written.corrected ? std::max<int>(text, kFindings) : text;
  if (const std::string finding = pixels.finding(); !finding.empty()) {
    report(in, finding);
    result.exit = std::max(result.exit, static_cast<int>(kFindings));
  }
  return result;
}

namespace fs = std::filesystem;

fs::path full_path(const std::string& path) {
  fs::path full = fs::absolute(path).lexically_normal();
  return full.has_filename() ? full : full.parent_path();  // without a slash at its end
}

// The deepest folder that holds all of the inputs; one input that is a folder itself.
fs::path common_folder(const std::vector<std::string>& inputs) {
  std::error_code ignored;
  fs::path common = full_path(inputs[0]);
  if (inputs.size() == 1 && fs::is_directory(common, ignored)) return common;
  common = common.parent_path();
  for (const std::string& input : inputs) {
    const fs::path parent = full_path(input).parent_path();
    const auto [end, unused] = std::mismatch(common.begin(), common.end(), parent.begin(), parent.end());
    fs::path shared;
    for (auto part = common.begin(); part != end; ++part) shared /= *part;
    common = shared;
  }
  return common;
}

// The inputs keep the folders that they lie in, below the one that they share. False after lines on standard
// error if two of them would become one file.
bool plan(const std::vector<std::string>& inputs, const std::string& out, std::vector<std::string>& files,
          std::vector<std::string>& targets, bool& failed) {
  const fs::path common = common_folder(inputs);
  std::map<std::string, std::string> taken;  // by target
  bool unique = true;
  for (const std::string& path : expand_paths(inputs, failed)) {
    const std::string target = (fs::path(out) / full_path(path).lexically_relative(common)).string();
    const auto [first, added] = taken.emplace(target, path);
    if (!added) report(path, "would be written to " + target + ", and so would " + first->second);
    unique = unique && added;
    files.push_back(path);
    targets.push_back(target);
  }
  return unique;
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
  const std::string out = args.paths.back();
  const std::vector<std::string> inputs(args.paths.begin(), args.paths.end() - 1);
  std::error_code ignored;
  if (inputs.size() == 1 && !fs::is_directory(inputs[0], ignored)) {
    const std::string target_path =
        fs::is_directory(out, ignored) ? (fs::path(out) / fs::path(inputs[0]).filename()).string() : out;
    return convert_file(inputs[0], target_path, target, charset, options, static_cast<unsigned>(threads))
        .exit;
  }
  bool failed = false;
  std::vector<std::string> files;
  std::vector<std::string> targets;
  if (!plan(inputs, out, files, targets, failed)) return kUsage;
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
    "Several files or a folder go into the folder OUT: each as it lies below the folder, or below the\n"
    "deepest folder that holds all of them. The new file replaces an old one only when it is complete.",
    kOptions,
    run};

}  // namespace vexal
