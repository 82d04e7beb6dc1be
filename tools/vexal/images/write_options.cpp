#include "write_options.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "base/attributes.h"
#include "base/names.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "recode.h"

namespace vexal {
namespace {

// The meta group tells who wrote the file, which is this program now, and which object is in it (PS3.10
// section 7.1): the library fills in what is empty. True if it named another object, which a line tells; an
// identifier names none.
bool renew_meta(int32_t id, const std::string& path, const std::vector<uint32_t>& given) {
  const auto renews = [&](uint32_t tag) { return std::find(given.begin(), given.end(), tag) == given.end(); };
  for (const uint32_t tag : {tags::kImplementationClassUID, tags::kImplementationVersionName}) {
    if (renews(tag)) VX_Set_Value_To_Empty(id, tag);
  }
  if (has_attribute(id, tags::kDirectoryRecordSequence) || text_of(id, tags::kSOPClassUID).empty() ||
      text_of(id, tags::kSOPInstanceUID).empty())
    return false;
  bool corrected = false;
  for (const auto& pair : tags::kNamesInMeta) {
    const std::string meta = text_of(id, pair.meta);
    const std::string own = text_of(id, pair.own);
    if (meta.empty() || meta == own || !renews(pair.meta)) continue;
    report(path, describe_tag(pair.meta) + " was " + meta + ", but the object has " + own + ": corrected");
    VX_Set_Value_To_Empty(id, pair.meta);
    corrected = true;
  }
  return corrected;
}

}  // namespace

Turn::Turn(const std::string& in, const std::string& out) : path_(out) {
  std::error_code error;
  if (!std::filesystem::equivalent(in, out, error) || !std::filesystem::is_regular_file(in, error)) return;
  if (in == out && std::filesystem::is_symlink(out, error))
    path_ = std::filesystem::canonical(out, error).string();
  struct stat held {};
  struct stat there {};
  do {  // until the file that was waited for is not one that went meanwhile
    if (fd_ >= 0) ::close(fd_);
    fd_ = ::open(in.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) return;
    while (::flock(fd_, LOCK_EX) != 0) {
      if (errno != EINTR) return;
    }
  } while (::fstat(fd_, &held) == 0 && ::stat(in.c_str(), &there) == 0 &&
           (held.st_ino != there.st_ino || held.st_dev != there.st_dev));
}
Turn::~Turn() {
  if (fd_ >= 0) ::close(fd_);
}

bool WriteOptions::read(const Args& args) {
  long pad_value = 0;
  long level = -1;
  if (!args.number("--pad", 0, 1 << 20, pad_value) || !args.number("--level", 0, 9, level)) return false;
  if (pad_value % 2 != 0) {
    complain("--pad %ld: the number must be even", pad_value);
    return false;
  }
  const std::string lengths = args.get("--group-lengths", "off");
  if (lengths != "on" && lengths != "off") {
    complain("--group-lengths %s: give on or off", lengths.c_str());
    return false;
  }
  pad = static_cast<int32_t>(pad_value);
  VX_Set_Bool_Config_Value(VX_CFG_EXPORT_GROUP_LENGTHS_TO_MEDIA, lengths == "on" ? 1 : 0);
  VX_Set_Bool_Config_Value(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ, args.has("--undefined-lengths") ? 1 : 0);
  VX_Set_Bool_Config_Value(VX_CFG_EXPLICIT_VR_TO_UN_FOR_LENGTH_GT_64K, 1);
  VX_Set_Int_Config_Value(VX_CFG_DEFLATE_COMPRESSION_LEVEL, static_cast<int32_t>(level));
  int32_t buffer = 0;
  VX_Get_Int_Config_Value(VX_CFG_WORK_BUFFER_SIZE, &buffer);
  if (pad > buffer) VX_Set_Int_Config_Value(VX_CFG_WORK_BUFFER_SIZE, pad);
  return true;
}

Written write_file(DicomFile& file, const std::string& path, const WriteOptions& options,
                   RecodedPixels* pixels) {
  FileSink sink;
  Written written;
  written.problem = sink.open(path);
  if (!written.problem.empty()) return written;
  written.corrected = renew_meta(file.id(), path, options.given);
  file.prepare_fragments();
  RecodedPixels none;
  written.problem = (pixels != nullptr ? *pixels : none).write(file, sink, options.pad);
  if (written.problem.empty()) written.problem = sink.commit();
  return written;
}

}  // namespace vexal
