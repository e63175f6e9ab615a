// The GStreamer stack where a browser session cannot reach: bad input of every kind ends in an
// exception or a DecodeError, never a crash or a hang, and a back-end released through the library
// while its engine raises events goes quietly. Whole sessions are the simulator's GStreamer tests.

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "GstMediaBackend.h"
#include "GstUva.h"
#include "MimeCaps.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVALiveObjects.h"
#include "Uva/UVAMediaBackend.h"
#include "Velmora/Exceptions.h"
#include "Velmora/IntegrationLayer.h"
#include "Velmora/StackFactory.h"

// The stack library's one export, linked into this test with the rest of the stack.
VELMORA_STACK_FACTORY Velmora::IUva* VelmoraCreateStack(unsigned interfaceVersion, const char* options);

namespace Velmora {
namespace Gst {
namespace {

using Source = IBackend::SourceDescriptionOperaStreaming;
using Description = UVABackend::SourceDescription;

// Keeps the types of the events a back-end raises, and answers NeedMseData with what `answer` writes.
class Recorder {
public:
    explicit Recorder(GstMediaBackend& backend)
        : connection(backend.ConnectEvent([this](boost::shared_ptr<BackendEvent> event) { Record(event); })) {}

    bool WaitFor(BackendEvent::EventType type, long times = 1, std::chrono::seconds limit = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> lock(mutex);
        return arrived.wait_for(lock, limit, [&] { return std::count(seen.begin(), seen.end(), type) >= times; });
    }

    std::function<void(const NeedMseDataEvent&)> answer;

private:
    void Record(const boost::shared_ptr<BackendEvent>& event) {
        if (event->type == BackendEvent::NeedMseData && answer) {
            answer(static_cast<const NeedMseDataEvent&>(*event));
        }
        const std::lock_guard<std::mutex> lock(mutex);
        seen.push_back(event->type);
        arrived.notify_all();
    }

    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<BackendEvent::EventType> seen;
    boost::signals2::scoped_connection connection;  // last: the first member to go
};

boost::shared_ptr<BackendEvent> Samples(std::int32_t sourceId, std::vector<std::pair<double, bool>> timesAndKeys,
                                        std::uint32_t size = 64) {
    auto buffers = boost::make_shared<std::vector<DecoderBuffer>>();
    for (const auto& [timestamp, key] : timesAndKeys) {
        DecoderBuffer sample;
        sample.data.reset(new unsigned char[size], boost::checked_array_deleter<unsigned char>());
        unsigned char* bytes = sample.data.get();
        for (std::uint32_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<unsigned char>(i * 37 + 11);  // past the header, bytes no decoder takes
        }
        // A VP8 key frame header announcing 320x240, so that the decoder starts: the frame tag (a shown
        // key frame and the first partition's size), the start code, the size.
        const std::uint32_t tag = ((size - 10) << 5) | 0x10;
        bytes[0] = static_cast<unsigned char>(tag);
        bytes[1] = static_cast<unsigned char>(tag >> 8);
        bytes[2] = static_cast<unsigned char>(tag >> 16);
        std::memcpy(bytes + 3, "\x9d\x01\x2a\x40\x01\xf0\x00", 7);
        sample.dataSize = size;
        sample.timestamp = timestamp;
        sample.duration = 40;
        sample.keyFrame = key ? 1 : 0;
        buffers->push_back(sample);
    }
    return boost::make_shared<WriteMseDataEvent>(sourceId, buffers, static_cast<std::uint32_t>(buffers->size()));
}

// What the browser's MIME types become; null: refused.
TEST(MimeCapsTest, CapsForMimeType_Table) {
    gst_init(nullptr, nullptr);  // caps are GStreamer objects, even when this test runs alone
    const std::pair<const char*, const char*> rows[] = {{"video/webm;codecs=vp9", "video/x-vp9"},
                                                        {"VIDEO/WEBM; CODECS=\"VP09.00.10.08\"", "video/x-vp9"},
                                                        {"video/webm", "video/x-vp8"},
                                                        {"audio/webm", "audio/x-opus"},
                                                        {"audio/webm; codecs=vp8", nullptr},
                                                        {"video/webm; codecs=opus", nullptr},
                                                        {"video/mp4; codecs=\"avc1.42E01E\"", nullptr},
                                                        {"", nullptr}};
    for (const auto& [mimeType, mediaType] : rows) {
        GstCaps* caps = CapsForMimeType(mimeType);
        EXPECT_STREQ(caps ? gst_structure_get_name(gst_caps_get_structure(caps, 0)) : nullptr, mediaType) << mimeType;
        if (caps != nullptr) {
            gst_caps_unref(caps);
        }
    }
}

// An owner's typo must not start a stack that silently ignores it.
TEST(StackFactoryTest, Create_Options) {
    const std::pair<const char*, bool> rows[] = {{"video-sink=fake;audio-sink=fake;sync=free", true},
                                                 {";video-sink=auto;", true},
                                                 {"video-sink=tv", false},
                                                 {"sync", false},
                                                 {"clock=manual", false}};
    for (const auto& [options, accepted] : rows) {
        const std::unique_ptr<IUva> stack(VelmoraCreateStack(VELMORA_STACK_INTERFACE_VERSION, options));
        EXPECT_EQ(stack != nullptr, accepted) << options;
    }
    EXPECT_EQ(VelmoraCreateStack(VELMORA_STACK_INTERFACE_VERSION + 1, ""), nullptr);
}

class GstStackTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { gst_init(nullptr, nullptr); }

