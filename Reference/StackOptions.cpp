#include "StackOptions.h"

namespace Velmora {
namespace Reference {

std::vector<ChannelSpec> DefaultChannels() {
    return {
        {"Velmora One", 1, true, 0, {"eng", "fra"}, {"eng"}},
        {"Velmora News", 2, true, 0, {"eng"}, {}},
        {"Velmora Cinema", 3, true, 18, {"eng", "spa"}, {"eng", "spa"}},
        {"Velmora Sport", 4, false, 0, {"eng"}, {}},
    };
}

std::map<std::string, std::string> DefaultContentKeys() { return {{"velmora-key-id-1", "0123456789abcdef"}}; }

}  // namespace Reference
}  // namespace Velmora
