#pragma once
// A media stack whose every answer comes from the fuzzer's bytes: it may answer yes or no, fill its
// out-values with anything, hand out null or wrongly typed back-ends, and throw the media stack's own
// exceptions or foreign types (int, std::string, a class of its own). Every back-end and component it
// ever made stays alive until the input is over, so events can still be raised after a release.

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/signals2/signal.hpp>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Fuzz/FuzzInput.h"
#include "Velmora/Exceptions.h"
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

// Reads every byte of a shared block, so that a block shorter than its stated length is caught.
inline void Touch() {}
template <typename... Rest>
void Touch(const boost::shared_ptr<unsigned char>& bytes, std::uint32_t size, const Rest&... rest) {
    volatile unsigned sum = 0;
    for (std::uint32_t index = 0; bytes && index < size; ++index) {
        sum = sum + bytes.get()[index];
    }
    Touch(rest...);
}

// Decides, call by call, how the media stack behaves: every call fills its out-values from the input
// and then answers yes or no, or fails in one of the ways a media stack fails.
class StackScript {
public:
    explicit StackScript(FuzzInput& input) : input(input) {}

    template <typename... Out>
    bool Answer(Out&... out) {
        (Fill(out), ...);
        const std::uint8_t choice = input.Byte();
        switch (choice % 16) {
            case 10: {
                static const std::int32_t kErrorTypes[] = {1, 2, 3, 4, 5, 7, 0, -1};
                throw Velmora::ExceptionBase{kErrorTypes[input.Byte() % 8], input.String()};  // braced: read in order
            }
            case 11: throw Velmora::GenericErrorException(input.String());
            case 12: throw std::runtime_error(input.String());
            case 13: throw static_cast<int>(choice);
            case 14: throw std::string("media stack failure");
            case 15: throw StackFault{choice};
            default: return choice % 2 == 0;
        }
    }

    template <typename Signal, typename Slot>
    boost::signals2::connection Connect(Signal& signal, const Slot& slot) {
        Answer();
        return signal.connect(slot);
    }

    FuzzInput& input;

private:
    template <typename T>
    void Fill(T& value) {
        value = Argument<T>::Of(input);
    }
    void Fill(std::string& value) { value = input.String(); }
    template <typename T>
    void Fill(std::vector<T>& list) {
        for (std::uint32_t count = input.Byte() % 16; count > 0; --count) {
            Fill(list.emplace_back());
        }
    }
};

// What every back-end of the stack has: the script it answers from and the events it raises.
struct FuzzRaiser {
    explicit FuzzRaiser(StackScript& script) : script(script) {}
    StackScript& script;
    EventSignal events;
};

class FuzzComponent : public Velmora::IAvComponent {
public:
    FuzzComponent(StackScript& script, int index) : script_(script) {
        FuzzInput& in = script.input;
        type = in.Byte() % 4;
        encoding = CopyOrNull(in);
        componentTag = in.I32();
        aspectRatio = in.Double();
        language = CopyOrNull(in);
        pid = index;
        audioChannels = in.Byte();
        encrypted = in.Bool();
        audioDescription = in.Byte();
        label = CopyOrNull(in);
        role = CopyOrNull(in);
        hearingImpaired = in.Byte();
        id = CopyOrNull(in);
        this->index = index;
    }
    ~FuzzComponent() override {
        for (char* text : {encoding, language, label, role, id}) {
            std::free(text);
        }
    }

    boost::signals2::connection ConnectStateChanged(const StateSlot& slot) override {
        return script_.Connect(state, slot);
    }

    boost::signals2::signal<void(bool)> state;

private:
    static char* CopyOrNull(FuzzInput& in) {
        const Text text = in.TextOrNull();
        return text.null ? nullptr : strdup(text.characters.c_str());
    }

    StackScript& script_;
};

class FuzzMediaBackend : public Velmora::IMediaBackend, public FuzzRaiser {
public:
    using FuzzRaiser::FuzzRaiser;

    // Raised to ask the library for a DRM back-end, as the media stack does for encrypted content.
    boost::signals2::signal<void(std::string, Velmora::IDrmBackend*&)> drmRequests;