    // The back-end goes first: its destructor joins the bus thread, which may be inside a recorder's slot.
    ~GstStackTest() override { backend.reset(); }

    void Write(std::int32_t sourceId, std::vector<std::pair<double, bool>> timesAndKeys,
               UVABackend::WriteDataStatus status = UVABackend::WRITE_DATA_OK) {
        backend->WriteMseData(Samples(sourceId, std::move(timesAndKeys)), status);
    }

    std::unique_ptr<GstMediaBackend> backend = std::make_unique<GstMediaBackend>(StackOptions());
    Recorder recorder{*backend};
    std::atomic<int> written{0};  // by the bus thread, which may outlive the test's body
};

// A stream that cannot play is reported by the operation that finds out, or by DecodeError later.
TEST_F(GstStackTest, InitBackend_UnplayableUrl) {
    const std::string notMedia = ::testing::TempDir() + "velmora-not-media.webm";
    std::ofstream(notMedia) << "this is not a media file\n";
    for (const std::string& url : {std::string("/nonexistent/velmora.webm"), notMedia, std::string("nosuch://x")}) {
        SCOPED_TRACE(url);
        backend = std::make_unique<GstMediaBackend>(StackOptions());
        Recorder failures(*backend);
        bool thrown = false;
        try {
            backend->InitBackend(url, IBackend::SourceDescriptionBackendStreaming{url}, false);
            backend->Play();
        } catch (const ExceptionBase&) {
            thrown = true;
        }
        EXPECT_TRUE(thrown || failures.WaitFor(BackendEvent::DecodeError));
        backend.reset();  // before `failures`: the bus thread may still be inside its slot
    }
}

TEST_F(GstStackTest, WriteMseData_Unplayable) {
    double position = 0.0;
    EXPECT_THROW(backend->Play(), ExceptionBase);  // before InitBackend, like the next three
    EXPECT_THROW(backend->GetPosition(position), ExceptionBase);
    EXPECT_THROW(backend->SetPlaybackRate(1.0), ExceptionBase);
    EXPECT_THROW(backend->AttachSource(Source{0, 1, false, 0, "video/webm"}), ExceptionBase);
    EXPECT_THROW(backend->InitBackend("blob:x", {Source{0, 1, false, 0, "video/mp4; codecs=\"avc1\""}}, false),
                 ExceptionBase);
    backend = std::make_unique<GstMediaBackend>(StackOptions());
    backend->InitBackend("blob:x", {Source{0, 1, false, 0, "video/webm; codecs=\"vp8\""}}, false);
    EXPECT_THROW(backend->AttachSource(Source{0, 1, false, 0, "video/webm"}), ExceptionBase);  // same id twice
    EXPECT_THROW(Write(9, {{0.0, true}}), ExceptionBase);
    EXPECT_THROW(
        backend->WriteMseData(boost::make_shared<BackendEvent>(BackendEvent::WriteMseData), UVABackend::WRITE_DATA_OK),
        ExceptionBase);
    // Going back in time without a key frame: the late samples are dropped and the write fails.
    EXPECT_NO_THROW(Write(1, {{1000.0, true}, {1040.0, false}}));
    EXPECT_THROW(Write(1, {{500.0, false}}), ExceptionBase);
    EXPECT_NO_THROW(Write(1, {{0.0, true}}, UVABackend::WRITE_DATA_END_OF_STREAM));
    EXPECT_THROW(Write(1, {{80.0, true}}), ExceptionBase);                // ended
    EXPECT_NO_THROW(Write(1, {}, UVABackend::WRITE_DATA_END_OF_STREAM));  // the end, again
}

// What the browser was asked and wrote for the old position is void after a seek: an open request is
// cancelled and asked again, an ended source takes samples again from any time, a removed one stays gone.
// Until the pipeline has settled after the seek, the position is its target.
TEST_F(GstStackTest, SetPosition_MediaSourceSeek) {
    const Source video{0, 1, false, 0, "video/webm; codecs=\"vp8\""};
    backend->InitBackend("blob:x", {video, Source{0, 2, false, 0, "audio/webm; codecs=\"opus\""}}, false);
    backend->AttachSource(Source{0, 3, false, 0, "video/webm; codecs=\"vp8\""});
    EXPECT_FALSE(backend->SetPosition(-1.0));
    EXPECT_THROW(backend->SetPlaybackRate(2.0), ExceptionBase);   // its seek would flush what the branches hold
    ASSERT_TRUE(recorder.WaitFor(BackendEvent::NeedMseData, 3));  // every branch asks; nobody answers
    Write(2, {{2000.0, true}}, UVABackend::WRITE_DATA_END_OF_STREAM);
    backend->RemoveSource(3);

    ASSERT_TRUE(backend->SetPosition(0.5));
    double position = -1.0;
    EXPECT_TRUE(backend->GetPosition(position));
    EXPECT_EQ(position, 0.5);
    EXPECT_TRUE(recorder.WaitFor(BackendEvent::CancelDataRequests));
    EXPECT_TRUE(recorder.WaitFor(BackendEvent::NeedMseData, 5));
    EXPECT_NO_THROW(Write(2, {{400.0, false}}));
    EXPECT_THROW(Write(3, {{400.0, true}}), ExceptionBase);
}

// Garbage after a key frame header: the video decoder gives up. (That an answered request is asked
// again, the simulator's gst-mse session shows.)
TEST_F(GstStackTest, WriteMseData_GarbageVideo) {
    recorder.answer = [this](const NeedMseDataEvent& request) {
        backend->WriteMseData(Samples(request.sourceId, {{40.0 * written++, true}}, 512), UVABackend::WRITE_DATA_OK);
    };
    backend->InitBackend("blob:x", {Source{0, 1, false, 0, "video/webm; codecs=\"vp8\""}}, false);
    backend->Play();
    EXPECT_TRUE(recorder.WaitFor(BackendEvent::DecodeError));
}

// Counts the components the stack added and has not removed yet; events may come on the engine's bus
// thread at any moment.
class CountingClient : public UVAClient {
public:
    void handleEvent(UVAEvent* event) override {
        if (event->getType() == UVAEvent::COMPONENT_CHANGED) {
            const int action = static_cast<::ComponentChangedEvent*>(event)->action;
            held += action == ::ComponentChangedEvent::ADDED ? 1 : action == ::ComponentChangedEvent::REMOVED ? -1 : 0;
        }
        delete event;
    }
    UVADRMBackend* requestDRMBackend(const char*) override { return nullptr; }
    std::atomic<int> held{0};
};

// The browser releases the back-end while the engine is still prerolling and raising events, at a
// different moment each round, a Media Source back-end in the middle of a seek: the teardown must not
// hang (playbin3 can deadlock when taken down while it still finds the stream's type) nor leave
// anything of the browser's side behind (ASan and TSan watch this one). That no event follows the
// release is the conformance kit's no-event-after-release check on this stack.
TEST_F(GstStackTest, Release_WhileEventsFlow) {
    backend.reset();
    const long before = uvaLiveObjects().Total();
    Wrapper::IntegrationLayer layer(new GstUva(StackOptions()));
    for (int round = 0; round < 8; ++round) {
        const bool mediaSource = round % 2 == 1;
        CountingClient client;
        auto* media = static_cast<UVAMediaBackend*>(
            UVA_RequestBackend(mediaSource ? UVABackend::TYPE_MEDIA_SOURCE : UVABackend::TYPE_MEDIA, &client));
        ASSERT_NE(media, nullptr);
        auto* source =
            mediaSource ? Description::Streaming(Description::SOURCE_VIDEO, 1, false, 0, "video/webm; codecs=\"vp8\"")
                        : Description::BackendStreaming(VELMORA_TEST_MEDIA);
        auto** sources = new Description* [2] { source, nullptr };
        ASSERT_EQ(media->initBackend(VELMORA_TEST_MEDIA, sources, false), UVA_STATUS_OK);
        media->play();
        std::this_thread::sleep_for(std::chrono::milliseconds(3 * round));
        if (mediaSource) {
            EXPECT_EQ(media->setPosition(1.0), UVA_STATUS_OK);
        }
        media->stop();
        // Components end only when the stack removes them, so the browser stops and waits for that first.
        for (int waited = 0; client.held != 0 && waited < 500; ++waited) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_EQ(client.held, 0) << "round " << round;
        EXPECT_EQ(UVA_ReleaseBackend(media), UVA_STATUS_OK);
    }
    EXPECT_EQ(uvaLiveObjects().Total(), before);
}

}  // namespace
}  // namespace Gst
}  // namespace Velmora
