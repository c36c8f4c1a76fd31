// SPDX-License-Identifier: Apache-2.0
// Authorities and certificates for tests, in a folder that goes away with them.
#ifndef KFA_REMOTE_TESTS_TESTCERTIFICATES_H
#define KFA_REMOTE_TESTS_TESTCERTIFICATES_H

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>

#include <KFARemote/KFARemoteTypes.h>

#include "../../lib/tests/files/FilesTest.h"

class TestAuthority {
 public:
  TestAuthority(const TemporaryFolder& folder, const std::string& name) : folder_(folder), name_(name) {
    certificate_ = make(name, key_, -86400, 86400, true);
    write(folder_ / (name_ + ".pem"), nullptr, certificate_.get());
  }

  // A certificate for a name that is also for 127.0.0.1, valid between these seconds from now.
  KFA::KFARemoteIdentity issue(const std::string& name, long from = -60, long until = 3600) const {
    return issueAs(name, name, from, until);
  }
  // The same in the files of another name.
  KFA::KFARemoteIdentity issueAs(const std::string& file, const std::string& name, long from = -60,
                                 long until = 3600) const {
    Key key;
    const Certificate made = make(name, key, from, until, false);
    KFA::KFARemoteIdentity identity;
    identity.certificate = folder_ / (file + "-" + name_ + ".pem");
    identity.key = folder_ / (file + "-" + name_ + ".key");
    identity.authority = folder_ / (name_ + ".pem");
    identity.reloadSeconds = 1;
    write(identity.key, key.get(), nullptr);
    write(identity.certificate, nullptr, made.get());
    return identity;
  }

 private:
  struct Free {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
  };
  using Key = std::unique_ptr<EVP_PKEY, Free>;
  using Certificate = std::unique_ptr<X509, Free>;

  Certificate make(const std::string& name, Key& key, long from, long until, bool isAuthority) const {
    static long serial = 1;
    key.reset(EVP_EC_gen("P-256"));
    Certificate made(X509_new());
    X509_set_version(made.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), serial++);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), from);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), until);
    X509_set_pubkey(made.get(), key.get());
    X509_NAME* const subject = X509_get_subject_name(made.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    X509* const issuer = isAuthority ? made.get() : certificate_.get();
    X509_set_issuer_name(made.get(), X509_get_subject_name(issuer));
    add(*made, NID_basic_constraints, isAuthority ? "critical,CA:TRUE" : "CA:FALSE");
    if (!isAuthority) add(*made, NID_subject_alt_name, "DNS:" + name + ",IP:127.0.0.1");
    EXPECT_NE(X509_sign(made.get(), isAuthority ? key.get() : key_.get(), EVP_sha256()), 0);
    return made;
  }
  static void add(X509& to, int nid, const std::string& value) {
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
    ASSERT_NE(extension, nullptr) << value;
    X509_add_ext(&to, extension, -1);
    X509_EXTENSION_free(extension);
  }
  // Replaces a file at once, as whoever renews a certificate should.
  static void write(const std::string& path, EVP_PKEY* key, X509* certificate) {
    FILE* const file = std::fopen((path + ".new").c_str(), "w");
    ASSERT_NE(file, nullptr) << path;
    if (key != nullptr) PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr);
    if (certificate != nullptr) PEM_write_X509(file, certificate);
    std::fclose(file);
    std::filesystem::rename(path + ".new", path);
  }

  const TemporaryFolder& folder_;
  const std::string name_;
  Key key_;
  Certificate certificate_;
};

#endif
