// Files in and out: blocks to and from the library, large values that stay in their file, safe replacement.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/tags.h"
#include "vexalkit.h"

namespace vexal {

inline constexpr uint32_t kUndefinedLength = 0xFFFFFFFFU;

// Values below this size are read into memory; larger ones of the known bulk tags stay in the file.
inline constexpr int32_t kKeepInMemory = 65536;

inline constexpr char kDirectoryClass[] = "1.2.840.10008.1.3.10";
// The attributes by which directory records refer to each other: by their places in the file.
bool is_record_reference(uint32_t tag);

// Bytes of an open file; fewer at its end, -1 on an error.
int64_t read_whole(int fd, uint64_t offset, void* buffer, std::size_t length);

// Bytes of a value that go out in place of those of its file.
struct Patch {
  uint64_t at;    // in the file
  uint32_t skip;  // bytes of the file that these stand for
  std::string bytes;
};

// A value that was left in its file.
struct KeptValue {
  uint64_t offset = 0;
  uint32_t length = 0;  // kUndefinedLength: encapsulated
};

// Bytes that come from elsewhere: not cleared first, so that untouched pages of them cost nothing.
class Bytes {
 public:
  char* data() { return bytes_.get(); }
  const char* data() const { return bytes_.get(); }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  void clear() { size_ = 0; }  // keeps the room
  void resize(std::size_t size) {
    if (size > room_) grow(size);
    size_ = size;
  }
  void append(const void* data, std::size_t size) {
    if (size == 0) return;
    const std::size_t at = size_;
    resize(at + size);
    std::memcpy(bytes_.get() + at, data, size);
  }
  void swap(Bytes& other) noexcept {
    std::swap(bytes_, other.bytes_);
    std::swap(size_, other.size_);
    std::swap(room_, other.room_);
  }

 private:
  void grow(std::size_t size) {
    auto larger = std::make_unique_for_overwrite<char[]>(std::max(size, room_ + room_ / 2));
    if (size_ != 0) std::memcpy(larger.get(), bytes_.get(), size_);
    room_ = std::max(size, room_ + room_ / 2);
    bytes_ = std::move(larger);
  }
  std::unique_ptr<char[]> bytes_;
  std::size_t size_ = 0;
  std::size_t room_ = 0;
};

// Reads one file in large blocks. Where values are kept out, the stretch of a kept value is passed over with
// dummy blocks instead of being read.
class FileSource {
 public:
  FileSource() = default;
  ~FileSource();
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  // An error text, empty on success.
  std::string open(const std::string& path);
  void close();
  uint64_t size() const { return size_; }
  // Bytes at an offset; fewer at the end of the file, -1 on an error.
  int64_t read_at(uint64_t offset, void* buffer, std::size_t length) const;

  // 132 bytes of preamble and prefix go first, for a file that lacks them; offsets of the library then run
  // ahead.
  void pretend_preamble() { missing_preamble_ = true; }
  uint64_t offset_shift() const { return missing_preamble_ ? 132 : 0; }
  // What follows from here on for `length` bytes of the stream need not be read.
  void skip(uint64_t stream_offset, uint64_t length);

  VX_STATUS next(uint32_t* size, void** data, int32_t* last);
  static VX_STATUS file_input(const char* name, void* user, uint32_t* size, void** data, int32_t first,
                              int32_t* last);
  static VX_STATUS message_input(int32_t id, void* user, int32_t first, uint32_t* size, void** data,
                                 int32_t* last);

 private:
  int fd_ = -1;
  bool seekable_ = false;
  bool missing_preamble_ = false;
  bool preamble_given_ = false;
  uint64_t size_ = 0;
  uint64_t position_ = 0;  // in the file
  uint64_t skip_from_ = 0;
  uint64_t skip_to_ = 0;
  Bytes block_;
};

// Writes to a temporary name in the folder of the target and renames when all is there. Dropped without
// commit, it leaves nothing behind.
class FileSink {
 public:
  FileSink() = default;
  ~FileSink();
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;

  static constexpr mode_t kUsualMode = 0;  // as the system makes files
  static constexpr mode_t kPrivateMode = 0600;

