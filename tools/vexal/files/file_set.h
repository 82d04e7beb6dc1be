// The files of a file-set, as its DICOMDIR names them (PS3.10 section 8).
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vexal {

std::string upper(std::string text);

// Whether a step of the way below the folder is a symbolic link.
bool has_link(const std::filesystem::path& folder, const std::vector<std::string>& parts);

// The file that a File ID names, its components between slashes, whatever the case of their letters: some
// systems show the names of a disc in lower case. Empty if there is none. Never outside the folder: no step
// up, no link.
std::filesystem::path find_file(const std::filesystem::path& folder, const std::string& file_id);

}  // namespace vexal
