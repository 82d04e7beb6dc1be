#include <algorithm>
#include <cstring>
#include <limits>

#include "text/xml_parse.h"

namespace vx {

namespace {

// A field in the row of bytes: its key, the length of its value, the value.
constexpr std::size_t kFieldHead = 1 + sizeof(uint32_t);

}  // namespace

std::string_view XmlNode::text() const {
  return std::string_view(tree_->bytes_).substr(row().begin + row().fields_size, row().text_size);
}

std::string_view XmlNode::field(XmlField key) const {
  std::string_view fields = std::string_view(tree_->bytes_).substr(row().begin, row().fields_size);
  while (!fields.empty()) {
    uint32_t size = 0;
    std::memcpy(&size, fields.data() + 1, sizeof size);
    if (fields[0] == static_cast<char>(key)) return fields.substr(kFieldHead, size);
    fields.remove_prefix(kFieldHead + size);
  }
  return {};
}

XmlNode XmlNode::child(XmlName name) const {
  XmlNode one = child();
  while (!one.none() && one.name() != name) one = one.next();
  return one;
}

bool XmlTree::open(XmlName name) {
  if (open_.size() > kMaxElements || rows_.size() > std::numeric_limits<uint32_t>::max() / 2) return false;
  const auto row = static_cast<uint32_t>(rows_.size());
  Open& parent = open_.back();
  if (parent.last_child != 0) {
    rows_[parent.last_child].next = row;
  } else {
    Row& holder = rows_[parent.row];
    holder.child = row;
    bytes_.resize(bytes_.size() - holder.text_size);
    holder.text_size = 0;
  }
  parent.last_child = row;
  rows_.push_back({bytes_.size(), 0, 0, 0, 0, name});
  open_.push_back({row, 0});
  return true;
}

void XmlTree::field(XmlField key, std::string_view value) {
  value = value.substr(0, std::numeric_limits<uint16_t>::max());
  const auto size = static_cast<uint32_t>(value.size());
  char head[kFieldHead] = {static_cast<char>(key)};
  std::memcpy(head + 1, &size, sizeof size);
  bytes_.append(head, kFieldHead);
  bytes_ += value;
  rows_.back().fields_size += static_cast<uint32_t>(kFieldHead) + size;
}

void XmlTree::text(std::string_view text) {
  if (open_.size() == 1 || open_.back().last_child != 0) return;
  bytes_ += text;
  rows_[open_.back().row].text_size += text.size();
}

void XmlTree::close() {
  if (open_.size() > 1) open_.pop_back();
}

}  // namespace vx
