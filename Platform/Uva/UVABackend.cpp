#include "Uva/UVABackend.h"

#include <cstdlib>
#include <cstring>

#include "LiveObjects.h"
#include "Uva/UVALiveObjects.h"

namespace UvaPlatform {

LiveCounters& Live() {
    static LiveCounters counters;
    return counters;
}

}  // namespace UvaPlatform

using UvaPlatform::Live;

namespace {

char* Duplicate(const char* text) { return text == nullptr ? nullptr : strdup(text); }

}  // namespace

bool UvaLiveObjects::operator==(const UvaLiveObjects& other) const {
    return events == other.events && drmEvents == other.drmEvents && components == other.components &&
           backends == other.backends && drmBackends == other.drmBackends && samples == other.samples &&
           sources == other.sources;
}

long UvaLiveObjects::Total() const {
    return events + drmEvents + components + backends + drmBackends + samples + sources;
}

UvaLiveObjects uvaLiveObjects() {
    const auto& live = Live();
    return UvaLiveObjects{live.events.load(),      live.drmEvents.load(), live.components.load(), live.backends.load(),
                          live.drmBackends.load(), live.samples.load(),   live.sources.load()};
}

// UVABackend

UVABackend::UVABackend(UVABackendType type) : type_(type) { ++Live().backends; }

UVABackend::~UVABackend() { --Live().backends; }

UVABackend::UVABackendType UVABackend::getType() const { return type_; }

// SourceDescription

UVABackend::SourceDescription::SourceDescription()
    : type(0), url(nullptr), encrypted(false), trackIndex(0), mimeType(nullptr), ownsUrl_(false) {
    ++Live().sources;
}

UVABackend::SourceDescription* UVABackend::SourceDescription::Streaming(std::int32_t type, std::int32_t sourceId,
                                                                        bool encrypted, std::int32_t trackIndex,
                                                                        const char* mimeType) {
    auto* source = new SourceDescription;
    source->type = type;
    source->sourceId = sourceId;
    source->encrypted = encrypted;
    source->trackIndex = trackIndex;
    source->mimeType = Duplicate(mimeType);
    return source;
}

UVABackend::SourceDescription* UVABackend::SourceDescription::BackendStreaming(const char* url) {
    auto* source = new SourceDescription;
    source->type = SOURCE_BACKEND_STREAMING;
    source->url = Duplicate(url);
    source->ownsUrl_ = true;
    return source;
}

UVABackend::SourceDescription::~SourceDescription() {
    if (ownsUrl_) {
        std::free(url);
    }
    std::free(mimeType);
    --Live().sources;
}

// AVComponent

UVABackend::AVComponent::AVComponent(const AVComponentDescription& description)
    : AVComponentDescription(description), state(0), preventions_(0), markedUnused_(false), deleted_(false) {
    pthread_mutex_init(&mutex_, nullptr);
    ++Live().components;
}

UVABackend::AVComponent::~AVComponent() {
    std::free(encoding);
    std::free(language);
    std::free(label);
    std::free(role);
    std::free(id);
    pthread_mutex_destroy(&mutex_);
    --Live().components;
}

void UVABackend::AVComponent::preventDestruction() {
    pthread_mutex_lock(&mutex_);
    ++preventions_;
    pthread_mutex_unlock(&mutex_);
}

void UVABackend::AVComponent::stopPreventingDestruction() {
    pthread_mutex_lock(&mutex_);
    if (preventions_ > 0) {
        --preventions_;
    }
    DeleteIfDone(markedUnused_ && preventions_ == 0);
}

void UVABackend::AVComponent::backendMarkUnused() {
    pthread_mutex_lock(&mutex_);
    markedUnused_ = true;
    DeleteIfDone(preventions_ == 0);
}

// Called with the mutex held; releases it before deleting.
void UVABackend::AVComponent::DeleteIfDone(bool done) {
    const bool deleteNow = done && !deleted_;
    if (deleteNow) {
        deleted_ = true;
    }
    pthread_mutex_unlock(&mutex_);
    if (deleteNow) {
        delete this;
    }
}

// MediaSample

UVABackend::MediaSample::Buffer::~Buffer() { std::free(bytes_); }

void UVABackend::MediaSample::Buffer::assign(const void* bytes, unsigned int size) {
    std::free(bytes_);
    bytes_ = nullptr;
    size_ = 0;
    if (bytes == nullptr || size == 0) {
        return;
    }
    bytes_ = static_cast<unsigned char*>(std::malloc(size));
    if (bytes_ != nullptr) {
        std::memcpy(bytes_, bytes, size);
        size_ = size;
    }
}

UVABackend::MediaSample::MediaSample() { ++Live().samples; }

UVABackend::MediaSample::~MediaSample() {
    while (subSamples_ != nullptr) {
        SubSample* next = subSamples_->next;
        delete subSamples_;
        subSamples_ = next;
    }
    --Live().samples;
}

void UVABackend::MediaSample::addSubSample(std::uint32_t clearBytes, std::uint32_t encryptedBytes) {
    auto* node = new SubSample{clearBytes, encryptedBytes, nullptr};
    SubSample** tail = &subSamples_;
    while (*tail != nullptr) {
        tail = &(*tail)->next;
    }
    *tail = node;
}

UVABackend::MediaSample::SubSample* UVABackend::MediaSample::takeSubSamples() {
    SubSample* list = subSamples_;
    subSamples_ = nullptr;
    return list;
}
