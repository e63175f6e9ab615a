// Runs one path a fixed number of times with counting switched on around the path alone, so that
// instructions per operation can be compared with a budget on any machine, however busy.
// Usage: InstructionCountDriver PATH   (the paths are listed in main below)

#include <sys/syscall.h>
#include <unistd.h>

#include <boost/make_shared.hpp>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "DoNothingStack/DoNothingStack.h"
#include "Tlog/Tlog.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVAClient.h"
#include "Uva/UVAEvent.h"
#include "Uva/UVAMediaBackend.h"
#include "Velmora/IntegrationLayer.h"

// Natively callgrind counts; a cross build for a target it does not run on counts under qemu only.
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_TOGGLE_COLLECT
#endif

namespace {

constexpr int kOperations = 1000;

// Counting on or off: callgrind's collection, and a system call that qemu's counting plugin watches for
// (getppid, with two marker arguments it ignores). Neither counter sees the other's switch but for the
// few instructions around qemu's.
bool counting = false;
void ToggleCounting() {
    counting = !counting;
    if (counting) {
        syscall(SYS_getppid, 0x56454c4dUL, 0x434f554eUL);
    }
    CALLGRIND_TOGGLE_COLLECT;
    if (!counting) {
        syscall(SYS_getppid, 0x56454c4dUL, 0x434f554eUL);
    }
}

class DiscardingClient : public UVAClient {
public:
    void handleEvent(UVAEvent* event) override { delete event; }
    UVADRMBackend* requestDRMBackend(const char*) override { return nullptr; }
};

// Runs `operation` kOperations times, counting only what happens inside it.
template <typename Operation>
void Measure(Operation&& operation) {
    for (int index = 0; index < 10; ++index) {
        operation();  // warm: first-use costs are not the path's
    }
    ToggleCounting();
    for (int index = 0; index < kOperations; ++index) {
        operation();
    }
    ToggleCounting();
}

// Like Measure, with `prepare` (the browser's own work) run before each operation and not counted.
template <typename Prepare, typename Operation>
void MeasurePrepared(Prepare&& prepare, Operation&& operation) {
    for (int index = 0; index < kOperations + 10; ++index) {
        auto prepared = prepare();
        if (index >= 10) {
            ToggleCounting();
        }
        operation(prepared);
        if (index >= 10) {
            ToggleCounting();
        }
    }
}

::NeedMSEDataEvent* BrowserAnswer(const unsigned char* bytes, unsigned int size) {
    auto* answer = new ::NeedMSEDataEvent;
    answer->count = 1;
    answer->samples = new UVABackend::MediaSample*[2]();
    answer->samples[0] = new UVABackend::MediaSample;
    answer->samples[0]->data.assign(bytes, size);
    return answer;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string path = argc > 1 ? argv[1] : "";
    Tlog::SetThreshold("Velmora", 6);
    Velmora::Wrapper::IntegrationLayer layer(Bench::NewDoNothingStack());
    DiscardingClient browser;
    auto* const backend = static_cast<UVAMediaBackend*>(UVA_RequestBackend(UVABackend::TYPE_MEDIA_SOURCE, &browser));
    Velmora::IMediaBackend* volatile media = Bench::LastMediaBackend();
    Bench::EventSignal& events = Bench::LastMediaEvents();
    const auto finished = boost::make_shared<Velmora::BackendEvent>(Velmora::BackendEvent::PlaybackFinished);
    Bench::EventSignal raw;
    // Connected the way the stack's interface connects every handler: what is left is the library's.
    raw.connect(Velmora::IBackend::EventSlot([&](boost::shared_ptr<Velmora::BackendEvent>) {
        browser.handleEvent(new UVAEvent(UVAEvent::PLAYBACK_FINISHED));
    }));
    unsigned char sample[188];
    std::memset(sample, 0x47, sizeof(sample));
    unsigned char target[188];

    if (path == "forwarded-call") {
        Measure([&] { backend->setVolume(0.5); });
    } else if (path == "direct-call") {
        Measure([&] { media->SetVolume(0.5); });
    } else if (path == "plain-event") {
        Measure([&] { events(finished); });
    } else if (path == "raw-emission") {
        Measure([&] { raw(finished); });
    } else if (path == "sample-188") {
        MeasurePrepared([&] { return BrowserAnswer(sample, sizeof(sample)); },
                        [&](::NeedMSEDataEvent* answer) { backend->writeData(answer, sizeof(sample), {}); });
    } else if (path == "memcpy-188") {
        Measure([&] {
            std::memcpy(target, sample, sizeof(sample));
            asm volatile("" : : "r"(target) : "memory");
        });
    } else {
        std::fprintf(stderr, "unknown path '%s'\n", path.c_str());
        return 2;
    }
    std::printf("%d\n", kOperations);
    UVA_ReleaseBackend(backend);
    return 0;
}
