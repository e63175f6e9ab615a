#include "ReferenceMediaBackend.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "ReferenceDrmBackend.h"
#include "SampleValidation.h"
#include "Velmora/Exceptions.h"

namespace Velmora {
namespace Reference {

namespace {

const double kForever = std::numeric_limits<double>::infinity();

// What the back-end can play: MIME type -> codec names (the part of a codec string before the dot).
const std::map<std::string, std::vector<std::string>>& PlayableTypes() {
    static const std::map<std::string, std::vector<std::string>> types = {
        {"audio/mp4", {"mp4a"}},
        {"audio/webm", {"opus", "vorbis"}},
        {"video/mp2t", {"avc1", "mp4a"}},
        {"video/mp4", {"avc1", "hev1", "mp4a"}},
        {"video/webm", {"vp9", "opus", "vorbis"}},
    };
    return types;
}

bool IsClearKey(const std::string& keySystem) {
    return keySystem == ReferenceDrmBackend::kClearKey || keySystem == "webkit-org.w3.clearkey";
}

// The reference has no screen: it only checks that a rectangle has an area.
bool HasArea(const VideoRect& rect) { return rect.width > 0 && rect.height > 0; }

}  // namespace

ReferenceMediaBackend::ReferenceMediaBackend(int type_, const StackOptions& options,
                                             std::shared_ptr<FaultInjector> faults_)
    : type(static_cast<UVABackend::UVABackendType>(type_)),
      profile(options.media),
      periodMs(static_cast<double>(options.stepPeriod.count())),
      faults(std::move(faults_)) {}

boost::shared_ptr<ReferenceMediaBackend> ReferenceMediaBackend::Create(int type, const StackOptions& options,
                                                                       std::shared_ptr<FaultInjector> faults) {
    const boost::shared_ptr<ReferenceMediaBackend> backend(new ReferenceMediaBackend(type, options, std::move(faults)));
    if (options.clock == Clock::Threaded) {
        backend->thread = StepThread::For(backend, options.stepPeriod);
    }
    return backend;
}

ReferenceMediaBackend::~ReferenceMediaBackend() {
    // Stop the thread before any member goes: no event is raised once the destructor has begun.
    thread.reset();
}

void ReferenceMediaBackend::Step() {
    const std::lock_guard<std::mutex> steppingLock(stepping);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        Advance();
    }
    outbox.Deliver();
}

ReferenceMediaBackend::Status ReferenceMediaBackend::GetStatus() const {
    const std::lock_guard<std::mutex> lock(mutex);
    Status status;
    status.positionSeconds = positionMs / 1000.0;
    status.loaded = phase == Phase::Loaded;
    status.playing = playing;
    status.finished = finished;
    status.waitingForData = underrun;
    status.waitingForKey = waitingForKey;
    status.eventsRaised = outbox.Raised();
    status.counters = counters;
    return status;
}

std::vector<ComponentSet::Component> ReferenceMediaBackend::Components() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return components.List();
}

// ---- One step -------------------------------------------------------------------------------------

void ReferenceMediaBackend::Advance() {
    if (phase == Phase::Idle) {
        return;
    }
    if (phase == Phase::Loading) {
        Load();
    }
    if (drmState == Drm::NotNeeded && Encrypted()) {
        drmState = Drm::Asked;
        const std::string system = keySystem.empty() ? ReferenceDrmBackend::kClearKey : keySystem;
        outbox.Post([this, system, forLoad = generation] { RequestDrm(system, forLoad); });
    }
    // Data first, so that what arrives in this period can be played in it.
    Fetch();
    if (playing && !finished) {
        PlayOnePeriod();
    }
    AnnounceKeyIds();
}

void ReferenceMediaBackend::Load() {
    phase = Phase::Loaded;
    outbox.Post(new DurationChangedEvent(profile.durationSeconds));
    outbox.Post(new VideoResizedEvent(profile.width, profile.height, profile.aspectRatio));
    components.AddStream(outbox, profile.audioLanguages, profile.subtitleLanguages);
}

