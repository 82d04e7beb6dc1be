#include "bulk_files.h"

#include <fcntl.h>
#include <jansson.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <unordered_map>

#include "base/base64.h"
#include "base/hex.h"
#include "base/object_values.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "files/web_client.h"
#include "text_forms.h"

namespace vexal {
namespace {

namespace fs = std::filesystem;

// Compressed pixel data keeps its item headers; only a text that names a transfer syntax can give it back.
constexpr std::string_view kFragments = ".fragments";

struct Drop {
  void operator()(json_t* value) const { json_decref(value); }
};
using Document = std::unique_ptr<json_t, Drop>;

bool is_bulk(std::string_view vr) {
  return vr == "OB" || vr == "OW" || vr == "OL" || vr == "OD" || vr == "OF" || vr == "UN";
}

std::string_view string_of(const json_t* object, const char* key) {
  const json_t* value = json_object_get(object, key);
  return json_is_string(value) ? std::string_view(json_string_value(value), json_string_length(value))
                               : std::string_view();
}

// Calls `work` with each attribute that has no items, and its object. Objects and text go hand in hand.
template <typename Work>
std::string each_member(int32_t id, json_t* object, const std::string& place, Work work) {
  const char* key = nullptr;
  json_t* member = nullptr;
  json_object_foreach(object, key, member) {
    const auto tag = static_cast<uint32_t>(std::strtoul(key, nullptr, 16));
    std::string problem;
    if (string_of(member, "vr") != "SQ") {
      problem = work(id, tag, member, place + "." + key);
    } else {
      json_t* items = json_object_get(member, "Value");
      int32_t item = -1;
      for (std::size_t i = 0; i < json_array_size(items) && problem.empty(); ++i) {
        if (id >= 0) {
          const VX_STATUS status =
              i == 0 ? VX_Get_Value_To_Int(id, tag, &item) : VX_Get_Next_Value_To_Int(id, tag, &item);
          if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
        }
        problem = each_member(item, json_array_get(items, i), place + "." + key + "." + std::to_string(i + 1),
                              work);
      }
    }
    if (!problem.empty()) return problem;
  }
  return "";
}

// --- Out ---

VX_STATUS to_sink(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  return static_cast<FileSink*>(user)->write(data, size) ? VX_NORMAL_COMPLETION : VX_CANNOT_COMPLY;
}

// A path as a reference (RFC 3986 section 4.2).
std::string uri_of(std::string_view path) {
  std::string uri;
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x80 && std::isalnum(byte) != 0) || std::strchr("-._~/", c) != nullptr) {
      uri += c;
    } else {
      append_hex(uri += '%', byte, 2);
    }
  }
  return uri;
}

std::string write_value(int32_t id, uint32_t tag, json_t* member, const std::string& path) {
  FileSink sink;
  std::string problem = sink.open(path);
  if (!problem.empty()) return path + ": " + problem;
  const VX_STATUS status = VX_Get_Value_To_Function(id, tag, &sink, guarded<to_sink>);
  if (status == VX_NULL_VALUE || status == VX_EMPTY_VALUE) return "";
  // Another object of this UID may have its value there.
  unsigned number = 1;
  problem = status == VX_NORMAL_COMPLETION ? sink.commit_beside(number) : VX_Error_Message(status);
  if (!problem.empty()) return path + ": " + problem;
  json_object_set_new(member, "BulkDataURI", json_string(uri_of(sink.path()).c_str()));
  return "";
}

// --- Back ---

// The part of a reference below the folder; empty if it leads elsewhere.
std::string below(const std::string& folder, std::string_view uri) {
  const std::size_t colon = uri.find(':');
  const std::size_t slash = uri.find('/');
  if (colon < slash && uri.substr(0, colon) != "file") return "";
  if (uri.starts_with("file:")) uri.remove_prefix(5);
  if (uri.starts_with("//localhost/")) uri.remove_prefix(11);
  if (uri.starts_with("//")) uri.remove_prefix(2);
  const std::string path = percent_decoded(uri);
  std::error_code error;
  for (const std::string& head :
       {folder, fs::absolute(folder, error).string(), fs::canonical(folder, error).string()}) {
    if (!head.empty() && path.starts_with(head) && path.substr(head.size()).starts_with('/'))
      return path.substr(head.size() + 1);
  }
  return path.starts_with('/') ? "" : path;
}

// The bytes of a file, in blocks of even length.
class BulkFile {
 public:
  BulkFile() : block_(1U << 20) {}
  ~BulkFile() {
    if (fd_ >= 0) ::close(fd_);
  }
  BulkFile(const BulkFile&) = delete;
  BulkFile& operator=(const BulkFile&) = delete;

