#pragma once
// A browser event in one line: its class, its code and every field in the class's order, so that a table
// row names all of them and a lost or swapped field shows in the failure. A null text reads "null".

#include <boost/core/demangle.hpp>
#include <cstdint>
#include <sstream>
#include <string>
#include <typeinfo>

#include "Uva/UVADRMEvent.h"
#include "Uva/UVAEvent.h"

namespace VelmoraTest {

inline std::string Text(const char* text) { return text == nullptr ? "null" : text; }

// A byte block as its characters, embedded zeros kept.
inline std::string Bytes(const unsigned char* bytes, std::uint32_t size) {
    return size == 0 ? std::string() : std::string(bytes, bytes + size);
}

inline std::string Describe(UVAEvent* event) {
    std::ostringstream out;
    out << boost::core::demangle(typeid(*event).name()) << ' ' << event->type;
    if (auto* need = dynamic_cast<NeedDataEvent*>(event)) {
        out << ' ' << need->sourceId << ' ' << need->requestId << ' ' << need->offset << ' ' << need->size;
    } else if (auto* mse = dynamic_cast<NeedMSEDataEvent*>(event)) {
        out << ' ' << mse->sourceId << ' ' << mse->count;
        for (std::uint32_t index = 0; index <= mse->count; ++index) {  // up to and with the terminator
            out << (mse->samples[index] == nullptr ? " null" : " sample");
        }
    } else if (auto* cancel = dynamic_cast<CancelDataRequestsEvent*>(event)) {
        out << ' ' << cancel->position << ' ' << cancel->requestId;
    } else if (auto* duration = dynamic_cast<DurationChangedEvent*>(event)) {
        out << ' ' << duration->duration;
    } else if (auto* resized = dynamic_cast<VideoResizedEvent*>(event)) {
        out << ' ' << resized->width << ' ' << resized->height << ' ' << resized->aspectRatio;
    } else if (auto* rights = dynamic_cast<DRMRightsErrorEvent*>(event)) {
        out << ' ' << rights->errorState << ' ' << Text(rights->contentId) << ' ' << Text(rights->drmSystemId) << ' '
            << Text(rights->rightsIssuerUrl);
    } else if (auto* rating = dynamic_cast<ParentalRatingEvent*>(event)) {
        out << ' ' << Text(rating->contentId) << ' ' << rating->rating << ' ' << Text(rating->drmSystemId);
    } else if (auto* play = dynamic_cast<BroadcastPlaystateChangeEvent*>(event)) {
        out << ' ' << play->state << ' ' << play->error;
    } else if (auto* failed = dynamic_cast<ChannelChangeErrorEvent*>(event)) {
        out << ' ' << failed->channel << ' ' << failed->errorState;
    } else if (auto* changed = dynamic_cast<ChannelChangeSucceededEvent*>(event)) {
        out << ' ' << changed->channel;
    } else if (auto* recording = dynamic_cast<RecordingErrorEvent*>(event)) {
        out << ' ' << recording->error << ' ' << Text(recording->recordingId);
    } else if (auto* state = dynamic_cast<RecordingStateChangeEvent*>(event)) {
        out << ' ' << state->state << ' ' << Text(state->recordingId);
    } else if (auto* underrun = dynamic_cast<BufferingStreamUnderrunEvent*>(event)) {
        out << ' ' << underrun->bufferLevel;
    } else if (auto* subtitles = dynamic_cast<SubtitlesChangedEvent*>(event)) {
        out << ' ' << Text(subtitles->language);
    }
    return out.str();
}

// Byte blocks as their characters (embedded zeros kept) and their length.
inline std::string Describe(const UVADRMEvent* event) {
    const auto block = [](const unsigned char* bytes, std::uint32_t size) {
        return Bytes(bytes, size) + '/' + std::to_string(size);
    };
    std::ostringstream out;
    out << event->kind << ' ' << Text(event->keySystem) << ' ' << Text(event->sessionId) << ' ' << event->flag;
    if (const auto* key = dynamic_cast<const UVANeedKeyDRMEvent*>(event)) {
        out << " init " << block(key->initData, key->initDataLength) << ' ' << key->needKey;
    } else if (const auto* message = dynamic_cast<const UVAKeyMessageDRMEvent*>(event)) {
        out << " message " << block(message->message, message->messageLength) << " url " << Text(message->defaultUrl);
    } else if (const auto* error = dynamic_cast<const UVAKeyErrorDRMEvent*>(event)) {
        out << " error " << error->errorCode << ' ' << error->systemCode;
    } else if (const auto* result = dynamic_cast<const UVAResultMessageDRMEvent*>(event)) {
        out << " result " << Text(result->resultMessage) << ' ' << result->resultCode;
    }
    return out.str();
}

}  // namespace VelmoraTest