void ReferenceMediaBackend::PlayOnePeriod() {
    const double wanted = std::min(positionMs + periodMs * rate, EndMs());
    const auto reach =
        sources.Reachable(positionMs, selfStreaming ? std::min(wanted, downloadedMs) : wanted,
                          [this](const DecoderBuffer& sample) { return KeyFor(sample) == Key::Waiting; });
    double reachable = reach.toMs;
    waitingForKey = reach.held;
    if (!selfStreaming && !reach.anyStream) {
        reachable = positionMs;  // nothing attached to play from
    }
    const bool stuck = reachable <= positionMs && wanted > positionMs;
    if (stuck && !waitingForKey && !underrun) {
        underrun = true;
        outbox.Post(new BufferingStreamUnderrunEvent(0));
    } else if (!stuck && underrun) {
        underrun = false;
        outbox.Post(new BackendEvent(BackendEvent::BufferingStreamBuffered));
    }
    positionMs = std::max(positionMs, reachable);
    Consume();
    if (positionMs < EndMs()) {
        return;
    }
    if (loop) {
        SeekTo(0.0);
        return;
    }
    finished = true;
    playing = false;
    outbox.Post(new BackendEvent(BackendEvent::PlaybackFinished));
}

// A sample is played once the position has passed its start.
void ReferenceMediaBackend::Consume() {
    sources.Play(positionMs, [this](const DecoderBuffer& sample) {
        const Key key = KeyFor(sample);
        if (key == Key::Waiting) {
            return false;
        }
        if (key == Key::Usable) {
            ++counters.samplesDecrypted;
        }
        if (key == Key::Impossible) {
            ++counters.samplesUndecryptable;
            if (!rightsErrorRaised) {
                rightsErrorRaised = true;
                // Error state 0: there is no license for the content.
                outbox.Post(new DRMRightsErrorEvent(0, url.c_str(), ReferenceDrmBackend::kClearKey,
                                                    ReferenceDrmBackend::kLicenseUrl));
            }
        }
        ++counters.samplesPlayed;
        return true;
    });
}

void ReferenceMediaBackend::Fetch() {
    if (selfStreaming) {
        if (download == Download::Complete) {
            return;
        }
        if (download == Download::Starting) {
            download = Download::Progressing;
            outbox.Post(new BackendEvent(BackendEvent::BufferingProgress));
        }
        downloadedMs = std::min(EndMs(), downloadedMs + 2 * periodMs);
        if (download == Download::Progressing && (downloadedMs - positionMs >= AheadMs() || downloadedMs >= EndMs())) {
            download = Download::Buffered;
            outbox.Post(new BackendEvent(BackendEvent::BufferingStreamBuffered));
        }
        if (downloadedMs >= EndMs()) {
            download = Download::Complete;
            outbox.Post(new BackendEvent(BackendEvent::BufferingIdle));
        }
        return;
    }
    sources.OpenRequests(positionMs, AheadMs(), [this](std::int32_t id, const MediaSourceQueue::Source& source) {
        ++counters.dataRequests;
        if (source.byteStream) {
            // The browser answers with the same four values: source, request, offset, size.
            outbox.Post(new NeedDataEvent(id, source.requestId, static_cast<std::int32_t>(source.bytesReceived),
                                          profile.bytesPerRequest));
        } else {
            outbox.Post(new NeedMseDataEvent(id, profile.samplesPerRequest));
        }
    });
}

void ReferenceMediaBackend::AnnounceKeyIds() {
    const auto backend = drmState == Drm::Present ? drm.lock() : nullptr;
    if (!backend) {
        return;
    }
    for (const auto& keyId : keyIdsSeen) {
        if (keyIdsAnnounced.insert(keyId).second) {
            backend->KeyNeeded(keyId);
        }
    }
}

void ReferenceMediaBackend::RequestDrm(const std::string& system, std::uint32_t forLoad) {
    IDrmBackend* answer = nullptr;
    drmRequests(system, answer);
    // Only a DRM back-end of this stack can decrypt for it.
    auto* reference = dynamic_cast<ReferenceDrmBackend*>(answer);
    const std::lock_guard<std::mutex> lock(mutex);
    if (forLoad != generation) {
        return;  // the content was unloaded while the browser answered
    }
    drm = reference != nullptr ? reference->weak_from_this() : boost::weak_ptr<ReferenceDrmBackend>();
    drmState = reference != nullptr ? Drm::Present : Drm::Missing;
}

// ---- Helpers --------------------------------------------------------------------------------------

void ReferenceMediaBackend::SeekTo(double targetMs) {
    positionMs = targetMs;
    finished = false;
    underrun = false;
    download = Download::Starting;
    downloadStartMs = targetMs;
    downloadedMs = targetMs;
    sources.Rewind(targetMs, profile.bytesPerSecond, [this, targetMs](std::int32_t requestId) {
        outbox.Post(new CancelDataRequestsEvent(targetMs / 1000.0, requestId));
    });
}

