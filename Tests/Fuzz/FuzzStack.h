#pragma once
// A media stack whose every answer comes from the fuzzer's bytes: it may answer yes or no, fill its
// out-values with anything, hand out null or wrongly typed back-ends, and throw the media stack's own
// exceptions or foreign types (int, std::string, a class of its own). Every back-end and component it
// ever made stays alive until the input is over, so events can still be raised after a release.

#include <boost/shared_ptr.hpp>
#include <boost/signals2/signal.hpp>
#include <memory>
#include <string>
#include <vector>

#include "Fuzz/FuzzInput.h"
#include "Velmora/IAvComponent.h"
#include "Velmora/IDrmBackend.h"
#include "Velmora/IMediaBackend.h"
#include "Velmora/IUva.h"
#include "Velmora/IVideoBroadcastBackend.h"

namespace VelmoraFuzz {

using EventSignal = boost::signals2::signal<void(boost::shared_ptr<Velmora::BackendEvent>)>;
using DrmEventSignal = boost::signals2::signal<void(boost::shared_ptr<Velmora::DrmBackendEvent>)>;

// Thrown by the media stack when it fails in a way the library cannot know.
struct StackFault {
    int code;
};

// Decides, call by call, how the media stack behaves.
class StackScript {
public:
    explicit StackScript(FuzzInput& input) : input(input) {}

    // Returns normally or throws, as the next byte says.
    void Act();
    // Like Act, then gives back `value` (read from the input before acting).
    template <typename T>
    T Act(T value) {
        Act();
        return value;
    }
    // Like Act, then answers yes or no.
    bool Answer();

    FuzzInput& input;
};

class FuzzMediaBackend;

// Everything the media stack made during one input.
struct StackObjects {
    struct Backend {
        boost::shared_ptr<Velmora::IBackend> backend;
        EventSignal* events;
        FuzzMediaBackend* media;  // null unless it is a media back-end
    };
    std::vector<Backend> backends;
    std::vector<boost::shared_ptr<Velmora::IDrmBackend>> drmBackends;
    std::vector<DrmEventSignal*> drmEvents;
    std::vector<std::unique_ptr<Velmora::IAvComponent>> components;
};

class FuzzComponent : public Velmora::IAvComponent {
public:
    FuzzComponent(StackScript& script, int index);
    ~FuzzComponent() override;

    boost::signals2::connection ConnectStateChanged(const StateSlot& slot) override;

    boost::signals2::signal<void(bool)> state;

private:
    StackScript& script_;
};

class FuzzMediaBackend : public Velmora::IMediaBackend {
public:
    explicit FuzzMediaBackend(StackScript& script) : script_(script) {}

    // Asks the library for a DRM back-end, as the media stack does for encrypted content.
    Velmora::IDrmBackend* RequestDrmBackend(const std::string& keySystemId);

    EventSignal events;
    boost::signals2::signal<void(std::string, Velmora::IDrmBackend*&)> drmRequests;

    boost::signals2::connection ConnectEvent(const EventSlot& slot) override;
    void SetWindowId(std::uint32_t) override { script_.Act(); }
    void InitBackend(std::string, const SourceDescriptionBackendStreaming&, bool) override { script_.Act(); }
    void InitBackend(std::string, const std::vector<SourceDescriptionOperaStreaming>&, bool) override { script_.Act(); }
    void AttachSource(const SourceDescriptionOperaStreaming&) override { script_.Act(); }
    void RemoveSource(std::uint32_t) override { script_.Act(); }
    bool SetVideoWindow(const Velmora::VideoRect&) override { return script_.Answer(); }
    bool SetClipRect(const Velmora::VideoRect&) override { return script_.Answer(); }
    bool GetNativeSize(unsigned short& width, unsigned short& height, double& aspectRatio) override;
    bool GetVideoFrame(unsigned char* buffer, std::uint32_t size) override;
    bool GetSeekableTimeRanges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges) override;
    bool GetBufferedTimeRanges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges) override;
    bool CanPlayURL(const std::string&) override { return script_.Answer(); }
    void Play() override { script_.Act(); }
    void Stop() override { script_.Act(); }
    void Pause(bool) override { script_.Act(); }
    void SetPlaybackRate(double) override { script_.Act(); }
    void SetVolume(double) override { script_.Act(); }
    bool GetDuration(double& duration) override;
    void SetContentSize(std::uint32_t, std::uint32_t) override { script_.Act(); }
    bool GetPosition(double& position) override;
    bool SetPosition(double) override { return script_.Answer(); }
    void SetVisibility(bool) override { script_.Act(); }
    void GetSizeFromDuration() override { script_.Act(); }
    void WriteData(boost::shared_ptr<Velmora::BackendEvent> event, unsigned int, UVABackend::WriteDataStatus) override;
    void WriteMseData(boost::shared_ptr<Velmora::BackendEvent> event, UVABackend::WriteDataStatus) override;
    bool CanPlayType(const std::string&, const std::vector<std::string>&, const std::string&) override;
    void SetFullScreen(bool) override { script_.Act(); }
    void GetSupportedMimetypes(std::vector<std::string>& types) override;
    void SetLoop(std::string) override { script_.Act(); }
    void SelectComponent(Velmora::IAvComponent*) override { script_.Act(); }
    void UnselectComponent(Velmora::IAvComponent*) override { script_.Act(); }
    void SetSource(std::string) override { script_.Act(); }
    void OnListenerChanged(std::string) override { script_.Act(); }
    void SetBufferingStrategy(bool) override { script_.Act(); }
    void GetBytesInBuffer(unsigned int& bytes) override { bytes = script_.Act(script_.input.U32()); }
    void SetKeySystem(std::string) override { script_.Act(); }
    boost::signals2::connection ConnectDrmBackendRequest(const DrmBackendRequestSlot& slot) override;

