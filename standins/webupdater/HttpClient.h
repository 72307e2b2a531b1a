#pragma once

#include <windows.h>

#include <wininet.h>

#include <cstdint>
#include <string>

#include "system/UniqueHandle.h"

namespace wupd {

struct CloseInternetHandle {
  bool operator()(HINTERNET handle) const { return InternetCloseHandle(handle) != FALSE; }
};
// The owner of one WinINet handle.
using InternetHandle = UniqueHandle<HINTERNET, CloseInternetHandle>;

// The answer to one GET, after all attempts.
struct HttpResponse {
  enum class Outcome {
    kOk,            // status 200; body holds the content
    kNoSession,     // InternetOpenA failed
    kNoConnection,  // the host could not be resolved or reached
    kFailed,        // any other failure, or a status other than 200
  };
  Outcome outcome = Outcome::kFailed;
  unsigned long status = 0;  // the last HTTP status received, 0 when none
  std::string body;
};

// A WinINet session (direct, no proxy) that fetches http and https URLs. Owns the session handle;
// not copyable; use from one thread at a time.
class HttpClient {
 public:
  HttpClient();
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  // False when InternetOpenA failed.
  bool isOpen() const { return session_.valid(); }

  // GETs `url` bypassing the cache, up to 1 + `retries` times until a 200 arrives.
  // `timeoutSeconds` sets the connect, send and receive time-outs; 0 keeps WinINet's.
  HttpResponse get(const std::string& url, uint32_t timeoutSeconds, uint32_t retries) const;

 private:
  HttpResponse attempt(const std::string& url, uint32_t timeoutSeconds) const;

  InternetHandle session_;
};

}  // namespace wupd
