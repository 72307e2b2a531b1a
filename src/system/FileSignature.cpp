#include "system/FileSignature.h"

#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

#include <cstdio>
#include <vector>

namespace {

// Chain errors that leave a signature good: the revocation status could not be determined.
const DWORD kUndeterminedRevocation =
    CERT_TRUST_REVOCATION_STATUS_UNKNOWN | CERT_TRUST_IS_OFFLINE_REVOCATION;

std::string hex(DWORD value) {
  char text[16] = {};
  static_cast<void>(snprintf(text, sizeof(text), "0x%lX", value));
  return text;
}

std::string nameText(const CERT_NAME_BLOB& name) {
  CERT_NAME_BLOB blob = name;
  const DWORD size = CertNameToStrA(X509_ASN_ENCODING, &blob, CERT_X500_NAME_STR, nullptr, 0);
  std::vector<char> text(size + 1, '\0');
  CertNameToStrA(X509_ASN_ENCODING, &blob, CERT_X500_NAME_STR, text.data(), size);
  return text.data();
}

// The SHA-256 of the certificate's DER SubjectPublicKeyInfo, in lowercase hexadecimal; empty when
// it cannot be computed.
std::string publicKeyHash(PCCERT_CONTEXT certificate) {
  CERT_PUBLIC_KEY_INFO* key = &certificate->pCertInfo->SubjectPublicKeyInfo;
  DWORD size = 0;
  if (!CryptEncodeObject(X509_ASN_ENCODING, X509_PUBLIC_KEY_INFO, key, nullptr, &size))
    return std::string();
  std::vector<BYTE> der(size);
  BYTE hash[32] = {};
  DWORD hashSize = sizeof(hash);
  if (!CryptEncodeObject(X509_ASN_ENCODING, X509_PUBLIC_KEY_INFO, key, der.data(), &size) ||
      !CryptHashCertificate2(BCRYPT_SHA256_ALGORITHM, 0, nullptr, der.data(), size, hash,
                             &hashSize) ||
      hashSize != sizeof(hash))
    return std::string();
  std::string text;
  for (const BYTE byte : hash) {
    char pair[3] = {};
    static_cast<void>(snprintf(pair, sizeof(pair), "%02x", byte));
    text += pair;
  }
  return text;
}

// Whether the certificate may sign code: its enhanced key usage names code signing, or it has
// none, which allows every use.
bool allowsCodeSigning(PCCERT_CONTEXT certificate) {
  DWORD size = 0;
  if (!CertGetEnhancedKeyUsage(certificate, 0, nullptr, &size))
    return false;
  std::vector<BYTE> buffer(size);
  CERT_ENHKEY_USAGE* usage = reinterpret_cast<CERT_ENHKEY_USAGE*>(buffer.data());
  if (!CertGetEnhancedKeyUsage(certificate, 0, usage, &size))
    return false;
  if (usage->cUsageIdentifier == 0)
    return GetLastError() == static_cast<DWORD>(CRYPT_E_NOT_FOUND);  // else: no use at all
  for (DWORD index = 0; index < usage->cUsageIdentifier; ++index) {
    if (strcmp(usage->rgpszUsageIdentifier[index], szOID_PKIX_KP_CODE_SIGNING) == 0)
      return true;
  }
  return false;
}

// What is wrong with a chain whose errors are `errors`, the worst first.
std::string chainProblem(DWORD errors) {
  const std::pair<DWORD, const char*> known[] = {
      {CERT_TRUST_IS_REVOKED, "a certificate is revoked"},
      {CERT_TRUST_IS_EXPLICIT_DISTRUST, "a certificate is distrusted"},
      {CERT_TRUST_IS_NOT_SIGNATURE_VALID, "a certificate's signature is not valid"},
      {CERT_TRUST_IS_PARTIAL_CHAIN, "it does not end in a trusted root"},
      {CERT_TRUST_IS_UNTRUSTED_ROOT, "it ends in a root that is not trusted"},
      {CERT_TRUST_IS_NOT_TIME_VALID, "a certificate has expired or is not yet valid"},
      {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, "it is not valid for code signing"},
  };
  std::string what = "error";
  for (const auto& [bit, text] : known) {
    if ((errors & bit) != 0) {
      what = text;
      break;
    }
  }
  return "its signer's chain is not trusted here: " + what + " (" + hex(errors) + ")";
}

// Holds WinVerifyTrust's state from the verification until it is closed again.
class Verification {
 public:
  Verification(HANDLE file, const std::wstring& path) {
    file_.cbStruct = sizeof(file_);
    file_.pcwszFilePath = path.c_str();
    file_.hFile = file;
    data_.cbStruct = sizeof(data_);
    data_.dwUIChoice = WTD_UI_NONE;
    data_.fdwRevocationChecks = WTD_REVOKE_WHOLECHAIN;
    data_.dwUnionChoice = WTD_CHOICE_FILE;
    data_.pFile = &file_;
    data_.dwStateAction = WTD_STATEACTION_VERIFY;
    data_.dwProvFlags = WTD_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT;
    code_ = WinVerifyTrust(noWindow(), &action_, &data_);
  }
  ~Verification() {
    data_.dwStateAction = WTD_STATEACTION_CLOSE;
    WinVerifyTrust(noWindow(), &action_, &data_);
  }
  Verification(const Verification&) = delete;
  Verification& operator=(const Verification&) = delete;

