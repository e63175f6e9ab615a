// The session trace: one process-wide ring, the thread names, the watchdog's memory of what it already
// reported, and the owner's switches.

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "Log.h"
#include "TraceHooks.h"
#include "TraceSettings.h"
#include "TraceWriter.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/DrmBackendEvents.h"
#include "Velmora/Trace.h"

namespace Velmora {
namespace Tracing {

std::atomic<bool> armed{false};

namespace {

const Wrapper::LogSite kLog(Wrapper::LogFileName{"Velmora::Wrapper", "Src/Trace/Recorder"}, __LINE__);

constexpr std::uint64_t kNsPerMs = 1000000;
// Beyond this a threshold is a typo, not a setting.
constexpr unsigned kMaxSlowCallMilliseconds = 3600u * 1000u;

std::uint64_t NowNs() noexcept {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

std::uint32_t ThisThread() noexcept {
    thread_local const std::uint32_t id = static_cast<std::uint32_t>(syscall(SYS_gettid));
    return id;
}

// Threads are named once, when they first record, so that a thread gone by write-out keeps its name.
class ThreadNames {
public:
    void Remember() noexcept {
        thread_local bool remembered = false;
        if (remembered) {
            return;
        }
        remembered = true;
        const std::uint32_t thread = ThisThread();
        for (Slot& slot : slots_) {
            std::uint32_t empty = 0;
            if (slot.thread.compare_exchange_strong(empty, thread, std::memory_order_relaxed)) {
                pthread_getname_np(pthread_self(), slot.name, sizeof slot.name);
                slot.ready.store(true, std::memory_order_release);
                return;
            }
        }
    }

    std::vector<ThreadName> List() const {
        std::vector<ThreadName> names;
        for (const Slot& slot : slots_) {
            if (slot.ready.load(std::memory_order_acquire)) {
                names.push_back(ThreadName{slot.thread.load(std::memory_order_relaxed), slot.name});
            }
        }
        return names;
    }

private:
    struct Slot {
        std::atomic<std::uint32_t> thread{0};
        std::atomic<bool> ready{false};
        char name[16] = {};
    };
    Slot slots_[256];
};

// Remembers which (operation, back-end) pairs the watchdog has reported; full, it reports no more.
class Reported {
public:
    bool FirstTime(const char* operation, const void* backend) noexcept {
        const std::uintptr_t key =
            (reinterpret_cast<std::uintptr_t>(operation) * 31u ^ reinterpret_cast<std::uintptr_t>(backend)) | 1u;
        const std::size_t start = (key >> 3) % kSize;
        for (std::size_t probe = 0; probe < kSize; ++probe) {
            std::atomic<std::uintptr_t>& slot = keys_[(start + probe) % kSize];
            std::uintptr_t seen = 0;
            if (slot.compare_exchange_strong(seen, key, std::memory_order_relaxed)) {
                return true;
            }
            if (seen == key) {
                return false;
            }
        }
        return false;
    }
    void Forget() noexcept {
        for (auto& key : keys_) {
            key.store(0, std::memory_order_relaxed);
        }
    }

private:
    static constexpr std::size_t kSize = 1024;
    std::atomic<std::uintptr_t> keys_[kSize] = {};
};

struct Recorder {
    std::atomic<TraceRing*> ring{nullptr};
    std::atomic<bool> recording{false};
    std::atomic<std::uint64_t> originNs{0};
    std::atomic<std::uint64_t> explicitSlowNs{0};  // set on its own: watches without the trace
    std::atomic<std::uint64_t> slowNs{0};          // the threshold in force; 0 = not watching
    ThreadNames threads;
    Reported reported;

    // The owner's switches run one at a time; rings are kept to the end, so a recording thread never
    // holds a ring that was freed under it.
    std::mutex control;
    std::vector<std::unique_ptr<TraceRing>> rings;
    std::string path;

    void Rearm() noexcept {
        const bool on = recording.load(std::memory_order_relaxed);
        const std::uint64_t explicitNs = explicitSlowNs.load(std::memory_order_relaxed);
        slowNs.store(explicitNs != 0 ? explicitNs : (on ? Trace::kDefaultSlowCallMilliseconds * kNsPerMs : 0),
                     std::memory_order_relaxed);
        armed.store(on || explicitNs != 0, std::memory_order_relaxed);
    }

    void Push(const Record& record) noexcept {
        if (!recording.load(std::memory_order_relaxed)) {
            return;
        }
        if (TraceRing* target = ring.load(std::memory_order_acquire)) {
            threads.Remember();
            target->Push(record);
        }
    }

    // A call that began before the trace (re)started counts from the start.
    std::uint64_t Since(std::uint64_t ns) noexcept {
        const std::uint64_t origin = originNs.load(std::memory_order_relaxed);
        return ns > origin ? ns - origin : 0;
    }
};

// Never destroyed: a media-stack thread may still record while the process exits. Built in static storage,
// so that the first call or stop of a session allocates nothing.
Recorder& TheRecorder() {
    alignas(Recorder) static unsigned char storage[sizeof(Recorder)];
    static Recorder* const recorder = new (storage) Recorder;
    return *recorder;
}

thread_local CallTimer* currentCall = nullptr;

bool Fail(std::string* error, const std::string& text) {
    try {
        VELMORA_LOG(kLog, 5) << text;
        if (error != nullptr) {
            *error = text;
        }
    } catch (...) {
        // No memory even for the message: the false result still tells.
    }
    return false;
}

bool Check(std::string* error, const std::string& problem) { return problem.empty() || Fail(error, problem); }

// A record of `kind` made on the calling thread, started at `startNs` on the clock NowNs reads.
Record RecordOnThisThread(Recorder& recorder, RecordKind kind, std::uint64_t startNs) noexcept {
    Record record;
    record.kind = kind;
    record.thread = ThisThread();
    record.startNs = recorder.Since(startNs);
    return record;
}

}  // namespace

CallTimer::CallTimer(const Wrapper::LogSite& site, const char* operation, const void* backend) noexcept
    : site_(site), operation_(operation), backend_(backend), startNs_(NowNs()), outer_(currentCall) {
    currentCall = this;
}

CallTimer::~CallTimer() {
    currentCall = outer_;
    Recorder& recorder = TheRecorder();
    const std::uint64_t durationNs = NowNs() - startNs_;
    const std::uint64_t slowNs = recorder.slowNs.load(std::memory_order_relaxed);
    const bool slow = slowNs != 0 && durationNs > slowNs;
    if (slow && recorder.reported.FirstTime(operation_, backend_)) {
        try {
            VELMORA_LOG(site_, 4) << operation_ << " kept the browser's thread for " << durationNs / 1000 << " us"
                                  << " (back-end " << backend_ << ", limit " << slowNs / kNsPerMs << " ms)";
        } catch (...) {
            // No memory for the line; the browser's call is done all the same.
        }
    }
    Record record = RecordOnThisThread(recorder, RecordKind::Call, startNs_);
    record.slow = slow;
    record.status = status_;
    record.durationNs = durationNs;
    record.backend = backend_;
    record.name = operation_;
    record.context = site_.file;
    recorder.Push(record);
}

void NoteFailure(int errorType, const char* text) noexcept {
    if (!Armed()) {
        return;
    }
    Recorder& recorder = TheRecorder();
    Record record = RecordOnThisThread(recorder, RecordKind::Failure, NowNs());
    record.code = errorType;
    if (currentCall != nullptr) {
        record.name = currentCall->Operation();
    }
    if (text != nullptr) {
        std::strncpy(record.detail, text, sizeof record.detail - 1);
    }
    recorder.Push(record);
}

int SlotTimer::EventCode(const BackendEvent* event) noexcept { return event != nullptr ? event->type : -1; }

int SlotTimer::EventCode(const DrmBackendEvent* event) noexcept { return event != nullptr ? event->type : -1; }

void SlotTimer::Begin(const void* owner, const char* ownerType, SlotKind kind, int code) noexcept {
    owner_ = owner;
    ownerType_ = ownerType;
    kind_ = kind;
    code_ = code;
    startNs_ = NowNs();
}

void SlotTimer::End() noexcept {
    Recorder& recorder = TheRecorder();
    Record record = RecordOnThisThread(recorder, RecordKind::Event, startNs_);
    record.slot = kind_;
    record.code = code_;
    record.durationNs = NowNs() - startNs_;
    record.backend = owner_;
    record.context = ownerType_;
    recorder.Push(record);
}

void LibraryStarted() noexcept {
    static std::atomic<bool> read{false};
    if (read.exchange(true)) {
        return;
    }
    try {
        std::string problem;
        TraceSettings settings;
        if (const char* text = std::getenv(kTraceVariable)) {
            problem = ParseTraceSettings(text, settings);
            if (problem.empty()) {
                Trace::StartTrace(settings.path, settings.ringEntries, &problem);
                problem.clear();  // already reported
                if (settings.slowCallMilliseconds != 0) {
                    Trace::SetSlowCallThreshold(settings.slowCallMilliseconds);
                }
            }
        }
        if (const char* text = std::getenv(kSlowCallVariable)) {
            unsigned milliseconds = 0;
            const std::string slowProblem = ParseSlowCallMilliseconds(text, milliseconds);
            if (slowProblem.empty()) {
                Trace::SetSlowCallThreshold(milliseconds);
            } else {
                problem = std::string(kSlowCallVariable) + "=" + text + ": " + slowProblem;
            }
        }
        Check(nullptr, problem);
    } catch (...) {
        // Out of memory while reading the settings: the library runs untraced.
    }
}

void LibraryStopped() noexcept {
    Recorder& recorder = TheRecorder();
    try {
        bool write = false;
        {
            const std::lock_guard<std::mutex> hold(recorder.control);
            write = !recorder.path.empty() && recorder.ring.load() != nullptr;
        }
        if (write) {
            Trace::WriteTrace();
        }
    } catch (...) {
        // Stopping goes on untraced.
    }
}

}  // namespace Tracing

namespace Trace {

using Tracing::TheRecorder;

bool StartTrace(const std::string& path, std::size_t ringEntries, std::string* error) {
    try {
        if (ringEntries == 0 || ringEntries > kMaxRingEntries) {
            return Tracing::Fail(error, "trace not started: the ring must hold 1 to " +
                                            std::to_string(kMaxRingEntries) + " entries, not " +
                                            std::to_string(ringEntries));
        }
        std::string problem;
        if (!path.empty() && !Tracing::WriteEmptyTrace(path, problem)) {
            return Tracing::Fail(error, "trace not started: " + problem);
        }
        std::unique_ptr<Tracing::TraceRing> ring;
        try {
            ring.reset(new Tracing::TraceRing(ringEntries));
        } catch (const std::bad_alloc&) {
            return Tracing::Fail(
                error, "trace not started: no memory for a ring of " + std::to_string(ringEntries) + " entries");
        }
        Tracing::Recorder& recorder = TheRecorder();
        const std::lock_guard<std::mutex> hold(recorder.control);
        recorder.rings.reserve(recorder.rings.size() + 1);
        recorder.recording.store(false);
        recorder.originNs.store(Tracing::NowNs());
        recorder.ring.store(ring.get(), std::memory_order_release);
        recorder.rings.push_back(std::move(ring));
        recorder.path = path;
        recorder.reported.Forget();
        recorder.recording.store(true);
        recorder.Rearm();
        return true;
    } catch (...) {
        return Tracing::Fail(error, "trace not started: out of memory");
    }
}

void StopTrace() {
    Tracing::Recorder& recorder = TheRecorder();
    try {
        const std::lock_guard<std::mutex> hold(recorder.control);
        recorder.recording.store(false);
        recorder.Rearm();
    } catch (...) {
        // Locking a healthy mutex does not fail; nothing to undo if it did.
    }
}

bool WriteTrace(const std::string& path, std::string* error) {
    Tracing::Recorder& recorder = TheRecorder();
    try {
        std::string target;
        const Tracing::TraceRing* ring = nullptr;
        {
            const std::lock_guard<std::mutex> hold(recorder.control);
            target = path.empty() ? recorder.path : path;
            ring = recorder.ring.load();
        }
        if (ring == nullptr) {
            return Tracing::Fail(error, "trace not written: the trace was never started");
        }
        if (target.empty()) {
            return Tracing::Fail(error, "trace not written: no path given");
        }
        Tracing::TraceContents contents;
        contents.records = ring->Snapshot(contents.dropped);
        contents.capacity = ring->Capacity();
        contents.threads = recorder.threads.List();
        contents.process = static_cast<std::uint32_t>(getpid());
        std::string problem;
        if (!Tracing::WriteTraceFile(target, contents, problem)) {
            return Tracing::Fail(error, "trace not written: " + problem);
        }
        return true;
    } catch (...) {
        return Tracing::Fail(error, "trace not written: out of memory");
    }
}

bool SetSlowCallThreshold(unsigned milliseconds, std::string* error) {
    Tracing::Recorder& recorder = TheRecorder();
    try {
        if (milliseconds > Tracing::kMaxSlowCallMilliseconds) {
            return Tracing::Fail(
                error, "slow-call threshold not set: " + std::to_string(milliseconds) + " ms is more than an hour");
        }
        const std::lock_guard<std::mutex> hold(recorder.control);
        recorder.explicitSlowNs.store(milliseconds * Tracing::kNsPerMs);
        recorder.reported.Forget();
        recorder.Rearm();
        return true;
    } catch (...) {
        return Tracing::Fail(error, "slow-call threshold not set");
    }
}

}  // namespace Trace
}  // namespace Velmora
