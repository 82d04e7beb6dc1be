#include "holdings.h"

#include "folder_store.h"
#include "object_attributes.h"
#include "s3_store.h"

namespace vexal {

std::string open_store(const std::string& address, const StorageOptions& options,
                       std::unique_ptr<ObjectStore>& store) {
  if (!is_s3_address(address)) {
    store = std::make_unique<FolderStore>(address, options.mode, options.durable);
    return "";
  }
  auto bucket = std::make_unique<S3Store>();
  const std::string error = bucket->open(address);
  store = std::move(bucket);
  return error;
}

ObjectIndex::Entered enter_file(ObjectIndex& index, const std::string& path, const std::string& key,
                                const std::string& expected, std::string& error) {
  ObjectFile file;
  file.path = path;
  HeadScan scan;
  error = file.look_at();
  if (error.empty()) error = scan_file(path, index.wanted(), scan);
  if (!error.empty()) return ObjectIndex::Entered::Failed;
  StoredObject stored;
  stored.key = key;
  stored.sop_class = file.sop_class;
  stored.instance = file.instance;
  stored.syntax = file.syntax;
  stored.bytes = stored.size = file.size;
  return index.enter(stored, scan, expected, error);
}

std::string Holdings::open(const Args& args, StorageOptions& options, bool upkeep) {
  const std::string address = args.get("--store");
  if (!address.empty() && !is_s3_address(address)) return "--store: give s3://BUCKET/PREFIX";
  std::string error = open_store(address.empty() ? options.folder : address, options, store_);
  if (!error.empty()) return "--store: " + error;
  options.index = &catalog_;
  options.store = store_.get();
  CatalogOptions index;
  index.address = args.get("--index");
  index.folder = options.folder;
  index.durable = options.durable;
  index.mode = options.mode;
  if (!index.address.empty() && !Database::is_server(index.address))
    return "--index: give postgresql://USER@HOST/DATABASE";
  // A database that others use is brought up to date by vexal archive check alone.
  index.follows = address.empty() && index.address.empty() && !upkeep;
  error = catalog_.open(index);
  if (error.empty()) return "";
  return (index.address.empty() ? "--dir " + options.folder : "--index") + ": " + error;
}

std::string Holdings::find(
    Level level, const std::vector<CatalogKey>& keys, const Catalog::Stop& stop,
    const std::function<bool(const std::vector<std::string>& values, const std::string& charset)>& take) {
  ObjectAttributes more(*this, level, keys);
  if (!more.needed()) return catalog_.find(level, keys, stop, take);
  const std::string error = catalog_.find(
      level, more.keys(), stop, [&](const std::vector<std::string>& found, const std::string& charset) {
        if (stop && stop()) return false;
        std::vector<std::string> values = found;
        std::string set = charset;
        return more.complete(values, set) ? take(values, set) : more.problem().empty();
      });
  return error.empty() ? more.problem() : error;
}

// The object first: should this end in between, nobody takes what is left for one that has lost its row.
std::string Holdings::remove(const ObjectFile& object) {
  const std::string error = store_->remove(object.path);
  return error.empty() ? catalog_.drop(object.instance, object.path) : error;
}

std::string Holdings::fetch(const ObjectFile& object, LocalObject& local) {
  local.file_ = object;
  const std::string error = store_->fetch(object.path, local.copy_);
  local.file_.path = local.copy_.path();
  return error;
}

std::string Holdings::look_for(const ObjectFile& object, bool& there) {
  std::optional<uint64_t> size;
  const std::string error = store_->look_for(object.path, size);
  there = size == object.size;
  return error;
}

}  // namespace vexal