  // `mode`: of the file, exactly; in the usual one a file that is replaced hands on its permissions. An error
  // text, empty on success.
  std::string open(const std::string& path, mode_t mode = kUsualMode);
  // With `durable`, the file and its name are on the disk when it returns.
  std::string commit(bool durable = false);
  // Replaces nothing: takes the first of the names STEM.EXT, STEM-2.EXT and so on, from number `number` on,
  // that is free, or whose file has the same bytes already. path() and `number` tell which.
  std::string commit_beside(unsigned& number);
  // Replaces nothing: the file gets this name, unless something has it, or its folder has gone.
  enum class Naming { Done, Taken, NoFolder };
  std::string commit_new(const std::string& path, bool durable, Naming& naming);
  void drop();  // without commit; a new open follows, or nothing
  bool write(const void* data, std::size_t length);
  const std::string& path() const { return path_; }
  // Why a write failed; "" if none did.
  std::string problem() const;
  // Takes note of where the block at this address lands when it is written.
  void watch(const void* block) { watched_ = block; }
  bool found_watched() const { return mark_ >= 0; }
  // What has been written so far is in the file. False on an error.
  bool flush();
  // Writes to a place in the file, counted from the start of that block. Several threads may do so at once,
  // after a flush and where nobody else writes. An error text, empty on success.
  std::string patch(uint64_t behind_start, const void* data, std::size_t length);
  // Bytes that patch() brings: the end moves behind them. False on an error.
  bool skip(uint64_t length);
  // What write() gets from this address is skipped.
  void leave_out(const void* block) { left_out_ = block; }
  uint64_t skipped() const { return skipped_; }
  // Chooses the final name when the content is there: `choose` gets the temporary name and gives the final
  // one, or an error text. Both lie in one file system.
  std::string place(
      const std::function<std::string(const std::string& temporary, std::string& final_path)>& choose);
  static VX_STATUS file_output(const char* name, void* user, uint32_t size, void* data, int32_t first,
                               int32_t last);

 private:
  std::string open_named(const std::string& path);
  bool give_name(const std::string& name);
  bool take_free_name(const std::string& name);
  bool equals(const std::string& name) const;
  std::string become_like_the_old();
  bool write_all(const char* data, std::size_t length);

  int fd_ = -1;
  mode_t mode_ = kUsualMode;
  std::string path_;
  std::string temporary_;  // how the file can be reached until it has its name
  bool nameless_ = false;
  Bytes buffer_;
  std::size_t used_ = 0;
  std::atomic<int> error_{0};
  const void* watched_ = nullptr;
  int64_t mark_ = -1;  // where that block is
  const void* left_out_ = nullptr;
  uint64_t skipped_ = 0;
};

// Transfer syntaxes whose pixel data is not encapsulated.
constexpr bool is_uncompressed(VX_TRANSFER_SYNTAX syntax) {
  return syntax >= IMPLICIT_LITTLE_ENDIAN && syntax <= DEFLATED_EXPLICIT_LITTLE_ENDIAN;
}
// Those whose whole data set is deflated.
constexpr bool is_deflated(VX_TRANSFER_SYNTAX syntax) {
  return syntax == DEFLATED_EXPLICIT_LITTLE_ENDIAN || syntax == JPIP_REFERENCED_DEFLATE ||
         syntax == JPIP_HTJ2K_REFERENCED_DEFLATE;
}
// Behind it are those that the library got to know while it ran, which can only be handed on.
inline constexpr VX_TRANSFER_SYNTAX kLastKnownSyntax = SMPTE_ST_2110_30_AUDIO;

// Bytes of an element of a bulk value, which byte orders turn around (PS3.5 section 7.3).
uint32_t element_width(VX_VR vr);

// How a file is to be opened.
struct OpenOptions {
  bool keep_values_out = true;
  uint32_t last_tag = tags::kLast;  // read no further than this tag, and leave bulk values on the way out
  // Of a DICOMDIR, references between records become references between objects, so that it can be written
  // with its records at other places. One whose references lead nowhere can not be opened so.
  bool link_records = false;
};

// One DICOM file, open as a library object. Everything it needs belongs to it; the files of different threads
// do not meet.
class DicomFile {
 public:
  DicomFile();
  ~DicomFile();
  DicomFile(const DicomFile&) = delete;
  DicomFile& operator=(const DicomFile&) = delete;

  // Opens and decodes. What could be read stays readable when the status is a failure.
  VX_STATUS open(const std::string& path, const OpenOptions& options);
  // "offset 12 (0028,0010) Rows: ..." of the failure, or the text of the system.
  const std::string& problem() const { return problem_; }
  bool readable() const { return id_ >= 0; }