void ReferenceMediaBackend::Unload() {
    ++generation;
    components.RemoveAll(outbox);
    sources.Clear();
    phase = Phase::Idle;
    selfStreaming = false;
    playing = false;
    SeekTo(0.0);
    drmState = Drm::NotNeeded;
    drm.reset();
    keyIdsSeen.clear();
    keyIdsAnnounced.clear();
    rightsErrorRaised = false;
    waitingForKey = false;
}

void ReferenceMediaBackend::Receive(MediaSourceQueue::Source& source, const DecoderBuffer& sample) {
    if (const char* problem = ProblemWith(sample)) {
        ++counters.samplesInvalid;
        counters.lastProblem = problem;
        return;
    }
    ++counters.samplesValid;
    counters.bytesWritten += sample.dataSize;
    if (sample.keyIdSize != 0) {
        keyIdsSeen.insert(KeyIdOf(sample));
    }
    if (!sources.Accept(source, sample, positionMs)) {
        ++counters.samplesLate;
    }
}

void ReferenceMediaBackend::Conclude(MediaSourceQueue::Source& source, UVABackend::WriteDataStatus status) {
    if (!sources.Conclude(source, status)) {
        counters.lastProblem = "the browser could not fetch data";
        outbox.Post(new BackendEvent(BackendEvent::BufferingNetworkError));
    }
}

void ReferenceMediaBackend::Refuse(const char* problem) {
    ++counters.writesRejected;
    counters.lastProblem = problem;
    throw ExceptionBase(ExceptionBase::GenericError, problem);
}

bool ReferenceMediaBackend::Encrypted() const {
    if (selfStreaming ? profile.encrypted : !keyIdsSeen.empty()) {
        return true;
    }
    return sources.AnyEncrypted();
}

ReferenceMediaBackend::Key ReferenceMediaBackend::KeyFor(const DecoderBuffer& sample) const {
    if (sample.keyIdSize == 0) {
        return Key::Clear;
    }
    if (drmState == Drm::Missing) {
        return Key::Impossible;
    }
    if (drmState != Drm::Present) {
        return Key::Waiting;  // the browser has not answered the DRM request yet
    }
    const auto backend = drm.lock();
    if (!backend) {
        return Key::Impossible;  // the browser released the DRM back-end
    }
    return backend->HasKey(KeyIdOf(sample)) ? Key::Usable : Key::Waiting;
}

// The end of the content, or earlier if every stream has ended before it.
double ReferenceMediaBackend::EndMs() const {
    const double endMs = profile.durationSeconds * 1000.0;
    return selfStreaming ? endMs : sources.EndMs(endMs);
}

double ReferenceMediaBackend::AheadMs() const { return aggressive ? profile.aggressiveAheadMs : profile.aheadMs; }

// ---- The media stack's operations -----------------------------------------------------------------

boost::signals2::connection ReferenceMediaBackend::ConnectEvent(const EventSlot& slot) {
    faults->Check(__func__);
    return outbox.Connect(slot);
}

boost::signals2::connection ReferenceMediaBackend::ConnectDrmBackendRequest(const DrmBackendRequestSlot& slot) {
    faults->Check(__func__);
    return drmRequests.connect(slot);
}

void ReferenceMediaBackend::SetWindowId(std::uint32_t /*windowId*/) { faults->Check(__func__); }

void ReferenceMediaBackend::InitBackend(std::string initUrl, const SourceDescriptionBackendStreaming& source,
                                        bool /*flag*/) {
    faults->Check(__func__);
    if (type == UVABackend::TYPE_MEDIA_SOURCE) {
        throw ExceptionBase(ExceptionBase::NotSupported,
                            "a Media Source back-end plays browser-delivered sources only");
    }
    const std::lock_guard<std::mutex> lock(mutex);
    Unload();
    url = source.url.empty() ? initUrl : source.url;
    selfStreaming = true;
    phase = Phase::Loading;
    if (profile.encrypted && !profile.keyId.empty()) {
        keyIdsSeen.insert(profile.keyId);
    }
}

void ReferenceMediaBackend::InitBackend(std::string initUrl, const std::vector<SourceDescriptionOperaStreaming>& list,
                                        bool /*flag*/) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    Unload();
    url = initUrl;
    for (const auto& description : list) {
        sources.Add(description, type == UVABackend::TYPE_MEDIA, positionMs);
    }
    phase = Phase::Loading;
}

