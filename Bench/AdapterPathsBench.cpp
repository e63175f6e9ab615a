// What the browser and the media stack pay for crossing the library, each path beside the limit it is
// measured against, in the same program and the same run:
//   lib_ns    processor time of the path through the library (the objects the exported entry points hand out)
//   limit_ns  the same work without the library (a direct call on the stack's interface, a raw
//             Boost.Signals2 emission to a handler that allocates the browser's event, a memcpy)
//   ratio     lib_ns / limit_ns
//   allocs    heap allocations per operation through the library (the browser's own included where the
//             operation needs them), limit_allocs the same for the limit
// The media stack behind the library does nothing (and is compiled apart, so that the limit's calls stay
// real virtual calls), so what is left is the library's own cost.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <boost/signals2/signal.hpp>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "DoNothingStack/DoNothingStack.h"
#include "Tlog/Tlog.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVAClient.h"
#include "Uva/UVADRMBackend.h"
#include "Uva/UVADRMEvent.h"
#include "Uva/UVAEvent.h"
#include "Uva/UVAMediaBackend.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/DrmBackendEvents.h"
#include "Velmora/IAvComponent.h"
#include "Velmora/IDrmBackend.h"
#include "Velmora/IMediaBackend.h"
#include "Velmora/IUva.h"
#include "Velmora/IntegrationLayer.h"

// Every allocation of the program passes here; the benchmarks run on one thread.
namespace {
unsigned long allocations;
// Time and allocations a path spends on the browser's own preparations, taken out of its figures.
double excludedNs;
unsigned long excludedAllocations;
}  // namespace

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

void* malloc(std::size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t size) {
    ++allocations;
    return __libc_realloc(block, size);
}
}

