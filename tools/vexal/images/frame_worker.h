// One frame in another form.
#pragma once

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "base/parallel.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/values.h"
#include "recode.h"

namespace vexal {

inline constexpr std::size_t kItemHeader = 8;
inline constexpr char kOtherSize[] = "a frame has another size than the first";

// Converts frames one after the other, each as an object of its own; one for each thread.
class FrameWorker {
 public:
  FrameWorker(const FrameSource& source, const FrameForm& form) : source_(source), form_(form) {
    if (form.decompresses()) {
      open(id_, form.from, VX_VR_OB, form.attributes);
      VX_Register_Compression_Callbacks(id_, nullptr, VX_General_Decompressor);
    } else {
      open(id_, EXPLICIT_LITTLE_ENDIAN, form.vr, form.attributes);
    }
    if (form.unwraps) {
      open(wrapped_, form.from, VX_VR_OB, form.stored);
      VX_Register_Compression_Callbacks(wrapped_, nullptr, VX_General_Decompressor);
    }
    if (!form.compresses_alone) return;
    open(compressed_, form.to, VX_VR_OB, form.attributes);
    VX_Register_Compression_Callbacks(compressed_, form.compressor(), nullptr);
  }
  ~FrameWorker() {
    free_result();
    for (int32_t* id : {&id_, &wrapped_, &compressed_}) {
      if (*id >= 0) VX_Free_Message(id);
    }
  }
  FrameWorker(const FrameWorker&) = delete;
  FrameWorker& operator=(const FrameWorker&) = delete;

