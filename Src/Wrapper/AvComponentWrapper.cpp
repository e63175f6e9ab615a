#include "AvComponentWrapper.h"

#include "CallGuard.h"
#include "Log.h"
#include "Utilities.h"

namespace Velmora {
namespace Wrapper {

namespace {

const LogSite kLog(kComponentLogFile, __LINE__);

UVABackend::AVComponentDescription CopyDescription(const AvComponentDescription& source) {
    using Utilities::DuplicateText;
    UVABackend::AVComponentDescription copy{};
    copy.type = source.type;
    copy.encoding = DuplicateText(source.encoding);
    copy.componentTag = source.componentTag;
    copy.aspectRatio = source.aspectRatio;
    copy.language = DuplicateText(source.language);
    copy.pid = source.pid;
    copy.audioChannels = source.audioChannels;
    copy.encrypted = source.encrypted;
    copy.audioDescription = source.audioDescription;
    copy.label = DuplicateText(source.label);
    copy.role = DuplicateText(source.role);
    copy.hearingImpaired = source.hearingImpaired;
    copy.id = DuplicateText(source.id);
    copy.index = source.index;
    return copy;
}

}  // namespace

AvComponentWrapper::AvComponentWrapper(IAvComponent* component) : AVComponent(CopyDescription(*component)) {
    VELMORA_LOG(kLog, 2) << "AvComponentWrapper"
                         << "________CREATED!__________________________________________________________________"
                         << static_cast<const void*>(this);
    stateConnection = component->ConnectStateChanged(gate.Bind<&AvComponentWrapper::SetState>(this));
}

AvComponentWrapper::~AvComponentWrapper() {
    gate.Close();
    VELMORA_LOG_QUIET(kLog, 2) << "~AvComponentWrapper"
                               << "____________________________________________________DELETED______________________"
                               << static_cast<const void*>(this);
    Quietly(kLog, "Unknown exception caught in AvComponentWrapper::~AvComponentWrapper",
            [this] { stateConnection.disconnect(); });
}

void AvComponentWrapper::SetState(bool active) { state = active ? 1 : 0; }

void AvComponentWrapper::BackendMarkUnused() noexcept {
    VELMORA_LOG_QUIET(kLog, 2) << "BackendMarkUnused" << static_cast<const void*>(this);
    state = 0;
    backendMarkUnused();
}

}  // namespace Wrapper
}  // namespace Velmora
