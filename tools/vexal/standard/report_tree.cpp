#include "report_tree.h"

#include <charconv>

#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "report_templates.h"

namespace vexal {
namespace {

struct CodeText {
  std::string value, scheme;
};

CodeText code_text(int32_t item) {
  CodeText code{text_of(item, tags::kCodeValue), text_of(item, tags::kCodingSchemeDesignator)};
  if (code.value.empty()) code.value = text_of(item, tags::kLongCodeValue);
  if (code.value.empty()) code.value = text_of(item, tags::kURNCodeValue);
  return code;
}

ContentCode read_code(int32_t object, uint32_t sequence) {
  const std::vector<int32_t> items = sequence_items(object, sequence);
  if (items.empty()) return {};
  const CodeText text = code_text(items.front());
  if (text.value.empty()) return {};
  const int number = ReportTemplates::get().code(text.scheme, text.value);
  return {number, true, number < 0 && is_retired_scheme(text.scheme)};
}

int template_of(int32_t object) {
  const std::vector<int32_t> items = sequence_items(object, tags::kContentTemplateSequence);
  if (items.empty() || text_of(items.front(), tags::kMappingResource) != "DCMR") return 0;
  const std::string text = text_of(items.front(), tags::kTemplateIdentifier);
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

ContentNode read_node(int32_t id, std::size_t parent) {
  ContentNode node;
  node.id = id;
  node.parent = parent;
  node.relationship = report_relationship(text_of(id, tags::kRelationshipType));
  const std::string type = text_of(id, tags::kValueType);
  node.type = report_value_type(type);
  node.reference = type.empty();
  node.concept_name = read_code(id, tags::kConceptNameCodeSequence);
  if (type == "CONTAINER") node.template_id = template_of(id);
  if (type == "CODE") node.value = read_code(id, tags::kConceptCodeSequence);
  if (type == "NUM") {
    const std::vector<int32_t> items = sequence_items(id, tags::kMeasuredValueSequence);
    if (!items.empty()) node.value = read_code(items.front(), tags::kMeasurementUnitsCodeSequence);
  }
  return node;
}

// A reference is of the type and concept of the item that it leads to. One that leads nowhere stays of no
// type.
void resolve(std::vector<ContentNode>& nodes, ContentNode& reference) {
  std::size_t at = 0;
  int32_t number = 0;
  VX_STATUS status = VX_Get_Value_To_Int(reference.id, tags::kReferencedContentItemIdentifier, &number);
  for (bool root = true; status == VX_NORMAL_COMPLETION; root = false) {
    if (number < 1 || (root && number != 1)) return;
    if (!root && static_cast<std::size_t>(number) > nodes[at].count) return;
    if (!root) at = nodes[at].first + static_cast<std::size_t>(number) - 1;
    status = VX_Get_Next_Value_To_Int(reference.id, tags::kReferencedContentItemIdentifier, &number);
  }
  if (status != VX_NO_MORE_VALUES || nodes[at].reference) return;
  reference.type = nodes[at].type;
  reference.concept_name = nodes[at].concept_name;
}

}  // namespace

std::vector<ContentNode> read_report(int32_t root) {
  std::vector<ContentNode> nodes{read_node(root, 0)};
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    const std::vector<int32_t> items = sequence_items(nodes[i].id, tags::kContentSequence);
    nodes[i].first = nodes.size();
    nodes[i].count = items.size();
    for (const int32_t item : items) nodes.push_back(read_node(item, i));
  }
  for (ContentNode& node : nodes) {
    if (node.reference) resolve(nodes, node);
  }
  return nodes;
}

std::string content_place(const std::vector<ContentNode>& nodes, std::size_t node) {
  std::string place;
  for (; node != 0; node = nodes[node].parent)
    place = "." + std::to_string(node - nodes[nodes[node].parent].first + 1) + place;
  return "1" + place;
}

std::string content_code_text(int32_t item, uint32_t sequence) {
  const std::vector<int32_t> items = sequence_items(item, sequence);
  if (items.empty()) return {};
  const CodeText code = code_text(items.front());
  return text_of(items.front(), tags::kCodeMeaning) + " (" + code.value + ", " + code.scheme + ")";
}

}  // namespace vexal
