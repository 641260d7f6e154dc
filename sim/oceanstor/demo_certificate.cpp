#include "sim/oceanstor/demo_certificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

namespace au_sim {

namespace {

constexpr long VALID_SECONDS = 30L * 24 * 3600;

using Key_Ptr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Cert_Ptr = std::unique_ptr<X509, decltype(&X509_free)>;

bool add_alt_names(X509* cert) {
  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
  X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
  if (!ext) return false;
  const bool added = X509_add_ext(cert, ext, -1) == 1;
  X509_EXTENSION_free(ext);
  return added;
}

Cert_Ptr make_certificate(EVP_PKEY* key) {
  Cert_Ptr cert(X509_new(), &X509_free);
  if (!cert) return cert;
  X509_set_version(cert.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(cert.get()), -60);
  X509_gmtime_adj(X509_getm_notAfter(cert.get()), VALID_SECONDS);
  X509_set_pubkey(cert.get(), key);
  X509_NAME* name = X509_get_subject_name(cert.get());
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("localhost"), -1, -1, 0);
  X509_set_issuer_name(cert.get(), name);
  if (!add_alt_names(cert.get()) || X509_sign(cert.get(), key, EVP_sha256()) == 0) cert.reset();
  return cert;
}

template <class Write>
bool write_pem(const std::string& path, Write write) {
  FILE* f = std::fopen(path.c_str(), "w");
  if (!f) return false;
  const bool written = write(f) == 1;
  return std::fclose(f) == 0 && written;
}

}  // namespace

Demo_Certificate::Demo_Certificate() {
  char dir[] = "/tmp/oceanstor-sim-XXXXXX";
  if (!::mkdtemp(dir)) return;
  dir_ = dir;
  cert_file_ = dir_ + "/cert.pem";
  key_file_ = dir_ + "/key.pem";
  Key_Ptr key(EVP_RSA_gen(2048), &EVP_PKEY_free);
  if (!key) return;
  Cert_Ptr cert = make_certificate(key.get());
  if (!cert) return;
  ok_ = write_pem(key_file_, [&](FILE* f) {
          return PEM_write_PrivateKey(f, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
        }) &&
        write_pem(cert_file_, [&](FILE* f) { return PEM_write_X509(f, cert.get()); });
}

Demo_Certificate::~Demo_Certificate() {
  if (dir_.empty()) return;
  ::unlink(cert_file_.c_str());
  ::unlink(key_file_.c_str());
  ::rmdir(dir_.c_str());
}

}  // namespace au_sim