    boost::signals2::connection ConnectEvent(const EventSlot& slot) override { return script.Connect(events, slot); }
    boost::signals2::connection ConnectDrmBackendRequest(const DrmBackendRequestSlot& slot) override {
        return script.Connect(drmRequests, slot);
    }
    void SetWindowId(std::uint32_t) override { script.Answer(); }
    void InitBackend(std::string, const SourceDescriptionBackendStreaming&, bool) override { script.Answer(); }
    void InitBackend(std::string, const std::vector<SourceDescriptionOperaStreaming>&, bool) override {
        script.Answer();
    }
    void AttachSource(const SourceDescriptionOperaStreaming&) override { script.Answer(); }
    void RemoveSource(std::uint32_t) override { script.Answer(); }
    bool SetVideoWindow(const Velmora::VideoRect&) override { return script.Answer(); }
    bool SetClipRect(const Velmora::VideoRect&) override { return script.Answer(); }
    bool GetNativeSize(unsigned short& width, unsigned short& height, double& ratio) override {
        return script.Answer(width, height, ratio);
    }
    bool GetVideoFrame(unsigned char* buffer, std::uint32_t size) override {
        if (buffer != nullptr) {
            std::memset(buffer, 0x5A, size);
        }
        return script.Answer();
    }
    bool GetSeekableTimeRanges(std::vector<ByteRange>& bytes, std::vector<TimeRange>& times) override {
        return Ranges(bytes, times);
    }
    bool GetBufferedTimeRanges(std::vector<ByteRange>& bytes, std::vector<TimeRange>& times) override {
        return Ranges(bytes, times);
    }
    bool CanPlayURL(const std::string&) override { return script.Answer(); }
    void Play() override { script.Answer(); }
    void Stop() override { script.Answer(); }
    void Pause(bool) override { script.Answer(); }
    void SetPlaybackRate(double) override { script.Answer(); }
    void SetVolume(double) override { script.Answer(); }
    bool GetDuration(double& duration) override { return script.Answer(duration); }
    void SetContentSize(std::uint32_t, std::uint32_t) override { script.Answer(); }
    bool GetPosition(double& position) override { return script.Answer(position); }
    bool SetPosition(double) override { return script.Answer(); }
    void SetVisibility(bool) override { script.Answer(); }
    void GetSizeFromDuration() override { script.Answer(); }
    void WriteData(boost::shared_ptr<Velmora::BackendEvent> event, unsigned, UVABackend::WriteDataStatus) override {
        if (!dynamic_cast<Velmora::NeedDataEvent*>(event.get())) {
            std::abort();  // the library answered a need-data request with something else
        }
        script.Answer();
    }
    void WriteMseData(boost::shared_ptr<Velmora::BackendEvent> event, UVABackend::WriteDataStatus) override {
        const auto* answer = dynamic_cast<Velmora::WriteMseDataEvent*>(event.get());
        if (answer == nullptr || !answer->buffers || answer->buffers->size() > answer->count) {
            std::abort();  // more samples than the browser was asked for, or not an answer at all
        }
        for (const Velmora::DecoderBuffer& buffer : *answer->buffers) {
            Touch(buffer.data, buffer.dataSize, buffer.keyId, buffer.keyIdSize, buffer.iv, buffer.ivSize,
                  buffer.codecConfig, buffer.codecConfigSize);
        }
        script.Answer();
    }
    bool CanPlayType(const std::string&, const std::vector<std::string>&, const std::string&) override {
        return script.Answer();
    }
    void SetFullScreen(bool) override { script.Answer(); }
    void GetSupportedMimetypes(std::vector<std::string>& types) override { script.Answer(types); }
    void SetLoop(std::string) override { script.Answer(); }
    void SelectComponent(Velmora::IAvComponent*) override { script.Answer(); }
    void UnselectComponent(Velmora::IAvComponent*) override { script.Answer(); }
    void SetSource(std::string) override { script.Answer(); }
    void OnListenerChanged(std::string) override { script.Answer(); }
    void SetBufferingStrategy(bool) override { script.Answer(); }
    void GetBytesInBuffer(unsigned int& bytes) override { script.Answer(bytes); }
    void SetKeySystem(std::string) override { script.Answer(); }

private:
    bool Ranges(std::vector<ByteRange>& bytes, std::vector<TimeRange>& times) {
        for (std::uint32_t count = script.input.Byte() % 8; count > 0; --count) {
            times.push_back(TimeRange{script.input.U32(), script.input.U32()});
            bytes.push_back(ByteRange{script.input.U32(), script.input.U32()});
        }
        return script.Answer();
    }
};

class FuzzBroadcastBackend : public Velmora::IVideoBroadcastBackend, public FuzzRaiser {
public:
    using FuzzRaiser::FuzzRaiser;

    boost::signals2::connection ConnectEvent(const EventSlot& slot) override { return script.Connect(events, slot); }
    void InitBackend(const std::string&) override { script.Answer(); }
    void Release() override { script.Answer(); }
    bool SetVideoWindow(const Velmora::VideoRect&) override { return script.Answer(); }
    bool SetClipRect(const Velmora::VideoRect&) override { return script.Answer(); }
    void SetFullScreen(bool) override { script.Answer(); }
    void SetVisibility(bool, bool) override { script.Answer(); }
    void SetVolume(double) override { script.Answer(); }
    void NextChannel() override { script.Answer(); }
    void PreviousChannel() override { script.Answer(); }
    void Stop() override { script.Answer(); }
    void SelectComponent(Velmora::IAvComponent*) override { script.Answer(); }
    void UnselectComponent(Velmora::IAvComponent*) override { script.Answer(); }
    void GetPlayState(std::int32_t& state) override { script.Answer(state); }
    void OnListenerChanged(const std::string&) override { script.Answer(); }
    boost::shared_ptr<void> GetCurrentChannel() override {
        script.Answer();
        return script.input.Bool() ? nullptr : boost::make_shared<std::uint32_t>(script.input.U32());
    }
    void SetChannel(void*, bool, bool, const std::string&, bool, bool) override { script.Answer(); }
    void BindToCurrentChannel() override { script.Answer(); }
    void GetPlaybackOffset(std::uint32_t& offset) override { script.Answer(offset); }
    void GetMaxOffset(std::uint32_t& offset) override { script.Answer(offset); }
    void GetPlaybackSpeeds(std::vector<double>& speeds) override { script.Answer(speeds); }
    bool RecordNow() override { return script.Answer(); }
    bool StopRecording() override { return script.Answer(); }
    void Pause() override { script.Answer(); }
    void Resume() override { script.Answer(); }
    void SetPlaybackSpeed(double) override { script.Answer(); }
    void SetPosition(std::int32_t, UVABackend::PositionReference) override { script.Answer(); }
    void StopTimeShift() override { script.Answer(); }
    void GetRecordingState(std::int32_t& state) override { script.Answer(state); }
    void GetPosition(std::uint32_t& position) override { script.Answer(position); }
    void GetPlaybackSpeed(double& speed) override { script.Answer(speed); }
};

