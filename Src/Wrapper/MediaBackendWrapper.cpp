#include "MediaBackendWrapper.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "CallGuard.h"
#include "DrmBackendWrapper.h"
#include "EventTranslation.h"
#include "Log.h"
#include "MediaSourceSamples.h"
#include "Utilities.h"
#include "Velmora/Exceptions.h"
#include "WrapperTexts.h"

namespace Velmora {
namespace Wrapper {

namespace {

const LogSite kLog(kMediaLogFile, __LINE__);

// Log and failure texts, kept exactly as they are (blanks, spellings and all): log readers match them.
constexpr const char* kCastFailure = "Exception occurred while performing IMediaBackend cast.";
constexpr const char* kCallFailure = "virtual function from IMediaBackend failed: ";
constexpr const char* kWriteDataCallFailure = " virtual function from IMediaBackend failed: ";
constexpr const char* kInitBackendUnknownFailure = "Unknown exception caught in initBackend";
constexpr const char* kNoClient = "MediaBackendWrapper Client is not set!";
constexpr const char* kNoSources = "initBackend failed, since '_sources' is nullpointer";
constexpr const char* kInvalidSourceType = " initBackend called with invalid sourceType!";
constexpr const char* kMixedSourceTypes =
    "SourceDescription included more than one type of sources. Looks like an error in Opera.";
constexpr const char* kNullSource = " source param is nullpointer in MediaBackendWrapper::attachSource.";
constexpr const char* kWrongEventType = " Wrong event type received with WriteData method";
constexpr const char* kCannotPlayType = " Can play type returned false from MediaBackendImpl! ";
constexpr const char* kNullUrl = "canPlayURL called with nullpointer";
constexpr const char* kMimetypesOutOfMemory = "OOM in MediaBackendWrapper::getSupportedMimetypes!";
constexpr const char* kEmptyKeySystem = " Empty keySystemId is used to request DRMBackend! ";
constexpr const char* kRequestingDrmBackend = " <><><><><><>  Uva Media Backend is requesting DRM backend! ";
constexpr const char* kNoDrmBackend = " Unable to get DRM backend from Uva Client! value(ptrOperaContext): ";
constexpr const char* kNotOurDrmBackend = " Dynamic cast from UVADRMBackend* to DrmBackendWrapper* failed!";
constexpr const char* kSendingEvent = "; (sending event to Opera): ";
constexpr const char* kEventWithoutClient = "MediaBackendEvent Event cannot be sent since client is not set!";

// Unknown components are reported, and every new one is traced.
const ComponentPolicy kComponents{&kLog, "MediaBackendEvent", kMediaEventNotHandled, "Component ADDED: ", nullptr};

// The operation's name is glued to the failure sentence without a blank; the browser's logs expect that.
constexpr CallPolicy MediaCall(const char* name, int exceptionBaseLevel = 5) {
    return CallPolicy{&kLog, name, kCallFailure, exceptionBaseLevel};
}

// "No" is an answer, not a failure.
UVA_STATUS AnswerOf(bool yes) { return yes ? UVA_STATUS_OK : UVA_STATUS_ERROR_2; }

// Sources

using SourceDescription = UVABackend::SourceDescription;

IBackend::SourceDescriptionOperaStreaming StreamingSourceOf(const SourceDescription& source) {
    return {source.type, source.sourceId, source.encrypted, source.trackIndex, Utilities::TextOrEmpty(source.mimeType)};
}

// The leading run of sources that share the first one's type.
std::vector<IBackend::SourceDescriptionOperaStreaming> StreamingSourcesOf(SourceDescription* const* sources) {
    std::vector<IBackend::SourceDescriptionOperaStreaming> records;
    SourceDescription* const* next = sources;
    for (; *next != nullptr && (*next)->type == sources[0]->type; ++next) {
        records.push_back(StreamingSourceOf(**next));
    }
    if (*next != nullptr) {
        VELMORA_LOG(kLog, 5) << kMixedSourceTypes;
    }
    return records;
}

void DeleteSources(SourceDescription** sources) {
    for (SourceDescription** next = sources; *next != nullptr; ++next) {
        delete *next;
    }
    delete[] sources;
}

// The browser's answer to a data request, passed on as the media stack's own event.
// `answer` as the class its code names, or null. The browser's own class is recognised without a search
// of the class tree; anything else, a class derived from it included, takes the checked cast.
template <typename Answer>
Answer* AnswerAs(UVAEvent& answer) {
    if (typeid(answer) == typeid(Answer)) {
        return static_cast<Answer*>(&answer);
    }
    return dynamic_cast<Answer*>(&answer);
}

void PassOnAnswer(IMediaBackend& media, UVAEvent* answer, unsigned int size, UVABackend::WriteDataStatus status) {
    const UVAEvent::Type code = answer != nullptr ? answer->getType() : UVAEvent::RESOURCE_REVOKED;
    if (code == UVAEvent::NEED_DATA) {
        if (const auto* need = AnswerAs<::NeedDataEvent>(*answer)) {
            media.WriteData(
                boost::make_shared<Velmora::NeedDataEvent>(need->sourceId, need->requestId, need->offset, need->size),
                size, status);
        }
    } else if (code == UVAEvent::NEED_MSE_DATA) {
        if (auto* need = AnswerAs<::NeedMSEDataEvent>(*answer)) {
            media.WriteMseData(WriteMseDataOf(*need), status);
        }
    } else {
        throw GenericErrorException(kWrongEventType);
    }
}

// Events

void LogNotHandled(BackendEvent::EventType code) {
    VELMORA_LOG(kLog, 4) << kMediaEventNotHandled << Utilities::ConvertEventIdToString(code);
}

}  // namespace

MediaBackendWrapper::MediaBackendWrapper(boost::shared_ptr<IBackend> implementation, UVABackend::UVABackendType type,
                                         UVAClient* eventClient)
    : UVAMediaBackend(type),
      delivery(kLog, kEventWithoutClient, eventClient),
      components(kComponents, delivery),
      backend(std::move(implementation)),
      media(backend, kCastFailure, this) {
    // The registry wraps whatever the media stack created, an empty back-end included: nothing to follow.
    if (!FollowsEvents(kLog, kNoClient, delivery.Client(), backend != nullptr)) {
        return;
    }
    eventConnection = backend->ConnectEvent(gate.Bind<&MediaBackendWrapper::MediaBackendEvent>(this));
    if (media.Get() != nullptr) {
        drmRequestConnection =
            media.Get()->ConnectDrmBackendRequest(gate.Bind<&MediaBackendWrapper::GetDRMBackend>(this));
    }
}

MediaBackendWrapper::~MediaBackendWrapper() {
    gate.Close();
    VELMORA_LOG_QUIET(kLog, 2) << "~MediaBackendWrapper";
    // The implementation may go before the event subscription is cut: the gate already keeps its
    // threads out, and the media stack releases its signal with the back-end.
    backend.reset();
    eventConnection.disconnect();
}

boost::shared_ptr<IBackend> MediaBackendWrapper::GetMediaBackendImpl() { return backend; }

// The forwarding family: cast, convert, call, answer.

UVA_STATUS MediaBackendWrapper::setWindowId(unsigned int windowId) {
    static constexpr CallPolicy kPolicy = MediaCall("setWindowId");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.SetWindowId(windowId); });
}

