#include "holdings.h"

#include "folder_store.h"
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
  error = catalog_.open(options.folder, options.durable, options.mode, address.empty() && !upkeep);
  return error.empty() ? "" : "--dir " + options.folder + ": " + error;
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
