#include <gtest/gtest.h>

#include <windows.h>

#include "support/TestSupport.h"
#include "system/FileSignature.h"
#include "system/UniqueHandle.h"

namespace {

using Status = FileSignature::Status;

FileSignature verify(const std::string& path) {
  const ScopedHandle file(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  EXPECT_TRUE(file.valid()) << path;
  return verifyFileSignature(file.get(), path);
}

const char kSubject[] = "O=Orrery Tests, CN=Orrery Test Publisher ";

}  // namespace

// What fails whatever roots the machine trusts: no signature, a file changed after signing, and a
// signer whose chain ends in a root nobody trusts (which Wine's WinVerifyTrust itself passes).
TEST(FileSignature, RefusesUnsignedChangedAndUnknownRootFiles) {
  const FileSignature unsignedPackage = verify(testsupport::trustFixture("unsigned.pkg"));
  EXPECT_EQ(Status::kUnsigned, unsignedPackage.status);
  EXPECT_EQ("not signed", unsignedPackage.reason);
  EXPECT_EQ("no signer", signerText(unsignedPackage));
  // Not a format that carries a signature at all.
  EXPECT_EQ(Status::kUnsigned, verify(testsupport::trustFixture("listed.hash")).status);

  const FileSignature changed = verify(testsupport::trustFixture("changed.pkg"));
  EXPECT_EQ(Status::kBadDigest, changed.status);
  EXPECT_EQ("its contents changed after signing", changed.reason);

  const FileSignature stranger = verify(testsupport::trustFixture("stranger.pkg"));
  EXPECT_EQ(Status::kUntrustedChain, stranger.status);
  EXPECT_NE(std::string::npos, stranger.reason.find("its signer's chain is not trusted here: "))
      << stranger.reason;
  EXPECT_EQ(std::string(kSubject) + "stranger", stranger.subject);
  EXPECT_EQ("CN=Orrery Unknown Root", stranger.issuer);
  EXPECT_EQ(testsupport::publisherHash("stranger"), stranger.keyHash);
  EXPECT_EQ("'" + stranger.subject + "', key " + stranger.keyHash, signerText(stranger));
}

// Under a trusted test root: a code-signing signer passes, with the subject, the issuer and the
// public key's SHA-256 that openssl computed for it; a signer without code signing does not.
TEST(FileSignatureUnderTestRoot, TrustsACodeSigningSignerWhoseChainEndsInATrustedRoot) {
  SKIP_WITHOUT_TEST_ROOT();
  for (const char* signer : {"listed", "second"}) {
    const FileSignature signature = verify(testsupport::trustFixture(std::string(signer) + ".pkg"));
    EXPECT_EQ(Status::kTrusted, signature.status) << signature.reason;
    EXPECT_EQ("", signature.reason);
    EXPECT_EQ(kSubject + std::string(signer), signature.subject);
    EXPECT_EQ("CN=Orrery Test Root", signature.issuer);
    EXPECT_EQ(testsupport::publisherHash(signer), signature.keyHash);
  }
  const FileSignature server = verify(testsupport::trustFixture("server.pkg"));
  EXPECT_NE(Status::kTrusted, server.status);
  EXPECT_NE(std::string::npos, server.reason.find("code")) << server.reason;
  EXPECT_EQ(testsupport::publisherHash("server"), server.keyHash);
}

TEST(FileSignature, APublisherHashIs64HexadecimalCharactersInEitherCase) {
  const std::string hash(64, 'a');
  EXPECT_TRUE(isPublisherHash(hash));
  EXPECT_TRUE(isPublisherHash(std::string(32, 'F') + std::string(32, '0')));
  EXPECT_FALSE(isPublisherHash(hash.substr(1)));
  EXPECT_FALSE(isPublisherHash(hash + "a"));
  EXPECT_FALSE(isPublisherHash(std::string(63, 'a') + "g"));
}