UVA_STATUS MediaBackendWrapper::removeSource(unsigned int sourceId) {
    static constexpr CallPolicy kPolicy = MediaCall("removeSource");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.RemoveSource(sourceId); });
}

UVA_STATUS MediaBackendWrapper::setVideoWindow(int x, int y, int width, int height) {
    static constexpr CallPolicy kPolicy = MediaCall("setVideoWindow");
    return media.Forward(kPolicy, [&](IMediaBackend& media) {
        return media.SetVideoWindow(Utilities::MakeVideoRect(x, y, width, height));
    });
}

UVA_STATUS MediaBackendWrapper::setClipRect(int x, int y, int width, int height) {
    static constexpr CallPolicy kPolicy = MediaCall("setClipRect");
    return media.Forward(kPolicy, [&](IMediaBackend& media) {
        return media.SetClipRect(Utilities::MakeVideoRect(x, y, width, height));
    });
}

UVA_STATUS MediaBackendWrapper::getVideoFrame(unsigned char* buffer, unsigned int size) {
    static constexpr CallPolicy kPolicy = MediaCall("getVideoFrame");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { return media.GetVideoFrame(buffer, size); });
}

UVA_STATUS MediaBackendWrapper::play() {
    static constexpr CallPolicy kPolicy = MediaCall("play");
    return media.Forward(kPolicy, [](IMediaBackend& media) { media.Play(); });
}

