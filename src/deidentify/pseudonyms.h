// What stands in the place of identifiers: derived from them with a secret, so that it is the same wherever
// and whenever the same identifier is met, and leads back to none.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vx {

class Pseudonyms {
 public:
  explicit Pseudonyms(std::string_view secret) : secret_(secret) {}
  // A UID below 2.25; those that the standard itself gives stay.
  std::string uid(std::string_view uid) const;
  // Of a patient, by its ID.
  std::string patient(std::string_view patient) const;
  // Days by which the dates of a patient move, from -3652 to -1.
  int32_t date_shift(std::string_view patient) const;

 private:
  std::string_view secret_;
};

// A DA or DT moved by whole days; what it says of the time and the zone stays, and so does its precision.
// Empty if it is no date.
std::string shifted_date(std::string_view date, int32_t days);

}  // namespace vx
