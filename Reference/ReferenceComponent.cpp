#include "ReferenceComponent.h"

#include <cstdlib>
#include <cstring>

namespace Velmora {
namespace Reference {

namespace {

// The description's texts are the component's own; the library copies what it passes on.
char* Text(const std::string& text) { return text.empty() ? nullptr : strdup(text.c_str()); }

const char* const kEncodings[] = {"avc1", "mp4a", "wvtt"};
const char* const kIdPrefixes[] = {"v", "a", "s"};

}  // namespace

ReferenceComponent::ReferenceComponent(Kind kind, std::int32_t componentIndex, const std::string& componentLanguage) {
    type = kind;
    encoding = Text(kEncodings[kind]);
    componentTag = componentIndex;
    aspectRatio = kind == Video ? 16.0 / 9.0 : 0.0;
    language = Text(componentLanguage);
    pid = 0x100 + 0x10 * kind + componentIndex;
    audioChannels = kind == Audio ? 2 : 0;
    encrypted = false;
    audioDescription = 0;
    label = Text(componentLanguage);
    role = Text(componentIndex == 0 ? "main" : "alternate");
    hearingImpaired = 0;
    id = Text(kIdPrefixes[kind] + std::to_string(componentIndex));
    index = componentIndex;
}

ReferenceComponent::~ReferenceComponent() {
    for (char* text : {encoding, language, label, role, id}) {
        std::free(text);
    }
}

boost::signals2::connection ReferenceComponent::ConnectStateChanged(const StateSlot& slot) {
    return stateChanged.connect(slot);
}

void ReferenceComponent::SetActive(bool value) {
    active = value;
    stateChanged(value);
}

}  // namespace Reference
}  // namespace Velmora
