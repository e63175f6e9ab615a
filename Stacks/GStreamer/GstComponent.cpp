#include "GstComponent.h"

#include <cstdlib>
#include <cstring>

namespace Velmora {
namespace Gst {

namespace {

// The description's texts are the component's own; the library copies what it passes on.
char* Text(const std::string& text) { return text.empty() ? nullptr : strdup(text.c_str()); }

}  // namespace

GstComponent::GstComponent(Kind kind, std::int32_t componentIndex, const std::string& id_, const std::string& codec,
                           const std::string& componentLanguage)
    : streamId(id_) {
    type = kind;
    encoding = Text(codec);
    componentTag = componentIndex;
    aspectRatio = 0.0;
    language = Text(componentLanguage);
    pid = 0;
    audioChannels = 0;
    encrypted = false;
    audioDescription = 0;
    label = Text(componentLanguage);
    role = Text(componentIndex == 0 ? "main" : "alternate");
    hearingImpaired = 0;
    id = Text(id_);
    index = componentIndex;
}

GstComponent::~GstComponent() {
    for (char* text : {encoding, language, label, role, id}) {
        std::free(text);
    }
}

boost::signals2::connection GstComponent::ConnectStateChanged(const StateSlot& slot) {
    return stateChanged.connect(slot);
}

void GstComponent::SetActive(bool active) { stateChanged(active); }

}  // namespace Gst
}  // namespace Velmora
