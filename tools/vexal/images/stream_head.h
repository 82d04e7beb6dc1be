// What the code streams of an image say of it, and what that makes of the object's attributes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "frame_source.h"
#include "vexalkit.h"

namespace vexal {

// Nothing where streams of the syntax have no head, or this one's is broken.
std::optional<CodeStreamObj> describe_stream(VX_TRANSFER_SYNTAX syntax, const void* data, std::size_t size);
// Of a frame, of which no more is read than is needed.
std::optional<CodeStreamObj> describe_frame(const FrameSource& source, VX_TRANSFER_SYNTAX syntax,
                                            uint32_t frame);

using AttributeTexts = std::vector<std::pair<uint32_t, std::string>>;
// Where the attributes contradict the stream, the stream is right: it can not be decoded in any other way.
// What is not told there, or could have several meanings, stays as it is. `tile`: the frame is a part of a
// picture whose edges need not fill it. What was corrected, or nothing.
std::string follow_stream(VX_TRANSFER_SYNTAX syntax, const CodeStreamObj& stream, bool tile,
                          AttributeTexts& attributes);
// Why a frame with this stream is none of the image that the first one's belongs to; empty if it is. `edge`:
// it may have another size.
std::string stream_fault(const CodeStreamObj& stream, const CodeStreamObj& first, bool edge);

}  // namespace vexal
