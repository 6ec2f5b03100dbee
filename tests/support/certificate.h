// A key and the certificate that it signs for itself, good for a day.
#pragma once

#include <memory>
#include <string>

#include <openssl/evp.h>
#include <openssl/x509.h>

class Certificate {
public:
  // `names` is as OpenSSL's subjectAltName takes it.
  explicit Certificate(const std::string& names);

  EVP_PKEY* key() const { return m_key.get(); }
  X509* x509() const { return m_x509.get(); }
  void writePem(const std::string& path) const;

private:
  template<auto Free>
  struct Freed {
    template<class T>
    void operator()(T* object) const {
      Free(object);
    }
  };

  void addNames(const std::string& names);

  std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>> m_key;
  std::unique_ptr<X509, Freed<X509_free>> m_x509;
};
