#include "decoder/SelfTest.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "decoder/DecoderChild.h"
#include "decoder/Samples.h"
#include "decoder/WarmUp.h"

namespace glintmark::decoder {

SelfTest::SelfTest(const Sandbox& sandbox, const ChildSettings& settings)
    : sandbox_(sandbox), settings_(settings) {
    forkChild();
}

void SelfTest::forkChild() {
    std::array<int, 2> ends{-1, -1};
    if (next_ == samples().size() || pipe2(ends.data(), O_CLOEXEC) != 0) {
        return;
    }
    results_ = FileDescriptor(ends[0]);
    const FileDescriptor writing(ends[1]);
    process_ = forkProcess([&] { runSelfTest(writing, next_, sandbox_, settings_); });
}

std::optional<std::string_view> SelfTest::handleEnd() {
    waitpid(process_.pid, nullptr, 0);
    process_ = {};
    std::uint8_t works = 0;
    while (next_ < samples().size() && read(results_.get(), &works, sizeof works) == 1 &&
           works == 1) {
        ++next_;
    }
    results_ = {};
    if (next_ == samples().size()) {
        return std::nullopt;
    }
    const Sample& broken = samples()[next_++];
    brokenFormats_.push_back(formatOf(broken));
    forkChild();
    return broken.name;
}

}  // namespace glintmark::decoder
