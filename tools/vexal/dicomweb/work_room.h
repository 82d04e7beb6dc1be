// The memory that requests share while frames are worked on.
#pragma once

#include <cstdint>

namespace vexal {

// Takes its part of the room, and waits for it where others have it. What is larger than all of it has it
// alone.
class WorkRoom {
 public:
  // More than this is too much for a server.
  static constexpr uint64_t kMost = uint64_t{512} << 20;

  explicit WorkRoom(uint64_t bytes);
  ~WorkRoom();
  WorkRoom(const WorkRoom&) = delete;
  WorkRoom& operator=(const WorkRoom&) = delete;

 private:
  uint64_t bytes_;
};

}  // namespace vexal
