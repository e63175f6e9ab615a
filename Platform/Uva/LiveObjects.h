#pragma once
// Private to the browser stand-in: the counters behind uvaLiveObjects().

#include <atomic>

namespace UvaPlatform {

struct LiveCounters {
    std::atomic<long> events{0};
    std::atomic<long> drmEvents{0};
    std::atomic<long> components{0};
    std::atomic<long> backends{0};
    std::atomic<long> drmBackends{0};
    std::atomic<long> samples{0};
    std::atomic<long> sources{0};
};

LiveCounters& Live();

}  // namespace UvaPlatform
