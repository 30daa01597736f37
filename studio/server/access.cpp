// SPDX-License-Identifier: Apache-2.0
#include "server/access.h"

#include "text/hex.h"

#include <sys/random.h>
#include <array>
#include <stdexcept>

namespace studio {

namespace {

std::string random_text()
{
    std::array<uint8_t, 24> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error("no random numbers");
    return text::hex(bytes);
}

/// In a time that tells nothing of where they differ.
bool are_equal(const std::string& a, const std::string& b)
{
    unsigned difference = a.size() != b.size() || a.empty();
    for (size_t at = 0; at < a.size() && at < b.size(); ++at)
        difference |= static_cast<unsigned char>(a[at] ^ b[at]);
    return difference == 0;
}

std::unique_ptr<Response> refusal(unsigned status, const std::string& why)
{
    return std::make_unique<Response>(
        Response{status, "application/json",
                 R"({"error":{"reason":"permission-denied","code":0,"message":")" + why +
                     R"(","advice":"Open the address that the server printed when it began."}})"});
}

} // namespace

Access::Access(uint16_t port, std::string token, bool read_only)
    : port_(port),
      token_(std::move(token)),
      read_only_(read_only),
      cookie_name_("nyxus_studio_" + std::to_string(port)),
      secret_(random_text()),
      code_(random_text())
{
}

bool Access::is_our_host(const std::string& host) const
{
    if (!token_.empty()) // the proxy in front has its own name
        return true;
    const std::string port = ":" + std::to_string(port_);
    return host == "127.0.0.1" + port || host == "localhost" + port || host == "[::1]" + port;
}

bool Access::has_cookie(const std::string& header) const
{
    const std::string start = cookie_name_ + "=";
    for (size_t at = 0; at < header.size();) {
        const size_t end = std::min(header.find(';', at), header.size());
        const size_t begin = header.find_first_not_of(' ', at);
        if (begin < end && header.compare(begin, start.size(), start) == 0 &&
            are_equal(header.substr(begin + start.size(), end - begin - start.size()), secret_))
            return true;
        at = end + 1;
    }
    return false;
}

std::unique_ptr<Response> Access::refuse(const Request& request)
{
    if (!is_our_host(request.host))
        return refusal(403, "this server has another name");
    if (!request.origin.empty() && request.origin != "http://" + request.host &&
        (token_.empty() || request.origin != "https://" + request.host))
        return refusal(403, "the request comes from another site");
    const auto code = request.query.find("code");
    if (request.method == "GET" && request.path == "/" && code != request.query.end()) {
        if (are_equal(code->second, code_) || are_equal(code->second, token_)) {
            code_.clear();
            const std::string cookie = cookie_name_ + "=" + secret_ +
                                       "; HttpOnly; SameSite=Strict; Path=/" +
                                       (token_.empty() ? "" : "; Secure");
            return std::make_unique<Response>(
                Response{303, "text/plain", "", {{"Location", "/"}, {"Set-Cookie", cookie}}});
        }
        if (!has_cookie(request.cookie))
            return refusal(401, "this code has been used, or is another server's");
    }
    const bool has_token = !token_.empty() && are_equal(request.authorization, "Bearer " + token_);
    if (!has_token && !has_cookie(request.cookie))
        return refusal(401, "who are you?");
    if (request.method == "GET" || request.method == "HEAD")
        return nullptr;
    if (!request.has_studio_header)
        return refusal(403, "changes need the header X-Nyxus-Studio: 1");
    if (read_only_)
        return refusal(403, "this server only shows");
    return nullptr;
}

} // namespace studio
