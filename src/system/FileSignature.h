#pragma once

#include <windows.h>

#include <string>

// The Authenticode signature of a file, as this machine judges it: WinVerifyTrust's generic
// verification (WINTRUST_ACTION_GENERIC_VERIFY_V2) through an open handle, and the signer taken
// from that same verification, never from a second open of the file.
//
// A time stamp in the signature is honoured (the signer's chain is built at the stamped time).
// Revocation is checked for every certificate of the chain but the root, with the system's own
// retrieval of revocation lists: a certificate that is revoked fails, one whose status cannot be
// determined (no list reachable, offline) does not. Wine's WinVerifyTrust passes a chain that ends
// in an unknown root, so the chain's trust status is read here, not taken from its answer.
//
// Nothing throws; nothing is kept between calls; safe on any thread.
struct FileSignature {
  enum class Status {
    kTrusted,            // signed, the digest matches, a code-signing signer, a trusted chain
    kUnsigned,           // no signature that this system can read (or no signature in the format)
    kBadDigest,          // signed, but the contents changed since
    kUntrustedChain,     // the signer's chain has an error (unknown root, expired, revoked, ...)
    kNotForCodeSigning,  // the signer's certificate does not allow code signing
    kFailed,             // anything else: WinVerifyTrust's code in `reason`
  };
  Status status = Status::kFailed;
  // Why it is not kTrusted, one line ("not signed", "its contents changed after signing", "its
  // signer's chain is not trusted here: it does not end in a trusted root (0x10000)"); empty for
  // kTrusted.
  std::string reason;
  // The signer's certificate, when there is one: its subject and issuer as X.500 texts
  // ("O=Corvane, CN=Corvane Updates"), and the SHA-256 of its public key (the DER
  // SubjectPublicKeyInfo), 64 lowercase hexadecimal characters; empty without a signer.
  std::string subject;
  std::string issuer;
  std::string keyHash;
};

// The signer of `signature` for a log line: "'<subject>', key <keyHash>", or "no signer".
std::string signerText(const FileSignature& signature);

// Verifies the signature of the file open as `file` (read access); `path` names it for the
// system (WinVerifyTrust wants a name beside the handle, and reads the handle). The caller keeps
// the handle open, and the file unchanged, as long as it relies on the answer.
FileSignature verifyFileSignature(HANDLE file, const std::string& path);

// Whether `text` is a SHA-256 hash as a publisher list gives one: 64 hexadecimal characters in
// either case.
bool isPublisherHash(const std::string& text);
