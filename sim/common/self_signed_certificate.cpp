#include "sim/common/self_signed_certificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace au_sim {

namespace {

constexpr long SECONDS_PER_DAY = 24L * 3600;
// Valid from an hour back, so a clock a little behind still accepts it.
constexpr long BACKDATE_SECONDS = 3600;

bool add_extension(X509* cert, int nid, const char* value) {
  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
  X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
  if (ext == nullptr) return false;
  const bool ok = X509_add_ext(cert, ext, -1) == 1;
  X509_EXTENSION_free(ext);
  return ok;
}

X509* make_certificate(EVP_PKEY* key, int valid_days) {
  X509* cert = X509_new();
  if (cert == nullptr) return nullptr;
  X509_NAME* name = X509_get_subject_name(cert);
  const bool ok =
      X509_set_version(cert, 2) == 1 &&
      ASN1_INTEGER_set(X509_get_serialNumber(cert), std::rand() & 0x7fffffff) == 1 &&
      X509_gmtime_adj(X509_getm_notBefore(cert), -BACKDATE_SECONDS) != nullptr &&
      X509_gmtime_adj(X509_getm_notAfter(cert), valid_days * SECONDS_PER_DAY) != nullptr &&
      X509_set_pubkey(cert, key) == 1 &&
      X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                 reinterpret_cast<const unsigned char*>("localhost"), -1, -1,
                                 0) == 1 &&
      X509_set_issuer_name(cert, name) == 1 &&
      add_extension(cert, NID_basic_constraints, "critical,CA:TRUE") &&
      add_extension(cert, NID_key_usage, "critical,digitalSignature,keyCertSign") &&
      add_extension(cert, NID_subject_key_identifier, "hash") &&
      add_extension(cert, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1") &&
      X509_sign(cert, key, EVP_sha256()) > 0;
  if (!ok) {
    X509_free(cert);
    return nullptr;
  }
  return cert;
}

template <class Write>
bool write_pem(const std::string& path, Write write) {
  FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) return false;
  const bool ok = write(f);
  return std::fclose(f) == 0 && ok;
}

}  // namespace

Self_Signed_Certificate::Self_Signed_Certificate(int valid_days) {
  char dir[] = "/tmp/au_tls_XXXXXX";
  if (valid_days <= 0 || ::mkdtemp(dir) == nullptr) return;
  dir_ = dir;
  cert_file_ = dir_ + "/cert.pem";
  key_file_ = dir_ + "/key.pem";
  EVP_PKEY* key = EVP_EC_gen("P-256");
  X509* cert = key ? make_certificate(key, valid_days) : nullptr;
  ok_ = cert != nullptr &&
        write_pem(key_file_,
                  [key](FILE* f) {
                    return PEM_write_PrivateKey(f, key, nullptr, nullptr, 0, nullptr, nullptr) == 1;
                  }) &&
        write_pem(cert_file_, [cert](FILE* f) { return PEM_write_X509(f, cert) == 1; });
  X509_free(cert);
  EVP_PKEY_free(key);
}

Self_Signed_Certificate::~Self_Signed_Certificate() {
  if (dir_.empty()) return;
  ::unlink(cert_file_.c_str());
  ::unlink(key_file_.c_str());
  ::rmdir(dir_.c_str());
}

}  // namespace au_sim