void ReferenceMediaBackend::AttachSource(const SourceDescriptionOperaStreaming& source) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (phase == Phase::Idle || selfStreaming) {
        throw ExceptionBase(ExceptionBase::InvalidState, "AttachSource needs a back-end initialised with sources");
    }
    sources.Add(source, type == UVABackend::TYPE_MEDIA, positionMs);
}

void ReferenceMediaBackend::RemoveSource(std::uint32_t sourceId) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (!sources.Remove(static_cast<std::int32_t>(sourceId))) {
        throw ExceptionBase(ExceptionBase::GenericError, "no source " + std::to_string(sourceId));
    }
}

bool ReferenceMediaBackend::SetVideoWindow(const VideoRect& rect) {
    faults->Check(__func__);
    return HasArea(rect);
}

bool ReferenceMediaBackend::SetClipRect(const VideoRect& rect) {
    faults->Check(__func__);
    return HasArea(rect);
}

bool ReferenceMediaBackend::GetNativeSize(unsigned short& width, unsigned short& height, double& aspectRatio) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (phase != Phase::Loaded) {
        return false;
    }
    width = profile.width;
    height = profile.height;
    aspectRatio = profile.aspectRatio;
    return true;
}

bool ReferenceMediaBackend::GetVideoFrame(unsigned char* buffer, std::uint32_t size) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (phase != Phase::Loaded || buffer == nullptr || size == 0) {
        return false;
    }
    std::memset(buffer, 0x80, size);  // a grey frame
    return true;
}

bool ReferenceMediaBackend::GetSeekableTimeRanges(std::vector<ByteRange>& /*byteRanges*/,
                                                  std::vector<TimeRange>& timeRanges) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (phase != Phase::Loaded) {
        return false;
    }
    timeRanges.push_back({0, static_cast<std::uint32_t>(profile.durationSeconds * 1000.0)});
    return true;
}

bool ReferenceMediaBackend::GetBufferedTimeRanges(std::vector<ByteRange>& /*byteRanges*/,
                                                  std::vector<TimeRange>& timeRanges) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (phase != Phase::Loaded) {
        return false;
    }
    double startMs = selfStreaming ? downloadStartMs : 0.0;
    double endMs = selfStreaming ? downloadedMs : kForever;
    sources.NarrowToBuffered(startMs, endMs);
    if (endMs > startMs && endMs < kForever) {
        timeRanges.push_back({static_cast<std::uint32_t>(startMs), static_cast<std::uint32_t>(endMs)});
    }
    return true;
}

bool ReferenceMediaBackend::CanPlayURL(const std::string& candidate) {
    faults->Check(__func__);
    for (const char* scheme : {"http://", "https://", "file://"}) {
        if (candidate.compare(0, std::strlen(scheme), scheme) == 0) {
            return true;
        }
    }
    return false;
}

void ReferenceMediaBackend::Play() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (phase == Phase::Idle) {
        throw ExceptionBase(ExceptionBase::InvalidState, "Play before InitBackend");
    }
    if (finished) {
        SeekTo(0.0);  // playing again after the end starts from the beginning
    }
    playing = true;
}

void ReferenceMediaBackend::Stop() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    Unload();
}

void ReferenceMediaBackend::Pause(bool paused) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    playing = !paused;
}

void ReferenceMediaBackend::SetPlaybackRate(double newRate) {
    faults->Check(__func__);
    if (newRate < 0.0) {
        throw ExceptionBase(ExceptionBase::NotSupported, "no reverse playback");
    }
    const std::lock_guard<std::mutex> lock(mutex);
    rate = newRate;
}

void ReferenceMediaBackend::SetVolume(double newVolume) {
    faults->Check(__func__);
    // The reference has no audio output: it only checks the volume.
    if (newVolume < 0.0 || newVolume > 1.0) {
        throw ExceptionBase(ExceptionBase::GenericError, "volume outside 0 to 1");
    }
}

bool ReferenceMediaBackend::GetDuration(double& duration) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (phase != Phase::Loaded) {
        return false;
    }
    duration = profile.durationSeconds;
    return true;
}

void ReferenceMediaBackend::SetContentSize(std::uint32_t /*width*/, std::uint32_t /*height*/) {
    faults->Check(__func__);
}

bool ReferenceMediaBackend::GetPosition(double& position) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    position = positionMs / 1000.0;
    return phase != Phase::Idle;
}

bool ReferenceMediaBackend::SetPosition(double position) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (phase != Phase::Loaded || position < 0.0 || position > profile.durationSeconds) {
        return false;
    }
    SeekTo(position * 1000.0);
    outbox.Post(new BackendEvent(BackendEvent::SeekCompleted));
    return true;
}

