#include "Platform/Network/CurlSetup.h"

#include "Platform/Network/NetworkTuning.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace varo::platform {
namespace {

bool isDirectory(const std::string& path) {
  std::error_code none;
  return std::filesystem::is_directory(path, none);
}

/// Adds the configured certificates to what libcurl trusts already; its own options would replace
/// the system's. And takes back what libcurl does where the environment names a SSLKEYLOGFILE: it
/// would write the keys of every connection there. Called for a proxy that speaks TLS, too.
CURLcode adjustTls(CURL* /*easy*/, void* context, void* given) {
  auto* const tls = static_cast<SSL_CTX*>(context);
  const auto& configuration = *static_cast<const NetworkConfiguration*>(given);
  SSL_CTX_set_keylog_callback(tls, nullptr);
  const std::string& file = configuration.caFile;
  const std::string& directory = configuration.caDirectory;
  // OpenSSL looks into a directory only when it needs a certificate, and is content with none.
  const bool isGood = (file.empty() || SSL_CTX_load_verify_file(tls, file.c_str()) == 1) &&
                      (directory.empty() || (isDirectory(directory) &&
                                             SSL_CTX_load_verify_dir(tls, directory.c_str()) == 1));
  if (isGood) return CURLE_OK;
  ERR_clear_error();
  return CURLE_SSL_CACERT_BADFILE;
}

std::string joined(const std::vector<std::string>& pins) {
  std::string text;
  for (const std::string& pin : pins) text += (text.empty() ? "" : ";") + pin;
  return text;
}

void setClientCertificate(CurlOptions& options, const NetworkConfiguration& configuration) {
  if (configuration.clientCertificate.empty()) return;
  const std::string& key = configuration.clientKey;
  options.set(CURLOPT_SSLCERT, configuration.clientCertificate.c_str());
  options.set(CURLOPT_SSLKEY, (key.empty() ? configuration.clientCertificate : key).c_str());
  // Also where there is none: OpenSSL would ask at the terminal for what a key needs.
  options.set(CURLOPT_KEYPASSWD, configuration.clientKeyPassword.c_str());
}

}  // namespace

void setSecurity(CurlOptions& options, const NetworkConfiguration& configuration) {
  // libcurl speaks others too, "file" among them.
  options.set(CURLOPT_PROTOCOLS_STR, "http,https");
  options.set(CURLOPT_SSL_VERIFYPEER, 1L);
  options.set(CURLOPT_SSL_VERIFYHOST, 2L);
  options.set(CURLOPT_SSLVERSION, configuration.minimumTls == TlsVersion::k13
                                      ? long{CURL_SSLVERSION_TLSv1_3}
                                      : long{CURL_SSLVERSION_TLSv1_2});
  // Where the system's certificates are in one file, libcurl keeps them in memory, but only without
  // a directory of the same: reading them costs 10 ms a connection.
  if (curl_version_info(CURLVERSION_NOW)->cainfo != nullptr) {
    options.set(CURLOPT_CAPATH, nullptr);
    options.set(CURLOPT_PROXY_CAPATH, nullptr);
  }
  options.set(CURLOPT_SSL_CTX_FUNCTION, &adjustTls);
  options.set(CURLOPT_SSL_CTX_DATA, &configuration);
  setClientCertificate(options, configuration);
  if (!configuration.pinnedKeys.empty()) {
    options.set(CURLOPT_PINNEDPUBLICKEY, joined(configuration.pinnedKeys).c_str());
  }
  options.set(CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
  // Redirects are followed here, where it is known which headers carry credentials.
  options.set(CURLOPT_FOLLOWLOCATION, 0L);
}

void setProxy(CurlOptions& options, const CurlProxy* proxy) {
  // An empty proxy also shuts out the one that the environment names, an empty list the hosts that
  // it names to be reached without.
  options.set(CURLOPT_PROXY, proxy == nullptr ? "" : proxy->url.c_str());
  if (proxy == nullptr) return;
  options.set(CURLOPT_NOPROXY, "");
  options.set(CURLOPT_PROXY_SSL_VERIFYPEER, 1L);
  options.set(CURLOPT_PROXY_SSL_VERIFYHOST, 2L);
  options.set(CURLOPT_PROXY_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  // The response of the proxy is not that of the server; and what goes to the server, tokens among
  // it, is not for the proxy.
  options.set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  options.set(CURLOPT_HEADEROPT, long{CURLHEADER_SEPARATE});
  // One that has to be asked first what it wants would get each request twice, a POST too.
  options.set(CURLOPT_PROXYAUTH, long{CURLAUTH_BASIC});
  options.set(CURLOPT_SOCKS5_AUTH, long{CURLAUTH_BASIC});
  if (proxy->user.empty()) return;
  options.set(CURLOPT_PROXYUSERNAME, proxy->user.c_str());
  options.set(CURLOPT_PROXYPASSWORD, proxy->password.c_str());
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

std::string blamedFile(CURLcode code, const NetworkConfiguration& configuration) {
  const std::string& directory = configuration.caDirectory;
  switch (code) {
    case CURLE_SSL_CACERT_BADFILE:
      // Which of the two it was, nobody has noted; the file is looked at first.
      return configuration.caFile.empty() || (!directory.empty() && !isDirectory(directory))
                 ? directory
                 : configuration.caFile;
    case CURLE_SSL_CERTPROBLEM:
      return configuration.clientKey.empty()
                 ? configuration.clientCertificate
                 : configuration.clientCertificate + ", " + configuration.clientKey;
    default:
      return {};
  }
}

}  // namespace varo::platform
