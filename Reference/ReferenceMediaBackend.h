#pragma once
// A media back-end (browser types 0 and 1) that plays pretend content with a clock of its own.
//
// Loading announces the content (DurationChanged, VideoResized, its components); encrypted content
// asks the browser for a DRM back-end through the DRM request signal. Data then arrives in one of
// three ways:
//  - a stream the back-end fetches itself (InitBackend with a URL) downloads at twice real time;
//  - Media Source streams (type 1) are asked for with NeedMseData whenever less than a few seconds
//    are buffered ahead; every sample of the browser's WriteMseData is validated and queued;
//  - browser-delivered byte streams (type 0) are asked for with NeedData, a chunk at a time.
// Playing consumes samples in time order: it stops at the end of the buffered data (an underrun) and
// in front of an encrypted sample whose key the DRM back-end has not got yet. Seeks, the end of the
// content, buffering and component selection are reported with their events.
//
// Times: positions and durations in seconds, time ranges in whole milliseconds, samples carry the
// browser's milliseconds. Events are raised only from Step(), never inside a browser call.

#include <boost/enable_shared_from_this.hpp>
#include <boost/signals2/signal.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "ComponentSet.h"
#include "FaultInjector.h"
#include "MediaSourceQueue.h"
#include "Outbox.h"
#include "StackOptions.h"
#include "StepThread.h"
#include "Velmora/IMediaBackend.h"

namespace Velmora {
namespace Reference {

class ReferenceDrmBackend;

class ReferenceMediaBackend : public IMediaBackend, public boost::enable_shared_from_this<ReferenceMediaBackend> {
public:
    // What the back-end received and what it did with it.
    struct Counters {
        std::uint64_t bytesWritten = 0;  // bytes of accepted samples and of NeedData answers
        std::uint32_t dataRequests = 0;  // NeedData and NeedMseData raised
        std::uint32_t samplesValid = 0;
        std::uint32_t samplesInvalid = 0;  // dropped by validation, see lastProblem
        std::uint32_t samplesLate = 0;     // valid, but already behind the playing position
        std::uint32_t writesRejected = 0;  // answers refused as a whole (thrown back to the caller)
        std::uint32_t samplesPlayed = 0;
        std::uint32_t samplesDecrypted = 0;
        std::uint32_t samplesUndecryptable = 0;  // encrypted, with no DRM back-end to decrypt them
        std::string lastProblem;
    };

    struct Status {
        double positionSeconds = 0.0;
        bool loaded = false;  // duration, size and components announced
        bool playing = false;
        bool finished = false;
        bool waitingForData = false;
        bool waitingForKey = false;
        std::uint32_t eventsRaised = 0;
        Counters counters;
    };

    // `type` is the browser's: 0 media element, 1 Media Source.
    static boost::shared_ptr<ReferenceMediaBackend> Create(int type, const StackOptions& options,
                                                           std::shared_ptr<FaultInjector> faults);
    ~ReferenceMediaBackend() override;

    // Plays one period and raises what it led to (and what browser calls decided since the last
    // step), on the calling thread, which holds a shared pointer to the back-end meanwhile. Browser
    // calls from inside the events are fine; a Step() from inside them would wait for itself.
    void Step();

    Status GetStatus() const;
    std::vector<ComponentSet::Component> Components() const;

