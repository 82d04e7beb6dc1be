// Documents and models that are put into an object as they are.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "input.h"

namespace vexal {

// What a file is by its first bytes and its size; Unknown if it is none of these.
InputKind document_kind(std::string_view head, uint64_t size);
// What is told of a file of no kind whose name says that it is a model.
std::string model_fault(const Input& input);

// Checks a document to its end and adds what it says of itself as attributes: paths with values. An error
// text, empty on success.
std::string read_document(const Input& input, std::vector<std::pair<std::string, std::string>>& attributes);

}  // namespace vexal
