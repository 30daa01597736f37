// SPDX-License-Identifier: Apache-2.0
// Two ways to do the same thing, measured in turns: what else the machine does hits both alike, so
// that their ratio says something where their times do not.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <functional>
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

/// How long something took, and the processor time of all threads in it.
struct Cost {
    double wall_s = 0;
    double processor_s = 0;
};

inline double now_s(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <typename Work>
Cost cost_of(const Work& work)
{
    const double wall_s = now_s(CLOCK_MONOTONIC);
    const double processor_s = now_s(CLOCK_PROCESS_CPUTIME_ID);
    work();
    return {now_s(CLOCK_MONOTONIC) - wall_s, now_s(CLOCK_PROCESS_CPUTIME_ID) - processor_s};
}

/// Throws; a benchmark that does not do its work must not have a result.
inline void must(bool holds, const char* what)
{
    if (!holds)
        throw std::runtime_error(what);
}

/// The work A and B, in pairs. `units` is how often a run does what is told: a transfer, say.
class Pairs {
public:
    explicit Pairs(double units) : units_(units) {}

    void add(const Cost& a, const Cost& b)
    {
        a_s_.add(a.wall_s / units_);
        b_s_.add(b.wall_s / units_);
        ratio_.add(a.wall_s / b.wall_s);
        a_processor_s_.add(a.processor_s / units_);
        b_processor_s_.add(b.processor_s / units_);
        processor_ratio_.add(a.processor_s / b.processor_s);
    }

    void report(benchmark::UserCounters& counters, const std::string& prefix = "")
    {
        counters[prefix + "pairs"] = static_cast<double>(ratio_.size());
        a_s_.report(counters, prefix + "a_s");
        b_s_.report(counters, prefix + "b_s");
        ratio_.report(counters, prefix + "ratio");
        a_processor_s_.report(counters, prefix + "a_processor_s");
        b_processor_s_.report(counters, prefix + "b_processor_s");
        processor_ratio_.report(counters, prefix + "processor_ratio");
    }

private:
    double units_;
    Samples a_s_, b_s_, ratio_, a_processor_s_, b_processor_s_, processor_ratio_;
};

using Work = std::function<void()>;

/// What A is compared with, and how its figures are named.
struct Peer {
    Work work;
    std::string prefix = {};
};

/// A beside each of its peers, once per iteration of the benchmark; every other time A comes last.
inline void run_beside(benchmark::State& state, double units, const Work& a,
                       const std::vector<Peer>& peers)
{
    a();
    for (const Peer& peer : peers)
        peer.work();
    std::vector<Pairs> pairs(peers.size(), Pairs(units));
    bool a_first = true;
    for (auto _ : state) {
        const Cost first = a_first ? cost_of(a) : Cost{};
        std::vector<Cost> costs;
        for (const Peer& peer : peers)
            costs.push_back(cost_of(peer.work));
        const Cost cost = a_first ? first : cost_of(a);
        double round_s = cost.wall_s;
        for (size_t i = 0; i < peers.size(); ++i) {
            pairs[i].add(cost, costs[i]);
            round_s += costs[i].wall_s;
        }
        state.SetIterationTime(round_s);
        a_first = !a_first;
    }
    for (size_t i = 0; i < peers.size(); ++i)
        pairs[i].report(state.counters, peers[i].prefix);
}

inline void run_pairs(benchmark::State& state, double units, const Work& a, const Work& b)
{
    run_beside(state, units, a, {{b}});
}

} // namespace bench