UVA_STATUS MediaBackendWrapper::stop() {
    static constexpr CallPolicy kPolicy = MediaCall("stop");
    return media.Forward(kPolicy, [](IMediaBackend& media) { media.Stop(); });
}

UVA_STATUS MediaBackendWrapper::pause(bool paused) {
    static constexpr CallPolicy kPolicy = MediaCall("pause");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.Pause(paused); });
}

UVA_STATUS MediaBackendWrapper::setPlaybackRate(double rate) {
    static constexpr CallPolicy kPolicy = MediaCall("setPlaybackRate");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.SetPlaybackRate(rate); });
}

UVA_STATUS MediaBackendWrapper::setVolume(double volume) {
    static constexpr CallPolicy kPolicy = MediaCall("setVolume");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.SetVolume(volume); });
}

// Asked often while playing: a media stack that cannot answer yet is traced, not reported.
UVA_STATUS MediaBackendWrapper::getDuration(double& duration) {
    static constexpr CallPolicy kPolicy = MediaCall("getDuration", 2);
    return media.Forward(kPolicy, [&](IMediaBackend& media) { return media.GetDuration(duration); });
}

UVA_STATUS MediaBackendWrapper::setContentSize(unsigned int width, unsigned int height) {
    static constexpr CallPolicy kPolicy = MediaCall("setContentSize");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.SetContentSize(width, height); });
}

UVA_STATUS MediaBackendWrapper::getPosition(double& position) {
    static constexpr CallPolicy kPolicy = MediaCall("getPosition");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { return media.GetPosition(position); });
}

UVA_STATUS MediaBackendWrapper::setPosition(double position) {
    static constexpr CallPolicy kPolicy = MediaCall("setPosition");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { return media.SetPosition(position); });
}

// The media stack knows one visibility flag; the browser's second one has no counterpart.
UVA_STATUS MediaBackendWrapper::setVisibility(bool visible, bool /*unused*/) {
    static constexpr CallPolicy kPolicy = MediaCall("setVisibility");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.SetVisibility(visible); });
}

// The media stack takes no duration and gives no size here: `size` stays as the browser left it.
UVA_STATUS MediaBackendWrapper::getSizeFromDuration(double /*duration*/, unsigned int& /*size*/) {
    static constexpr CallPolicy kPolicy = MediaCall("getSizeFromDuration");
    return media.Forward(kPolicy, [](IMediaBackend& media) { media.GetSizeFromDuration(); });
}

UVA_STATUS MediaBackendWrapper::setFullScreen(bool fullScreen) {
    static constexpr CallPolicy kPolicy = MediaCall("setFullScreen");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.SetFullScreen(fullScreen); });
}

UVA_STATUS MediaBackendWrapper::setLoop(const char* loop) {
    static constexpr CallPolicy kPolicy = MediaCall("setLoop");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.SetLoop(Utilities::TextOrEmpty(loop)); });
}

UVA_STATUS MediaBackendWrapper::setSource(const char* url) {
    static constexpr CallPolicy kPolicy = MediaCall("setSource");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.SetSource(Utilities::TextOrEmpty(url)); });
}

