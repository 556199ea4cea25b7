#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "decoder/DecoderChild.h"
#include "decoder/ForkedProcess.h"

namespace glintmark::decoder {

/// Decodes each sample once in the sandbox: the sandbox may break a format, on a system whose
/// libraries make other calls.
///
/// A child decodes the samples. If it dies, its last sample is broken, and another child decodes
/// those that follow.
class SelfTest {
public:
    /// Forks the first child.
    SelfTest(const Sandbox& sandbox, const ChildSettings& settings);

    /// Readable once the child has ended. Negative when the test is over.
    int descriptor() const { return process_.descriptor.get(); }

    /// Reads the results of a child that has ended, and forks the next child if needed. Returns
    /// the name of a broken sample.
    std::optional<std::string_view> handleEnd();

    /// The formats of the broken samples.
    const std::vector<FormatDecoder*>& brokenFormats() const { return brokenFormats_; }

private:
    void forkChild();

    const Sandbox& sandbox_;
    const ChildSettings& settings_;
    std::size_t next_ = 0;  // the first sample of the next child
    ForkedProcess process_;
    FileDescriptor results_;
    std::vector<FormatDecoder*> brokenFormats_;
};

}  // namespace glintmark::decoder