// A back-end of neither kind, for a media stack that answers a request with the wrong thing.
class FuzzBareBackend : public Velmora::IBackend, public FuzzRaiser {
public:
    using FuzzRaiser::FuzzRaiser;
    boost::signals2::connection ConnectEvent(const EventSlot& slot) override { return script.Connect(events, slot); }
};

class FuzzDrmBackend : public Velmora::IDrmBackend {
public:
    FuzzDrmBackend(StackScript& script, std::string id, std::string oipfId)
        : id_(std::move(id)), oipfId_(std::move(oipfId)), script_(script) {}

    DrmEventSignal events;

    const std::string& GetId() const override { return script_.Answer(), id_; }
    const std::string& GetOIPFId() const override { return script_.Answer(), oipfId_; }
    bool GenerateKeyRequest(boost::shared_ptr<unsigned char> initData, std::uint32_t initDataSize) override {
        return Touch(initData, initDataSize), script_.Answer();
    }
    bool AddKey(boost::shared_ptr<unsigned char> key, std::uint32_t keySize, boost::shared_ptr<unsigned char> initData,
                std::uint32_t initDataSize, const std::string&) override {
        return Touch(key, keySize, initData, initDataSize), script_.Answer();
    }
    bool CancelKeyRequest(const std::string&) override { return script_.Answer(); }
    bool GetKeyReleases() override { return script_.Answer(); }
    bool AddKeyReleaseCommit(boost::shared_ptr<unsigned char> data, std::uint32_t size, const std::string&) override {
        return Touch(data, size), script_.Answer();
    }
    bool SendDrmMessage(const std::string&, const std::string&, std::string& sessionId) override {
        return script_.Answer(sessionId);
    }
    boost::signals2::connection ConnectDrmEvent(const DrmEventSlot& slot) override {
        return script_.Connect(events, slot);
    }

private:
    std::string id_;
    std::string oipfId_;
    StackScript& script_;
};

// Everything the media stack made during one input.
struct StackObjects {
    std::vector<std::pair<boost::shared_ptr<Velmora::IBackend>, FuzzRaiser*>> backends;
    std::vector<boost::shared_ptr<FuzzDrmBackend>> drmBackends;
    std::vector<std::unique_ptr<FuzzComponent>> components;
};

class FuzzUva : public Velmora::IUva {
public:
    FuzzUva(StackScript& script, StackObjects& objects) : script_(script), objects_(objects) {}

    boost::shared_ptr<Velmora::IBackend> CreateBackend(int type) override {
        script_.Answer();
        const std::uint8_t choice = script_.input.Byte() % 8;
        if (choice == 1) {
            return nullptr;
        }
        if (choice == 3) {
            return Make<FuzzBareBackend>();
        }
        // Choice 2 is the other kind of back-end than the one asked for.
        if ((type == UVABackend::TYPE_VIDEO_BROADCAST) != (choice == 2)) {
            return Make<FuzzBroadcastBackend>();
        }
        return Make<FuzzMediaBackend>();
    }

    boost::shared_ptr<Velmora::IDrmBackend> CreateDrmBackend(const std::string& keySystemId) override {
        script_.Answer();
        if (script_.input.Byte() % 8 == 1) {
            return nullptr;
        }
        objects_.drmBackends.push_back(
            boost::make_shared<FuzzDrmBackend>(script_, keySystemId, script_.input.String()));
        return objects_.drmBackends.back();
    }

    boost::signals2::connection ConnectHandleLookup(const HandleLookupSlot& slot) override {
        return script_.Connect(handleLookups, slot);
    }

    boost::signals2::signal<void(void*, boost::shared_ptr<Velmora::IBackend>&)> handleLookups;

private:
    template <typename Backend>
    boost::shared_ptr<Velmora::IBackend> Make() {
        const auto backend = boost::make_shared<Backend>(script_);
        objects_.backends.emplace_back(backend, backend.get());
        return backend;
    }

    StackScript& script_;
    StackObjects& objects_;
};

}  // namespace VelmoraFuzz
