#include <gmock/gmock.h>

#include <string>

#include "Utilities.h"

namespace {

using Velmora::BackendEvent;
using Velmora::DrmBackendEvent;
using namespace Velmora::Wrapper::Utilities;

TEST(ConvertEventIdToStringTest, ConvertEventIdToString_BackendCodes) {
    const char* const expected[] = {"BackendResourceRevoked",
                                    "NeedData",
                                    "NeedMseData",
                                    "WriteMseData",
                                    "CancelDataRequests",
                                    "PlaybackFinished",
                                    "DurationChanged",
                                    "VideoResized",
                                    "DecodeError",
                                    "SeekCompleted",
                                    "VideoFrameAvailable",
                                    "DRMRightsError",
                                    "ParentalRatingError",
                                    "ParentalRatingChange",
                                    "BroadcastPlaystateChange",
                                    "ChannelChangeError",
                                    "ChannelChangeSucceeded",
                                    "ProgrammesChanged",
                                    "RecordingError",
                                    "RecordingStateChange",
                                    "BufferingProgress",
                                    "BufferingNetworkError",
                                    "BufferingIdle",
                                    "BufferingStreamUnderrun",
                                    "BufferingStreamBuffered",
                                    "SubtitlesChanged",
                                    "ComponentChanged",
                                    "LastEvent"};
    for (int code = 0; code <= BackendEvent::LastEvent; ++code) {
        EXPECT_EQ(ConvertEventIdToString(static_cast<BackendEvent::EventType>(code)), expected[code]) << code;
    }
    for (int code : {28, 100, -1, -2147483647 - 1}) {
        EXPECT_EQ(ConvertEventIdToString(static_cast<BackendEvent::EventType>(code)), "Unknown event ID") << code;
    }
}

TEST(ConvertEventIdToStringTest, ConvertEventIdToString_DrmCodes) {
    const char* const expected[] = {"KeyNeeded", "KeyMessage", "KeyComplete", "KeyError", "DrmMessageResult"};
    for (int code = 0; code <= DrmBackendEvent::DrmMessageResult; ++code) {
        EXPECT_EQ(ConvertEventIdToString(static_cast<DrmBackendEvent::EventType>(code)), expected[code]) << code;
    }
    for (int code : {5, -1}) {
        EXPECT_EQ(ConvertEventIdToString(static_cast<DrmBackendEvent::EventType>(code)), "Unknown event ID") << code;
    }
}

}  // namespace
