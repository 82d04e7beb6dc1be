// What the subcommands of the text forms share.
#pragma once

#include <functional>
#include <string>

#include "files.h"
#include "write_options.h"

namespace vexal {

// The callback of the writers, to a std::string, and that of the readers, from a FileSource.
VX_STATUS append_text(int32_t id, void* user, uint32_t size, void* data, int32_t first, int32_t last);
VX_STATUS give_text(int32_t id, void* user, uint32_t* size, void** data, int32_t first, int32_t* last);

// Reads the text file `in` with `read` into an object and writes that as the DICOM file `out`, in explicit VR
// little endian unless the text or an option says otherwise. The exit status.
int file_from_text(const std::string& in, const std::string& out, const WriteOptions& write,
                   const std::function<VX_STATUS(int32_t, FileSource&)>& read);

}  // namespace vexal
