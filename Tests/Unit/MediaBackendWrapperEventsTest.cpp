#include <functional>
#include <sstream>
#include <string>

#include "MediaBackendWrapperFixture.h"
#include "Support/DescribeEvents.h"
#include "Velmora/Exceptions.h"

namespace {

using namespace ::testing;
namespace Stack = Velmora;  // the media stack's side
using Stack::BackendEvent;
using VelmoraTest::Lines;
using VelmoraTest::LogLine;
using Action = Stack::ComponentChangedEvent::Action;

struct Translation {
    const char* name;  // as the log names the media stack's event
    std::function<BackendEvent*()> raise;
    std::string delivered;  // empty: nothing reaches the browser
};

void PrintTo(const Translation& translation, std::ostream* out) { *out << translation.name; }

template <typename Event, typename... Args>
std::function<BackendEvent*()> New(Args... args) {
    return [=] { return new Event(args...); };
}

std::function<BackendEvent*()> Plain(int code) { return New<BackendEvent>(static_cast<BackendEvent::EventType>(code)); }

// clang-format off
const Translation kTranslations[] = {
    {"BackendResourceRevoked", Plain(0), "UVAEvent 0"}, {"PlaybackFinished", Plain(5), "UVAEvent 4"},
    {"DecodeError", Plain(8), "UVAEvent 7"}, {"SeekCompleted", Plain(9), "UVAEvent 8"},
    {"VideoFrameAvailable", Plain(10), "UVAEvent 9"}, {"BufferingProgress", Plain(20), "UVAEvent 19"},
    {"BufferingNetworkError", Plain(21), "UVAEvent 20"}, {"BufferingIdle", Plain(22), "UVAEvent 21"},
    {"BufferingStreamBuffered", Plain(24), "UVAEvent 23"},
    {"NeedData", New<Stack::NeedDataEvent>(1, 2, 3, 4), "NeedDataEvent 1 1 2 3 4"},
    {"NeedMseData", New<Stack::NeedMseDataEvent>(9, 0u), "NeedMSEDataEvent 2 9 1 null null"},
    {"NeedMseData", New<Stack::NeedMseDataEvent>(9, 3u), "NeedMSEDataEvent 2 9 3 null null null null"},
    {"CancelDataRequests", New<Stack::CancelDataRequestsEvent>(12.5, 4), "CancelDataRequestsEvent 3 12.5 4"},
    {"DurationChanged", New<Stack::DurationChangedEvent>(61.5), "DurationChangedEvent 5 61.5"},
    {"VideoResized", New<Stack::VideoResizedEvent>(65535, 1080, 1.777), "VideoResizedEvent 6 65535 1080 1.777"},
    {"DRMRightsError", New<Stack::DRMRightsErrorEvent>(3, "cid", "sys", nullptr), "DRMRightsErrorEvent 10 3 cid sys null"},
    {"ParentalRatingError", New<Stack::ParentalRatingErrorEvent>("cid", nullptr, 18), "ParentalRatingErrorEvent 11 cid 18 null"},
    {"ParentalRatingChange", New<Stack::ParentalRatingChangeEvent>(nullptr, "sys", 12), "ParentalRatingChangeEvent 12 null 12 sys"},
    {"BufferingStreamUnderrun", New<Stack::BufferingStreamUnderrunEvent>(40), "BufferingStreamUnderrunEvent 22 40"},
    {"WriteMseData", New<Stack::WriteMseDataEvent>(1, nullptr, 0u), ""},
    {"BroadcastPlaystateChange", New<Stack::BroadcastPlaystateChangeEvent>(1, 0), ""},
    {"SubtitlesChanged", New<Stack::SubtitlesChangedEvent>("eng"), ""},
    {"Unknown event ID", Plain(40), ""},
    {"DurationChanged", Plain(6), ""},  // the code names a class the event is not of
};
// clang-format on

class MediaEventTest : public VelmoraTest::MediaWrapperTest, public WithParamInterface<Translation> {};

TEST_P(MediaEventTest, ReachesTheBrowserAsItsOwnEventOrIsLoggedAsNotHandled) {
    Raise(GetParam().raise());
    const std::string name = GetParam().name;
    Lines expected{LogLine(2, "MediaBackendEvent; (sending event to Opera): " + name)};
    if (GetParam().delivered.empty()) {
        expected.push_back(LogLine(4, "MediaBackendEvent not handled. Event ID: " + name));
    }
    ASSERT_EQ(client.events.Count(), GetParam().delivered.empty() ? 0u : 1u);
    EXPECT_EQ(client.events.Count() == 0 ? "" : VelmoraTest::Describe(client.events.At(0)), GetParam().delivered);
    EXPECT_THAT(MediaLog(), ElementsAreArray(expected));
}

INSTANTIATE_TEST_SUITE_P(EveryEventCode, MediaEventTest, ValuesIn(kTranslations));

}  // namespace
