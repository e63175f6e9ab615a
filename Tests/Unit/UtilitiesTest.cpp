#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "Utilities.h"

namespace {

using Velmora::BackendEvent;
using Velmora::DrmBackendEvent;
using namespace Velmora::Wrapper::Utilities;

TEST(ConvertEventIdToStringTest, NamesEveryBackendEventCodeAndNothingElse) {
    const char* const expected[] = {
        "BackendResourceRevoked", "NeedData", "NeedMseData", "WriteMseData", "CancelDataRequests",
        "PlaybackFinished", "DurationChanged", "VideoResized", "DecodeError", "SeekCompleted",
        "VideoFrameAvailable", "DRMRightsError", "ParentalRatingError", "ParentalRatingChange",
        "BroadcastPlaystateChange", "ChannelChangeError", "ChannelChangeSucceeded", "ProgrammesChanged",
        "RecordingError", "RecordingStateChange", "BufferingProgress", "BufferingNetworkError", "BufferingIdle",
        "BufferingStreamUnderrun", "BufferingStreamBuffered", "SubtitlesChanged", "ComponentChanged", "LastEvent"};
    for (int code = 0; code <= BackendEvent::LastEvent; ++code) {
        EXPECT_EQ(ConvertEventIdToString(static_cast<BackendEvent::EventType>(code)), expected[code]) << code;
    }
    for (int code : {28, 100, -1, -2147483647 - 1}) {
        EXPECT_EQ(ConvertEventIdToString(static_cast<BackendEvent::EventType>(code)), "Unknown event ID") << code;
    }
}

TEST(ConvertEventIdToStringTest, NamesEveryDrmEventCodeAndNothingElse) {
    const char* const expected[] = {"KeyNeeded", "KeyMessage", "KeyComplete", "KeyError", "DrmMessageResult"};
    for (int code = 0; code <= DrmBackendEvent::DrmMessageResult; ++code) {
        EXPECT_EQ(ConvertEventIdToString(static_cast<DrmBackendEvent::EventType>(code)), expected[code]) << code;
    }
    for (int code : {5, -1}) {
        EXPECT_EQ(ConvertEventIdToString(static_cast<DrmBackendEvent::EventType>(code)), "Unknown event ID") << code;
    }
}

TEST(ToBrowserEventTypeTest, CodesAboveWriteMseDataMoveDownByOne) {
    struct Row {
        int code;
        bool mapped;
        int browserCode;
    };
    const Row rows[] = {{0, true, 0},   {1, true, 1},   {2, true, 2},   {3, false, 0}, {4, true, 3},
                        {5, true, 4},   {17, true, 16}, {25, true, 24}, {26, true, 25}, {27, false, 0},
                        {28, false, 0}, {-1, false, 0}};
    for (const Row& row : rows) {
        UVAEvent::Type browserType = UVAEvent::RESOURCE_REVOKED;
        EXPECT_EQ(ToBrowserEventType(static_cast<BackendEvent::EventType>(row.code), browserType), row.mapped)
            << row.code;
        if (row.mapped) {
            EXPECT_EQ(browserType, row.browserCode) << row.code;
        }
    }
}

TEST(CopyHelpersTest, TextsAreFreshCopiesAndNullStaysNull) {
    EXPECT_EQ(DuplicateText(nullptr), nullptr);
    const char original[] = "eng";
    char* copy = DuplicateText(original);
    EXPECT_NE(copy, original);
    EXPECT_STREQ(copy, "eng");
    std::free(copy);
    EXPECT_EQ(TextOrEmpty(nullptr), "");
    EXPECT_EQ(TextOrEmpty("x"), "x");
}

TEST(CopyHelpersTest, SharedBytesAreAnExactIndependentCopy) {
    unsigned char source[] = {1, 0, 3, 4};
    const auto copy = CopyToSharedBytes(source, sizeof source);
    source[0] = 9;
    EXPECT_EQ(std::memcmp(copy.get(), "\x01\x00\x03\x04", 4), 0);
    EXPECT_NE(CopyToSharedBytes(nullptr, 0), nullptr) << "an empty block is still an array";
}

TEST(CopyHelpersTest, MallocCopyKeepsEveryByte) {
    const unsigned char source[] = {0, 255, 0};
    unsigned char* copy = MallocCopy(source, sizeof source);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::memcmp(copy, source, sizeof source), 0);
    std::free(copy);
}

TEST(MakeVideoRectTest, WidthAndHeightAreStoredCrosswiseAndTruncatedTo16Bits) {
    const Velmora::VideoRect rect = MakeVideoRect(10, 20, 300, 400);
    EXPECT_EQ(rect.x, 10);
    EXPECT_EQ(rect.y, 20);
    EXPECT_EQ(rect.width, 400);
    EXPECT_EQ(rect.height, 300);
    const Velmora::VideoRect wrapped = MakeVideoRect(70000, -1, 32768, 0);
    EXPECT_EQ(wrapped.x, 4464);
    EXPECT_EQ(wrapped.y, -1);
    EXPECT_EQ(wrapped.height, -32768);
}

}  // namespace
