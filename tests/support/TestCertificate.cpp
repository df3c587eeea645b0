#include "tests/support/TestCertificate.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>

namespace varo::test {
namespace {

template <auto Release>
struct Releaser {
  template <typename T>
  void operator()(T* object) const {
    Release(object);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Releaser<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Releaser<X509_EXTENSION_free>>;
using Sink = std::unique_ptr<BIO, Releaser<BIO_free_all>>;

constexpr long kDay = 24L * 60 * 60;

void require(bool condition) {
  if (!condition) throw std::runtime_error("The test certificate could not be made.");
}

void addExtension(X509* certificate, int kind, const char* value) {
  const Extension extension(X509V3_EXT_conf_nid(nullptr, nullptr, kind, value));
  require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1);
}

std::string textOf(const Sink& sink) {
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(sink.get(), &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

}  // namespace

TestCertificate makeTestCertificate(int daysValid) {
  const Key key(EVP_EC_gen("P-256"));
  const Certificate certificate(X509_new());
  require(key != nullptr && certificate != nullptr);
  X509* const x509 = certificate.get();
  require(X509_set_version(x509, 2) == 1);
  require(ASN1_INTEGER_set(X509_get_serialNumber(x509), 1) == 1);
  require(X509_gmtime_adj(X509_getm_notBefore(x509), -2 * kDay) != nullptr);
  require(X509_gmtime_adj(X509_getm_notAfter(x509), daysValid * kDay) != nullptr);
  require(X509_set_pubkey(x509, key.get()) == 1);
  X509_NAME* const name = X509_get_subject_name(x509);
  const unsigned char text[] = "varo test";
  require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0) == 1);
  require(X509_set_issuer_name(x509, name) == 1);
  addExtension(x509, NID_subject_alt_name, "IP:127.0.0.1");
  addExtension(x509, NID_basic_constraints, "critical,CA:TRUE");
  require(X509_sign(x509, key.get(), EVP_sha256()) > 0);

  const std::shared_ptr<SSL_CTX> server(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
  require(SSL_CTX_use_certificate(server.get(), x509) == 1);
  require(SSL_CTX_use_PrivateKey(server.get(), key.get()) == 1);

  const Sink pem(BIO_new(BIO_s_mem()));
  require(PEM_write_bio_X509(pem.get(), x509) == 1);
  const Sink keyPem(BIO_new(BIO_s_mem()));
  require(PEM_write_bio_PrivateKey(keyPem.get(), key.get(), nullptr, nullptr, 0, nullptr,
                                   nullptr) == 1);
  return {textOf(pem), textOf(keyPem), server};
}

}  // namespace varo::test
