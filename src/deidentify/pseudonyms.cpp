#include "deidentify/pseudonyms.h"

#include <algorithm>
#include <charconv>
#include <chrono>

#include "deidentify/profile.h"
#include "deidentify/sha256.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr int kMaxShift = 3652;  // ten years

// The number of big-endian bytes, 16 at most, in decimal digits.
std::string decimal(std::string_view bytes) {
  unsigned __int128 number = 0;
  for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
  std::string digits;
  for (; number != 0 || digits.empty(); number /= 10)
    digits += static_cast<char>('0' + static_cast<int>(number % 10));
  std::reverse(digits.begin(), digits.end());
  return digits;
}

// The kinds of identifiers do not meet: an ID that reads like a UID tells nothing of that.
Digest derive(std::string_view secret, const char* kind, std::string_view identifier) {
  return hmac_sha256(secret, std::string(kind).append(1, '\0').append(identifier));
}

bool number(std::string_view text, int& value) {
  return std::all_of(text.begin(), text.end(), is_digit) &&
         std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc();
}

// What a DT says behind its date (PS3.5 section 6.2): time, fraction, zone.
bool is_time_and_zone(std::string_view text) {
  const auto digits = [&text](std::size_t most) {
    std::size_t count = 0;
    while (count < most && count < text.size() && is_digit(text[count])) ++count;
    text.remove_prefix(count);
    return count;
  };
  digits(6);
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    if (digits(6) == 0) return false;
  }
  if (text.starts_with('+') || text.starts_with('-')) {
    text.remove_prefix(1);
    if (digits(4) != 4) return false;
  }
  return text.empty();
}

}  // namespace

std::string Pseudonyms::uid(std::string_view uid) const {
  if (is_standard_uid(uid)) return std::string(uid);
  const Digest digest = derive(secret_, "uid", uid);
  std::string bytes(digest.begin(), digest.begin() + 16);
  // A UUID of the version for the maker's own purposes (PS3.5 section B.2, RFC 9562).
  bytes[6] = static_cast<char>((bytes[6] & 0x0F) | 0x80);
  bytes[8] = static_cast<char>((bytes[8] & 0x3F) | 0x80);
  return "2.25." + decimal(bytes);
}

std::string Pseudonyms::patient(std::string_view patient) const {
  const Digest digest = derive(secret_, "patient", patient);
  std::string text = "ANON-";
  for (std::size_t i = 0; i < 8; ++i) {
    text += kHexDigits[digest[i] >> 4];
    text += kHexDigits[digest[i] & 15];
  }
  return text;
}

int32_t Pseudonyms::date_shift(std::string_view patient) const {
  const Digest digest = derive(secret_, "dates", patient);
  const uint32_t value = uint32_t{digest[0]} << 16 | uint32_t{digest[1]} << 8 | digest[2];
  return -1 - static_cast<int32_t>(value % kMaxShift);
}

std::string shifted_date(std::string_view date, int32_t days) {
  using namespace std::chrono;
  // Of a year or month alone, its middle moves.
  const std::size_t end = date.find_first_not_of("0123456789");
  const std::size_t digits = std::min<std::size_t>(end == std::string_view::npos ? date.size() : end, 8);
  int y = 0, m = 7, d = 1;
  if (!is_time_and_zone(date.substr(digits))) return "";
  if (digits != 4 && digits != 6 && digits != 8) return "";
  if (!number(date.substr(0, 4), y) || (digits > 4 && !number(date.substr(4, 2), m))) return "";
  if (digits == 6) d = 15;
  if (digits == 8 && !number(date.substr(6, 2), d)) return "";
  const year_month_day day{year(y), month(static_cast<unsigned>(m)),
                           std::chrono::day(static_cast<unsigned>(d))};
  if (!day.ok()) return "";
  const year_month_day moved{sys_days(day) + std::chrono::days(days)};
  if (moved.year() < year(1) || moved.year() > year(9999)) return "";
  const unsigned value = static_cast<unsigned>(static_cast<int>(moved.year())) * 10000 +
                         static_cast<unsigned>(moved.month()) * 100 + static_cast<unsigned>(moved.day());
  std::string text = std::to_string(value);
  text.insert(0, 8 - text.size(), '0');
  return text.substr(0, digits).append(date.substr(digits));
}

}  // namespace vx
