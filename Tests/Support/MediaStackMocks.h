#pragma once
// GoogleMock doubles of the media stack's interfaces. Every Connect... operation connects the given
// slot to a real boost::signals2 signal that the test raises, so slots run exactly as they would in a
// product (and can be raised from other threads).

#include <gmock/gmock.h>

#include <boost/make_shared.hpp>
#include <boost/signals2/signal.hpp>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "Velmora/IAvComponent.h"
#include "Velmora/IDrmBackend.h"
#include "Velmora/IMediaBackend.h"
#include "Velmora/IUva.h"
#include "Velmora/IVideoBroadcastBackend.h"

namespace VelmoraTest {

using BackendEventSignal = boost::signals2::signal<void(boost::shared_ptr<Velmora::BackendEvent>)>;

// The default action of a Connect... operation: connect the slot to `signal`.
template <typename Signal>
auto ConnectsTo(Signal& signal) {
    return [&signal](const auto& slot) { return signal.connect(slot); };
}

class MockMediaBackend : public Velmora::IMediaBackend {
public:
    MockMediaBackend() {
        ON_CALL(*this, ConnectEvent).WillByDefault(ConnectsTo(events));
        ON_CALL(*this, ConnectDrmBackendRequest).WillByDefault(ConnectsTo(drmRequests));
    }

    // Raises `event` (taking ownership) on the event signal, on the calling thread.
    void Raise(Velmora::BackendEvent* event) { events(boost::shared_ptr<Velmora::BackendEvent>(event)); }
    // Asks for a DRM back-end through the request signal, as the media stack does for encrypted content.
    Velmora::IDrmBackend* RequestDrmBackend(const std::string& keySystemId) {
        Velmora::IDrmBackend* answer = nullptr;
        drmRequests(keySystemId, answer);
        return answer;
    }

    BackendEventSignal events;
    boost::signals2::signal<void(std::string, Velmora::IDrmBackend*&)> drmRequests;

    MOCK_METHOD(boost::signals2::connection, ConnectEvent, (const EventSlot& slot), (override));
    MOCK_METHOD(void, SetWindowId, (std::uint32_t), (override));
    MOCK_METHOD(void, InitBackend, (std::string, const SourceDescriptionBackendStreaming&, bool), (override));
    MOCK_METHOD(void, InitBackend, (std::string, const std::vector<SourceDescriptionOperaStreaming>&, bool),
                (override));
    MOCK_METHOD(void, AttachSource, (const SourceDescriptionOperaStreaming&), (override));
    MOCK_METHOD(void, RemoveSource, (std::uint32_t), (override));
    MOCK_METHOD(bool, SetVideoWindow, (const Velmora::VideoRect&), (override));
    MOCK_METHOD(bool, SetClipRect, (const Velmora::VideoRect&), (override));
    MOCK_METHOD(bool, GetNativeSize, (unsigned short&, unsigned short&, double&), (override));
    MOCK_METHOD(bool, GetVideoFrame, (unsigned char*, std::uint32_t), (override));
    MOCK_METHOD(bool, GetSeekableTimeRanges, (std::vector<ByteRange>&, std::vector<TimeRange>&), (override));
    MOCK_METHOD(bool, GetBufferedTimeRanges, (std::vector<ByteRange>&, std::vector<TimeRange>&), (override));
    MOCK_METHOD(bool, CanPlayURL, (const std::string&), (override));
    MOCK_METHOD(void, Play, (), (override));
    MOCK_METHOD(void, Stop, (), (override));
    MOCK_METHOD(void, Pause, (bool), (override));
    MOCK_METHOD(void, SetPlaybackRate, (double), (override));
    MOCK_METHOD(void, SetVolume, (double), (override));
    MOCK_METHOD(bool, GetDuration, (double&), (override));
    MOCK_METHOD(void, SetContentSize, (std::uint32_t, std::uint32_t), (override));
    MOCK_METHOD(bool, GetPosition, (double&), (override));
    MOCK_METHOD(bool, SetPosition, (double), (override));
    MOCK_METHOD(void, SetVisibility, (bool), (override));
    MOCK_METHOD(void, GetSizeFromDuration, (), (override));
    MOCK_METHOD(void, WriteData, (boost::shared_ptr<Velmora::BackendEvent>, unsigned int, UVABackend::WriteDataStatus),
                (override));
    MOCK_METHOD(void, WriteMseData, (boost::shared_ptr<Velmora::BackendEvent>, UVABackend::WriteDataStatus),
                (override));
    MOCK_METHOD(bool, CanPlayType, (const std::string&, const std::vector<std::string>&, const std::string&),
                (override));
    MOCK_METHOD(void, SetFullScreen, (bool), (override));
    MOCK_METHOD(void, GetSupportedMimetypes, (std::vector<std::string>&), (override));
    MOCK_METHOD(void, SetLoop, (std::string), (override));
    MOCK_METHOD(void, SelectComponent, (Velmora::IAvComponent*), (override));
    MOCK_METHOD(void, UnselectComponent, (Velmora::IAvComponent*), (override));
    MOCK_METHOD(void, SetSource, (std::string), (override));
    MOCK_METHOD(void, OnListenerChanged, (std::string), (override));
    MOCK_METHOD(void, SetBufferingStrategy, (bool), (override));
    MOCK_METHOD(void, GetBytesInBuffer, (unsigned int&), (override));
    MOCK_METHOD(void, SetKeySystem, (std::string), (override));
    MOCK_METHOD(boost::signals2::connection, ConnectDrmBackendRequest, (const DrmBackendRequestSlot& slot), (override));
};

class MockVideoBroadcastBackend : public Velmora::IVideoBroadcastBackend {
public:
    MockVideoBroadcastBackend() { ON_CALL(*this, ConnectEvent).WillByDefault(ConnectsTo(events)); }

