#pragma once
// What the reference media stack plays: the content a media back-end pretends to load, the channel
// list of the broadcast back-end and the keys the content was encrypted with. Every back-end takes
// a copy when it is created, so a scenario changes these before it asks for a back-end.

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Velmora {
namespace Reference {

// How a back-end's time advances: on a thread of the back-end's own, as in a product, or only when
// a scenario calls Step(). Each step is one period of media time in both cases, so a run with the
// manual clock is exactly repeatable.
enum class Clock { Threaded, Manual };

struct MediaProfile {
    double durationSeconds = 30.0;
    std::uint16_t width = 1920;
    std::uint16_t height = 1080;
    double aspectRatio = 16.0 / 9.0;
    std::vector<std::string> audioLanguages{"eng", "deu"};
    std::vector<std::string> subtitleLanguages{"eng"};
    // A stream the back-end fetches itself says here whether it is encrypted and with which key id;
    // Media Source content says so through its sources and samples.
    bool encrypted = false;
    std::string keyId;
    // How far ahead of the playing position the back-end asks for data (4 s, or 10 s when the
    // browser asks for aggressive buffering), and how many samples one NeedMseData asks for.
    std::uint32_t aheadMs = 4000;
    std::uint32_t aggressiveAheadMs = 10000;
    std::uint32_t samplesPerRequest = 4;
    // A stream the browser delivers as plain bytes (NeedData): its rate and the size of one request.
    std::uint32_t bytesPerSecond = 250000;
    std::int32_t bytesPerRequest = 65536;
};

struct ChannelSpec {
    std::string name;
    std::int32_t number = 0;
    bool receivable = true;           // false: tuning fails as it does without a signal
    std::int32_t parentalRating = 0;  // 0: unrated
    std::vector<std::string> audioLanguages;
    std::vector<std::string> subtitleLanguages;
};

// Four channels: two plain ones, one rated above the default limit, one without a signal.
std::vector<ChannelSpec> DefaultChannels();
// One key: id "velmora-key-id-1", key "0123456789abcdef" (both 16 bytes, printable on purpose: the
// library logs init data as text).
std::map<std::string, std::string> DefaultContentKeys();

struct StackOptions {
    Clock clock = Clock::Threaded;
    std::chrono::milliseconds stepPeriod{40};
    MediaProfile media;
    std::vector<ChannelSpec> channels = DefaultChannels();
    std::int32_t parentalRatingLimit = 16;  // a channel rated above it raises a parental rating error
    std::uint32_t timeShiftSeconds = 1800;
    std::uint32_t recordingCapacitySeconds = 3600;
    std::map<std::string, std::string> contentKeys = DefaultContentKeys();  // key id -> key
};

}  // namespace Reference
}  // namespace Velmora
