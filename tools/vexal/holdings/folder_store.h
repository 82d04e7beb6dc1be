// Objects as files below a folder, which any number of servers may share.
#pragma once

#include <sys/types.h>

#include "server/object_store.h"

namespace vexal {

class FolderStore : public ObjectStore {
 public:
  // `mode`: of files; folders follow. `durable`: on the disk when put() returns.
  FolderStore(std::string folder, mode_t mode, bool durable)
      : folder_(std::move(folder)), mode_(mode), durable_(durable) {}

  std::string put(FileSink& sink, const std::string& name, std::string& key) override;
  std::string put_under(FileSink& sink, const std::string& key) override;
  std::string fetch(const std::string& key, LocalCopy& local) override;
  std::string read(const std::string& key, uint64_t offset, std::size_t length, std::string& bytes) override;
  std::string look_for(const std::string& key, std::optional<uint64_t>& size) override;
  std::string remove(const std::string& key) override;
  // Files in .dcm; links are not followed.
  std::string list(const std::string& prefix, const std::function<bool(const ListedObject&)>& take) override;
  std::string place_of(const std::string& key) const override { return folder_ + "/" + key; }

 private:
  std::string name_file(FileSink& sink, const std::string& key, FileSink::Naming& naming);

  std::string folder_;
  mode_t mode_;
  bool durable_;
};

}  // namespace vexal
