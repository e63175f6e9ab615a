#include "SampleValidation.h"

#include <cstdint>
#include <utility>

#include "ReferenceDrmBackend.h"

namespace Velmora {
namespace Reference {

std::string KeyIdOf(const DecoderBuffer& sample) {
    return std::string(reinterpret_cast<const char*>(sample.keyId.get()), sample.keyIdSize);
}

// Why `sample` cannot be decoded, or null when it is sound.
const char* ProblemWith(const DecoderBuffer& sample) {
    const std::pair<const boost::shared_ptr<unsigned char>*, std::uint32_t> buffers[] = {
        {&sample.data, sample.dataSize},
        {&sample.keyId, sample.keyIdSize},
        {&sample.iv, sample.ivSize},
        {&sample.codecConfig, sample.codecConfigSize}};
    for (const auto& [bytes, size] : buffers) {
        if ((*bytes == nullptr) != (size == 0)) {
            return "a buffer and its length disagree";
        }
    }
    if (sample.dataSize == 0) {
        return "a sample without data";
    }
    if (sample.timestamp < 0 || sample.duration <= 0) {
        return "a sample without a valid time";
    }
    if (sample.keyIdSize == 0) {
        return sample.ivSize != 0 || !sample.subSamples.empty() ? "a clear sample with encryption data" : nullptr;
    }
    if (sample.keyIdSize != ReferenceDrmBackend::kKeyIdSize) {
        return "a key id that is not 16 bytes";
    }
    if (sample.ivSize != 8 && sample.ivSize != 16) {
        return "an initialisation vector that is not 8 or 16 bytes";
    }
    if (!sample.subSamples.empty()) {
        std::uint64_t covered = 0;
        for (const auto& subSample : sample.subSamples) {
            covered += std::uint64_t{subSample.clearBytes} + subSample.encryptedBytes;
        }
        if (covered != sample.dataSize) {
            return "sub-samples that do not cover the sample";
        }
    }
    return nullptr;
}

}  // namespace Reference
}  // namespace Velmora
