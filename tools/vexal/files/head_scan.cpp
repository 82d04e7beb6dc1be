#include "head_scan.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "base/byte_stream.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "files.h"

namespace vexal {
namespace {

constexpr std::size_t kLongestKept = 16 * 1024;  // a longer value is no name, date or identifier
constexpr std::size_t kDeepest = 128;
constexpr uint64_t kMostHead = 256U << 20;  // inflated, before what is wanted has come
constexpr std::size_t kPiece = 64 * 1024;

// VRs whose length has four bytes behind two that are reserved (PS3.5 section 7.1.2).
bool is_long(const char* vr) {
  constexpr const char* kLong[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ",
                                   "SV", "UC", "UN", "UR", "UT", "UV"};
  return std::any_of(std::begin(kLong), std::end(kLong),
                     [&](const char* one) { return std::memcmp(one, vr, 2) == 0; });
}

}  // namespace

void HeadScan::start(VX_TRANSFER_SYNTAX syntax, std::span<const uint32_t> wanted, uint64_t most_inflated) {
  wanted_ = wanted;
  state_ = State::Reading;
  implicit_ = syntax == IMPLICIT_LITTLE_ENDIAN || syntax == IMPLICIT_BIG_ENDIAN;
  big_ = syntax == EXPLICIT_BIG_ENDIAN || syntax == IMPLICIT_BIG_ENDIAN;
  syntax_ = implicit_ || big_ ? syntax : EXPLICIT_LITTLE_ENDIAN;
  first_tag_ = 0;
  have_ = 0;
  left_ = 0;
  keeping_ = false;
  levels_.clear();
  bytes_.clear();
  kept_.clear();
  inflated_ = 0;
  most_inflated_ = most_inflated;
  inflater_.reset();
  if (!is_deflated(syntax)) return;
  auto stream = std::make_unique<z_stream>();
  if (inflateInit2(stream.get(), -MAX_WBITS) != Z_OK) {
    state_ = State::Damaged;
    return;
  }
  inflater_.reset(stream.release());
}

uint32_t HeadScan::number(const char* bytes, std::size_t width) const {
  uint32_t value = 0;
  for (std::size_t i = 0; i < width; ++i)
    value = value << 8 | static_cast<unsigned char>(bytes[big_ ? i : width - 1 - i]);
  return value;
}

HeadScan::State HeadScan::take(const void* data, std::size_t size) {
  const char* bytes = static_cast<const char*>(data);
  if (inflater_ != nullptr) {
    take_deflated(bytes, size);
  } else if (state_ == State::Reading) {
    take_plain(bytes, size);
  }
  return state_;
}

void HeadScan::end() {
  if (state_ != State::Reading) return;
  const bool cut = have_ != 0 || left_ != 0 || !levels_.empty() || inflater_ != nullptr;
  state_ = cut ? State::Damaged : State::Complete;
}

void HeadScan::take_deflated(const char* data, std::size_t size) {
  char piece[kPiece];
  inflater_->next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
  inflater_->avail_in = static_cast<uInt>(size);
  // Once all is there, only its size counts.
  while (goes_on()) {
    inflater_->next_out = reinterpret_cast<Bytef*>(piece);
    inflater_->avail_out = sizeof piece;
    const int result = inflate(inflater_.get(), Z_NO_FLUSH);
    const std::size_t got = sizeof piece - inflater_->avail_out;
    inflated_ += got;
    if (inflated_ > (most_inflated_ != 0 ? most_inflated_ : kMostHead)) {
      state_ = State::TooLarge;
      return;
    }
    if (state_ == State::Reading) take_plain(piece, got);
    if (result == Z_STREAM_END) {
      most_inflated_ = 0;
      if (state_ == State::Reading) state_ = State::Complete;
    } else if (result != Z_OK && result != Z_BUF_ERROR) {
      state_ = State::Damaged;
    }
    if (inflater_->avail_out != 0) return;
  }
}

void HeadScan::take_plain(const char* data, std::size_t size) {
  while (size > 0 && state_ == State::Reading) {
    if (left_ != 0) {
      const auto part = static_cast<std::size_t>(std::min<uint64_t>(left_, size));
      if (keeping_) bytes_.append(data, part);
      left_ -= part;
      data += part;
      size -= part;
    } else if (!take_header(data, size)) {
      return;
    }
    if (left_ == 0) keeping_ = false;
  }
}

// False: the header goes on in what comes next.
bool HeadScan::take_header(const char*& data, std::size_t& size) {
  const auto fill = [&](std::size_t wanted) {
    const std::size_t part = std::min(wanted - std::min(have_, wanted), size);
    std::memcpy(header_ + have_, data, part);
    have_ += part;
    data += part;
    size -= part;
    return have_ >= wanted;
  };
  if (!fill(8)) return false;
  const uint32_t tag = number(header_, 2) << 16 | number(header_ + 2, 2);
  const bool in_sequence = !levels_.empty() && levels_.back().items;
  const bool bare = in_sequence || implicit() || (tag >> 16) == 0xFFFE;
  const char* vr = header_ + 4;
  if (!bare) {
    if (std::isupper(static_cast<unsigned char>(vr[0])) == 0 ||
        std::isupper(static_cast<unsigned char>(vr[1])) == 0) {
      state_ = State::Damaged;
      return true;
    }
    if (is_long(vr) && !fill(12)) return false;
  }
  const std::size_t header = have_;
  have_ = 0;
  const uint32_t length = bare           ? number(header_ + 4, 4)
                          : header == 12 ? number(header_ + 8, 4)
                                         : number(header_ + 6, 2);
  if (in_sequence) {
    begin_in_sequence(tag, length);
  } else if (tag == tags::kItemDelimitationItem && !levels_.empty()) {
    levels_.pop_back();
  } else {
    begin_element(tag, bare ? nullptr : vr, length, header);
  }
  return true;
}

void HeadScan::begin_in_sequence(uint32_t tag, uint32_t length) {
  if (tag == tags::kSequenceDelimitationItem) {
    levels_.pop_back();
  } else if (tag != tags::kItem) {
    state_ = State::Damaged;
  } else if (length != kUndefinedLength) {
    left_ = length;
  } else if (levels_.size() >= kDeepest) {
    state_ = State::Damaged;
  } else {
    levels_.push_back({false, levels_.back().implicit});
  }
}

void HeadScan::begin_element(uint32_t tag, const char* vr, uint32_t length, std::size_t header) {
  if (first_tag_ == 0) first_tag_ = tag;
  if (levels_.empty() && (wanted_.empty() || tag > wanted_.back())) {
    state_ = State::Complete;
    return;
  }
  if ((tag >> 16) == 0xFFFE || (length == kUndefinedLength && levels_.size() >= kDeepest)) {
    state_ = State::Damaged;
    return;
  }
  if (length == kUndefinedLength) {
    // A value of unknown VR without a length is a sequence in implicit VR (PS3.5 section 6.2.2).
    levels_.push_back({true, implicit() || (vr != nullptr && std::memcmp(vr, "UN", 2) == 0)});
    return;
  }
  left_ = length;
  keeping_ = levels_.empty() && length <= kLongestKept &&
             std::binary_search(wanted_.begin(), wanted_.end(), tag) && !has(tag);
  if (!keeping_) return;
  bytes_.append(header_, header);
  kept_.push_back({tag, bytes_.size(), length});
}

const HeadScan::Kept* HeadScan::find(uint32_t tag) const {
  const auto found =
      std::find_if(kept_.begin(), kept_.end(), [&](const Kept& one) { return one.tag == tag; });
  return found == kept_.end() ? nullptr : &*found;
}

std::string HeadScan::text(uint32_t tag) const {
  const Kept* one = find(tag);
  if (one == nullptr || one->offset > bytes_.size()) return "";
  std::string value = bytes_.substr(one->offset, one->length);
  while (!value.empty() && (value.back() == ' ' || value.back() == '\0')) value.pop_back();
  return value;
}

int32_t HeadScan::make_message() const {
  // A value that was cut off is left out.
  std::string bytes = bytes_;
  if (!kept_.empty() && kept_.back().offset + kept_.back().length > bytes.size()) return -1;
  int32_t id = -1;
  if (VX_Open_Empty_Message(&id) != VX_NORMAL_COMPLETION) return -1;
  if (bytes.empty()) return id;
  uint32_t failed = 0;
  if (VX_Stream_To_Message(id, tags::kFirstOfDataSet, tags::kLast, syntax_, &failed, &bytes,
                           guarded<give_string>) != VX_NORMAL_COMPLETION) {
    VX_Free_Message(&id);
    id = -1;
  }
  return id;
}

namespace {

// Where the data set of a file starts, by the group length of its meta group, and its syntax. An error text,
// empty on success.
std::string find_data_set(const FileSource& source, uint64_t& start, std::string& syntax) {
  char bytes[4096];
  const int64_t got = source.read_at(0, bytes, sizeof bytes);
  const FileHead head = inspect_head(bytes, static_cast<std::size_t>(std::max<int64_t>(got, 0)));
  if (!head.has_preamble || got < 144 || std::memcmp(bytes + 132, "\2\0\0\0UL\4\0", 8) != 0)
    return "has no meta group";
  uint32_t length = 0;
  std::memcpy(&length, bytes + 140, sizeof length);
  start = uint64_t{144} + length;
  syntax = head.syntax_uid;
  if (syntax.empty()) return "names no transfer syntax";
  return start <= source.size() ? "" : "ends within its meta group";
}

}  // namespace

std::string scan_file(const std::string& path, std::span<const uint32_t> wanted, HeadScan& scan,
                      uint64_t most_inflated) {
  FileSource source;
  uint64_t at = 0;
  std::string uid;
  std::string error = source.open(path);
  if (error.empty()) error = find_data_set(source, at, uid);
  if (!error.empty()) return error;
  // One that is not known is most likely an encapsulated one (PS3.5 section A.4).
  VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN;
  VX_Get_Enum_From_Transfer_Syntax(uid.data(), &syntax);
  scan.start(syntax, wanted, most_inflated);
  std::vector<char> block(kPiece);
  while (scan.goes_on() && at < source.size()) {
    const int64_t got = source.read_at(at, block.data(), block.size());
    if (got <= 0) return "can not read";
    at += static_cast<uint64_t>(got);
    scan.take(block.data(), static_cast<std::size_t>(got));
    const uint64_t over = std::min(scan.passing_over(), source.size() - at);
    if (over == 0 || scan.state() != HeadScan::State::Reading) continue;
    scan.pass_over(over);
    at += over;
  }
  if (scan.state() == HeadScan::State::TooLarge) return "is too large inflated";
  return scan.state() == HeadScan::State::Damaged ? "is no data set in its transfer syntax" : "";
}

bool same_data_set(const std::string& one, const std::string& other) {
  FileSource sources[2];
  uint64_t starts[2] = {};
  std::string syntaxes[2];
  const std::string* paths[2] = {&one, &other};
  for (int i = 0; i < 2; ++i) {
    if (!sources[i].open(*paths[i]).empty() || !find_data_set(sources[i], starts[i], syntaxes[i]).empty())
      return false;
  }
  const uint64_t size = sources[0].size() - starts[0];
  if (syntaxes[0] != syntaxes[1] || size != sources[1].size() - starts[1]) return false;
  std::vector<char> blocks[2] = {std::vector<char>(kPiece), std::vector<char>(kPiece)};
  for (uint64_t at = 0; at < size; at += kPiece) {
    const auto part = static_cast<std::size_t>(std::min<uint64_t>(kPiece, size - at));
    for (int i = 0; i < 2; ++i) {
      if (sources[i].read_at(starts[i] + at, blocks[i].data(), part) != static_cast<int64_t>(part))
        return false;
    }
    if (std::memcmp(blocks[0].data(), blocks[1].data(), part) != 0) return false;
  }
  return true;
}

}  // namespace vexal
