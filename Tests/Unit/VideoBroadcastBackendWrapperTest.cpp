#include <gmock/gmock.h>

#include <boost/make_shared.hpp>
#include <functional>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

#include "AvComponentWrapper.h"
#include "Support/DescribeEvents.h"
#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"
#include "Support/RecordingClients.h"
#include "Velmora/Exceptions.h"
#include "VideoBroadcastBackendWrapper.h"

namespace {
thread_local bool failNextNothrowArray = false;
}  // namespace

// Lets a test fail the next non-throwing array allocation; otherwise the usual allocation.
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    if (std::exchange(failNextNothrowArray, false)) {
        return nullptr;
    }
    try {
        return ::operator new[](size);
    } catch (...) {
        return nullptr;
    }
}

namespace {

using namespace ::testing;
using Velmora::BackendEvent;
using namespace VelmoraTest;
using Mock = NiceMock<MockVideoBroadcastBackend>;
using Broadcast = Velmora::Wrapper::VideoBroadcastBackendWrapper;

class BroadcastTest : public LiveObjectsTest {
protected:
    boost::shared_ptr<Mock> backend = boost::make_shared<Mock>();
    NiceMock<MockAvComponent> component;
    RecordingClient client;
    std::unique_ptr<Broadcast> wrapper = std::make_unique<Broadcast>(backend, &client);
};

TEST_F(BroadcastTest, getPlaybackSpeeds_EmptyListOrNoMemory) {
    for (const bool emptyList : {true, false}) {
        EXPECT_CALL(*backend, GetPlaybackSpeeds(_))
            .WillOnce(SetArgReferee<0>(std::vector<double>(emptyList ? 0 : 2, 1.0)));
        failNextNothrowArray = !emptyList;
        double* speeds = nullptr;
        unsigned int count = 4;
        EXPECT_EQ(wrapper->getPlaybackSpeeds(speeds, count), UVA_STATUS_ERROR);
        EXPECT_FALSE(failNextNothrowArray) << "the array is allocated without throwing";
        EXPECT_EQ(std::make_pair(speeds, count), std::make_pair(static_cast<double*>(nullptr), 4u));
        const char* const text = emptyList ? "No speeds defined in backend." : "Memory allocation error.";
        EXPECT_THAT(log.Records(), ElementsAre(LogLine(2, std::string("Exception type 1: ") + text)));
        log.Clear();
    }
}

TEST_F(BroadcastTest, Destroy_HandleForgottenComponentsKept) {
    int handle = 0;
    wrapper->setWindowId(&handle);
    EXPECT_EQ(Broadcast::getBackendByVideoBroadcastHandle(&handle), wrapper.get());
    EXPECT_EQ(wrapper->GetVideoBroadcastBackendImpl(), backend);
    backend->Raise(new Velmora::ComponentChangedEvent(&component, Velmora::ComponentChangedEvent::Added));
    auto* shown =
        static_cast<Velmora::Wrapper::AvComponentWrapper*>(client.events.At<::ComponentChangedEvent>(0)->component);
    client.events.Clear();
    const long components = uvaLiveObjects().components;
    wrapper.reset();
    EXPECT_EQ(Broadcast::getBackendByVideoBroadcastHandle(&handle), nullptr);
    EXPECT_EQ(backend->events.num_slots(), 0u);
    EXPECT_EQ(backend.use_count(), 1);
    EXPECT_EQ(uvaLiveObjects().components, components);
    shown->BackendMarkUnused();
}

TEST_F(BroadcastTest, Construct_WithoutClient) {
    EXPECT_CALL(*backend, ConnectEvent(_)).Times(0);
    EXPECT_CALL(*backend, Stop());
    wrapper = std::make_unique<Broadcast>(backend, nullptr);
    EXPECT_EQ(wrapper->stop(), UVA_STATUS_OK);
    wrapper->VideoBroadcastBackendEvent(boost::make_shared<BackendEvent>(BackendEvent::BufferingIdle));
    EXPECT_THAT(log.Records("Velmora::VB"),
                ElementsAre(LogLine(5, "VideoBroadcastBackendWrapper Client is not set!"),
                            LogLine(5, "VideoBroadcastBackendEvent Event cannot be sent since client is not set!")));
}

}  // namespace
