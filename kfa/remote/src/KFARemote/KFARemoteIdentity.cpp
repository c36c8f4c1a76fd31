// SPDX-License-Identifier: Apache-2.0
#include <KFARemote/KFARemoteTypes.h>

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFLCommon/KFLError.h>

namespace KFA {

namespace {

template <class T, void (*Free)(T*)>
struct Freed {
  void operator()(T* object) const { Free(object); }
};
template <class T, void (*Free)(T*)>
using Owned = std::unique_ptr<T, Freed<T, Free>>;
using Certificate = Owned<X509, X509_free>;
using Key = Owned<EVP_PKEY, EVP_PKEY_free>;
struct FreedBio {
  void operator()(BIO* bio) const { BIO_free(bio); }
};

// The first object of its kind in a PEM file, read by `read`; null with an error text.
template <class Object, class Read>
Object readPem(const std::string& path, const char* what, Read read) {
  std::string text;
  if (KFAConfigFile(path).read(text) != 0) return {};
  const std::unique_ptr<BIO, FreedBio> bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  Object object(bio ? read(bio.get(), nullptr, nullptr, nullptr) : nullptr);
  if (!object)
    setErrorMessage("%s: there is no %s in it; one in PEM form would be right", path.c_str(), what);
  return object;
}

int checkDates(const std::string& path, const X509& certificate) {
  const bool hasBegun = X509_cmp_current_time(X509_get0_notBefore(&certificate)) < 0;
  const bool hasEnded = X509_cmp_current_time(X509_get0_notAfter(&certificate)) < 0;
  if (hasBegun && !hasEnded) return 0;
  setErrorMessage("%s: the certificate is %s; one that is valid now would be right", path.c_str(),
                  hasEnded ? "expired" : "not valid yet");
  return -1;
}

}  // namespace

int KFARemoteIdentity::check() const {
  const auto own = readPem<Certificate>(certificate, "certificate", &PEM_read_bio_X509);
  if (!own || checkDates(certificate, *own) != 0) return -1;
  const auto secret = readPem<Key>(key, "private key", &PEM_read_bio_PrivateKey);
  if (!secret) return -1;
  if (X509_check_private_key(own.get(), secret.get()) != 1) {
    setErrorMessage("%s is not the key of the certificate %s", key.c_str(), certificate.c_str());
    return -1;
  }
  const auto root = readPem<Certificate>(authority, "certificate", &PEM_read_bio_X509);
  return root ? checkDates(authority, *root) : -1;
}

}  // namespace KFA
