// Bulk values of JSON in files beside it, named by BulkDataURI.
#pragma once

#include <string>

#include "files/files.h"
#include "text_documents.h"

namespace vexal {

// Writes the bulk values of the file into files of the folder, named by its UID and their place, and a
// BulkDataURI for each into its JSON text. An error text, empty on success.
std::string move_bulk(const DicomFile& file, const std::string& folder, bool indent, std::string& text);
// Names the bulk values of the object in its JSON text: a BulkDataURI of `head` and the place of each, such
// as "7FE00010" or "00400275.1.00091010"; those of up to `most` bytes stand in the text. An error text, empty
// on success.
std::string refer_to_bulk(const DicomFile& file, const std::string& head, std::size_t most,
                          std::string& text);
// VX_Json_To_Message_With_Options of a text whose bulk values may lie in files of the folder. Nothing outside
// it is opened, by links neither. What can not be had is an error text in `problem`.
VX_STATUS read_with_bulk(int32_t id, TextDocuments& text, int32_t options, const std::string& folder,
                         std::string& problem);

}  // namespace vexal
