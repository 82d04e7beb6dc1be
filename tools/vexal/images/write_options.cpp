#include "write_options.h"

#include "base/session.h"
#include "base/tags.h"
#include "recode.h"

namespace vexal {
namespace {

// The meta group tells who wrote the file; that is this program now (PS3.10 section 7.1).
void renew_meta(int32_t id) {
  for (const uint32_t tag : {tags::kImplementationClassUID, tags::kImplementationVersionName})
    VX_Set_Value_To_Empty(id, tag);
}

}  // namespace

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

std::string write_file(DicomFile& file, const std::string& path, const WriteOptions& options,
                       RecodedPixels* pixels) {
  FileSink sink;
  std::string error = sink.open(path);
  if (!error.empty()) return error;
  renew_meta(file.id());
  file.prepare_fragments();
  RecodedPixels none;
  error = (pixels != nullptr ? *pixels : none).write(file, sink, options.pad);
  return error.empty() ? sink.commit() : error;
}

}  // namespace vexal
