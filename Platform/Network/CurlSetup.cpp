#include "Platform/Network/CurlSetup.h"

#include "Platform/Network/NetworkTuning.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>

namespace varo::platform {
namespace {

/// Adds the configured certificates (the file `path`, unless it is empty) to what libcurl trusts
/// already; its own option for a file would replace the system's. And takes back what libcurl does
/// where the environment names a SSLKEYLOGFILE: it would write the keys of every connection there.
CURLcode adjustTls(CURL* /*easy*/, void* context, void* path) {
  auto* const tls = static_cast<SSL_CTX*>(context);
  const auto* const file = static_cast<const char*>(path);
  SSL_CTX_set_keylog_callback(tls, nullptr);
  if (*file == '\0' || SSL_CTX_load_verify_locations(tls, file, nullptr) == 1) return CURLE_OK;
  ERR_clear_error();
  return CURLE_SSL_CACERT_BADFILE;
}

}  // namespace

void setSecurity(CurlOptions& options, const NetworkConfiguration& configuration) {
  // libcurl speaks others too, "file" among them.
  options.set(CURLOPT_PROTOCOLS_STR, "http,https");
  options.set(CURLOPT_SSL_VERIFYPEER, 1L);
  options.set(CURLOPT_SSL_VERIFYHOST, 2L);
  options.set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  // Where the system's certificates are in one file, libcurl keeps them in memory, but only without
  // a directory of the same: reading them costs 10 ms a connection.
  if (curl_version_info(CURLVERSION_NOW)->cainfo != nullptr) options.set(CURLOPT_CAPATH, nullptr);
  options.set(CURLOPT_SSL_CTX_FUNCTION, &adjustTls);
  options.set(CURLOPT_SSL_CTX_DATA, configuration.caFile.c_str());
  // An empty proxy also shuts out the one that the environment names.
  options.set(CURLOPT_PROXY, "");
  options.set(CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
  // Redirects are followed here, where it is known which headers carry credentials.
  options.set(CURLOPT_FOLLOWLOCATION, 0L);
}

void setConnection(CurlOptions& options, std::chrono::milliseconds connectTimeout, bool isHttps,
                   std::size_t bufferSize) {
  // Signals belong to the application.
  options.set(CURLOPT_NOSIGNAL, 1L);
  // Ending a transfer must not wait for a name server that does not respond.
  options.set(CURLOPT_QUICK_EXIT, 1L);
  options.set(CURLOPT_TCP_NODELAY, 1L);
  options.set(CURLOPT_TCP_KEEPALIVE, 1L);
  options.set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connectTimeout.count()));
  options.set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_2TLS});
  // Only where HTTP/2 is possible: rather a stream on a connection that is being made than another
  // connection.
  options.set(CURLOPT_PIPEWAIT, isHttps ? 1L : 0L);
  options.set(CURLOPT_BUFFERSIZE, static_cast<long>(std::min(bufferSize, tuning::kReceiveBuffer)));
}

}  // namespace varo::platform
