// What vexal make shares between its parts.
#pragma once

#include <cstdint>
#include <string>

#include "base/args.h"
#include "files/files.h"

namespace vexal {

// Sets an attribute by its path, if it has no value yet. An error text, empty on success.
std::string give(int32_t object, const std::string& path, const std::string& value);

// Begins an object of a class for the patient and study that --from or --worklist name, if any. An error
// text, which names the file, empty on success.
std::string begin_object(const Args& args, const std::string& sop_class, DicomFile& file);

// The other way: what was put into an object, as a file. An exit status.
int extract_document(const std::string& in, const std::string& out);

}  // namespace vexal
