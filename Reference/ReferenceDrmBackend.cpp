#include "ReferenceDrmBackend.h"

#include <boost/checked_delete.hpp>
#include <cstring>
#include <utility>

#include "Velmora/DrmBackendEvents.h"

namespace Velmora {
namespace Reference {

namespace {

// Byte blocks travel as shared arrays of exactly their length, which the receiver may keep.
boost::shared_ptr<unsigned char> SharedBytes(const std::string& bytes) {
    boost::shared_ptr<unsigned char> copy(new unsigned char[bytes.size()],
                                          boost::checked_array_deleter<unsigned char>());
    std::memcpy(copy.get(), bytes.data(), bytes.size());
    return copy;
}

std::string Bytes(const boost::shared_ptr<unsigned char>& data, std::uint32_t size) {
    return data ? std::string(reinterpret_cast<const char*>(data.get()), size) : std::string();
}

std::string Joined(const std::vector<std::string>& keyIds) {
    std::string joined;
    for (const auto& keyId : keyIds) {
        joined += keyId;
    }
    return joined;
}

}  // namespace

ReferenceDrmBackend::ReferenceDrmBackend(const std::string& keySystem_, const StackOptions& options,
                                         std::shared_ptr<FaultInjector> faults_)
    : keySystem(keySystem_), oipfId(kOipfId), contentKeys(options.contentKeys), faults(std::move(faults_)) {}

boost::shared_ptr<ReferenceDrmBackend> ReferenceDrmBackend::Create(const std::string& keySystem,
                                                                   const StackOptions& options,
                                                                   std::shared_ptr<FaultInjector> faults) {
    const boost::shared_ptr<ReferenceDrmBackend> backend(
        new ReferenceDrmBackend(keySystem, options, std::move(faults)));
    if (options.clock == Clock::Threaded) {
        backend->thread = StepThread::For(backend, options.stepPeriod);
    }
    return backend;
}

ReferenceDrmBackend::~ReferenceDrmBackend() {
    // Stop the thread before any member goes: no event is raised once the destructor has begun.
    thread.reset();
}

void ReferenceDrmBackend::Step() {
    const std::lock_guard<std::mutex> lock(stepping);
    outbox.Deliver();
}

void ReferenceDrmBackend::KeyNeeded(const std::string& keyId) {
    outbox.Post(new UvaNeedKeyDRMEvent(keySystem.c_str(), nullptr, false, SharedBytes(keyId),
                                       static_cast<std::uint32_t>(keyId.size()), true));
}

bool ReferenceDrmBackend::HasKey(const std::string& keyId) const {
    const std::lock_guard<std::mutex> lock(mutex);
    return usableKeys.count(keyId) != 0;
}

const std::string& ReferenceDrmBackend::GetId() const {
    faults->Check(__func__);
    return keySystem;
}

const std::string& ReferenceDrmBackend::GetOIPFId() const {
    faults->Check(__func__);
    return oipfId;
}

bool ReferenceDrmBackend::GenerateKeyRequest(boost::shared_ptr<unsigned char> initData, std::uint32_t initDataSize) {
    faults->Check(__func__);
    const std::string keyIds = Bytes(initData, initDataSize);
    if (keyIds.empty() || keyIds.size() % kKeyIdSize != 0) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    const std::string sessionId = NewSessionId("session-");
    Session& session = sessions[sessionId];
    for (std::size_t at = 0; at < keyIds.size(); at += kKeyIdSize) {
        session.keyIds.push_back(keyIds.substr(at, kKeyIdSize));
    }
    // The request names the key ids; the license server answers with their keys in the same order.
    outbox.Post(new UvaKeyMessageDrmEvent(keySystem.c_str(), sessionId.c_str(), false, kLicenseUrl, SharedBytes(keyIds),
                                          initDataSize));
    return true;
}

bool ReferenceDrmBackend::AddKey(boost::shared_ptr<unsigned char> key, std::uint32_t keySize,
                                 boost::shared_ptr<unsigned char> initData, std::uint32_t initDataSize,
                                 const std::string& sessionId) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    std::string id = sessionId;
    Session* session = FindSession(id, Bytes(initData, initDataSize));
    if (session == nullptr || session->state == SessionState::Usable || session->state == SessionState::Released) {
        return false;
    }
    std::string expected;
    bool licensed = true;
    for (const auto& keyId : session->keyIds) {
        const auto found = contentKeys.find(keyId);
        if (found == contentKeys.end()) {
            licensed = false;  // no key is right for content nobody has the key of
            break;
        }
        expected += found->second;
    }
    if (licensed && Bytes(key, keySize) == expected) {
        session->state = SessionState::Usable;
        usableKeys.insert(session->keyIds.begin(), session->keyIds.end());
        outbox.Post(new UvaKeyCompleteDrmEvent(keySystem.c_str(), id.c_str(), false));
    } else {
        session->state = SessionState::Failed;  // the browser may try again with other keys
        outbox.Post(
            new UvaKeyErrorDrmEvent(keySystem.c_str(), id.c_str(), false, kKeyErrorClient, kSystemCodeWrongKey));
    }
    return true;
}

bool ReferenceDrmBackend::CancelKeyRequest(const std::string& sessionId) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = sessions.find(sessionId);
    if (found == sessions.end() || found->second.state == SessionState::Released) {
        return false;
    }
    Session& session = found->second;
    if (session.state != SessionState::Usable) {
        sessions.erase(found);
        return true;
    }
    // A session whose keys were in use leaves a key release, to be confirmed by the license server.
    for (const auto& keyId : session.keyIds) {
        usableKeys.erase(keyId);
    }
    session.state = SessionState::Released;
    return true;
}

