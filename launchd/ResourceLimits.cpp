#include "launchd/ResourceLimits.h"

namespace varnoth {

ResourceLimits ResourceLimits::decode(const KeyedDecodingContainer& container) {
    ResourceLimits limits;
    limits.cpu = container.decodeIfPresent<std::int64_t>("CPU");
    limits.core = container.decodeIfPresent<std::int64_t>("Core");
    limits.data = container.decodeIfPresent<std::int64_t>("Data");
    limits.fileSize = container.decodeIfPresent<std::int64_t>("FileSize");
    limits.memoryLock = container.decodeIfPresent<std::int64_t>("MemoryLock");
    limits.numberOfFiles = container.decodeIfPresent<std::int64_t>("NumberOfFiles");
    limits.numberOfProcesses = container.decodeIfPresent<std::int64_t>("NumberOfProcesses");
    limits.residentSetSize = container.decodeIfPresent<std::int64_t>("ResidentSetSize");
    limits.stack = container.decodeIfPresent<std::int64_t>("Stack");
    return limits;
}

void ResourceLimits::encode(KeyedEncodingContainer& container) const {
    container.encodeIfPresent("CPU", cpu);
    container.encodeIfPresent("Core", core);
    container.encodeIfPresent("Data", data);
    container.encodeIfPresent("FileSize", fileSize);
    container.encodeIfPresent("MemoryLock", memoryLock);
    container.encodeIfPresent("NumberOfFiles", numberOfFiles);
    container.encodeIfPresent("NumberOfProcesses", numberOfProcesses);
    container.encodeIfPresent("ResidentSetSize", residentSetSize);
    container.encodeIfPresent("Stack", stack);
}

} // namespace varnoth
