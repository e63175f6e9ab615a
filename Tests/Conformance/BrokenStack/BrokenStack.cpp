// A media stack that breaks one rule of the contract on request, so that the conformance kit can be
// shown to catch each fault in the check that names it and in no other. It is the reference stack with
// one fault switched on by the factory's options: `fault=NAME`, optionally followed by `;step-ms=N`.

#include <atomic>
#include <boost/make_shared.hpp>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

#include "ReferenceUva.h"
#include "Velmora/StackFactory.h"

namespace {

using namespace Velmora;
using Reference::FaultInjector;

// The faults, by the names the tests pass as `fault=NAME`:
//   create-fails         a media request throws
//   drm-misnamed         one key system answered with a back-end of another name
//   wrong-class          VideoResized raised as a plain BackendEvent
//   nan-duration         DurationChanged carries no number
//   no-removal           components vanish without their removal event
//   select-fails         selection refused
//   crash-on-select      selection crashes the process
//   hang-on-select       selection never returns
//   refuse-samples       every Media Source answer refused
//   slow-release         a media back-end released while playing takes longer to go than the browser can wait
//   foreign-exception    setVolume throws an int
//   slow-call            setVolume takes far longer than a browser call may
//   undecodable-samples  not a fault: a real decoder's answer to made-up sample bytes, DecodeError where the
//                        next data request would come; the kit must take it as a note only
const std::set<std::string> kFaults = {"create-fails",       "drm-misnamed", "wrong-class",       "nan-duration",
                                       "no-removal",         "select-fails", "crash-on-select",   "hang-on-select",
                                       "refuse-samples",     "slow-release", "foreign-exception", "slow-call",
                                       "undecodable-samples"};

// Rewrites or drops what the reference back-end raises, on its way to every slot.
IBackend::EventSlot Distort(const std::string& fault, IBackend::EventSlot slot) {
    const auto dataRequests = std::make_shared<std::atomic<int>>(0);  // every slot sees the same sequence
    return [fault, slot, dataRequests](boost::shared_ptr<BackendEvent> event) {
        if (fault == "wrong-class" && event->type == BackendEvent::VideoResized) {
            event = boost::make_shared<BackendEvent>(BackendEvent::VideoResized);
        } else if (fault == "nan-duration" && event->type == BackendEvent::DurationChanged) {
            event = boost::make_shared<DurationChangedEvent>(std::numeric_limits<double>::quiet_NaN());
        } else if (fault == "no-removal" && event->type == BackendEvent::ComponentChanged &&
                   static_cast<ComponentChangedEvent&>(*event).action == ComponentChangedEvent::Removed) {
            return;
        } else if (fault == "undecodable-samples" && event->type == BackendEvent::NeedMseData && ++*dataRequests > 1) {
            event = boost::make_shared<BackendEvent>(BackendEvent::DecodeError);
        }
        slot(event);
    };
}

// The reference media back-end behind a forwarding layer where the faults live.
class BrokenMediaBackend : public IMediaBackend {
public:
    BrokenMediaBackend(boost::shared_ptr<IMediaBackend> inner, const std::string& fault)
        : inner(std::move(inner)), fault(fault) {}

