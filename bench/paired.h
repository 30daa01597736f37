// SPDX-License-Identifier: Apache-2.0
// Two ways to do the same thing, measured in turns: what else the machine does hits both alike, so
// that their ratio says something where their times do not.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

/// A try-out instead of a measurement.
inline bool is_quick()
{
    return std::getenv("NYXUS_BENCH_QUICK") != nullptr;
}

/// How many pairs to run.
inline int pairs(int measured)
{
    return is_quick() ? std::max(3, measured / 10) : measured;
}

/// What was measured again and again: told as median and quartiles, which a few disturbed runs do
/// not move.
class Samples {
public:
    void add(double value) { values_.push_back(value); }
    size_t size() const { return values_.size(); }
    double quantile(double share)
    {
        std::ranges::sort(values_);
        return values_[static_cast<size_t>(share * static_cast<double>(values_.size() - 1))];
    }
    double median() { return quantile(0.5); }
    void report(benchmark::UserCounters& counters, const std::string& name)
    {
        counters[name] = median();
        counters[name + "_q1"] = quantile(0.25);
        counters[name + "_q3"] = quantile(0.75);
    }

private:
    std::vector<double> values_;
};

template <typename Work>
double seconds_of(const Work& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Throws; a benchmark that does not do its work must not have a result.
inline void must(bool holds, const std::string& what)
{
    if (!holds)
        throw std::runtime_error(what);
}

/// One pair per iteration of the benchmark, every other one in the other order. `units` is how often
/// a run does what is told: a transfer, say.
template <typename A, typename B>
void run_pairs(benchmark::State& state, double units, const A& a, const B& b)
{
    a();
    b();
    Samples a_s;
    Samples b_s;
    Samples ratio;
    bool a_first = true;
    for (auto _ : state) {
        const double first = a_first ? seconds_of(a) : seconds_of(b);
        const double second = a_first ? seconds_of(b) : seconds_of(a);
        const double a_now = a_first ? first : second;
        const double b_now = a_first ? second : first;
        a_s.add(a_now / units);
        b_s.add(b_now / units);
        ratio.add(a_now / b_now);
        state.SetIterationTime(first + second);
        a_first = !a_first;
    }
    state.counters["pairs"] = static_cast<double>(ratio.size());
    ratio.report(state.counters, "ratio");
    a_s.report(state.counters, "a_s");
    b_s.report(state.counters, "b_s");
}

} // namespace bench
