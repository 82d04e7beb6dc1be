// One frame in another form.
#pragma once

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "recode.h"

namespace vexal {

inline constexpr std::size_t kItemHeader = 8;
inline constexpr char kNoMemory[] = "there is not enough memory";
inline constexpr uint64_t kMostFrameBits = uint64_t{1} << 34;
inline constexpr char kOtherSize[] = "a frame has another size than the first";

// Converts frames one after the other, each as an object of its own; one for each thread.
class FrameWorker {
 public:
  FrameWorker(const FrameSource& source, const FrameForm& form) : source_(source), form_(form) {
    VX_Open_Empty_Message(&id_);
    VX_Set_Message_Transfer_Syntax(id_, form.decompresses() ? form.from : EXPLICIT_LITTLE_ENDIAN);
    for (const auto& [tag, text] : form.attributes) set_all_text(id_, tag, text);
    set_all_text(id_, tags::kNumberOfFrames, "1");
    VX_Set_Value_To_Empty(id_, tags::kPixelData);
    VX_Set_Value_Representation(id_, tags::kPixelData, form.decompresses() ? VX_VR_OB : form.vr);
    if (form.decompresses()) VX_Register_Compression_Callbacks(id_, nullptr, VX_General_Decompressor);
    if (!form.compresses_alone) return;
    VX_Open_Empty_Message(&compressed_);
    VX_Set_Message_Transfer_Syntax(compressed_, form.to);
    for (const auto& [tag, text] : form.attributes) set_all_text(compressed_, tag, text);
    VX_Set_Value_To_Empty(compressed_, tags::kPixelData);
    VX_Set_Value_Representation(compressed_, tags::kPixelData, VX_VR_OB);
    VX_Register_Compression_Callbacks(compressed_, compressor_of(form.to), nullptr);
  }
  ~FrameWorker() {
    free_result();
    VX_Free_Message(&id_);
    if (compressed_ >= 0) VX_Free_Message(&compressed_);
  }
  FrameWorker(const FrameWorker&) = delete;
  FrameWorker& operator=(const FrameWorker&) = delete;

  // The frame in its new form, as it stands in the value: a compressed one as an item, and with the last what
  // ends the value. An error text, empty on success.
  std::string convert(uint32_t frame, Bytes& out) try {
    out.clear();
    if (form_.inflates && !form_.compresses()) {
      if (std::string problem = take_raw(frame, out); !problem.empty()) return problem;
    } else {
      const bool alone = form_.compresses_alone;
      if (std::string problem = alone ? compress(frame) : make_object(frame); !problem.empty())
        return problem;
      if (form_.to == JPEG_LS_LOSSY && !form_.notes->lost) {
        if (std::string problem = note_loss(frame); !problem.empty()) return problem;
      }
      if (form_.compresses()) {
        append32(out, kItem);
        append32(out, 0);
      }
      if (std::string problem = hand_on(alone ? compressed_ : result_, &out, append); !problem.empty())
        return problem;
    }
    const bool last = frame + 1 == source_.count();
    if (form_.compresses()) {
      if (out.size() % 2 != 0) out.append("", 1);
      const auto length = static_cast<uint32_t>(out.size() - kItemHeader);
      std::memcpy(out.data() + 4, &length, sizeof length);
      if (last) {
        append32(out, kDelimiter);
        append32(out, 0);
      }
    } else if (last && out.size() % 2 != 0 && source_.count() % 2 != 0) {
      out.append("", 1);
    }
    return "";
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  }
  // A frame that is to be raw goes right into its file, where that place is known. An error text, empty on
  // success.
  std::string place(uint32_t frame, FileSink& sink, uint64_t at, uint64_t size) try {
    if (form_.inflates) {
      if (std::string problem = take_raw(frame, in_); !problem.empty()) return problem;
      return in_.size() == size ? sink.patch(at, in_.data(), in_.size()) : kOtherSize;
    }
    Placing placing{sink, at, size, ""};
    std::string problem;
    if (form_.has_half_colour()) {
      // Half the colour of such an image is there, and the copy of the object has all of it.
      problem = make_object(frame);
      if (problem.empty()) problem = hand_on(result_, &placing, Placing::take);
    } else {
      problem = decompress(frame, &placing, Placing::take);
    }
    if (!placing.problem.empty()) return placing.problem;
    return problem.empty() && placing.left != 0 ? kOtherSize : problem;
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  }
  // Hands the bytes of a decompressed frame on. An error text, empty on success.
  std::string decompress(uint32_t frame, void* user, VX_Get_Encapsulated_Callback taker) {
    if (std::string problem = take(frame); !problem.empty()) return problem;
    std::string problem = hand_on(id_, user, taker);
    VX_Set_Value_To_Empty(id_, tags::kPixelData);
    return problem;
  }
  // Adds the bytes of a frame to `user`, which is a Bytes.
  static VX_STATUS append(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
    static_cast<Bytes*>(user)->append(data, size);
    return VX_NORMAL_COMPLETION;
  }
  // The object with the last frame.
  int32_t result() const { return result_; }
  void free_result() {
    if (result_ >= 0) VX_Free_Message(&result_);
    result_ = -1;
  }

