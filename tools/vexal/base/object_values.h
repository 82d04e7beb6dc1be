// Values of objects as numbers, items and bytes, where what is missing or broken just is not there.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vexal {

uint32_t number_of(int32_t id, uint32_t tag, uint32_t otherwise = 0);
// Value `number` (from 1), if it is finite.
std::optional<double> real_of(int32_t id, uint32_t tag, int number = 1);
// Item `number` (from 0) of a sequence, or -1.
int32_t item_of(int32_t id, uint32_t tag, uint32_t number = 0);
std::vector<int32_t> integers_of(int32_t id, uint32_t tag);
std::string bytes_of(int32_t id, uint32_t tag);

}  // namespace vexal