  // An error text, empty on success.
  std::string open(const std::string& folder, const std::string& name) {
    const int base = ::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    open_how how{};
    how.flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    fd_ = base < 0 ? -1 : static_cast<int>(::syscall(SYS_openat2, base, name.c_str(), &how, sizeof how));
    const int error = errno;
    if (base >= 0) ::close(base);
    struct stat status {};
    if (fd_ < 0) return error == EXDEV ? "lies outside the folder" : std::strerror(error);
    if (::fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode)) return "is no file";
    left_ = static_cast<uint64_t>(status.st_size);
    return left_ >= 0xFFFFFFFEU ? "is too long for a value" : "";
  }
  uint64_t left() const { return left_; }
  static VX_STATUS give(int32_t, uint32_t, int32_t, void* user, int32_t* size, void** data, int32_t* last) {
    return static_cast<BulkFile*>(user)->next(*size, *data, *last);
  }

 private:
  VX_STATUS next(int32_t& size, void*& data, int32_t& last) {
    const std::size_t wanted = static_cast<std::size_t>(std::min<uint64_t>(left_, block_.size()));
    std::size_t got = 0;
    while (got < wanted) {
      const ssize_t part = ::read(fd_, block_.data() + got, wanted - got);
      if (part < 0 && errno == EINTR) continue;
      if (part <= 0) return VX_CANNOT_COMPLY;
      got += static_cast<std::size_t>(part);
    }
    left_ -= got;
    if (got % 2 != 0) block_[got++] = 0;
    size = static_cast<int32_t>(got);
    data = block_.data();
    last = left_ == 0 ? 1 : 0;
    return VX_NORMAL_COMPLETION;
  }

  int fd_ = -1;
  uint64_t left_ = 0;
  std::vector<char> block_;
};

std::string read_value(int32_t id, uint32_t tag, const json_t* member, const std::string& uri,
                       const std::string& folder) {
  const std::string name = below(folder, uri);
  if (name.empty()) return uri + " lies outside the folder of --bulk and is not fetched";
  char syntax[80] = "";
  if (name.ends_with(kFragments) &&
      VX_Get_Value_To_String(id, tags::kTransferSyntaxUID, sizeof syntax, syntax) != VX_NORMAL_COMPLETION) {
    return uri + " is compressed pixel data, whose transfer syntax the text does not name; see --own";
  }
  BulkFile file;
  std::string problem = file.open(folder, name);
  if (!problem.empty()) return uri + ": " + problem;
  if (file.left() == 0) return "";
  VX_STATUS status = VX_NORMAL_COMPLETION;
  if (string_of(member, "vr") == "UN") {
    std::string all;
    int32_t size = 0;
    void* data = nullptr;
    for (int32_t last = 0; last == 0 && status == VX_NORMAL_COMPLETION;) {
      status = BulkFile::give(id, tag, 0, &file, &size, &data, &last);
      if (status == VX_NORMAL_COMPLETION)
        all.append(static_cast<const char*>(data), static_cast<std::size_t>(size));
    }
    if (status == VX_NORMAL_COMPLETION)
      status = VX_Set_Value_From_Buffer(id, tag, all.data(), static_cast<uint32_t>(all.size()));
  } else {
    status = VX_Set_Value_From_Function(id, tag, &file, guarded<BulkFile::give>);
  }
  return status == VX_NORMAL_COMPLETION ? "" : uri + ": " + VX_Error_Message(status);
}

struct TextBlock {
  TextDocuments& text;
  const char* data = nullptr;
  std::size_t left = 0;
  bool last = false;
};

std::size_t load(void* buffer, std::size_t size, void* user) {
  auto& block = *static_cast<TextBlock*>(user);
  while (block.left == 0 && !block.last) {
    uint32_t given = 0;
    void* data = nullptr;
    int32_t last = 0;
    if (TextDocuments::give(0, &block.text, &given, &data, 0, &last) != VX_NORMAL_COMPLETION)
      return static_cast<std::size_t>(-1);
    block.data = static_cast<const char*>(data);
    block.left = given;
    block.last = last != 0;
  }
  const std::size_t part = std::min(size, block.left);
  std::memcpy(buffer, block.data, part);
  block.data += part;
  block.left -= part;
  return part;
}

VX_STATUS give_string(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  auto& text = *static_cast<std::string_view*>(user);
  const std::size_t part = std::min<std::size_t>(text.size(), 1U << 20);
  *size = static_cast<uint32_t>(part);
  *data = const_cast<char*>(text.data());
  text.remove_prefix(part);
  *last = text.empty() ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}

}  // namespace

