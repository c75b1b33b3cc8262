#include "OmniraCore/usage/CurlTransport.h"

#include <curl/curl.h>
#include <fmt/format.h>

#include <cmath>
#include <memory>
#include <mutex>

#include "OmniraCore/foundation/Parse.h"

namespace omnira {

namespace {

using Failure = HTTPTransport::Failure;

struct Exchange {
  HTTPTransport::Response response;
  bool tooLarge = false;
};

size_t takeBody(char* data, size_t size, size_t count, void* context) {
  auto* exchange = static_cast<Exchange*>(context);
  const size_t bytes = size * count;
  if (exchange->response.body.size() + bytes > HTTPTransport::maxResponseBytes) {
    exchange->tooLarge = true;
    return 0;  // makes libcurl stop with a write error
  }
  exchange->response.body.append(data, bytes);
  return bytes;
}

size_t takeHeader(char* data, size_t size, size_t count, void* context) {
  auto* exchange = static_cast<Exchange*>(context);
  const size_t bytes = size * count;
  const std::string_view line = trim(std::string_view(data, bytes));
  if (line.starts_with("HTTP/")) {
    // A new status line: the headers of an interim answer (100 Continue) are not this one's.
    exchange->response.headers.clear();
  } else if (const auto colon = line.find(':'); colon != std::string_view::npos && colon > 0) {
    exchange->response.headers.emplace_back(std::string(trim(line.substr(0, colon))),
                                            std::string(trim(line.substr(colon + 1))));
  }
  return bytes;
}

// The host of a URL for messages: never the path or query, which may hold a secret.
std::string hostOf(const std::string& url) {
  std::string host = "the server";
  CURLU* handle = curl_url();
  if (handle == nullptr) return host;
  char* part = nullptr;
  if (curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK &&
      curl_url_get(handle, CURLUPART_HOST, &part, 0) == CURLUE_OK && part != nullptr) {
    host = part;
    curl_free(part);
  }
  curl_url_cleanup(handle);
  return host;
}

Failure failureFor(CURLcode code, const std::string& url, double timeout) {
  const std::string host = hostOf(url);
  switch (code) {
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL:
      return {Failure::Kind::invalidRequest, "The address of the request is not a web address Omnira can use."};
    case CURLE_COULDNT_RESOLVE_HOST:
      return {Failure::Kind::cannotConnect, fmt::format("The host {} could not be found.", host)};
    case CURLE_COULDNT_RESOLVE_PROXY:
      return {Failure::Kind::cannotConnect, "The proxy could not be found."};
    case CURLE_COULDNT_CONNECT:
      return {Failure::Kind::cannotConnect, fmt::format("Could not connect to {}.", host)};
    case CURLE_OPERATION_TIMEDOUT:
      return {Failure::Kind::timedOut, fmt::format("{} did not answer within {:g} seconds.", host, timeout)};
    default:
      return {Failure::Kind::transferFailed,
              fmt::format("The exchange with {} failed: {}.", host, curl_easy_strerror(code))};
  }
}

using Easy = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
using HeaderList = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

}  // namespace

// Set up on the first request, not when the transport is made: the TLS library's start-up
// costs megabytes that a program without providers to ask never needs.
CurlTransport::CurlTransport() = default;

Result<HTTPTransport::Response, HTTPTransport::Failure> CurlTransport::send(const Request& request) {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  if (request.method.empty() || request.method.find_first_of(" \r\n") != std::string::npos) {
    return fail(Failure{Failure::Kind::invalidRequest, "The method of the request is not an HTTP method."});
  }
  for (const auto& [name, value] : request.headers) {
    if (name.empty() || (name + value).find_first_of("\r\n") != std::string::npos ||
        name.find(':') != std::string::npos) {
      return fail(Failure{Failure::Kind::invalidRequest, "A header of the request cannot be sent."});
    }
  }
  Easy easy(curl_easy_init(), curl_easy_cleanup);
  if (!easy) return fail(Failure{Failure::Kind::transferFailed, "The HTTP library could not start a request."});

  HeaderList headers(nullptr, curl_slist_free_all);
  for (const auto& [name, value] : request.headers) {
    // "Name;" is libcurl's way of sending a header with an empty value.
    const std::string line = value.empty() ? name + ";" : name + ": " + value;
    curl_slist* longer = curl_slist_append(headers.get(), line.c_str());
    if (longer == nullptr) return fail(Failure{Failure::Kind::transferFailed, "The request's headers could not be built."});
    headers.release();
    headers.reset(longer);
  }

  Exchange exchange;
  const double timeout = request.timeout > 0 && std::isfinite(request.timeout) ? request.timeout : 30;
  const auto timeoutMs = static_cast<long>(std::ceil(timeout * 1000));
  CURL* handle = easy.get();
  curl_easy_setopt(handle, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);  // timeouts without SIGALRM, safe off the main thread
  curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, timeoutMs);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, timeoutMs);
  curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, "");
  curl_easy_setopt(handle, CURLOPT_USERAGENT, "Omnira/" OMNIRA_VERSION);
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, takeBody);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &exchange);
  curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, takeHeader);
  curl_easy_setopt(handle, CURLOPT_HEADERDATA, &exchange);
  if (request.method == "HEAD") {
    curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
  } else if (request.method != "GET" || !request.body.empty()) {
    curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, request.body.data());
  }

  const CURLcode code = curl_easy_perform(handle);
  if (exchange.tooLarge) {
    return fail(Failure{Failure::Kind::tooLarge,
                        fmt::format("The answer from {} was longer than {} MiB.", hostOf(request.url),
                                    maxResponseBytes / (1024 * 1024))});
  }
  if (code != CURLE_OK) return fail(failureFor(code, request.url, timeout));
  long status = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  exchange.response.status = static_cast<int>(status);
  return std::move(exchange.response);
}

}  // namespace omnira
