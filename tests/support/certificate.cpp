#include "support/certificate.h"

#include <cstdio>
#include <stdexcept>

#include <openssl/pem.h>
#include <openssl/x509v3.h>

Certificate::Certificate(const std::string& names) : m_key(EVP_EC_gen("P-256")), m_x509(X509_new()) {
  X509_set_version(x509(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(x509()), 1);
  X509_gmtime_adj(X509_getm_notBefore(x509()), -3600);
  X509_gmtime_adj(X509_getm_notAfter(x509()), 86400);
  X509_set_pubkey(x509(), key());
  addNames(names);
  if (X509_sign(x509(), key(), EVP_sha256()) == 0)
    throw std::runtime_error("no certificate");
}

void Certificate::addNames(const std::string& names) {
  X509_NAME* const name = X509_get_subject_name(x509());
  const auto* const common = reinterpret_cast<const unsigned char*>("test server");
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, common, -1, -1, 0);
  X509_set_issuer_name(x509(), name);
  const std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION_free>> extension(
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, names.c_str()));
  X509_add_ext(x509(), extension.get(), -1);
}

void Certificate::writePem(const std::string& path) const {
  std::FILE* const file = std::fopen(path.c_str(), "w");
  if (!file || PEM_write_X509(file, x509()) == 0 || std::fclose(file) != 0)
    throw std::runtime_error("cannot write " + path);
}
