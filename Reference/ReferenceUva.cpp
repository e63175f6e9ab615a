#include "ReferenceUva.h"

#include <algorithm>
#include <utility>

#include "Velmora/Exceptions.h"

namespace Velmora {
namespace Reference {

namespace {

// Keeps the list short: forgets the back-ends that are gone.
template <typename Backend>
void Remember(std::vector<boost::weak_ptr<Backend>>& list, const boost::shared_ptr<Backend>& backend) {
    list.erase(std::remove_if(list.begin(), list.end(), [](const auto& known) { return known.expired(); }), list.end());
    list.push_back(backend);
}

template <typename Backend>
boost::shared_ptr<Backend> Latest(const std::vector<boost::weak_ptr<Backend>>& list) {
    return list.empty() ? nullptr : list.back().lock();
}

template <typename Backend>
void StepAll(const std::vector<boost::shared_ptr<Backend>>& backends) {
    for (const auto& backend : backends) {
        if (backend) {
            backend->Step();
        }
    }
}

template <typename Backend>
std::vector<boost::shared_ptr<Backend>> Alive(const std::vector<boost::weak_ptr<Backend>>& list) {
    std::vector<boost::shared_ptr<Backend>> alive;
    for (const auto& known : list) {
        alive.push_back(known.lock());
    }
    return alive;
}

}  // namespace

ReferenceUva::ReferenceUva(StackOptions options_) : options(std::move(options_)) {}

ReferenceUva::~ReferenceUva() = default;

boost::shared_ptr<IBackend> ReferenceUva::CreateBackend(int type) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (type == UVABackend::TYPE_MEDIA || type == UVABackend::TYPE_MEDIA_SOURCE) {
        const auto backend = ReferenceMediaBackend::Create(type, options, faults);
        Remember(media, backend);
        return backend;
    }
    if (type == UVABackend::TYPE_VIDEO_BROADCAST) {
        const auto backend = ReferenceBroadcastBackend::Create(options, faults);
        Remember(broadcast, backend);
        return backend;
    }
    throw ExceptionBase(ExceptionBase::NotSupported, "no back-end of type " + std::to_string(type));
}

boost::shared_ptr<IDrmBackend> ReferenceUva::CreateDrmBackend(const std::string& keySystemId) {
    faults->Check(__func__);
    // No key system named: the one this stack has.
    const std::string keySystem = keySystemId.empty() ? ReferenceDrmBackend::kClearKey : keySystemId;
    if (keySystem != ReferenceDrmBackend::kClearKey && keySystem != "webkit-org.w3.clearkey") {
        throw ExceptionBase(ExceptionBase::NotSupported, "key system " + keySystem + " is not supported");
    }
    const std::lock_guard<std::mutex> lock(mutex);
    const auto backend = ReferenceDrmBackend::Create(keySystem, options, faults);
    Remember(drm, backend);
    return backend;
}

boost::signals2::connection ReferenceUva::ConnectHandleLookup(const HandleLookupSlot& slot) {
    faults->Check(__func__);
    return handleLookup.connect(slot);
}

boost::shared_ptr<IBackend> ReferenceUva::LookupBroadcastBackend(void* handle) {
    boost::shared_ptr<IBackend> found;
    handleLookup(handle, found);
    return found;
}

void ReferenceUva::Step() {
    std::vector<boost::shared_ptr<ReferenceMediaBackend>> mediaBackends;
    std::vector<boost::shared_ptr<ReferenceBroadcastBackend>> broadcastBackends;
    std::vector<boost::shared_ptr<ReferenceDrmBackend>> drmBackends;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        mediaBackends = Alive(media);
        broadcastBackends = Alive(broadcast);
        drmBackends = Alive(drm);
    }
    // Stepped without the lock: a step may make the browser ask for a DRM back-end.
    StepAll(mediaBackends);
    StepAll(broadcastBackends);
    StepAll(drmBackends);
}

void ReferenceUva::SetOptions(const StackOptions& newOptions) {
    const std::lock_guard<std::mutex> lock(mutex);
    options = newOptions;
}

StackOptions ReferenceUva::GetOptions() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return options;
}

boost::shared_ptr<ReferenceMediaBackend> ReferenceUva::LatestMediaBackend() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return Latest(media);
}

boost::shared_ptr<ReferenceBroadcastBackend> ReferenceUva::LatestBroadcastBackend() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return Latest(broadcast);
}

boost::shared_ptr<ReferenceDrmBackend> ReferenceUva::LatestDrmBackend() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return Latest(drm);
}

}  // namespace Reference
}  // namespace Velmora