bool ReferenceDrmBackend::GetKeyReleases() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    bool any = false;
    for (const auto& [sessionId, session] : sessions) {
        if (session.state == SessionState::Released) {
            // flag true: this message asks the license server to confirm a release.
            const std::string keyIds = Joined(session.keyIds);
            outbox.Post(new UvaKeyMessageDrmEvent(keySystem.c_str(), sessionId.c_str(), true, kLicenseUrl,
                                                  SharedBytes(keyIds), static_cast<std::uint32_t>(keyIds.size())));
            any = true;
        }
    }
    return any;
}

bool ReferenceDrmBackend::AddKeyReleaseCommit(boost::shared_ptr<unsigned char> /*data*/, std::uint32_t /*size*/,
                                              const std::string& sessionId) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = sessions.find(sessionId);
    if (found == sessions.end() || found->second.state != SessionState::Released) {
        return false;
    }
    sessions.erase(found);
    return true;
}

bool ReferenceDrmBackend::SendDrmMessage(const std::string& msgType, const std::string& msg, std::string& sessionId) {
    faults->Check(__func__);
    if (msgType.empty()) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    sessionId = NewSessionId("message-");
    double code = kResultSuccessful;
    std::string answer;
    if (msgType != kDrmMessageType) {
        code = kResultUnknownMimeType;
    } else if (msg.empty()) {
        code = kResultCannotProcess;
    } else {
        answer = "ack " + msg;
    }
    outbox.Post(new UvaResultMessageDrmEvent(keySystem.c_str(), sessionId.c_str(), false,
                                             answer.empty() ? nullptr : answer.c_str(), code));
    return true;
}

boost::signals2::connection ReferenceDrmBackend::ConnectDrmEvent(const DrmEventSlot& slot) {
    faults->Check(__func__);
    return outbox.Connect(slot);
}

ReferenceDrmBackend::Session* ReferenceDrmBackend::FindSession(std::string& sessionId, const std::string& initData) {
    if (!sessionId.empty()) {
        const auto found = sessions.find(sessionId);
        return found == sessions.end() ? nullptr : &found->second;
    }
    for (auto& [id, session] : sessions) {
        const bool open = session.state == SessionState::Pending || session.state == SessionState::Failed;
        if (open && Joined(session.keyIds) == initData) {
            sessionId = id;
            return &session;
        }
    }
    return nullptr;
}

std::string ReferenceDrmBackend::NewSessionId(const char* prefix) { return prefix + std::to_string(++serial); }

}  // namespace Reference
}  // namespace Velmora