UVA_STATUS MediaBackendWrapper::onListenerChanged(const char* listener) {
    static constexpr CallPolicy kPolicy = MediaCall("onListenerChanged");
    return media.Forward(kPolicy,
                         [&](IMediaBackend& media) { media.OnListenerChanged(Utilities::TextOrEmpty(listener)); });
}

// The media stack only knows "aggressive or not".
UVA_STATUS MediaBackendWrapper::setBufferingStrategy(BufferingStrategy strategy) {
    static constexpr CallPolicy kPolicy = MediaCall("setBufferingStrategy");
    return media.Forward(kPolicy,
                         [&](IMediaBackend& media) { media.SetBufferingStrategy(strategy == BUFFERING_AGGRESSIVE); });
}

UVA_STATUS MediaBackendWrapper::getBytesInBuffer(unsigned int& bytes) {
    static constexpr CallPolicy kPolicy = MediaCall("getBytesInBuffer");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.GetBytesInBuffer(bytes); });
}

UVA_STATUS MediaBackendWrapper::setKeySystem(const char* keySystem) {
    static constexpr CallPolicy kPolicy = MediaCall("setKeySystem");
    return media.Forward(kPolicy, [&](IMediaBackend& media) { media.SetKeySystem(Utilities::TextOrEmpty(keySystem)); });
}

// Queueing is accepted and dropped: the media stack plays one source at a time.
UVA_STATUS MediaBackendWrapper::queue(const char* url) {
    static constexpr CallPolicy kPolicy = MediaCall("queue");
    return Guarded(
        kPolicy,
        [&] {
            VELMORA_LOG(kLog, 2) << "queue : " << Utilities::TextOrEmpty(url);
            media();
            return UVA_STATUS_OK;
        },
        this);
}

// Sources

UVA_STATUS MediaBackendWrapper::initBackend(const char* url, SourceDescription** sources, bool flag) {
    static constexpr CallPolicy policy{&kLog, "initBackend", kCallFailure, 5, kInitBackendUnknownFailure};
    return media.Forward(policy, [&](IMediaBackend& media) {
        // An empty list is refused like a missing one, before any type is read.
        if (sources == nullptr || sources[0] == nullptr) {
            VELMORA_LOG(kLog, 5) << kNoSources;
            return UVA_STATUS_ERROR;
        }
        const SourceDescription& first = *sources[0];
        if (first.type < SourceDescription::SOURCE_VIDEO || first.type > SourceDescription::SOURCE_BACKEND_STREAMING) {
            throw GenericErrorException(kInvalidSourceType);
        }
        if (first.type == SourceDescription::SOURCE_BACKEND_STREAMING) {
            // The back-end fetches the stream itself; only the first description counts.
            media.InitBackend(Utilities::TextOrEmpty(url),
                              IBackend::SourceDescriptionBackendStreaming{Utilities::TextOrEmpty(first.url)}, flag);
        } else {
            media.InitBackend(Utilities::TextOrEmpty(url), StreamingSourcesOf(sources), flag);
        }
        DeleteSources(sources);
        return UVA_STATUS_OK;
    });
}

// Unlike initBackend, any source type is passed on.
UVA_STATUS MediaBackendWrapper::attachSource(SourceDescription* source) {
    static constexpr CallPolicy kPolicy = MediaCall("attachSource");
    return media.Forward(kPolicy, [&](IMediaBackend& media) {
        if (source == nullptr) {
            throw GenericErrorException(kNullSource);
        }
        media.AttachSource(StreamingSourceOf(*source));
        delete source;
        return UVA_STATUS_OK;
    });
}

// Media Source data

UVA_STATUS MediaBackendWrapper::writeData(UVAEvent* event, unsigned int size, WriteDataStatus status) {
    // The browser's event is ours whatever happens.
    const std::unique_ptr<UVAEvent> answer(event);
    static constexpr CallPolicy policy{&kLog, "writeData", kWriteDataCallFailure};
    return Guarded(
        policy,
        [&] {
            PassOnAnswer(media(), answer.get(), size, status);
            return UVA_STATUS_OK;
        },
        this);
}

