#include "capture_reader.h"

#include "base/tags.h"

namespace vexal {
namespace {

constexpr std::size_t kHeader = 128;
constexpr std::size_t kFixed = 82;
constexpr std::size_t kFrameAt = 28;
constexpr std::size_t kEmptyFrame = 54;

uint32_t little(std::string_view bytes, std::size_t at, int width) {
  uint32_t value = 0;
  for (int i = width - 1; i >= 0; --i)
    value = value << 8 | static_cast<uint8_t>(bytes[at + static_cast<std::size_t>(i)]);
  return value;
}
uint32_t big(std::string_view bytes, std::size_t at, int width) {
  uint32_t value = 0;
  for (int i = 0; i < width; ++i)
    value = value << 8 | static_cast<uint8_t>(bytes[at + static_cast<std::size_t>(i)]);
  return value;
}

std::string endpoint(std::string_view record, std::size_t address, std::size_t port) {
  char text[32];
  std::snprintf(text, sizeof text, "%u.%u.%u.%u:%u", big(record, address, 1), big(record, address + 1, 1),
                big(record, address + 2, 1), big(record, address + 3, 1), big(record, port, 2));
  return text;
}

std::string trimmed(std::string_view text) {
  while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.remove_suffix(1);
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  return std::string(text);
}

// Calls take(type, content) for each item that is whole.
template <typename Take>
void each_item(std::string_view items, Take take) {
  while (items.size() >= 4) {
    const uint32_t length = big(items, 2, 2);
    if (length > items.size() - 4) return;
    take(static_cast<uint8_t>(items[0]), items.substr(4, length));
    items.remove_prefix(4 + length);
  }
}

void read_command(std::string_view command, CaptureEvent& event) {
  while (command.size() >= 8) {
    const uint32_t tag = little(command, 0, 2) << 16 | little(command, 2, 2);
    const uint32_t length = little(command, 4, 4);
    if (length > command.size() - 8) return;
    const std::string_view value = command.substr(8, length);
    const uint16_t number = length >= 2 ? static_cast<uint16_t>(little(value, 0, 2)) : uint16_t{0};
    switch (tag) {
      case tags::kAffectedSOPClassUID:
      case tags::kRequestedSOPClassUID:
        event.sop_class = trimmed(value);
        break;
      case tags::kCommandField:
        event.command = number;
        break;
      case tags::kMessageID:
        event.id = number;
        break;
      case tags::kMessageIDBeingRespondedTo:
        event.answers = number;
        break;
      case tags::kStatus:
        event.status = number;
        break;
      case tags::kAffectedSOPInstanceUID:
      case tags::kRequestedSOPInstanceUID:
        event.sop_instance = trimmed(value);
        break;
      default:
        break;
    }
    command.remove_prefix(8 + length);
  }
}

bool has_data_set(std::string_view command) {
  while (command.size() >= 8) {
    const uint32_t length = little(command, 4, 4);
    if (length > command.size() - 8) return false;
    if (little(command, 0, 4) == 0x08000000 && length >= 2) return little(command, 8, 2) != 0x0101;
    command.remove_prefix(8 + length);
  }
  return false;
}

}  // namespace

bool CaptureReader::open(std::FILE* file) {
  file_ = file;
  char header[kHeader];
  if (std::fread(header, 1, kHeader, file) != kHeader) return false;
  const std::string_view text(header, kHeader);
  start_ = little(text, 12, 4);
  return text.substr(0, 4) == std::string_view("XCP\0", 4);
}

bool CaptureReader::next(CapturePacket& packet) {
  record_.resize(kFixed);
  const std::size_t got = std::fread(record_.data(), 1, kFixed, file_);
  if (got == 0) return false;
  error_ = "the last record is incomplete";
  if (got != kFixed) return false;
  const uint32_t frame = little(record_, 10, 2);
  if (frame < kEmptyFrame || big(record_, 40, 2) != 0x0800 || record_[42] != 0x45) {
    error_ = "a record is damaged";
    return false;
  }
  const std::size_t size = frame - kEmptyFrame;
  record_.resize(kFixed + size);
  if (std::fread(record_.data() + kFixed, 1, size, file_) != size) return false;
  error_.clear();
  const uint64_t time = static_cast<uint64_t>(little(record_, 4, 4)) << 32 | little(record_, 0, 4);
  packet.microseconds = start_ * 1'000'000 + static_cast<int64_t>(time & 0xFF'FFFF'FFFF'FFFF);
  packet.from = endpoint(record_, 54, 62);
  packet.to = endpoint(record_, 58, 64);
  packet.begins = (big(record_, 74, 2) & 0x3F) == 0x02;
  packet.frame = std::string_view(record_).substr(kFrameAt);
  packet.data = std::string_view(record_).substr(kFixed);
  return true;
}

void CaptureDialogues::add(const CapturePacket& packet) {
  Half& half = halves_[{packet.from, packet.to}];
  Half& other = halves_[{packet.to, packet.from}];
  if (packet.begins) half = other = {};
  half.pending += packet.data;
  std::string_view rest = half.pending;
  while (rest.size() >= 6) {
    const uint32_t length = big(rest, 2, 4);
    if (length > rest.size() - 6) break;
    CaptureEvent event;
    event.microseconds = packet.microseconds;
    event.from = packet.from;
    event.to = packet.to;
    event.pdu = static_cast<uint8_t>(rest[0]);
    event.length = length;
    take_pdu(half, other, event, rest.substr(6, length));
    rest.remove_prefix(6 + std::size_t{length});
  }
  half.pending.erase(0, half.pending.size() - rest.size());
}

void CaptureDialogues::take_pdu(Half& half, Half& other, CaptureEvent& event, std::string_view body) {
  if (event.pdu == 4) return take_values(half, other, event, body);
  if ((event.pdu == 1 || event.pdu == 2) && body.size() >= 68) {
    event.called = trimmed(body.substr(4, 16));
    event.calling = trimmed(body.substr(20, 16));
    each_item(body.substr(68), [&](uint8_t type, std::string_view content) {
      if (type != 0x21 || content.size() < 4) return;
      std::string& syntax = half.accepted[static_cast<uint8_t>(content[0])];
      each_item(content.substr(4), [&](uint8_t sub, std::string_view name) {
        if (sub == 0x40) syntax = trimmed(name);
      });
    });
  }
  receive_(event);
}

void CaptureDialogues::take_values(Half& half, Half& other, CaptureEvent& event, std::string_view body) {
  while (body.size() >= 6) {
    const uint32_t length = big(body, 0, 4);
    if (length < 2 || length > body.size() - 4) return;
    const auto context = static_cast<uint8_t>(body[4]);
    const auto control = static_cast<uint8_t>(body[5]);
    const std::string_view value = body.substr(6, length - 2);
    body.remove_prefix(4 + std::size_t{length});
    const bool last = (control & 2) != 0;
    if ((control & 1) != 0) {
      half.command += value;
      half.has_command = last;
    } else {
      if (keep_data_) half.data += value;
      half.data_size += value.size();
    }
    if (!last || !half.has_command || ((control & 1) != 0 && has_data_set(half.command))) continue;
    CaptureEvent message;
    message.microseconds = event.microseconds;
    message.from = event.from;
    message.to = event.to;
    message.pdu = 4;
    message.length = static_cast<uint32_t>(half.data_size);
    read_command(half.command, message);
    for (const Half* side : {&half, &other}) {
      if (const auto found = side->accepted.find(context); found != side->accepted.end())
        message.syntax = found->second;
    }
    message.data = half.data;
    receive_(message);
    half.command.clear();
    half.data.clear();
    half.data_size = 0;
    half.has_command = false;
  }
}

}  // namespace vexal
