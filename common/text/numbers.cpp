// SPDX-License-Identifier: Apache-2.0
#include "text/numbers.h"

#include <algorithm>

namespace text {

std::string without_leading_zeros(std::string text)
{
    const size_t sign = text.starts_with('+') ? 1 : 0;
    const size_t first = text.find_first_not_of('0', sign);
    if (text.find_first_not_of("0123456789", sign) == std::string::npos && text.size() > sign)
        text.erase(sign, std::min(first, text.size() - 1) - sign);
    return text;
}

} // namespace text