namespace {

using namespace Velmora;

using Bench::DrmEventSignal;
using Bench::EventSignal;

// The browser: takes every event and deletes it at once.
class DiscardingClient : public UVAClient, public UVADRMClient {
public:
    void handleEvent(UVAEvent* event) override { delete event; }
    UVADRMBackend* requestDRMBackend(const char*) override { return nullptr; }
    void handleDRMEvent(UVADRMEvent* event) override { delete event; }
};

// A browser-side component, as the limit's handler would create it; freed through its own protocol.
class BrowserComponent : public UVABackend::AVComponent {
public:
    BrowserComponent() : AVComponent(UVABackend::AVComponentDescription{}) {}
};

DiscardingClient browser;

// One library for the whole program, its traces off as in a product.
void Start() {
    static const bool started = [] {
        Tlog::SetThreshold("Velmora", 6);
        static Velmora::Wrapper::IntegrationLayer layer(Bench::NewDoNothingStack());
        return true;
    }();
    benchmark::DoNotOptimize(started);
}

// A media back-end requested through the exported entry point, released at the end of the benchmark.
struct Session {
    Session()
        : backend(
              (Start(), static_cast<UVAMediaBackend*>(UVA_RequestBackend(UVABackend::TYPE_MEDIA_SOURCE, &browser)))),
          media(Bench::LastMediaBackend()),
          events(Bench::LastMediaEvents()) {}
    ~Session() { UVA_ReleaseBackend(backend); }
    UVAMediaBackend* backend;
    IMediaBackend* media;
    EventSignal& events;
};

// This thread's processor time: the machines measured on are shared, so wall time says little.
double Now() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Best per-operation time of a few runs of `operation`, and its allocations per operation.
template <typename Operation>
std::pair<double, double> MeasureLimit(Operation&& operation, int repetitions) {
    double best = 1e300;
    unsigned long allocated = 0;
    for (int run = 0; run < 5; ++run) {
        const unsigned long before = allocations;
        const double start = Now();
        for (int index = 0; index < repetitions; ++index) {
            operation();
        }
        best = std::min(best, (Now() - start) / repetitions);
        allocated = allocations - before;
    }
    return {best, static_cast<double>(allocated) / repetitions};
}

// Runs `path` as the benchmark's loop and reports it beside `limit`.
template <typename Path, typename Limit>
void Compare(benchmark::State& state, Path&& path, Limit&& limit, int limitRepetitions = 1 << 16) {
    const auto before = MeasureLimit(limit, limitRepetitions);
    excludedNs = 0;
    excludedAllocations = 0;
    const unsigned long allocatedBefore = allocations;
    const double start = Now();
    for (auto _ : state) {
        path();
    }
    const double pathNs = (Now() - start - excludedNs) / static_cast<double>(state.iterations());
    const double pathAllocations = static_cast<double>(allocations - allocatedBefore - excludedAllocations) /
                                   static_cast<double>(state.iterations());
    const auto after = MeasureLimit(limit, limitRepetitions);
    const double limitNs = std::min(before.first, after.first);
    state.counters["lib_ns"] = pathNs;
    state.counters["limit_ns"] = limitNs;
    state.counters["ratio"] = pathNs / limitNs;
    state.counters["allocs"] = pathAllocations;
    state.counters["limit_allocs"] = after.second;
}

// Forwarded calls: the browser's virtual call into the library against the library's own call into the
// stack made directly.

IMediaBackend* Opaque(IMediaBackend* media) {
    benchmark::DoNotOptimize(media);
    return media;
}

void ForwardedPlay(benchmark::State& state) {
    Session session;
    Compare(
        state, [&] { benchmark::DoNotOptimize(session.backend->play()); }, [&] { Opaque(session.media)->Play(); });
}
BENCHMARK(ForwardedPlay);

void ForwardedSetVolume(benchmark::State& state) {
    Session session;
    Compare(
        state, [&] { benchmark::DoNotOptimize(session.backend->setVolume(0.5)); },
        [&] { Opaque(session.media)->SetVolume(0.5); });
}
BENCHMARK(ForwardedSetVolume);

void ForwardedGetDuration(benchmark::State& state) {
    Session session;
    double duration = 0;
    Compare(
        state,
        [&] {
            benchmark::DoNotOptimize(session.backend->getDuration(duration));
            benchmark::DoNotOptimize(duration);
        },
        [&] {
            benchmark::DoNotOptimize(Opaque(session.media)->GetDuration(duration));
            benchmark::DoNotOptimize(duration);
        });
}
BENCHMARK(ForwardedGetDuration);

void ForwardedGetNativeSize(benchmark::State& state) {
    Session session;
    int width = 0;
    int height = 0;
    unsigned short nativeWidth = 0;
    unsigned short nativeHeight = 0;
    double aspect = 0;
    Compare(
        state,
        [&] {
            benchmark::DoNotOptimize(session.backend->getNativeSize(width, height, aspect));
            benchmark::DoNotOptimize(width);
        },
        [&] {
            benchmark::DoNotOptimize(Opaque(session.media)->GetNativeSize(nativeWidth, nativeHeight, aspect));
            benchmark::DoNotOptimize(nativeWidth);
        });
}
BENCHMARK(ForwardedGetNativeSize);

// The stack takes the text as a std::string by value: the limit builds that string too.
void ForwardedSetSource(benchmark::State& state) {
    Session session;
    const char* const url = "http://example.invalid/stream/manifest.mpd";
    Compare(
        state, [&] { benchmark::DoNotOptimize(session.backend->setSource(url)); },
        [&] { Opaque(session.media)->SetSource(url); });
}
BENCHMARK(ForwardedSetSource);

// Events: the media stack's emission through the library against a raw emission to a handler that
// allocates the browser's event and hands it to the browser. The raw handler is connected the way the
// stack's interface connects every handler (an IBackend::EventSlot, taking the event by value), so the
// difference is what the library adds.

template <typename Handle>
IBackend::EventSlot RawHandler(Handle handle) {
    return [handle](boost::shared_ptr<BackendEvent> raised) { handle(*raised); };
}

template <typename MakeBrowserEvent>
void CompareEvent(benchmark::State& state, boost::shared_ptr<BackendEvent> event, MakeBrowserEvent make) {
    Session session;
    EventSignal raw;
    raw.connect(RawHandler([&](const BackendEvent& raised) { browser.handleEvent(make(raised)); }));
    Compare(
        state, [&] { session.events(event); }, [&] { raw(event); });
}

void PlainEvent(benchmark::State& state) {
    CompareEvent(state, boost::make_shared<BackendEvent>(BackendEvent::PlaybackFinished),
                 [](const BackendEvent&) { return new UVAEvent(UVAEvent::PLAYBACK_FINISHED); });
}
BENCHMARK(PlainEvent);

void PayloadEvent(benchmark::State& state) {
    CompareEvent(state, boost::make_shared<Velmora::DurationChangedEvent>(42.0), [](const BackendEvent& raised) {
        auto* translated = new ::DurationChangedEvent;
        translated->duration = static_cast<const Velmora::DurationChangedEvent&>(raised).duration;
        return translated;
    });
}
BENCHMARK(PayloadEvent);

void TextPayloadEvent(benchmark::State& state) {
    CompareEvent(state,
                 boost::make_shared<Velmora::DRMRightsErrorEvent>(3, "content-0001", "urn:dvb:casystemid:19219",
                                                                  "http://rights.example.invalid/issue"),
                 [](const BackendEvent& raised) {
                     const auto& from = static_cast<const Velmora::DRMRightsErrorEvent&>(raised);
                     auto* translated = new ::DRMRightsErrorEvent;
                     translated->errorState = from.errorState;
                     translated->contentId = strdup(from.contentId);
                     translated->drmSystemId = strdup(from.drmSystemId);
                     translated->rightsIssuerUrl = strdup(from.rightsIssuerUrl);
                     return translated;
                 });
}
BENCHMARK(TextPayloadEvent);

// A component added and removed again; the limit creates and retires the browser's component and
// hands over both naming events.
void ComponentAddedAndRemoved(benchmark::State& state) {
    Session session;
    const auto component = Bench::NewDoNothingComponent();
    const auto added =
        boost::make_shared<Velmora::ComponentChangedEvent>(component.get(), Velmora::ComponentChangedEvent::Added);
    const auto removed =
        boost::make_shared<Velmora::ComponentChangedEvent>(component.get(), Velmora::ComponentChangedEvent::Removed);
    EventSignal raw;
    BrowserComponent* shown = nullptr;
    raw.connect(RawHandler([&](const BackendEvent& raised) {
        auto* named = new ::ComponentChangedEvent;
        if (static_cast<const Velmora::ComponentChangedEvent&>(raised).action ==
            Velmora::ComponentChangedEvent::Added) {
            shown = new BrowserComponent;
            named->action = ::ComponentChangedEvent::ADDED;
        } else {
            named->action = ::ComponentChangedEvent::REMOVED;
            shown->backendMarkUnused();
        }
        named->component = shown;
        shown->preventDestruction();
        browser.handleEvent(named);
    }));
    Compare(
        state,
        [&] {
            session.events(added);
            session.events(removed);
        },
        [&] {
            raw(added);
            raw(removed);
        });
}
BENCHMARK(ComponentAddedAndRemoved);

void ComponentChanged(benchmark::State& state) {
    Session session;
    const auto component = Bench::NewDoNothingComponent();
    session.events(
        boost::make_shared<Velmora::ComponentChangedEvent>(component.get(), Velmora::ComponentChangedEvent::Added));
    const auto changed =
        boost::make_shared<Velmora::ComponentChangedEvent>(component.get(), Velmora::ComponentChangedEvent::Changed);
    BrowserComponent* shown = new BrowserComponent;
    EventSignal raw;
    raw.connect(RawHandler([&](const BackendEvent&) {
        auto* named = new ::ComponentChangedEvent;
        named->action = ::ComponentChangedEvent::CHANGED;
        named->component = shown;
        shown->preventDestruction();
        browser.handleEvent(named);
    }));
    Compare(
        state, [&] { session.events(changed); }, [&] { raw(changed); });
    shown->backendMarkUnused();
    session.events(
        boost::make_shared<Velmora::ComponentChangedEvent>(component.get(), Velmora::ComponentChangedEvent::Removed));
}
BENCHMARK(ComponentChanged);

void DrmEvent(benchmark::State& state) {
    UVADRMBackend* const backend = UVADRM_RequestBackend("org.w3.clearkey", &browser);
    DrmEventSignal& drmEvents = Bench::LastDrmEvents();
    const auto event = boost::make_shared<UvaKeyCompleteDrmEvent>("org.w3.clearkey", "session-0001", true);
    DrmEventSignal raw;
    raw.connect(IDrmBackend::DrmEventSlot([&](boost::shared_ptr<DrmBackendEvent> raised) {
        auto* translated = new UVADRMEvent(UVADRMEvent::KEY_COMPLETE);
        translated->keySystem = strdup(raised->keySystem);
        translated->sessionId = strdup(raised->sessionId);
        translated->flag = raised->flag;
        browser.handleDRMEvent(translated);
    }));
    Compare(
        state, [&] { drmEvents(event); }, [&] { raw(event); });
    UVADRM_ReleaseBackend(backend);
}
BENCHMARK(DrmEvent);

// Media Source samples: the browser answers a data request with samples of the given sizes; the limit
// is one memcpy of the same bytes into memory that is already warm.

::NeedMSEDataEvent* BrowserAnswer(const std::vector<unsigned int>& sizes, const unsigned char* bytes) {
    auto* answer = new ::NeedMSEDataEvent;
    answer->count = static_cast<std::uint32_t>(sizes.size());
    answer->samples = new UVABackend::MediaSample*[sizes.size() + 1]();
    for (std::size_t index = 0; index < sizes.size(); ++index) {
        answer->samples[index] = new UVABackend::MediaSample;
        answer->samples[index]->data.assign(bytes, sizes[index]);
    }
    return answer;
}

void SampleWrite(benchmark::State& state, std::vector<unsigned int> sizes) {
    Session session;
    unsigned int total = 0;
    for (unsigned int size : sizes) {
        total += size;
    }
    std::vector<unsigned char> source(*std::max_element(sizes.begin(), sizes.end()), 0x47);
    std::vector<unsigned char> target(total);
    // The browser's own answers are built in batches outside the measured time and allocations; the
    // library frees them, as the browser hands them over.
    std::vector<::NeedMSEDataEvent*> ready;
    unsigned long browserAllocations = 0;
    const auto refill = [&] {
        const double start = Now();
        const unsigned long before = allocations;
        constexpr std::size_t kBatch = 64;
        for (std::size_t index = 0; index < kBatch; ++index) {
            ready.push_back(BrowserAnswer(sizes, source.data()));
        }
        browserAllocations = (allocations - before) / kBatch;
        excludedAllocations += allocations - before;
        excludedNs += Now() - start;
    };
    Compare(
        state,
        [&] {
            if (ready.empty()) {
                refill();
            }
            ::NeedMSEDataEvent* const answer = ready.back();
            ready.pop_back();
            session.backend->writeData(answer, total, UVABackend::WriteDataStatus{});
        },
        [&] {
            unsigned char* into = target.data();
            for (unsigned int size : sizes) {
                std::memcpy(into, source.data(), size);
                into += size;
            }
            benchmark::ClobberMemory();
        },
        static_cast<int>(std::max(64u, (1u << 24) / total)));
    for (::NeedMSEDataEvent* left : ready) {
        delete left;
    }
    state.counters["browser_allocs"] = static_cast<double>(browserAllocations);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * total);
}
// Many small audio samples and a few video frames, one of them a key frame.
const std::vector<unsigned int> kMix = {188, 188, 188, 188, 188, 188, 188, 188, 4096, 4096, 24000, 24000, 262144};
BENCHMARK_CAPTURE(SampleWrite, 188B, std::vector<unsigned int>{188});
BENCHMARK_CAPTURE(SampleWrite, 4KiB, std::vector<unsigned int>{4096});
BENCHMARK_CAPTURE(SampleWrite, 64KiB, std::vector<unsigned int>{65536});
BENCHMARK_CAPTURE(SampleWrite, 1MiB, std::vector<unsigned int>{1 << 20});
BENCHMARK_CAPTURE(SampleWrite, Mix, kMix);

// Releasing an idle back-end (requested again outside the timed region); no limit but the request.
void ReleaseIdleBackend(benchmark::State& state) {
    Start();
    unsigned long released = 0;
    for (auto _ : state) {
        state.PauseTiming();
        UVABackend* const backend = UVA_RequestBackend(UVABackend::TYPE_MEDIA, &browser);
        const unsigned long before = allocations;
        state.ResumeTiming();
        benchmark::DoNotOptimize(UVA_ReleaseBackend(backend));
        released += allocations - before;
    }
    state.counters["allocs"] = static_cast<double>(released) / static_cast<double>(state.iterations());
}
BENCHMARK(ReleaseIdleBackend);

}  // namespace