    void Raise(Velmora::BackendEvent* event) { events(boost::shared_ptr<Velmora::BackendEvent>(event)); }

    BackendEventSignal events;

    MOCK_METHOD(boost::signals2::connection, ConnectEvent, (const EventSlot& slot), (override));
    MOCK_METHOD(void, InitBackend, (const std::string&), (override));
    MOCK_METHOD(void, Release, (), (override));
    MOCK_METHOD(bool, SetVideoWindow, (const Velmora::VideoRect&), (override));
    MOCK_METHOD(bool, SetClipRect, (const Velmora::VideoRect&), (override));
    MOCK_METHOD(void, SetFullScreen, (bool), (override));
    MOCK_METHOD(void, SetVisibility, (bool, bool), (override));
    MOCK_METHOD(void, SetVolume, (double), (override));
    MOCK_METHOD(void, NextChannel, (), (override));
    MOCK_METHOD(void, PreviousChannel, (), (override));
    MOCK_METHOD(void, Stop, (), (override));
    MOCK_METHOD(void, SelectComponent, (Velmora::IAvComponent*), (override));
    MOCK_METHOD(void, UnselectComponent, (Velmora::IAvComponent*), (override));
    MOCK_METHOD(void, GetPlayState, (std::int32_t&), (override));
    MOCK_METHOD(void, OnListenerChanged, (const std::string&), (override));
    MOCK_METHOD(boost::shared_ptr<void>, GetCurrentChannel, (), (override));
    MOCK_METHOD(void, SetChannel, (void*, bool, bool, const std::string&, bool, bool), (override));
    MOCK_METHOD(void, BindToCurrentChannel, (), (override));
    MOCK_METHOD(void, GetPlaybackOffset, (std::uint32_t&), (override));
    MOCK_METHOD(void, GetMaxOffset, (std::uint32_t&), (override));
    MOCK_METHOD(void, GetPlaybackSpeeds, (std::vector<double>&), (override));
    MOCK_METHOD(bool, RecordNow, (), (override));
    MOCK_METHOD(bool, StopRecording, (), (override));
    MOCK_METHOD(void, Pause, (), (override));
    MOCK_METHOD(void, Resume, (), (override));
    MOCK_METHOD(void, SetPlaybackSpeed, (double), (override));
    MOCK_METHOD(void, SetPosition, (std::int32_t, UVABackend::PositionReference), (override));
    MOCK_METHOD(void, StopTimeShift, (), (override));
    MOCK_METHOD(void, GetRecordingState, (std::int32_t&), (override));
    MOCK_METHOD(void, GetPosition, (std::uint32_t&), (override));
    MOCK_METHOD(void, GetPlaybackSpeed, (double&), (override));
};

class MockDrmBackend : public Velmora::IDrmBackend {
public:
    MockDrmBackend() { ON_CALL(*this, ConnectDrmEvent).WillByDefault(ConnectsTo(events)); }

    void Raise(Velmora::DrmBackendEvent* event) { events(boost::shared_ptr<Velmora::DrmBackendEvent>(event)); }

    boost::signals2::signal<void(boost::shared_ptr<Velmora::DrmBackendEvent>)> events;