std::string move_bulk(const DicomFile& file, const std::string& folder, bool indent, std::string& text) {
  std::error_code error;
  fs::create_directories(folder, error);
  char uid[80] = "";
  VX_Get_Value_To_String(file.id(), tags::kSOPInstanceUID, sizeof uid, uid);
  std::string name = uid;
  if (name.empty() || name.find_first_not_of("0123456789.") != std::string::npos)
    name = fs::path(file.path()).filename().string();
  const Document document(json_loadb(text.data(), text.size(), 0, nullptr));
  if (document == nullptr) return "can not take its text apart";
  const bool compressed = !is_uncompressed(file.syntax());
  const auto write = [&](int32_t id, uint32_t tag, json_t* member, const std::string& place) -> std::string {
    const std::string_view vr = string_of(member, "vr");
    int32_t count = 0;
    if (!is_bulk(vr) || vr == "UN" ||
        VX_Get_Attribute_Info(id, tag, nullptr, &count) != VX_NORMAL_COMPLETION || count == 0)
      return "";
    const bool fragments = compressed && tag == tags::kPixelData && id == file.id();
    return write_value(id, tag, member, place + (fragments ? std::string(kFragments) : ".bin"));
  };
  const std::string problem = each_member(file.id(), document.get(), folder + "/" + name, write);
  if (!problem.empty()) return problem;
  char* again = json_dumps(document.get(), JSON_SORT_KEYS | (indent ? JSON_INDENT(4) : 0));
  if (again == nullptr) return "out of memory";
  text = again;
  std::free(again);
  return "";
}

std::string refer_to_bulk(const DicomFile& file, const std::string& head, std::size_t most,
                          std::string& text) {
  const Document document(json_loadb(text.data(), text.size(), 0, nullptr));
  if (document == nullptr) return "can not take its text apart";
  const auto refer = [&](int32_t id, uint32_t tag, json_t* member, const std::string& place) -> std::string {
    const std::string_view vr = string_of(member, "vr");
    int32_t count = 0;
    if (!is_bulk(vr) || vr == "UN" ||
        VX_Get_Attribute_Info(id, tag, nullptr, &count) != VX_NORMAL_COMPLETION || count == 0)
      return "";
    if (file.kept(id, tag) == nullptr) {
      const std::string bytes = bytes_of(id, tag);
      if (bytes.empty()) return "";
      if (bytes.size() <= most) {
        json_object_set_new(member, "InlineBinary", json_string(base64_of(bytes).c_str()));
        return "";
      }
    }
    json_object_set_new(member, "BulkDataURI", json_string((head + place.substr(1)).c_str()));
    return "";
  };
  const std::string problem = each_member(file.id(), document.get(), "", refer);
  if (!problem.empty()) return problem;
  char* again = json_dumps(document.get(), 0);
  if (again == nullptr) return "out of memory";
  text = again;
  std::free(again);
  return "";
}

VX_STATUS read_with_bulk(int32_t id, TextDocuments& text, int32_t options, const std::string& folder,
                         std::string& problem) {
  TextBlock block{text};
  json_error_t error;
  const Document document(json_load_callback(load, &block, JSON_ALLOW_NUL, &error));
  if (document == nullptr) {
    problem =
        "line " + std::to_string(error.line) + ", column " + std::to_string(error.column) + ": " + error.text;
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  std::unordered_map<const json_t*, std::string>
      uris;  // by the members that the library is not to see them in
  each_member(-1, document.get(), "",
              [&](int32_t, uint32_t, json_t* member, const std::string&) -> std::string {
                const std::string uri(string_of(member, "BulkDataURI"));
                if (!uri.empty() && is_bulk(string_of(member, "vr")) &&
                    json_object_get(member, "InlineBinary") == nullptr) {
                  uris.emplace(member, uri);
                  json_object_del(member, "BulkDataURI");
                }
                return "";
              });
  char* plain = json_dumps(document.get(), 0);
  if (plain == nullptr) return VX_SYSTEM_ERROR;
  std::string_view rest(plain);
  const VX_STATUS status = VX_Json_To_Message_With_Options(id, &rest, options, guarded<give_string>);
  std::free(plain);
  const auto fetch = [&](int32_t holder, uint32_t tag, json_t* member, const std::string&) -> std::string {
    const auto uri = uris.find(member);
    return uri == uris.end() ? "" : read_value(holder, tag, member, uri->second, folder);
  };
  problem = each_member(id, document.get(), "", fetch);
  return status;
}

}  // namespace vexal