  LONG code() const { return code_; }
  // The first signer of that verification, or null.
  CRYPT_PROVIDER_SGNR* signer() const {
    CRYPT_PROVIDER_DATA* provider = WTHelperProvDataFromStateData(data_.hWVTStateData);
    return provider == nullptr ? nullptr : WTHelperGetProvSignerFromChain(provider, 0, FALSE, 0);
  }

 private:
  static HWND noWindow() { return reinterpret_cast<HWND>(INVALID_HANDLE_VALUE); }

  GUID action_ = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  WINTRUST_FILE_INFO file_ = {};
  WINTRUST_DATA data_ = {};
  LONG code_ = 0;
};

std::wstring wide(const std::string& text) {
  const int size = MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, nullptr, 0);
  std::vector<wchar_t> buffer(static_cast<size_t>(size > 0 ? size : 1), L'\0');
  if (size > 0)
    MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, buffer.data(), size);
  return buffer.data();
}

}  // namespace

std::string signerText(const FileSignature& signature) {
  if (signature.subject.empty() && signature.keyHash.empty())
    return "no signer";
  return "'" + signature.subject + "', key " + signature.keyHash;
}

FileSignature verifyFileSignature(HANDLE file, const std::string& path) {
  FileSignature signature;
  const auto ended = [&signature](FileSignature::Status status, const std::string& reason) {
    signature.status = status;
    signature.reason = reason;
    return signature;
  };
  const std::wstring widePath = wide(path);
  const Verification verification(file, widePath);
  const LONG code = verification.code();
  const DWORD unsignedCode = static_cast<DWORD>(code);
  if (unsignedCode == static_cast<DWORD>(TRUST_E_NOSIGNATURE) ||
      unsignedCode == static_cast<DWORD>(TRUST_E_SUBJECT_FORM_UNKNOWN) ||
      unsignedCode == static_cast<DWORD>(TRUST_E_PROVIDER_UNKNOWN))
    return ended(FileSignature::Status::kUnsigned, "not signed");
  // The signer, where the verification got as far as reading it (Windows does for a changed file
  // too, Wine does not).
  const CRYPT_PROVIDER_SGNR* signer = verification.signer();
  const CRYPT_PROVIDER_CERT* certificate =
      signer == nullptr || signer->csCertChain == 0 ? nullptr : signer->pasCertChain;
  if (certificate != nullptr && certificate->pCert != nullptr) {
    signature.subject = nameText(certificate->pCert->pCertInfo->Subject);
    signature.issuer = nameText(certificate->pCert->pCertInfo->Issuer);
    signature.keyHash = publicKeyHash(certificate->pCert);
  }
  if (unsignedCode == static_cast<DWORD>(TRUST_E_BAD_DIGEST))
    return ended(FileSignature::Status::kBadDigest, "its contents changed after signing");
  if (certificate == nullptr || certificate->pCert == nullptr)
    return ended(FileSignature::Status::kFailed,
                 "its signature cannot be verified: WinVerifyTrust " + hex(unsignedCode));

  if (signer->pChainContext == nullptr)
    return ended(FileSignature::Status::kUntrustedChain,
                 "its signer's chain is not trusted here: no chain was built");
  const DWORD chainErrors = signer->pChainContext->TrustStatus.dwErrorStatus;
  if ((chainErrors & ~kUndeterminedRevocation) != 0)
    return ended(FileSignature::Status::kUntrustedChain, chainProblem(chainErrors));
  if (!allowsCodeSigning(certificate->pCert))
    return ended(FileSignature::Status::kNotForCodeSigning, "its signer may not sign code");
  // A revocation status that could not be determined is all that this answer may add.
  if (code != ERROR_SUCCESS && unsignedCode != static_cast<DWORD>(CERT_E_REVOCATION_FAILURE))
    return ended(FileSignature::Status::kFailed,
                 "its signature is not valid: WinVerifyTrust " + hex(unsignedCode));
  if (signature.keyHash.empty())
    return ended(FileSignature::Status::kFailed, "its signer's public key cannot be read");
  return ended(FileSignature::Status::kTrusted, "");
}

bool isPublisherHash(const std::string& text) {
  return text.size() == 64 && text.find_first_not_of("0123456789ABCDEFabcdef") == std::string::npos;
}
