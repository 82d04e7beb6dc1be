// Objects that come as DICOM files rather than as C-STORE requests.
#include <algorithm>

#include "request.h"
#include "storage.h"

namespace vexal {
namespace {

constexpr std::size_t kMostMeta = 64U << 10;
constexpr std::size_t kBeforeMeta = 144;  // preamble, prefix, and (0002,0000)

// Bytes of preamble and meta group; 0: more of them have to come. False where there is no meta group.
bool find_data_set(std::string_view head, std::size_t& size) {
  size = 0;
  if (head.size() < kBeforeMeta) return true;
  if (head.substr(128, 4) != "DICM" || head.substr(132, 8) != std::string_view("\2\0\0\0UL\4\0", 8))
    return false;
  std::size_t length = 0;
  for (std::size_t i = 4; i-- > 0;) length = length << 8 | static_cast<unsigned char>(head[140 + i]);
  if (length > kMostMeta) return false;
  if (head.size() >= kBeforeMeta + length) size = kBeforeMeta + length;
  return true;
}

}  // namespace

void ObjectWriter::begin_file() {
  of_file_ = {};
  head_.clear();
  error_.clear();
  bytes_ = 0;
  answer_ = kNotUnderstood;
  in_data_set_ = false;
}

// The meta group is there: what it says takes the place of a request.
void ObjectWriter::open_data_set(std::size_t size) {
  const FileHead head = inspect_head(head_.data(), size);
  of_file_.sop_class = head.sop_class_uid;
  of_file_.instance = head.sop_instance_uid;
  std::string syntax = head.syntax_uid;
  static const std::vector<std::string> classes = storage_classes(true);
  if (std::find(classes.begin(), classes.end(), of_file_.sop_class) == classes.end()) {
    error_ = "its SOP class is not stored here: " + of_file_.sop_class;
    answer_ = kNoSuchClass;
  } else if (VX_Get_Enum_From_Transfer_Syntax(syntax.data(), &of_file_.syntax) != VX_NORMAL_COMPLETION) {
    error_ = "its transfer syntax is not known here: " + syntax;
    answer_ = kSyntaxNotSupported;
  } else {
    answer_ = begin(of_file_);
  }
  in_data_set_ = true;
  const std::string rest = head_.substr(size);
  head_.clear();
  if (!rest.empty()) take_file(rest);
}

void ObjectWriter::take_file(std::string_view piece) {
  if (!error_.empty()) return;
  if (in_data_set_) {
    const VX_STATUS status =
        take_bytes(0, this, static_cast<uint32_t>(piece.size()), const_cast<char*>(piece.data()), 0, 0);
    if (status != VX_NORMAL_COMPLETION && error_.empty()) error_ = kOverMostBytes;
    return;
  }
  head_.append(piece);
  std::size_t size = 0;
  if (!find_data_set(head_, size)) error_ = "is no DICOM file with a meta group";
  if (size != 0) open_data_set(size);
}

int32_t ObjectWriter::end_file(StoredObject& stored) {
  if (!in_data_set_ && error_.empty()) error_ = "ends before its data set";
  answer_ = conclude(of_file_, error_ == kOverMostBytes ? kOutOfResources : answer_);
  stored = of_file_;
  return answer_;
}

}  // namespace vexal
