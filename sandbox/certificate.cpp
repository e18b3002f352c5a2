// The sandbox's TLS identity: an EC P-256 key and a self-signed X.509 v3 certificate whose
// subject alternative names are the configured host names and addresses. It is marked
// CA:TRUE so that clients can use the PEM file directly as their CA bundle. One
// certificate is made per process and name set; later sandboxes reuse it, so a bundle
// written by the first one keeps working for all of them.

#include <arpa/inet.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "sandbox_internal.h"

namespace tavik::sandbox::detail {

namespace {

[[noreturn]] void fail(const std::string& what) {
  std::string message = "tavik-sandbox: cannot make the TLS certificate: " + what;
  const unsigned long code = ERR_get_error();
  if (code != 0) {
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    message += " (";
    message += text;
    message += ")";
  }
  ERR_clear_error();
  throw std::runtime_error(message);
}

bool isIpAddress(const std::string& name) {
  unsigned char buffer[16];
  return inet_pton(AF_INET, name.c_str(), buffer) == 1 ||
         inet_pton(AF_INET6, name.c_str(), buffer) == 1;
}

EVP_PKEY* makeKey() {
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr);
  EVP_PKEY* key = nullptr;
  const bool ok = ctx != nullptr && EVP_PKEY_keygen_init(ctx) > 0 &&
                  EVP_PKEY_CTX_set_ec_paramgen_curve_nid(ctx, NID_X9_62_prime256v1) > 0 &&
                  EVP_PKEY_keygen(ctx, &key) > 0;
  EVP_PKEY_CTX_free(ctx);
  if (!ok) {
    EVP_PKEY_free(key);
    fail("EC P-256 key generation failed");
  }
  return key;
}

void addExtension(X509* cert, X509V3_CTX* ctx, int nid, const std::string& value) {
  X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, ctx, nid, value.c_str());
  if (ext == nullptr) fail("bad extension " + std::string(OBJ_nid2sn(nid)) + " = " + value);
  const int added = X509_add_ext(cert, ext, -1);
  X509_EXTENSION_free(ext);
  if (added != 1) fail("cannot add extension " + std::string(OBJ_nid2sn(nid)));
}

std::string subjectAltNames(const std::vector<std::string>& names) {
  std::string list;
  for (const auto& name : names) {
    const bool ip = isIpAddress(name);
    if (name.empty() || (!ip && name.find_first_of(",:/\r\n ") != std::string::npos)) {
      throw std::runtime_error("tavik-sandbox: unusable certificate name '" + name + "'");
    }
    if (!list.empty()) list += ",";
    list += (ip ? "IP:" : "DNS:") + name;
  }
  return list;
}

void writeTemporaryFile(Certificate& certificate) {
  std::error_code error;
  std::filesystem::path dir = std::filesystem::temp_directory_path(error);
  if (error) dir = "/tmp";
  std::string path = (dir / "tavik-sandbox-XXXXXX.pem").string();
  const int fd = mkstemps(path.data(), 4);
  if (fd < 0) {
    certificate.pemFileError = dir.string() + ": " + std::strerror(errno);
    return;
  }
  std::size_t written = 0;
  while (written < certificate.pem.size()) {
    const ssize_t n =
        ::write(fd, certificate.pem.data() + written, certificate.pem.size() - written);
    if (n <= 0) break;
    written += static_cast<std::size_t>(n);
  }
  ::close(fd);
  if (written != certificate.pem.size()) {
    std::remove(path.c_str());
    certificate.pemFileError = path + ": write failed";
    return;
  }
  certificate.pemFile = path;
}

Certificate* makeCertificate(const std::vector<std::string>& names) {
  if (names.empty())
    throw std::runtime_error("tavik-sandbox: the certificate needs at least one name");
  const std::string sans = subjectAltNames(names);

  auto certificate = std::make_unique<Certificate>();
  certificate->key = makeKey();
  X509* cert = X509_new();
  certificate->cert = cert;
  if (cert == nullptr) fail("X509_new failed");

  // Free everything made so far if a later step throws.
  struct Guard {
    std::unique_ptr<Certificate>& owned;
    ~Guard() {
      if (owned) {
        X509_free(owned->cert);
        EVP_PKEY_free(owned->key);
      }
    }
  } guard{certificate};

  if (X509_set_version(cert, 2) != 1) fail("cannot set version 3");
  BIGNUM* serial = BN_new();
  const bool serialOk = serial != nullptr &&
                        BN_rand(serial, 63, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
                        BN_to_ASN1_INTEGER(serial, X509_get_serialNumber(cert)) != nullptr;
  BN_free(serial);
  if (!serialOk) fail("cannot set a serial number");

  if (X509_gmtime_adj(X509_getm_notBefore(cert), -60L * 60) == nullptr ||
      X509_gmtime_adj(X509_getm_notAfter(cert), 365L * 24 * 60 * 60) == nullptr) {
    fail("cannot set the validity period");
  }
  if (X509_set_pubkey(cert, certificate->key) != 1) fail("cannot set the public key");

  X509_NAME* subject = X509_get_subject_name(cert);
  const std::string commonName = names.front().substr(0, 64);
  if (X509_NAME_add_entry_by_txt(subject, "O", MBSTRING_UTF8,
                                 reinterpret_cast<const unsigned char*>("Tavik sandbox"), -1, -1,
                                 0) != 1 ||
      X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                 reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1,
                                 0) != 1 ||
      X509_set_issuer_name(cert, subject) != 1) {
    fail("cannot set the subject name");
  }

  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
  addExtension(cert, &ctx, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(cert, &ctx, NID_key_usage, "critical,digitalSignature,keyCertSign,cRLSign");
  addExtension(cert, &ctx, NID_ext_key_usage, "serverAuth");
  addExtension(cert, &ctx, NID_subject_key_identifier, "hash");
  addExtension(cert, &ctx, NID_authority_key_identifier, "keyid:always");
  addExtension(cert, &ctx, NID_subject_alt_name, sans);

  if (X509_sign(cert, certificate->key, EVP_sha256()) <= 0) fail("signing failed");

  BIO* bio = BIO_new(BIO_s_mem());
  if (bio == nullptr || PEM_write_bio_X509(bio, cert) != 1) {
    BIO_free(bio);
    fail("cannot write the certificate as PEM");
  }
  char* data = nullptr;
  const long length = BIO_get_mem_data(bio, &data);
  certificate->pem.assign(data, static_cast<std::size_t>(length));
  BIO_free(bio);
  writeTemporaryFile(*certificate);

  return certificate.release();
}

void freeCertificate(Certificate* certificate) {
  if (!certificate->pemFile.empty()) std::remove(certificate->pemFile.c_str());
  X509_free(certificate->cert);
  EVP_PKEY_free(certificate->key);
  delete certificate;
}

}  // namespace

std::shared_ptr<const Certificate> certificateFor(const std::vector<std::string>& names) {
  static std::mutex mutex;
  static std::map<std::vector<std::string>, std::shared_ptr<const Certificate>> cache;

  std::vector<std::string> key = names;
  std::sort(key.begin(), key.end());
  key.erase(std::unique(key.begin(), key.end()), key.end());

  std::lock_guard lock(mutex);
  auto found = cache.find(key);
  if (found != cache.end()) return found->second;
  std::shared_ptr<const Certificate> made(makeCertificate(names), freeCertificate);
  cache.emplace(std::move(key), made);
  return made;
}

}  // namespace tavik::sandbox::detail
