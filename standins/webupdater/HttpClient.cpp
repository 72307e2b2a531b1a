#include "HttpClient.h"

namespace wupd {

namespace {

const char kAgent[] = "Orrery web updater stand-in";

}  // namespace

HttpClient::HttpClient()
    : session_(InternetOpenA(kAgent, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0)) {}

HttpClient::~HttpClient() = default;

HttpResponse HttpClient::get(const std::string& url,
                             uint32_t timeoutSeconds,
                             uint32_t retries) const {
  HttpResponse response;
  if (!isOpen()) {
    response.outcome = HttpResponse::Outcome::kNoSession;
    return response;
  }
  for (uint64_t attemptNumber = 0; attemptNumber <= retries; ++attemptNumber) {
    response = attempt(url, timeoutSeconds);
    if (response.outcome == HttpResponse::Outcome::kOk)
      break;
  }
  return response;
}

HttpResponse HttpClient::attempt(const std::string& url, uint32_t timeoutSeconds) const {
  HttpResponse response;
  char host[INTERNET_MAX_HOST_NAME_LENGTH] = {};
  char path[INTERNET_MAX_URL_LENGTH] = {};
  char extra[INTERNET_MAX_URL_LENGTH] = {};
  URL_COMPONENTSA parts = {};
  parts.dwStructSize = sizeof(parts);
  parts.lpszHostName = host;
  parts.dwHostNameLength = sizeof(host);
  parts.lpszUrlPath = path;
  parts.dwUrlPathLength = sizeof(path);
  parts.lpszExtraInfo = extra;
  parts.dwExtraInfoLength = sizeof(extra);
  if (!InternetCrackUrlA(url.c_str(), 0, 0, &parts))
    return response;
  if (parts.nScheme != INTERNET_SCHEME_HTTP && parts.nScheme != INTERNET_SCHEME_HTTPS)
    return response;

  // Deliberately not InternetOpenUrlA: Wine does not pass the session's send and receive
  // time-outs on to the request, so a silent server would block forever. Set on the request
  // handle before sending, they hold on Wine and Windows alike.
  InternetHandle connection(InternetConnectA(session_.get(), host, parts.nPort, nullptr, nullptr,
                                             INTERNET_SERVICE_HTTP, 0, 0));
  if (connection.get() == nullptr)
    return response;
  DWORD flags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE;
  if (parts.nScheme == INTERNET_SCHEME_HTTPS)
    flags |= INTERNET_FLAG_SECURE;
  std::string object = std::string(path) + extra;
  InternetHandle request(HttpOpenRequestA(connection.get(), "GET",
                                          object.empty() ? "/" : object.c_str(), nullptr, nullptr,
                                          nullptr, flags, 0));
  if (request.get() == nullptr)
    return response;
  if (timeoutSeconds != 0) {
    DWORD milliseconds = timeoutSeconds * 1000;
    const DWORD options[] = {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_SEND_TIMEOUT,
                             INTERNET_OPTION_RECEIVE_TIMEOUT};
    for (DWORD option : options) {
      InternetSetOptionA(request.get(), option, &milliseconds, sizeof(milliseconds));
    }
  }
  if (!HttpSendRequestA(request.get(), nullptr, 0, nullptr, 0)) {
    DWORD error = GetLastError();
    bool unreachable =
        error == ERROR_INTERNET_CANNOT_CONNECT || error == ERROR_INTERNET_NAME_NOT_RESOLVED;
    response.outcome =
        unreachable ? HttpResponse::Outcome::kNoConnection : HttpResponse::Outcome::kFailed;
    return response;
  }
  DWORD status = 0;
  DWORD size = sizeof(status);
  if (!HttpQueryInfoA(request.get(), HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status,
                      &size, nullptr)) {
    return response;
  }
  response.status = status;
  if (status != HTTP_STATUS_OK)
    return response;
  char buffer[16 * 1024];
  for (;;) {
    DWORD read = 0;
    if (!InternetReadFile(request.get(), buffer, sizeof(buffer), &read))
      return response;
    if (read == 0)
      break;
    response.body.append(buffer, read);
  }
  response.outcome = HttpResponse::Outcome::kOk;
  return response;
}

}  // namespace wupd