    MOCK_METHOD(const std::string&, GetId, (), (const, override));
    MOCK_METHOD(const std::string&, GetOIPFId, (), (const, override));
    MOCK_METHOD(bool, GenerateKeyRequest, (boost::shared_ptr<unsigned char>, std::uint32_t), (override));
    MOCK_METHOD(bool, AddKey,
                (boost::shared_ptr<unsigned char>, std::uint32_t, boost::shared_ptr<unsigned char>, std::uint32_t,
                 const std::string&),
                (override));
    MOCK_METHOD(bool, CancelKeyRequest, (const std::string&), (override));
    MOCK_METHOD(bool, GetKeyReleases, (), (override));
    MOCK_METHOD(bool, AddKeyReleaseCommit, (boost::shared_ptr<unsigned char>, std::uint32_t, const std::string&),
                (override));
    MOCK_METHOD(bool, SendDrmMessage, (const std::string&, const std::string&, std::string&), (override));
    MOCK_METHOD(boost::signals2::connection, ConnectDrmEvent, (const DrmEventSlot& slot), (override));
};

// A component with its own copies of the description texts (null stays null).
class MockAvComponent : public Velmora::IAvComponent {
public:
    explicit MockAvComponent(const char* language_ = "eng", std::int32_t type_ = 1) {
        type = type_;
        SetText(&AvComponentDescription::language, language_);
        ON_CALL(*this, ConnectStateChanged).WillByDefault(ConnectsTo(state));
    }
    ~MockAvComponent() override {
        for (auto field :
             {&AvComponentDescription::encoding, &AvComponentDescription::language, &AvComponentDescription::label,
              &AvComponentDescription::role, &AvComponentDescription::id}) {
            std::free(this->*field);
        }
    }

    // Raises the state signal, as the media stack does when the component becomes (in)active.
    void SetActive(bool active) { state(active); }
    // Replaces a text field by a copy of `text`.
    void SetText(char* Velmora::AvComponentDescription::*field, const char* text) {
        std::free(this->*field);
        this->*field = text == nullptr ? nullptr : strdup(text);
    }

    boost::signals2::signal<void(bool)> state;

    MOCK_METHOD(boost::signals2::connection, ConnectStateChanged, (const StateSlot& slot), (override));
};

// Makes a mock back-end for every request by default, and keeps them in the order they were made.
class MockUva : public Velmora::IUva {
public:
    MockUva() {
        ON_CALL(*this, ConnectHandleLookup).WillByDefault(ConnectsTo(handleLookups));
        ON_CALL(*this, CreateBackend).WillByDefault([this](int type) -> boost::shared_ptr<Velmora::IBackend> {
            if (type == UVABackend::TYPE_VIDEO_BROADCAST) {
                return broadcasts.emplace_back(boost::make_shared<testing::NiceMock<MockVideoBroadcastBackend>>());
            }
            return medias.emplace_back(boost::make_shared<testing::NiceMock<MockMediaBackend>>());
        });
        ON_CALL(*this, CreateDrmBackend).WillByDefault([this](const std::string&) {
            return boost::shared_ptr<Velmora::IDrmBackend>(
                drms.emplace_back(boost::make_shared<testing::NiceMock<MockDrmBackend>>()));
        });
    }
    ~MockUva() override {
        if (onDestroyed) onDestroyed();
    }

    // Raises the handle-lookup signal and returns what the connected slot filled in.
    boost::shared_ptr<Velmora::IBackend> LookUp(void* videoBroadcastHandle) {
        boost::shared_ptr<Velmora::IBackend> found;
        handleLookups(videoBroadcastHandle, found);
        return found;
    }

    boost::signals2::signal<void(void*, boost::shared_ptr<Velmora::IBackend>&)> handleLookups;
    // Set to observe the moment the library deletes the root object.
    std::function<void()> onDestroyed;
    std::vector<boost::shared_ptr<testing::NiceMock<MockMediaBackend>>> medias;
    std::vector<boost::shared_ptr<testing::NiceMock<MockVideoBroadcastBackend>>> broadcasts;
    std::vector<boost::shared_ptr<testing::NiceMock<MockDrmBackend>>> drms;

    MOCK_METHOD(boost::shared_ptr<Velmora::IBackend>, CreateBackend, (int), (override));
    MOCK_METHOD(boost::shared_ptr<Velmora::IDrmBackend>, CreateDrmBackend, (const std::string&), (override));
    MOCK_METHOD(boost::signals2::connection, ConnectHandleLookup, (const HandleLookupSlot& slot), (override));
};

}  // namespace VelmoraTest
