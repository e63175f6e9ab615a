#include "DoNothingStack.h"

#include <boost/make_shared.hpp>

namespace Bench {

namespace {

using namespace Velmora;

class DoNothingMedia : public IMediaBackend {
public:
    boost::signals2::connection ConnectEvent(const EventSlot& slot) override { return events.connect(slot); }
    void SetWindowId(std::uint32_t) override {}
    void InitBackend(std::string, const SourceDescriptionBackendStreaming&, bool) override {}
    void InitBackend(std::string, const std::vector<SourceDescriptionOperaStreaming>&, bool) override {}
    void AttachSource(const SourceDescriptionOperaStreaming&) override {}
    void RemoveSource(std::uint32_t) override {}
    bool SetVideoWindow(const VideoRect&) override { return true; }
    bool SetClipRect(const VideoRect&) override { return true; }
    bool GetNativeSize(unsigned short& width, unsigned short& height, double& aspectRatio) override {
        width = 1920;
        height = 1080;
        aspectRatio = 16.0 / 9.0;
        return true;
    }
    bool GetVideoFrame(unsigned char*, std::uint32_t) override { return true; }
    bool GetSeekableTimeRanges(std::vector<ByteRange>&, std::vector<TimeRange>&) override { return true; }
    bool GetBufferedTimeRanges(std::vector<ByteRange>&, std::vector<TimeRange>&) override { return true; }
    bool CanPlayURL(const std::string&) override { return true; }
    void Play() override {}
    void Stop() override {}
    void Pause(bool) override {}
    void SetPlaybackRate(double) override {}
    void SetVolume(double) override {}
    bool GetDuration(double& duration) override {
        duration = 60.0;
        return true;
    }
    void SetContentSize(std::uint32_t, std::uint32_t) override {}
    bool GetPosition(double& position) override {
        position = 0.0;
        return true;
    }
    bool SetPosition(double) override { return true; }
    void SetVisibility(bool) override {}
    void GetSizeFromDuration() override {}
    void WriteData(boost::shared_ptr<BackendEvent>, unsigned int, UVABackend::WriteDataStatus) override {}
    void WriteMseData(boost::shared_ptr<BackendEvent>, UVABackend::WriteDataStatus) override {}
    bool CanPlayType(const std::string&, const std::vector<std::string>&, const std::string&) override { return true; }
    void SetFullScreen(bool) override {}
    void GetSupportedMimetypes(std::vector<std::string>&) override {}
    void SetLoop(std::string) override {}
    void SelectComponent(IAvComponent*) override {}
    void UnselectComponent(IAvComponent*) override {}
    void SetSource(std::string) override {}
    void OnListenerChanged(std::string) override {}
    void SetBufferingStrategy(bool) override {}
    void GetBytesInBuffer(unsigned int& bytes) override { bytes = 0; }
    void SetKeySystem(std::string) override {}
    boost::signals2::connection ConnectDrmBackendRequest(const DrmBackendRequestSlot&) override { return {}; }

    EventSignal events;
};

class DoNothingDrm : public IDrmBackend {
public:
    const std::string& GetId() const override { return id; }
    const std::string& GetOIPFId() const override { return id; }
    bool GenerateKeyRequest(boost::shared_ptr<unsigned char>, std::uint32_t) override { return true; }
    bool AddKey(boost::shared_ptr<unsigned char>, std::uint32_t, boost::shared_ptr<unsigned char>, std::uint32_t,
                const std::string&) override {
        return true;
    }
    bool CancelKeyRequest(const std::string&) override { return true; }
    bool GetKeyReleases() override { return true; }
    bool AddKeyReleaseCommit(boost::shared_ptr<unsigned char>, std::uint32_t, const std::string&) override {
        return true;
    }
    bool SendDrmMessage(const std::string&, const std::string&, std::string&) override { return true; }
    boost::signals2::connection ConnectDrmEvent(const DrmEventSlot& slot) override { return events.connect(slot); }

    std::string id = "org.w3.clearkey";
    DrmEventSignal events;
};

class DoNothingUva : public IUva {
public:
    boost::shared_ptr<IBackend> CreateBackend(int) override {
        auto media = boost::make_shared<DoNothingMedia>();
        lastMedia = media.get();
        return media;
    }
    boost::shared_ptr<IDrmBackend> CreateDrmBackend(const std::string&) override {
        auto drm = boost::make_shared<DoNothingDrm>();
        lastDrm = drm.get();
        return drm;
    }
    boost::signals2::connection ConnectHandleLookup(const HandleLookupSlot&) override { return {}; }

    static DoNothingMedia* lastMedia;
    static DoNothingDrm* lastDrm;
};

class DoNothingComponent : public IAvComponent {
public:
    boost::signals2::connection ConnectStateChanged(const StateSlot&) override { return {}; }
};

DoNothingMedia* DoNothingUva::lastMedia = nullptr;
DoNothingDrm* DoNothingUva::lastDrm = nullptr;

}  // namespace

Velmora::IUva* NewDoNothingStack() { return new DoNothingUva; }

Velmora::IMediaBackend* LastMediaBackend() { return DoNothingUva::lastMedia; }

EventSignal& LastMediaEvents() { return DoNothingUva::lastMedia->events; }

DrmEventSignal& LastDrmEvents() { return DoNothingUva::lastDrm->events; }

std::unique_ptr<Velmora::IAvComponent> NewDoNothingComponent() { return std::make_unique<DoNothingComponent>(); }

}  // namespace Bench