  int32_t id() const { return id_; }
  // False: a data set without meta group, which has to be given a transfer syntax before it can be written.
  bool has_meta() const { return has_meta_; }
  VX_TRANSFER_SYNTAX syntax() const { return syntax_; }
  const std::string& path() const { return path_; }
  const FileSource& source() const { return source_; }
  // The value that stayed in the file, or null.
  const KeptValue* kept(int32_t id, uint32_t tag) const;
  // Hands a kept value out in its file's byte order, piece by piece; false on a read error or a refusal.
  bool read_kept(const KeptValue& value, bool (*take)(void* context, const char* data, std::size_t size),
                 void* context);
  // Another file object takes the place of the one that was opened; it is freed with this.
  void adopt(int32_t id);
  // The object is left to the end of the library, which drops all objects at once: for the last of a
  // program's work.
  void abandon() { id_ = -1; }
  // Bytes of a kept value, from its first to its last; the whole of an encapsulated one, without a delimiter
  // that is missing.
  uint64_t kept_size(const KeptValue& value) const;
  // The object becomes a message of this service and command, without meta group.
  VX_STATUS become_message(const char* service, uint16_t command);
  // The file object becomes writable under another syntax.
  VX_STATUS set_syntax(VX_TRANSFER_SYNTAX syntax);
  // Why it can not be written in a syntax; empty if it can, as far as its form tells.
  std::string write_fault(VX_TRANSFER_SYNTAX target) const;
  // Brings the Extended Offset Table in line with fragments of odd length, which go out with a byte more: for
  // the object that is about to be written, with the fragments as they lie in the file.
  void prepare_fragments();
  // Other bytes go out in place of as many of a kept value, from an offset in the file on.
  void cover(uint64_t offset, std::string bytes);

 private:
  struct Reader {  // state of the library reading a kept value back
    int32_t id = -1;
    uint32_t tag = 0;
    uint64_t offset = 0;
    uint64_t end = 0;
    uint32_t width = 1;
    std::vector<Patch> patches{};  // of an encapsulated value, ascending
    std::size_t patch = 0;         // the next of them
  };
  // An encapsulated value: where it ends, and which of its fragments are odd.
  struct Fragments {
    uint64_t table = 0;  // item of the Basic Offset Table
    uint32_t table_length = 0;
    uint64_t end = 0;
    bool delimited = false;
    std::vector<std::pair<uint64_t, uint32_t>> odd{};  // place of the header, length
  };
  void free_object();
  VX_STATUS open_file(const OpenOptions& options, bool directory);
  void find_syntax(VX_TRANSFER_SYNTAX guess);
  VX_STATUS open_data_set(VX_TRANSFER_SYNTAX syntax, const OpenOptions& options);
  void note_failure(VX_STATUS status, uint32_t tag, uint64_t offset);
  VX_STATUS value_request(int32_t id, uint32_t tag, VX_CALLBACK_REQUEST request, uint32_t* size, void** data,
                          bool first, int32_t* last);
  VX_STATUS next_piece(int32_t id, uint32_t tag, uint32_t* size, void** data, bool first, int32_t* last);
  Fragments look_at_fragments(uint64_t offset) const;
  std::vector<Patch> patches_of(const Fragments& fragments) const;
  static std::vector<uint64_t> odd_offsets(const Fragments& fragments);
  static VX_STATUS value_callback(int32_t id, uint32_t tag, void* user, VX_CALLBACK_REQUEST request,
                                  uint32_t* size, void** data, int32_t first, int32_t* last);

  int32_t application_ = -1;
  int32_t id_ = -1;
  bool is_file_ = true;  // the object behind id_, not a message
  bool has_meta_ = true;
  bool drops_values_ = false;
  bool linked_ = false;  // as OpenOptions::link_records
  VX_TRANSFER_SYNTAX syntax_ = 0;
  std::string path_;
  std::string problem_;
  FileSource source_;
  std::unordered_map<uint64_t, KeptValue> kept_;
  std::vector<Patch> covered_;
  Reader reader_;
  std::vector<char> piece_;
};

// A transfer syntax that the library does not know takes the place of a private syntax, of which there are
// two. Its pixel data may come in fragments whatever `encapsulated` says; it is written in them only if that
// is true.
void adopt_unknown_syntax(const std::string& uid, bool encapsulated);

// What stands at the head of a file.
struct FileHead {
  bool has_preamble = false;  // "DICM" at 128
  bool meta_without_preamble = false;
  VX_TRANSFER_SYNTAX data_set = 0;  // guessed syntax of a bare data set, 0 for none
  std::string syntax_uid;           // (0002,0010), if found
  std::string sop_class_uid;        // (0002,0002), likewise
  std::string sop_instance_uid;     // (0002,0003)
  uint32_t first_tag = 0;           // behind the meta group, if it is seen and not deflated
};
FileHead inspect_head(const char* bytes, std::size_t size);
// Why nothing but an object may be written there: a forgotten name must not cost one, nor the file that is
// read, `in`. Empty if it may.
std::string object_in_the_way(const std::string& path, const std::string& in = "");

// The regular files under the paths given, folders walked in order of name; a path that does not exist is
// reported and sets `failed`.
std::vector<std::string> expand_paths(const std::vector<std::string>& paths, bool& failed);

}  // namespace vexal
