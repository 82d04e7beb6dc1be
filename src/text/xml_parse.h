// XML documents taken apart, before any of it reaches an object.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "text/xml.h"

namespace vx {

// The elements and the fields that count; namespaces do not.
enum class XmlName : uint8_t {
  Other,
  NativeDicomModel,
  Attribute,  // of both forms
  Item,
  Value,
  InlineBinary,
  BulkData,
  PersonName,
  Alphabetic,
  Ideographic,
  Phonetic,
  FamilyName,
  GivenName,
  MiddleName,
  NamePrefix,
  NameSuffix
};
enum class XmlField : uint8_t { Tag, Vr, Creator, Number, Encoding };

// Elements inside elements: two for each level of sequences, and what stands around and inside them.
inline constexpr std::size_t kMaxElements = 2U * 128U + 6U;

// The elements of a document in one row, their texts in another. An element with children has no text.
class XmlTree {
  struct Row {
    std::size_t begin;  // of the fields in bytes_, behind which the text lies
    std::size_t text_size;
    uint32_t fields_size;
    uint32_t child;
    uint32_t next;
    XmlName name;
  };

 public:
  class Node {
   public:
    XmlName name() const { return row().name; }
    std::string_view text() const;
    // Empty if the element has no such field.
    std::string_view field(XmlField key) const;
    // The first child and the next sibling; none() behind the last.
    Node child() const { return {*tree_, row().child}; }
    Node child(XmlName name) const;
    Node next() const { return {*tree_, row().next}; }
    bool none() const { return index_ == 0; }

   private:
    friend class XmlTree;
    Node(const XmlTree& tree, uint32_t index) : tree_(&tree), index_(index) {}
    const Row& row() const { return tree_->rows_[index_]; }
    const XmlTree* tree_;
    uint32_t index_;
  };

  // What holds the root elements of the document.
  Node document() const { return {*this, 0}; }

  // Building it in the order of the text. False if there are too many levels or elements.
  bool open(XmlName name);
  void field(XmlField key, std::string_view value);  // of the element that was just opened
  void text(std::string_view text);
  void close();
  XmlName current() const { return rows_[open_.back().row].name; }
  std::size_t depth() const { return open_.size() - 1; }

 private:
  struct Open {
    uint32_t row;
    uint32_t last_child;
  };
  std::vector<Row> rows_{Row{}};
  std::string bytes_;
  std::vector<Open> open_{Open{}};
};
using XmlNode = XmlTree::Node;

// Both give the status of a callback that fails, or VX_SYSTEM_ERROR for anything that is no such document.
// A document that libxml2 reads, and the name of its root.
VX_STATUS parse_native(MsgObj& object, void* user, VX_TEXT_INPUT callback, XmlTree& tree, std::string& root);
// The Attribute elements of the toolkit's own form, whose control characters no XML parser takes. Their texts
// are as they stand.
VX_STATUS parse_own(MsgObj& object, void* user, VX_TEXT_INPUT callback, XmlTree& tree);

}  // namespace vx