  // The frame in its new form, as it stands in the value: a compressed one as an item, and with the last what
  // ends the value. An error text, empty on success.
  std::string convert(uint32_t frame, Bytes& out) try {
    out.clear();
    if (form_.unwraps && !form_.compresses()) {
      if (std::string problem = take_raw(frame, out); !problem.empty()) return problem;
    } else if (form_.decodes_alone()) {
      if (std::string problem = decompress(frame, &out, guarded<append>); !problem.empty()) return problem;
      const auto size = static_cast<std::size_t>(form_.image_bits() / 8);
      if (out.size() < size) return VX_Error_Message(VX_CANNOT_COMPLY);
      out.resize(size);
      if (std::string problem = describe(); !problem.empty()) return problem;
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
      if (std::string problem = hand_on(alone ? compressed_ : result_, &out, guarded<append>);
          !problem.empty())
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
    if (form_.unwraps) {
      if (std::string problem = take_raw(frame, in_); !problem.empty()) return problem;
      return in_.size() == size ? sink.patch(at, in_.data(), in_.size()) : kOtherSize;
    }
    Placing placing{sink, at, size, ""};
    std::string problem;
    if (form_.has_half_colour()) {
      // Half the colour of such an image is there, and the copy of the object has all of it.
      problem = make_object(frame);
      if (problem.empty()) problem = hand_on(result_, &placing, guarded<Placing::take>);
    } else {
      problem = decompress(frame, &placing, guarded<Placing::take>);
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
  // An object with what becomes of the attributes where frames are decoded alone, which is the same for all.
  // An error text, empty on success.
  std::string describe() {
    if (std::exchange(described_, true)) return "";
    const VX_STATUS status = VX_Duplicate_Message(id_, &result_, EXPLICIT_LITTLE_ENDIAN, nullptr, nullptr);
    return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
  }

  // The object with the last frame, or that of describe().
  int32_t result() const { return result_; }
  void free_result() {
    if (result_ >= 0) VX_Free_Message(&result_);
    result_ = -1;
  }

 private:
  // An object for one frame.
  static void open(int32_t& id, VX_TRANSFER_SYNTAX syntax, VX_VR vr,
                   const FrameForm::Attributes& attributes) {
    VX_Open_Empty_Message(&id);
    VX_Set_Message_Transfer_Syntax(id, syntax);
    for (const auto& [tag, text] : attributes) set_all_text(id, tag, text);
    set_all_text(id, tags::kNumberOfFrames, "1");
    VX_Set_Value_To_Empty(id, tags::kPixelData);
    VX_Set_Value_Representation(id, tags::kPixelData, vr);
  }

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

  std::string hand_on(int32_t id, void* user, VX_Get_Encapsulated_Callback taker) const {
    const VX_STATUS status = VX_Get_Frame_To_Function(id, 0, user, taker);
    form_.notes->take_flaws();
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
    VX_Register_Compression_Callbacks(result_, form_.compressor(), VX_General_Decompressor);
    Bytes old_frame;
    Bytes new_frame;
    if (plain(id_, before) && plain(result_, after)) {
      take_stream_flaws();  // are noted already
      problem = hand_on(before, &old_frame, guarded<append>);
      if (problem.empty()) problem = hand_on(after, &new_frame, guarded<append>);
    }
    VX_Register_Compression_Callbacks(result_, form_.compressor(), nullptr);
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
    const VX_STATUS status = VX_Duplicate_Message(
        id_, &result_, form_.compresses() ? form_.to : EXPLICIT_LITTLE_ENDIAN, form_.compressor(), nullptr);
    form_.notes->take_flaws();
    VX_Set_Value_To_Empty(id_, tags::kPixelData);
    return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
  }
  // Into the object that takes one compressed frame after the other.
  std::string compress(uint32_t frame) {
    if (std::string problem = take_raw(frame, in_); !problem.empty()) return problem;
    if (in_.size() % 2 != 0) in_.append("", 1);
    const VX_STATUS status =
        VX_Set_Encapsulated_Value_From_Function(compressed_, tags::kPixelData, this, guarded<give>);
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
      std::string problem = read_native(frame, packed_);
      unpack(packed_, raw);
      return problem;
    }
    return read_native(frame, raw);
  }
  std::string read_native(uint32_t frame, Bytes& raw) {
    if (!form_.unwraps) return source_.read(frame, raw);
    std::string problem = wrap(frame);
    if (problem.empty()) problem = put(wrapped_);
    if (problem.empty()) problem = hand_on(wrapped_, &raw, guarded<append>);
    VX_Set_Value_To_Empty(wrapped_, tags::kPixelData);
    // Half colour has no pad.
    if (problem.empty() && !form_.unpacks) raw.resize((form_.image_bits() + 7) / 8);
    return problem;
  }
  std::string take(uint32_t frame) {
    if (!form_.decompresses()) {
      std::string problem = take_raw(frame, in_);
      if (in_.size() % 2 != 0) in_.append("", 1);
      return problem.empty() ? put(id_) : problem;
    }
    std::string problem = wrap(frame);
    return problem.empty() ? put(id_) : problem;
  }
  // The frame as it stands in an encapsulated value of its own, into in_.
  std::string wrap(uint32_t frame) {
    in_.clear();
    append32(in_, kItem);  // no offset table
    append32(in_, 0);
    append32(in_, kItem);
    append32(in_, 0);
    if (std::string problem = source_.read(frame, in_); !problem.empty()) return problem;
    if (std::string fault = form_.fault_of_stream(in_.data() + 2 * kItemHeader, in_.size() - 2 * kItemHeader);
        !fault.empty())
      return fault;
    if (in_.size() % 2 != 0) in_.append("", 1);
    const auto length = static_cast<uint32_t>(in_.size() - 2 * kItemHeader);
    std::memcpy(in_.data() + kItemHeader + 4, &length, sizeof length);
    append32(in_, kDelimiter);
    append32(in_, 0);
    return "";
  }
  std::string put(int32_t id) {
    const VX_STATUS status =
        VX_Set_Value_From_Buffer(id, tags::kPixelData, in_.data(), static_cast<uint32_t>(in_.size()));
    Bytes().swap(in_);  // makes room for the codec
    return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
  }

  const FrameSource& source_;
  const FrameForm& form_;
  int32_t id_ = -1;
  int32_t wrapped_ = -1;  // for native frames in items
  int32_t result_ = -1;
  int32_t compressed_ = -1;
  bool described_ = false;
  Bytes in_;
  Bytes packed_;  // a frame whose colour is half
};

}  // namespace vexal
