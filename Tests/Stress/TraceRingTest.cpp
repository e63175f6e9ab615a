// The trace ring: what it keeps when it wraps, that recording never allocates, and that writers on
// several threads neither lose count nor tear a record.

#include <gtest/gtest.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <thread>
#include <unistd.h>
#include <vector>

#include "CallGuard.h"
#include "SlotGate.h"
#include "TraceRing.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/Trace.h"

namespace {

std::atomic<long> allocations{0};

}  // namespace

// Counts every allocation of this test program; memory still comes from malloc, as the sanitizers expect.
// GCC cannot see that the replaced new and delete pair malloc with free.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size != 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using Velmora::Tracing::Record;
using Velmora::Tracing::TraceRing;

Record Numbered(int number) {
    Record record;
    record.code = number;
    record.status = number;  // a torn record would show two different numbers
    record.startNs = static_cast<std::uint64_t>(number);
    return record;
}

struct WrapCase {
    std::size_t capacity;
    int writers;
    int perWriter;
};

class TraceRingTest : public ::testing::TestWithParam<WrapCase> {};

TEST_P(TraceRingTest, Push_Wraps) {
    const WrapCase c = GetParam();
    TraceRing ring(c.capacity);
    const auto write = [&ring, &c](int writer) {
        for (int i = 0; i < c.perWriter; ++i) {
            ring.Push(Numbered(writer * c.perWriter + i));
        }
    };
    if (c.writers == 1) {
        const long before = allocations.load();
        write(0);
        EXPECT_EQ(allocations.load(), before) << "recording allocated";
    } else {
        std::vector<std::thread> writers;
        for (int writer = 0; writer < c.writers; ++writer) {
            writers.emplace_back(write, writer);
        }
        for (auto& writer : writers) {
            writer.join();
        }
    }
    std::uint64_t dropped = 0;
    const std::vector<Record> held = ring.Snapshot(dropped);
    const std::uint64_t total = static_cast<std::uint64_t>(c.writers) * c.perWriter;
    ASSERT_EQ(held.size(), std::min<std::uint64_t>(total, c.capacity));
    EXPECT_EQ(dropped, total - held.size());
    for (const Record& record : held) {
        EXPECT_EQ(record.code, record.status) << "a torn record";
    }
    if (c.writers == 1 && !held.empty()) {
        EXPECT_EQ(held.front().code, static_cast<int>(total - held.size())) << "the oldest kept";
        EXPECT_EQ(held.back().code, static_cast<int>(total - 1)) << "the newest kept";
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, TraceRingTest,
                         ::testing::Values(WrapCase{4, 1, 0}, WrapCase{4, 1, 3}, WrapCase{4, 1, 4}, WrapCase{4, 1, 9},
                                           WrapCase{1, 1, 5}, WrapCase{1000, 4, 5000}));

struct Listener {
    std::atomic<int> heard{0};
    void Hear(boost::shared_ptr<Velmora::BackendEvent> /*event*/) { ++heard; }
};

// Calls and slots on several threads record while the owner writes, restarts and stops the trace.
TEST(TraceRecordingStressTest, Record_WhileOwnerSwitches) {
    using namespace Velmora;
    const Wrapper::LogSite site(Wrapper::LogFileName{"Velmora::TraceStress", "Tests/Stress/TraceRingTest"}, __LINE__);
    const Wrapper::CallPolicy policy{&site, "op", ""};
    const std::string path = ::testing::TempDir() + "velmora-trace-stress-" + std::to_string(getpid()) + ".json";
    ASSERT_TRUE(Trace::StartTrace(path, 256));
    Listener listener;
    Wrapper::SlotGate gate;
    const auto slot = gate.Bind<&Listener::Hear>(&listener);
    const auto event = boost::make_shared<BackendEvent>(BackendEvent::PlaybackFinished);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            while (!stop.load()) {
                Wrapper::Guarded(policy, [] { return UVA_STATUS_OK; });
                slot(event);
            }
        });
    }
    for (int round = 0; round < 20; ++round) {
        EXPECT_TRUE(Trace::WriteTrace());
        if (round % 5 == 4) {
            ASSERT_TRUE(Trace::StartTrace(path, 128));
        }
    }
    Trace::StopTrace();
    stop = true;
    for (auto& thread : threads) {
        thread.join();
    }
    gate.Close();
    EXPECT_GT(listener.heard.load(), 0);
    std::remove(path.c_str());
}

}  // namespace