 private:
  // The way of a frame's bytes to their place in a file.
  struct Placing {
    FileSink& sink;
    uint64_t at;    // behind the marked block
    uint64_t left;  // of the frame; a decompressor pads it
    std::string problem;

    static VX_STATUS take(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
      auto& placing = *static_cast<Placing*>(user);
      const auto part = static_cast<std::size_t>(std::min<uint64_t>(size, placing.left));
      placing.problem = placing.sink.patch(placing.at, data, part);
      placing.at += part;
      placing.left -= part;
      return placing.problem.empty() ? VX_NORMAL_COMPLETION : VX_CANNOT_COMPLY;
    }
  };

  // Y Y Cb Cr for two pixels into Y Cb Cr for each.
  static void unpack(const Bytes& packed, Bytes& whole) {
    whole.resize(packed.size() / 4 * 6);
    const char* from = packed.data();
    for (char* to = whole.data(); to != whole.data() + whole.size(); from += 4, to += 6) {
      to[0] = from[0];
      to[3] = from[1];
      to[1] = to[4] = from[2];
      to[2] = to[5] = from[3];
    }
  }

  // A raw deflate stream (RFC 1951) that gives so many bytes, and perhaps one of padding.
  static std::string inflate_frame(const Bytes& packed, std::size_t bytes, Bytes& frame) {
    z_stream stream{};
    if (::inflateInit2(&stream, -MAX_WBITS) != Z_OK) return "out of memory";
    frame.resize(bytes + 1);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = reinterpret_cast<Bytef*>(frame.data());
    stream.avail_out = static_cast<uInt>(frame.size());
    const int status = ::inflate(&stream, Z_FINISH);
    ::inflateEnd(&stream);
    if (stream.total_out < bytes) return "its deflated data is broken or too short";
    frame.resize(bytes);
    return status == Z_STREAM_END ? "" : "its deflated data is broken or too long";
  }