    ~BrokenMediaBackend() override {
        if (fault == "slow-release" && playing) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1200));
        }
    }

    boost::signals2::connection ConnectEvent(const EventSlot& slot) override {
        return inner->ConnectEvent(Distort(fault, slot));
    }

    void SelectComponent(IAvComponent* component) override {
        if (fault == "crash-on-select") {
            std::raise(SIGSEGV);
        }
        while (fault == "hang-on-select") {
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
        inner->SelectComponent(component);
    }

    void SetVolume(double volume) override {
        if (fault == "slow-call") {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        inner->SetVolume(volume);
    }

    void SetWindowId(std::uint32_t id) override { inner->SetWindowId(id); }
    void InitBackend(std::string url, const SourceDescriptionBackendStreaming& source, bool flag) override {
        inner->InitBackend(url, source, flag);
    }
    void InitBackend(std::string url, const std::vector<SourceDescriptionOperaStreaming>& sources, bool flag) override {
        inner->InitBackend(url, sources, flag);
    }
    void AttachSource(const SourceDescriptionOperaStreaming& source) override { inner->AttachSource(source); }
    void RemoveSource(std::uint32_t id) override { inner->RemoveSource(id); }
    bool SetVideoWindow(const VideoRect& rect) override { return inner->SetVideoWindow(rect); }
    bool SetClipRect(const VideoRect& rect) override { return inner->SetClipRect(rect); }
    bool GetNativeSize(unsigned short& w, unsigned short& h, double& a) override {
        return inner->GetNativeSize(w, h, a);
    }
    bool GetVideoFrame(unsigned char* buffer, std::uint32_t size) override {
        return inner->GetVideoFrame(buffer, size);
    }
    bool GetSeekableTimeRanges(std::vector<ByteRange>& b, std::vector<TimeRange>& t) override {
        return inner->GetSeekableTimeRanges(b, t);
    }
    bool GetBufferedTimeRanges(std::vector<ByteRange>& b, std::vector<TimeRange>& t) override {
        return inner->GetBufferedTimeRanges(b, t);
    }
    bool CanPlayURL(const std::string& url) override { return inner->CanPlayURL(url); }
    void Play() override {
        inner->Play();
        playing = true;
    }
    void Stop() override {
        inner->Stop();
        playing = false;
    }
    void Pause(bool paused) override { inner->Pause(paused); }
    void SetPlaybackRate(double rate) override { inner->SetPlaybackRate(rate); }
    bool GetDuration(double& duration) override { return inner->GetDuration(duration); }
    void SetContentSize(std::uint32_t w, std::uint32_t h) override { inner->SetContentSize(w, h); }
    bool GetPosition(double& position) override { return inner->GetPosition(position); }
    bool SetPosition(double position) override { return inner->SetPosition(position); }
    void SetVisibility(bool visible) override { inner->SetVisibility(visible); }
    void GetSizeFromDuration() override { inner->GetSizeFromDuration(); }
    void WriteData(boost::shared_ptr<BackendEvent> e, unsigned int size, UVABackend::WriteDataStatus s) override {
        inner->WriteData(e, size, s);
    }
    void WriteMseData(boost::shared_ptr<BackendEvent> e, UVABackend::WriteDataStatus s) override {
        inner->WriteMseData(e, s);
    }
    bool CanPlayType(const std::string& type, const std::vector<std::string>& codecs, const std::string& ks) override {
        return inner->CanPlayType(type, codecs, ks);
    }
    void SetFullScreen(bool fullScreen) override { inner->SetFullScreen(fullScreen); }
    void GetSupportedMimetypes(std::vector<std::string>& types) override { inner->GetSupportedMimetypes(types); }
    void SetLoop(std::string loop) override { inner->SetLoop(loop); }
    void UnselectComponent(IAvComponent* component) override { inner->UnselectComponent(component); }
    void SetSource(std::string url) override { inner->SetSource(url); }
    void OnListenerChanged(std::string listener) override { inner->OnListenerChanged(listener); }
    void SetBufferingStrategy(bool aggressive) override { inner->SetBufferingStrategy(aggressive); }
    void GetBytesInBuffer(unsigned int& bytes) override { inner->GetBytesInBuffer(bytes); }
    void SetKeySystem(std::string keySystem) override { inner->SetKeySystem(keySystem); }
    boost::signals2::connection ConnectDrmBackendRequest(const DrmBackendRequestSlot& slot) override {
        return inner->ConnectDrmBackendRequest(slot);
    }

private:
    const boost::shared_ptr<IMediaBackend> inner;
    const std::string fault;
    bool playing = false;
};

class BrokenUva : public Reference::ReferenceUva {
public:
    BrokenUva(const Reference::StackOptions& options, const std::string& fault) : ReferenceUva(options), fault(fault) {
        const auto arm = [this](const char* operation, FaultInjector::Kind kind) {
            Faults().Arm(operation, {kind, ExceptionBase::GenericError, true});
        };
        if (fault == "select-fails") arm("SelectComponent", FaultInjector::Kind::MediaStackError);
        if (fault == "refuse-samples") arm("WriteMseData", FaultInjector::Kind::MediaStackError);
        if (fault == "foreign-exception") arm("SetVolume", FaultInjector::Kind::Int);
    }

    boost::shared_ptr<IBackend> CreateBackend(int type) override {
        if (fault == "create-fails" && type == 0) {
            throw std::runtime_error("no decoder left for a media element");
        }
        boost::shared_ptr<IBackend> backend = ReferenceUva::CreateBackend(type);
        auto media = boost::dynamic_pointer_cast<IMediaBackend>(backend);
        return media ? boost::make_shared<BrokenMediaBackend>(media, fault) : backend;
    }

    boost::shared_ptr<IDrmBackend> CreateDrmBackend(const std::string& keySystemId) override {
        const bool alias = fault == "drm-misnamed" && keySystemId == "webkit-org.w3.clearkey";
        return ReferenceUva::CreateDrmBackend(alias ? "org.w3.clearkey" : keySystemId);
    }

private:
    const std::string fault;
};

}  // namespace

// A fault name the stack does not know (the tests use `null-stack`) makes the factory answer null, as a
// stack does when it cannot start.
VELMORA_STACK_FACTORY Velmora::IUva* VelmoraCreateStack(unsigned interfaceVersion, const char* options) {
    const std::string text = options != nullptr ? options : "";
    const std::size_t separator = text.find(';');
    const std::string faultOption = text.substr(0, separator);
    Reference::StackOptions stackOptions;
    if (separator != std::string::npos && text.compare(separator + 1, 8, "step-ms=") == 0) {
        stackOptions.stepPeriod = std::chrono::milliseconds(std::atoi(text.c_str() + separator + 9));
    }
    const auto fault = kFaults.find(faultOption.substr(faultOption.find('=') + 1));
    if (interfaceVersion != VELMORA_STACK_INTERFACE_VERSION || faultOption.rfind("fault=", 0) != 0 ||
        fault == kFaults.end()) {
        std::fprintf(stderr, "broken stack: no such fault in \"%s\"\n", text.c_str());
        return nullptr;
    }
    try {
        return new BrokenUva(stackOptions, *fault);
    } catch (...) {
        return nullptr;
    }
}
