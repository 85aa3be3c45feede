#pragma once

#include "launchd/KeyedDecodingContainer.h"
#include "launchd/KeyedEncodingContainer.h"

#include <cstdint>
#include <optional>

namespace varnoth {

// setrlimit values for a job, used for both its hard and its soft limits; absent means unchanged.
class ResourceLimits {
public:
    explicit ResourceLimits(std::optional<std::int64_t> cpu = std::nullopt,
                            std::optional<std::int64_t> core = std::nullopt,
                            std::optional<std::int64_t> data = std::nullopt,
                            std::optional<std::int64_t> fileSize = std::nullopt,
                            std::optional<std::int64_t> memoryLock = std::nullopt,
                            std::optional<std::int64_t> numberOfFiles = std::nullopt,
                            std::optional<std::int64_t> numberOfProcesses = std::nullopt,
                            std::optional<std::int64_t> residentSetSize = std::nullopt,
                            std::optional<std::int64_t> stack = std::nullopt)
        : cpu(cpu), core(core), data(data), fileSize(fileSize), memoryLock(memoryLock),
          numberOfFiles(numberOfFiles), numberOfProcesses(numberOfProcesses),
          residentSetSize(residentSetSize), stack(stack) {}

    std::optional<std::int64_t> cpu;
    std::optional<std::int64_t> core;
    std::optional<std::int64_t> data;
    std::optional<std::int64_t> fileSize;
    std::optional<std::int64_t> memoryLock;
    std::optional<std::int64_t> numberOfFiles;
    std::optional<std::int64_t> numberOfProcesses;
    std::optional<std::int64_t> residentSetSize;
    std::optional<std::int64_t> stack;

    static ResourceLimits decode(const KeyedDecodingContainer& container);
    void encode(KeyedEncodingContainer& container) const;

    bool operator==(const ResourceLimits&) const = default;
};

} // namespace varnoth