  std::string hand_on(int32_t id, void* user, VX_Get_Encapsulated_Callback taker) const {
    const VX_STATUS status = VX_Get_Frame_To_Function(id, 0, user, taker);
    if (frame_was_cut_short()) ++form_.notes->cut_short;
    return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
  }
  // A near-lossless frame may have lost nothing: what comes back tells.
  std::string note_loss(uint32_t frame) {
    int32_t before = -1;
    int32_t after = -1;
    std::string problem = take(frame);
    if (!problem.empty()) return problem;
    const auto plain = [](int32_t id, int32_t& copy) {
      return VX_Duplicate_Message(id, &copy, EXPLICIT_LITTLE_ENDIAN, nullptr, nullptr) ==
             VX_NORMAL_COMPLETION;
    };
    VX_Register_Compression_Callbacks(result_, compressor_of(form_.to), VX_General_Decompressor);
    Bytes old_frame;
    Bytes new_frame;
    if (plain(id_, before) && plain(result_, after)) {
      frame_was_cut_short();  // is noted already
      problem = hand_on(before, &old_frame, append);
      if (problem.empty()) problem = hand_on(after, &new_frame, append);
    }
    VX_Register_Compression_Callbacks(result_, compressor_of(form_.to), nullptr);
    form_.notes->lost = old_frame.empty() || old_frame.size() != new_frame.size() ||
                        std::memcmp(old_frame.data(), new_frame.data(), old_frame.size()) != 0;
    VX_Set_Value_To_Empty(id_, tags::kPixelData);
    if (before >= 0) VX_Free_Message(&before);
    if (after >= 0) VX_Free_Message(&after);
    return problem;
  }
  std::string make_object(uint32_t frame) {
    if (std::string problem = take(frame); !problem.empty()) return problem;
    free_result();
    const VX_STATUS status =
        VX_Duplicate_Message(id_, &result_, form_.compresses() ? form_.to : EXPLICIT_LITTLE_ENDIAN,
                             compressor_of(form_.to), nullptr);
    if (frame_was_cut_short()) ++form_.notes->cut_short;
    VX_Set_Value_To_Empty(id_, tags::kPixelData);
    return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
  }
  // Into the object that takes one compressed frame after the other.
  std::string compress(uint32_t frame) {
    if (std::string problem = take_raw(frame, in_); !problem.empty()) return problem;
    if (in_.size() % 2 != 0) in_.append("", 1);
    const VX_STATUS status =
        VX_Set_Encapsulated_Value_From_Function(compressed_, tags::kPixelData, this, give);
    return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
  }
  static VX_STATUS give(int32_t, uint32_t, int32_t, void* user, uint32_t* size, void** data, int32_t* last) {
    Bytes& frame = static_cast<FrameWorker*>(user)->in_;
    *size = static_cast<uint32_t>(frame.size());
    *data = frame.data();
    *last = 1;
    return VX_NORMAL_COMPLETION;
  }
  std::string take_raw(uint32_t frame, Bytes& raw) {
    raw.clear();
    if (form_.unpacks) {
      packed_.clear();
      std::string problem = source_.read(frame, packed_);
      unpack(packed_, raw);
      return problem;
    }
    if (!form_.inflates) return source_.read(frame, raw);
    if (form_.image_bits() > kMostFrameBits) return "its frames are beyond 2 GiB";
    Bytes packed;
    std::string problem = source_.read(frame, packed);
    return problem.empty() ? inflate_frame(packed, (form_.image_bits() + 7) / 8, raw) : problem;
  }
  std::string take(uint32_t frame) {
    if (!form_.decompresses()) {
      std::string problem = take_raw(frame, in_);
      if (in_.size() % 2 != 0) in_.append("", 1);
      return problem.empty() ? put() : problem;
    }
    in_.clear();
    append32(in_, kItem);  // no offset table
    append32(in_, 0);
    append32(in_, kItem);
    append32(in_, 0);
    if (std::string problem = source_.read(frame, in_); !problem.empty()) return problem;
    if (in_.size() % 2 != 0) in_.append("", 1);
    const auto length = static_cast<uint32_t>(in_.size() - 2 * kItemHeader);
    std::memcpy(in_.data() + kItemHeader + 4, &length, sizeof length);
    append32(in_, kDelimiter);
    append32(in_, 0);
    return put();
  }
  std::string put() {
    const VX_STATUS status =
        VX_Set_Value_From_Buffer(id_, tags::kPixelData, in_.data(), static_cast<uint32_t>(in_.size()));
    Bytes().swap(in_);  // makes room for the codec
    return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
  }

  const FrameSource& source_;
  const FrameForm& form_;
  int32_t id_ = -1;
  int32_t result_ = -1;
  int32_t compressed_ = -1;
  Bytes in_;
  Bytes packed_;  // a frame whose colour is half
};

}  // namespace vexal
