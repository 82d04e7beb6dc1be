// Objects in a bucket of S3-compatible storage.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "files/web_client.h"
#include "server/object_store.h"

namespace vexal {

// What "s3://BUCKET[/PREFIX][?endpoint=URL&region=NAME&ca=PEM]" and the environment say.
struct S3Place {
  std::string bucket;
  std::string prefix;    // of keys, with a slash at its end, or empty
  std::string endpoint;  // scheme, host and port
  std::string region;
  WebPeer peer;

  // The credentials are those of AWS_ACCESS_KEY_ID, AWS_SECRET_ACCESS_KEY and AWS_SESSION_TOKEN, or of the
  // profile AWS_PROFILE ("default") in the file AWS_SHARED_CREDENTIALS_FILE (~/.aws/credentials). An error
  // text that holds no secret, empty on success.
  std::string read(const std::string& address);
};

// Whether an address is one of such storage.
bool is_s3_address(const std::string& address);

class S3Store : public ObjectStore {
 public:
  // Opens the libraries that it needs, and looks whether the bucket can be listed. An error text, empty on
  // success.
  std::string open(const std::string& address);

  // All keys end at random. What is large goes in parts, which are dropped where one of them fails.
  std::string put(FileSink& sink, const std::string& name, std::string& key) override;
  std::string put_under(FileSink& sink, const std::string& key) override;
  // A copy of mode 0600 in the program's private folder.
  std::string fetch(const std::string& key, LocalCopy& local) override;
  std::string read(const std::string& key, uint64_t offset, std::size_t length, std::string& bytes) override;
  std::string look_for(const std::string& key, std::optional<uint64_t>& size) override;
  std::string remove(const std::string& key) override;
  std::string list(const std::string& prefix, const std::function<bool(const ListedObject&)>& take) override;
  std::string place_of(const std::string& key) const override;

 private:
  // A request that may be repeated without harm, and is where the server or the way to it has a bad moment;
  // `before` prepares for each attempt.
  WebAnswer repeat(const WebRequest& request, const std::function<bool()>& before = nullptr);
  // Takes away what a failure may have left, as far as one attempt does it.
  void clean_up(const std::string& key, const std::string& upload = "");
  // Of an object, or with an empty key of the bucket; the query is in order and encoded.
  std::string resource(const std::string& key, const std::string& query = "") const;
  std::string failure(const std::string& key, const WebAnswer& answer) const;
  std::string put_whole(const std::string& key, int fd, uint64_t size);
  std::string put_in_parts(const std::string& key, int fd, uint64_t size);
  std::string put_parts(const std::string& key, const std::string& upload, int fd, uint64_t size,
                        std::string& parts);
  std::string complete(const std::string& key, const std::string& upload, const std::string& parts,
                       uint64_t size);
  std::unique_ptr<WebClient> take_client();
  void give_back(std::unique_ptr<WebClient> client);

  S3Place place_;
  std::mutex mutex_;  // over the idle clients
  std::vector<std::unique_ptr<WebClient>> idle_;
};

}  // namespace vexal
