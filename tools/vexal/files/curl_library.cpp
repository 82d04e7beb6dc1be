#include "curl_library.h"

#include "base/opened_library.h"

namespace vexal {
namespace {

Curl g_curl;

std::string open_once() {
  Curl& c = g_curl;
  const SoughtSymbol symbols[] = {{"curl_global_init", c.global_init},  {"curl_easy_init", c.init},
                                  {"curl_easy_setopt", c.set},          {"curl_easy_perform", c.perform},
                                  {"curl_easy_getinfo", c.info},        {"curl_easy_send", c.send},
                                  {"curl_easy_reset", c.reset},         {"curl_easy_cleanup", c.cleanup},
                                  {"curl_easy_strerror", c.error_text}, {"curl_url", c.url},
                                  {"curl_url_set", c.url_set},          {"curl_url_get", c.url_get},
                                  {"curl_url_cleanup", c.url_cleanup},  {"curl_free", c.free},
                                  {"curl_slist_append", c.append},      {"curl_slist_free_all", c.free_list}};
  if (const std::string fault = open_library("libcurl.so.4", symbols); !fault.empty())
    return "libcurl: " + fault;
  return c.global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK ? "" : "libcurl, which can not be used";
}

}  // namespace

std::string open_curl() {
  static const std::string fault = open_once();
  return fault;
}

const Curl& curl() {
  return g_curl;
}

}  // namespace vexal
