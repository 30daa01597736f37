// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * `for (auto& frame : stream)`: going through what comes, one after the other.
 */
#ifndef NYXUS_CPP_COMING_HPP
#define NYXUS_CPP_COMING_HPP

#include <nyxus/cpp/result.hpp>

#include <cstddef>
#include <iterator>

namespace nyxus::detail {

/// Of a source whose wait_for_next() returns what has come, or NULL at the end.
template <typename Source, typename Value>
class ComingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Value;
    using difference_type = std::ptrdiff_t;
    using pointer = const Value*;
    using reference = const Value&;

    ComingIterator() = default; ///< the end
    explicit ComingIterator(Source& source) : source_(&source) { ++*this; }

    reference operator*() const { return *now_; }
    pointer operator->() const { return now_; }
    ComingIterator& operator++()
    {
        now_ = source_->wait_for_next();
        return *this;
    }
    void operator++(int) { ++*this; }
    bool operator==(const ComingIterator& other) const { return now_ == other.now_; }
    bool operator!=(const ComingIterator& other) const { return now_ != other.now_; }

private:
    Source* source_ = nullptr;
    const Value* now_ = nullptr;
};

} // namespace nyxus::detail

#endif
