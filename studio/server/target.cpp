// SPDX-License-Identifier: Apache-2.0
#include "server/http.h"

namespace studio {

namespace {

int digit_of(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

bool decode(std::string_view text, std::string& decoded)
{
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            decoded += text[at];
            continue;
        }
        if (at + 2 >= text.size())
            return false;
        const int high = digit_of(text[at + 1]);
        const int low = digit_of(text[at + 2]);
        if (high < 0 || low < 0 || high + low == 0)
            return false;
        decoded += static_cast<char>(high * 16 + low);
        at += 2;
    }
    return true;
}

} // namespace

bool parse_target(std::string_view target, Request& request)
{
    if (target.empty() || target.front() != '/')
        return false;
    const size_t mark = target.find('?');
    if (!decode(target.substr(0, mark), request.path))
        return false;
    std::string_view rest = mark == std::string_view::npos ? "" : target.substr(mark + 1);
    while (!rest.empty()) {
        const size_t end = rest.find('&');
        const std::string_view pair = rest.substr(0, end);
        const size_t equals = pair.find('=');
        std::string name;
        std::string value;
        if (!decode(pair.substr(0, equals), name))
            return false;
        if (equals != std::string_view::npos && !decode(pair.substr(equals + 1), value))
            return false;
        request.query[name] = value;
        rest = end == std::string_view::npos ? "" : rest.substr(end + 1);
    }
    return true;
}

} // namespace studio
