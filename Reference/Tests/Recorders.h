#pragma once
// What the reference stack's tests share: a recorder that stands where the library's slots would, and
// builders for the data the browser sends.

#include <gmock/gmock.h>

#include <boost/checked_delete.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "FaultInjector.h"
#include "StackOptions.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/DrmBackendEvents.h"
#include "Velmora/IBackend.h"
#include "Velmora/IDrmBackend.h"

namespace ReferenceTest {

using ::testing::ElementsAre;
using Velmora::BackendEvent;
using Velmora::DrmBackendEvent;
using Velmora::ExceptionBase;
using Velmora::Reference::FaultInjector;

// Keeps every event raised on a back-end's signal. The back-ends step on the test's thread.
template <typename Event>
class Recorder {
public:
    explicit Recorder(Velmora::IBackend& backend) : connection(backend.ConnectEvent(Slot())) {}
    explicit Recorder(Velmora::IDrmBackend& backend) : connection(backend.ConnectDrmEvent(Slot())) {}

    // The recorded events of class `Kind`, in order.
    template <typename Kind = Event>
    std::vector<boost::shared_ptr<Kind>> Of() const {
        std::vector<boost::shared_ptr<Kind>> found;
        for (const auto& event : raised) {
            if (const auto cast = boost::dynamic_pointer_cast<Kind>(event)) {
                found.push_back(cast);
            }
        }
        return found;
    }

    std::vector<typename Event::EventType> Types() const {
        std::vector<typename Event::EventType> types;
        for (const auto& event : raised) {
            types.push_back(event->type);
        }
        return types;
    }

    std::vector<boost::shared_ptr<Event>> raised;

private:
    std::function<void(boost::shared_ptr<Event>)> Slot() {
        return [this](boost::shared_ptr<Event> event) { raised.push_back(event); };
    }

    boost::signals2::scoped_connection connection;
};

using EventRecorder = Recorder<Velmora::BackendEvent>;
using DrmRecorder = Recorder<Velmora::DrmBackendEvent>;

// Deterministic: nothing moves until the test steps, each step one tenth of a second.
inline Velmora::Reference::StackOptions ManualOptions() {
    Velmora::Reference::StackOptions options;
    options.clock = Velmora::Reference::Clock::Manual;
    options.stepPeriod = std::chrono::milliseconds(100);
    options.media.durationSeconds = 2.0;
    return options;
}

inline boost::shared_ptr<unsigned char> Bytes(const std::string& text) {
    if (text.empty()) {
        return nullptr;
    }
    boost::shared_ptr<unsigned char> bytes(new unsigned char[text.size()],
                                           boost::checked_array_deleter<unsigned char>());
    std::memcpy(bytes.get(), text.data(), text.size());
    return bytes;
}

// Sets a sample's buffer and its length together; an empty text leaves both empty.
inline void Put(boost::shared_ptr<unsigned char>& buffer, std::uint32_t& size, const std::string& text) {
    buffer = Bytes(text);
    size = static_cast<std::uint32_t>(text.size());
}

const std::string kKeyId = "velmora-key-id-1";
const std::string kKey = "0123456789abcdef";

// A sound sample of ten bytes, encrypted with kKeyId unless `clear`.
inline Velmora::DecoderBuffer Sample(double timestampMs, bool clear = true) {
    Velmora::DecoderBuffer sample;
    Put(sample.data, sample.dataSize, "sample-abc");
    sample.timestamp = timestampMs;
    sample.duration = 500;
    if (!clear) {
        Put(sample.keyId, sample.keyIdSize, kKeyId);
        Put(sample.iv, sample.ivSize, "iv-of-16-bytes!!");
    }
    return sample;
}

inline boost::shared_ptr<Velmora::WriteMseDataEvent> Answer(std::int32_t sourceId,
                                                            std::vector<Velmora::DecoderBuffer> samples) {
    const auto count = static_cast<std::uint32_t>(samples.size());
    return boost::make_shared<Velmora::WriteMseDataEvent>(
        sourceId, boost::make_shared<std::vector<Velmora::DecoderBuffer>>(std::move(samples)), count);
}

}  // namespace ReferenceTest
