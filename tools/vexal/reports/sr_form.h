// The form of a report in JSON, as docs/sr.schema.json states it: what a member may hold, and which members a
// node may have.
#pragma once

#include <jansson.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "vexalkit.h"

namespace vexal {

// --- What an attribute takes from a member, and gives back the same ---

// A text that keeps the rules of the attribute's VR; not empty.
bool sr_fits(uint32_t tag, const std::string& text);
// Each part between backslashes is empty or fits.
bool sr_all_fit(uint32_t tag, const std::string& texts);
// Code Value, Long Code Value or URN Code Value (PS3.3 table 8.8-1).
uint32_t sr_code_tag(const std::string& code);
bool sr_needs_scheme(const std::string& code);
// A number that single precision holds: neither infinite nor lost in 0.
bool sr_float(const std::string& text, float& value);
bool sr_unsigned(const std::string& text, uint64_t most, uint64_t& value);
// What is wrong with the numbers or times that a type of node has in "data", empty if nothing is.
std::string sr_data_fault(int32_t type, const std::vector<std::string>& data);
// Told in "attributes": text of which a backslash parts values, apart from what the root's node tells.
bool sr_is_head_text(uint32_t tag, std::string_view vr);

// --- Members ---

// Text as it stands, a number in its shortest form.
std::string sr_scalar(const json_t* value);
// The text of a member, "" if it has none.
std::string sr_member(const json_t* object, const char* name);
std::vector<std::string> sr_data(const json_t* node);
// True if "more" brings this attribute.
bool sr_more_has(const json_t* node, uint32_t tag);
// The content of the node stands in "more" as it is; its members repeat it.
bool sr_is_bare(const json_t* node);
bool sr_is_reference(const json_t* node);

// The members of a document, of a node and of its "more": the first that does not fit, empty if all do.
std::string sr_check_document(const json_t* document);
std::string sr_check_node(const json_t* node, bool root);

}  // namespace vexal
