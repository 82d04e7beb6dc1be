// Objects that come over the web (PS3.18 section 10.5).
#pragma once

#include <memory>
#include <string>

#include "http/http_message.h"
#include "server/storage.h"

namespace vexal {

// Takes a request that stores, below a study ("" for any), and answers with what became of each object.
// `root`: of the services, for the URLs in the answer.
std::unique_ptr<HttpWork> store_work(const HttpRequest& request, StorageOptions& storage,
                                     const std::string& study, const std::string& root);

}  // namespace vexal