// Capabilities

UVA_STATUS MediaBackendWrapper::canPlayType(const char* type, const char** codecs, const char* keySystem) {
    static constexpr CallPolicy kPolicy = MediaCall("canPlayType");
    return media.Forward(kPolicy, [&](IMediaBackend& media) {
        std::vector<std::string> codecList;
        for (const char** codec = codecs; codec != nullptr && *codec != nullptr; ++codec) {
            codecList.emplace_back(*codec);
        }
        if (media.CanPlayType(Utilities::TextOrEmpty(type), codecList, Utilities::TextOrEmpty(keySystem))) {
            return UVA_STATUS_OK;
        }
        VELMORA_LOG(kLog, 4) << kCannotPlayType;
        return AnswerOf(false);
    });
}

UVA_STATUS MediaBackendWrapper::canPlayURL(const char* url) {
    static constexpr CallPolicy kPolicy = MediaCall("canPlayURL");
    return Guarded(
        kPolicy,
        [&] {
            if (url == nullptr) {
                throw GenericErrorException(kNullUrl);
            }
            return AnswerOf(media().CanPlayURL(url));
        },
        this);
}

UVA_STATUS MediaBackendWrapper::getSupportedMimetypes(char**& types) {
    static constexpr CallPolicy kPolicy = MediaCall("getSupportedMimetypes");
    return Guarded(
        kPolicy,
        [&] {
            std::vector<std::string> supported;
            media().GetSupportedMimetypes(supported);
            types = Utilities::NullTerminatedArray<char>(supported.size());
            // A 16-bit index: longer lists wrap over their first entries. A known limit, kept as it is.
            std::uint16_t index = 0;
            for (const std::string& type : supported) {
                types[index] = strdup(type.c_str());
                if (types[index] == nullptr) {
                    throw GenericErrorException(kMimetypesOutOfMemory);
                }
                ++index;
            }
            types[index] = nullptr;
            return UVA_STATUS_OK;
        },
        this);
}

void MediaBackendWrapper::GetDRMBackend(std::string keySystemId, IDrmBackend*& drmBackend) {
    drmBackend = nullptr;
    if (keySystemId.empty()) {
        VELMORA_LOG(kLog, 2) << "GetDRMBackend" << kEmptyKeySystem;
        return;
    }
    VELMORA_LOG(kLog, 2) << kRequestingDrmBackend;
    UVADRMBackend* const chosen = delivery.Client()->requestDRMBackend(keySystemId.c_str());
    if (chosen == nullptr) {
        VELMORA_LOG(kLog, 5) << "GetDRMBackend" << kNoDrmBackend << static_cast<const void*>(chosen);
        return;
    }
    auto* const wrapped = dynamic_cast<DrmBackendWrapper*>(chosen);
    if (wrapped == nullptr) {
        VELMORA_LOG(kLog, 2) << "GetDRMBackend" << kNotOurDrmBackend;
        return;
    }
    // No share is kept: the browser holds the DRM wrapper, and the wrapper holds the back-end.
    drmBackend = wrapped->GetDrmBackendImplPtr().get();
}

// Time ranges and native size

UVA_STATUS MediaBackendWrapper::ReportTimeRanges(const CallPolicy& policy, TimeRangeQuery query,
                                                 TimeRange**& timeRanges) {
    return Guarded(
        policy,
        [&] {
            std::vector<IBackend::ByteRange> byteRanges;  // not reported to the browser
            std::vector<IBackend::TimeRange> ranges;
            const bool answer = (media().*query)(byteRanges, ranges);
            timeRanges = Utilities::NullTerminatedArray<TimeRange>(ranges.size());
            for (std::size_t index = 0; index < ranges.size(); ++index) {
                // In the media stack's own unit, unscaled; exact, as every 32-bit value is a double.
                timeRanges[index] =
                    new TimeRange{static_cast<double>(ranges[index].start), static_cast<double>(ranges[index].end)};
            }
            return StatusOf(answer);
        },
        this, policy.name);
}

