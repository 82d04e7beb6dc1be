// libcurl, which is opened when it is first needed: the other subcommands start without it.
#pragma once

#include <curl/curl.h>

#include <string>

namespace vexal {

// curl_easy_setopt and the like are macros as well, so the names stand in brackets.
struct Curl {
  decltype(&curl_global_init) global_init = nullptr;
  decltype(&curl_easy_init) init = nullptr;
  decltype(&(curl_easy_setopt)) set = nullptr;
  decltype(&curl_easy_perform) perform = nullptr;
  decltype(&(curl_easy_getinfo)) info = nullptr;
  decltype(&curl_easy_send) send = nullptr;
  decltype(&curl_easy_reset) reset = nullptr;
  decltype(&curl_easy_cleanup) cleanup = nullptr;
  decltype(&curl_easy_strerror) error_text = nullptr;
  decltype(&curl_url) url = nullptr;
  decltype(&curl_url_set) url_set = nullptr;
  decltype(&curl_url_get) url_get = nullptr;
  decltype(&curl_url_cleanup) url_cleanup = nullptr;
  decltype(&curl_free) free = nullptr;
  decltype(&curl_slist_append) append = nullptr;
  decltype(&curl_slist_free_all) free_list = nullptr;
};

// Opens it, once. An error text, empty on success.
std::string open_curl();
// After open_curl().
const Curl& curl();

}  // namespace vexal
