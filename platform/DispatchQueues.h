#pragma once

#include <memory>
#include <string>

#include "base/work/DispatchQueue.h"

namespace glintmark::platform {

enum class QualityOfService { userInitiated };

/// Gives access to the main and the global queue, and makes serial ones.
class DispatchQueues {
public:
    virtual ~DispatchQueues() = default;

    /// The queue of the main thread's event loop.
    virtual DispatchQueue& main() = 0;

    /// The shared concurrent queue. Its work must not wait for other work on it.
    virtual DispatchQueue& global(QualityOfService quality) = 0;

    /// A new serial queue of default quality. `label` names its thread where the system shows one.
    virtual std::unique_ptr<DispatchQueue> makeSerial(const std::string& label) = 0;
};

}  // namespace glintmark::platform