UVA_STATUS MediaBackendWrapper::getBufferedTimeRanges(ByteRange** /*byteRanges*/, TimeRange**& timeRanges) {
    static constexpr CallPolicy kPolicy = MediaCall("getBufferedTimeRanges");
    return ReportTimeRanges(kPolicy, &IMediaBackend::GetBufferedTimeRanges, timeRanges);
}

UVA_STATUS MediaBackendWrapper::getSeekableTimeRanges(ByteRange** /*byteRanges*/, TimeRange**& timeRanges) {
    static constexpr CallPolicy kPolicy = MediaCall("getSeekableTimeRanges");
    return ReportTimeRanges(kPolicy, &IMediaBackend::GetSeekableTimeRanges, timeRanges);
}

namespace {

// Built out of line: asked every frame, the call stays a plain forward while the trace level is off.
[[gnu::cold, gnu::noinline]] void LogNativeSize(int width, int height) {
    VELMORA_LOG(kLog, 2) << "getNativeSize; " << width << "; " << height << "; ";
}

}  // namespace

UVA_STATUS MediaBackendWrapper::getNativeSize(int& width, int& height, double& aspectRatio) {
    static constexpr CallPolicy kPolicy = MediaCall("getNativeSize");
    return Guarded(
        kPolicy,
        [&] {
            unsigned short nativeWidth = 0;
            unsigned short nativeHeight = 0;
            const bool answer = media().GetNativeSize(nativeWidth, nativeHeight, aspectRatio);
            width = nativeWidth;
            height = nativeHeight;
            if (LogEnabled(kLog, 2)) {
                LogNativeSize(width, height);
            }
            return StatusOf(answer);
        },
        this);
}

// Component selection

UVA_STATUS MediaBackendWrapper::selectComponent(AVComponent* component) {
    return ChangeSelection(Selection::Select, component);
}

UVA_STATUS MediaBackendWrapper::unselectComponent(AVComponent* component) {
    return ChangeSelection(Selection::Unselect, component);
}

UVA_STATUS MediaBackendWrapper::ChangeSelection(Selection which, AVComponent* component) {
    const char* const name = ComponentRegistry::OperationName(which);
    return Guarded(
        MediaCall(name), [&] { return components.ChangeSelection(media(), which, component); }, this, name);
}

// Events

namespace {

// The slot's lines are built out of line, so that passing an event on costs no text machinery.
[[gnu::cold, gnu::noinline]] void LogNullEvent() { VELMORA_LOG(kLog, 5) << "MediaBackendEvent" << kNullEventIgnored; }

[[gnu::cold, gnu::noinline]] void LogSending(BackendEvent::EventType code) noexcept {
    // Without memory for this line the event, a component's removal above all, is still handled.
    VELMORA_LOG_QUIET(kLog, 2) << "MediaBackendEvent" << kSendingEvent << Utilities::EventName(code);
}

}  // namespace

void MediaBackendWrapper::MediaBackendEvent(boost::shared_ptr<BackendEvent> event) {
    if (!event) {
        LogNullEvent();
        return;
    }
    const BackendEvent::EventType code = event->type;
    if (LogEnabled(kLog, 2)) {
        LogSending(code);
    }
    if (code == BackendEvent::ComponentChanged) {
        components.OnComponentChanged(*event);
        return;
    }
    UVAEvent::Type browserType = UVAEvent::RESOURCE_REVOKED;
    std::unique_ptr<UVAEvent> translated;
    if (Utilities::ToBrowserEventType(code, browserType)) {
        translated = TranslateMediaEvent(*event, browserType);
    }
    if (translated == nullptr) {
        LogNotHandled(code);
        return;
    }
    delivery.Deliver(std::move(translated));
}

}  // namespace Wrapper
}  // namespace Velmora