private:
    bool Ranges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges);

    StackScript& script_;
};

class FuzzBroadcastBackend : public Velmora::IVideoBroadcastBackend {
public:
    explicit FuzzBroadcastBackend(StackScript& script) : script_(script) {}

    EventSignal events;

    boost::signals2::connection ConnectEvent(const EventSlot& slot) override;
    void InitBackend(const std::string&) override { script_.Act(); }
    void Release() override { script_.Act(); }
    bool SetVideoWindow(const Velmora::VideoRect&) override { return script_.Answer(); }
    bool SetClipRect(const Velmora::VideoRect&) override { return script_.Answer(); }
    void SetFullScreen(bool) override { script_.Act(); }
    void SetVisibility(bool, bool) override { script_.Act(); }
    void SetVolume(double) override { script_.Act(); }
    void NextChannel() override { script_.Act(); }
    void PreviousChannel() override { script_.Act(); }
    void Stop() override { script_.Act(); }
    void SelectComponent(Velmora::IAvComponent*) override { script_.Act(); }
    void UnselectComponent(Velmora::IAvComponent*) override { script_.Act(); }
    void GetPlayState(std::int32_t& state) override { state = script_.Act(script_.input.I32()); }
    void OnListenerChanged(const std::string&) override { script_.Act(); }
    boost::shared_ptr<void> GetCurrentChannel() override;
    void SetChannel(void*, bool, bool, const std::string&, bool, bool) override { script_.Act(); }
    void BindToCurrentChannel() override { script_.Act(); }
    void GetPlaybackOffset(std::uint32_t& offset) override { offset = script_.Act(script_.input.U32()); }
    void GetMaxOffset(std::uint32_t& offset) override { offset = script_.Act(script_.input.U32()); }
    void GetPlaybackSpeeds(std::vector<double>& speeds) override;
    bool RecordNow() override { return script_.Answer(); }
    bool StopRecording() override { return script_.Answer(); }
    void Pause() override { script_.Act(); }
    void Resume() override { script_.Act(); }
    void SetPlaybackSpeed(double) override { script_.Act(); }
    void SetPosition(std::int32_t, UVABackend::PositionReference) override { script_.Act(); }
    void StopTimeShift() override { script_.Act(); }
    void GetRecordingState(std::int32_t& state) override { state = script_.Act(script_.input.I32()); }
    void GetPosition(std::uint32_t& position) override { position = script_.Act(script_.input.U32()); }
    void GetPlaybackSpeed(double& speed) override { speed = script_.Act(script_.input.Double()); }

private:
    StackScript& script_;
};

// A back-end of neither kind, for a media stack that answers a request with the wrong thing.
class FuzzBareBackend : public Velmora::IBackend {
public:
    explicit FuzzBareBackend(StackScript& script) : script_(script) {}

    EventSignal events;

    boost::signals2::connection ConnectEvent(const EventSlot& slot) override;

private:
    StackScript& script_;
};

class FuzzDrmBackend : public Velmora::IDrmBackend {
public:
    FuzzDrmBackend(StackScript& script, const std::string& id, const std::string& oipfId)
        : id_(id), oipfId_(oipfId), script_(script) {}

    DrmEventSignal events;

    const std::string& GetId() const override;
    const std::string& GetOIPFId() const override;
    bool GenerateKeyRequest(boost::shared_ptr<unsigned char> initData, std::uint32_t initDataSize) override;
    bool AddKey(boost::shared_ptr<unsigned char> key, std::uint32_t keySize, boost::shared_ptr<unsigned char> initData,
                std::uint32_t initDataSize, const std::string& sessionId) override;
    bool CancelKeyRequest(const std::string&) override { return script_.Answer(); }
    bool GetKeyReleases() override { return script_.Answer(); }
    bool AddKeyReleaseCommit(boost::shared_ptr<unsigned char> data, std::uint32_t size,
                             const std::string& sessionId) override;
    bool SendDrmMessage(const std::string& msgType, const std::string& msg, std::string& sessionId) override;
    boost::signals2::connection ConnectDrmEvent(const DrmEventSlot& slot) override;

private:
    std::string id_;
    std::string oipfId_;
    StackScript& script_;
};

class FuzzUva : public Velmora::IUva {
public:
    FuzzUva(StackScript& script, StackObjects& objects) : script_(script), objects_(objects) {}

    boost::shared_ptr<Velmora::IBackend> CreateBackend(int type) override;
    boost::shared_ptr<Velmora::IDrmBackend> CreateDrmBackend(const std::string& keySystemId) override;
    boost::signals2::connection ConnectHandleLookup(const HandleLookupSlot& slot) override;

    boost::signals2::signal<void(void*, boost::shared_ptr<Velmora::IBackend>&)> handleLookups;

private:
    StackScript& script_;
    StackObjects& objects_;
};

}  // namespace VelmoraFuzz