    boost::signals2::connection ConnectEvent(const EventSlot& slot) override;
    void SetWindowId(std::uint32_t windowId) override;
    void InitBackend(std::string url, const SourceDescriptionBackendStreaming& source, bool flag) override;
    void InitBackend(std::string url, const std::vector<SourceDescriptionOperaStreaming>& sources, bool flag) override;
    void AttachSource(const SourceDescriptionOperaStreaming& source) override;
    void RemoveSource(std::uint32_t sourceId) override;
    bool SetVideoWindow(const VideoRect& rect) override;
    bool SetClipRect(const VideoRect& rect) override;
    bool GetNativeSize(unsigned short& width, unsigned short& height, double& aspectRatio) override;
    bool GetVideoFrame(unsigned char* buffer, std::uint32_t size) override;
    bool GetSeekableTimeRanges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges) override;
    bool GetBufferedTimeRanges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges) override;
    bool CanPlayURL(const std::string& url) override;
    void Play() override;
    void Stop() override;
    void Pause(bool paused) override;
    void SetPlaybackRate(double rate) override;
    void SetVolume(double volume) override;
    bool GetDuration(double& duration) override;
    void SetContentSize(std::uint32_t width, std::uint32_t height) override;
    bool GetPosition(double& position) override;
    bool SetPosition(double position) override;
    void SetVisibility(bool visible) override;
    void GetSizeFromDuration() override;
    void WriteData(boost::shared_ptr<BackendEvent> event, unsigned int size,
                   UVABackend::WriteDataStatus status) override;
    void WriteMseData(boost::shared_ptr<BackendEvent> event, UVABackend::WriteDataStatus status) override;
    bool CanPlayType(const std::string& type, const std::vector<std::string>& codecs,
                     const std::string& keySystem) override;
    void SetFullScreen(bool fullScreen) override;
    void GetSupportedMimetypes(std::vector<std::string>& types) override;
    void SetLoop(std::string loop) override;
    void SelectComponent(IAvComponent* component) override;
    void UnselectComponent(IAvComponent* component) override;
    void SetSource(std::string url) override;
    void OnListenerChanged(std::string listener) override;
    void SetBufferingStrategy(bool aggressive) override;
    void GetBytesInBuffer(unsigned int& bytes) override;
    void SetKeySystem(std::string keySystem) override;
    boost::signals2::connection ConnectDrmBackendRequest(const DrmBackendRequestSlot& slot) override;

private:
    ReferenceMediaBackend(int type, const StackOptions& options, std::shared_ptr<FaultInjector> faults);

    enum class Phase { Idle, Loading, Loaded };
    // Progress of a stream the back-end fetches itself, announced once per stage.
    enum class Download { Starting, Progressing, Buffered, Complete };
    enum class Drm { NotNeeded, Asked, Present, Missing };
    enum class Key { Clear, Usable, Waiting, Impossible };

    // All of these run with `mutex` held.
    void Advance();
    void Load();
    void PlayOnePeriod();
    void Consume();
    void Fetch();
    void AnnounceKeyIds();
    void SeekTo(double targetMs);
    void Unload();
    void Receive(MediaSourceQueue::Source& source, const DecoderBuffer& sample);
    void Conclude(MediaSourceQueue::Source& source, UVABackend::WriteDataStatus status);
    [[noreturn]] void Refuse(const char* problem);
    bool Encrypted() const;
    Key KeyFor(const DecoderBuffer& sample) const;
    double EndMs() const;
    double AheadMs() const;

    // Runs from the outbox, without the lock: the browser answers the request synchronously.
    void RequestDrm(const std::string& keySystem, std::uint32_t forLoad);

    const UVABackend::UVABackendType type;
    const MediaProfile profile;
    const double periodMs;
    const std::shared_ptr<FaultInjector> faults;

    mutable std::mutex mutex;
    std::uint32_t generation = 0;  // counts loads, so that a late DRM answer for unloaded content is dropped
    Phase phase = Phase::Idle;
    std::string url;
    std::string keySystem;
    bool selfStreaming = false;
    MediaSourceQueue sources;
    double positionMs = 0.0;
    double rate = 1.0;
    bool playing = false;
    bool finished = false;
    bool loop = false;
    bool aggressive = false;
    bool underrun = false;
    bool waitingForKey = false;
    Download download = Download::Starting;
    double downloadStartMs = 0.0;
    double downloadedMs = 0.0;
    Drm drmState = Drm::NotNeeded;
    boost::weak_ptr<ReferenceDrmBackend> drm;
    std::set<std::string> keyIdsSeen;
    std::set<std::string> keyIdsAnnounced;
    bool rightsErrorRaised = false;
    Counters counters;
    ComponentSet components;

    std::mutex stepping;
    Outbox<BackendEvent> outbox;
    boost::signals2::signal<void(std::string, IDrmBackend*&)> drmRequests;
    std::unique_ptr<StepThread> thread;  // last: the first member to go
};

}  // namespace Reference
}  // namespace Velmora
