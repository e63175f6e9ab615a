#include <gmock/gmock.h>

#include <string>

#include "Utilities.h"

namespace {

using Velmora::BackendEvent;
using Velmora::DrmBackendEvent;
using Velmora::Wrapper::Utilities::ConvertEventIdToString;

// Every code's name in order, then the codes past either end.
template <typename Code>
std::string Names(int last, std::initializer_list<int> outside) {
    std::string names;
    for (int code = 0; code <= last; ++code) names += ConvertEventIdToString(static_cast<Code>(code)) + " ";
    for (int code : outside) names += "| " + ConvertEventIdToString(static_cast<Code>(code));
    return names;
}

TEST(ConvertEventIdToStringTest, ConvertEventIdToString_EveryCode) {
    EXPECT_EQ(Names<BackendEvent::EventType>(BackendEvent::LastEvent, {28, -2147483647 - 1}),
              "BackendResourceRevoked NeedData NeedMseData WriteMseData CancelDataRequests PlaybackFinished "
              "DurationChanged VideoResized DecodeError SeekCompleted VideoFrameAvailable DRMRightsError "
              "ParentalRatingError ParentalRatingChange BroadcastPlaystateChange ChannelChangeError "
              "ChannelChangeSucceeded ProgrammesChanged RecordingError RecordingStateChange BufferingProgress "
              "BufferingNetworkError BufferingIdle BufferingStreamUnderrun BufferingStreamBuffered SubtitlesChanged "
              "ComponentChanged LastEvent | Unknown event ID| Unknown event ID");
    EXPECT_EQ(Names<DrmBackendEvent::EventType>(DrmBackendEvent::DrmMessageResult, {5, -1}),
              "KeyNeeded KeyMessage KeyComplete KeyError DrmMessageResult | Unknown event ID| Unknown event ID");
}

}  // namespace