void ReferenceMediaBackend::SetVisibility(bool /*visible*/) { faults->Check(__func__); }

void ReferenceMediaBackend::GetSizeFromDuration() { faults->Check(__func__); }

void ReferenceMediaBackend::WriteData(boost::shared_ptr<BackendEvent> event, unsigned int size,
                                      UVABackend::WriteDataStatus status) {
    faults->Check(__func__);
    const auto* answer = dynamic_cast<const NeedDataEvent*>(event.get());
    const std::lock_guard<std::mutex> lock(mutex);
    if (answer == nullptr) {
        Refuse("WriteData without a NeedDataEvent");
    }
    MediaSourceQueue::Source* source = sources.Find(answer->first);
    if (source == nullptr || !source->byteStream || !source->requestOpen || source->requestId != answer->second) {
        Refuse("an answer to no open data request");
    }
    if (answer->fourth < 0 || size > static_cast<unsigned int>(answer->fourth)) {
        Refuse("more bytes than were asked for");
    }
    sources.AddBytes(*source, size, profile.bytesPerSecond);
    counters.bytesWritten += size;
    Conclude(*source, status);
}

void ReferenceMediaBackend::WriteMseData(boost::shared_ptr<BackendEvent> event, UVABackend::WriteDataStatus status) {
    faults->Check(__func__);
    const auto* answer = dynamic_cast<const WriteMseDataEvent*>(event.get());
    const std::lock_guard<std::mutex> lock(mutex);
    if (answer == nullptr) {
        Refuse("WriteMseData without a WriteMseDataEvent");
    }
    MediaSourceQueue::Source* source = sources.Find(answer->sourceId);
    if (source == nullptr || source->byteStream) {
        Refuse("samples for no Media Source stream of this back-end");
    }
    // `count` includes the entries the browser left empty, so it may exceed the buffers, never trail them.
    if (!answer->buffers || answer->buffers->size() > answer->count) {
        Refuse("more samples than the answer counts");
    }
    for (const DecoderBuffer& sample : *answer->buffers) {
        Receive(*source, sample);
    }
    Conclude(*source, status);
}

bool ReferenceMediaBackend::CanPlayType(const std::string& mimeType, const std::vector<std::string>& codecs,
                                        const std::string& system) {
    faults->Check(__func__);
    const auto found = PlayableTypes().find(mimeType);
    if (found == PlayableTypes().end() || !(system.empty() || IsClearKey(system))) {
        return false;
    }
    return std::all_of(codecs.begin(), codecs.end(), [&found](const std::string& codec) {
        const std::string name = codec.substr(0, codec.find('.'));
        return std::find(found->second.begin(), found->second.end(), name) != found->second.end();
    });
}

void ReferenceMediaBackend::SetFullScreen(bool /*fullScreen*/) { faults->Check(__func__); }

void ReferenceMediaBackend::GetSupportedMimetypes(std::vector<std::string>& types) {
    faults->Check(__func__);
    for (const auto& entry : PlayableTypes()) {
        types.push_back(entry.first);
    }
}

void ReferenceMediaBackend::SetLoop(std::string value) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    loop = !(value.empty() || value == "false" || value == "0");
}

void ReferenceMediaBackend::SelectComponent(IAvComponent* component) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (components.Select(outbox, component) == nullptr) {
        throw ExceptionBase(ExceptionBase::GenericError, "not a component of this stream");
    }
}

void ReferenceMediaBackend::UnselectComponent(IAvComponent* component) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (components.Unselect(outbox, component) == nullptr) {
        throw ExceptionBase(ExceptionBase::GenericError, "not a component of this stream");
    }
}

void ReferenceMediaBackend::SetSource(std::string newUrl) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    url = newUrl;  // noted only: loading starts with InitBackend
}

void ReferenceMediaBackend::OnListenerChanged(std::string /*listener*/) { faults->Check(__func__); }

void ReferenceMediaBackend::SetBufferingStrategy(bool aggressiveBuffering) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    aggressive = aggressiveBuffering;
}

void ReferenceMediaBackend::GetBytesInBuffer(unsigned int& bytes) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    const std::uint64_t total = sources.BytesAhead(positionMs, profile.bytesPerSecond);
    bytes = static_cast<unsigned int>(std::min<std::uint64_t>(total, std::numeric_limits<unsigned int>::max()));
}

void ReferenceMediaBackend::SetKeySystem(std::string system) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    keySystem = system;
}

}  // namespace Reference
}  // namespace Velmora
