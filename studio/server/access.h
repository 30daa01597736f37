// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "server/http.h"

namespace studio {

/// Who may use Studio: the one who has the code, which works once and becomes a cookie, or, of a
/// server that others reach, the token.
class Access {
public:
    /// `token`: "" for a server on the loopback.
    Access(uint16_t port, std::string token, bool read_only);

    /// What the opened address ends with.
    std::string opening() const { return "/?code=" + code_; }
    /// Nothing when the request may go on; otherwise what it gets.
    std::unique_ptr<Response> refuse(const Request& request);

private:
    bool is_our_host(const std::string& host) const;
    bool has_cookie(const std::string& header) const;

    uint16_t port_;
    std::string token_;
    bool read_only_;
    std::string cookie_name_;
    std::string secret_;
    std::string code_; ///< "" once it has been used
};

} // namespace studio
